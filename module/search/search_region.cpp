// Argument roles and the SearchRegion of the byte paths of KFIND and KFINDC.
#include "module/search/search_region.h"

namespace txscan {

using namespace contract;

std::int32_t startAndModifierRoles(ArgumentFrame* frame, FourthArgumentRule rule, StartAndModifiers* roles) {
    *roles = {0, 0};
    if (frame->argCount <= 2) return kStatusOk;
    const bool thirdNumeric = (frame->arg(3).typeFlags & kTypeNumeric) != 0;
    if (frame->argCount == 3) {
        *roles = thirdNumeric ? StartAndModifiers{3, 0} : StartAndModifiers{0, 3};
        return kStatusOk;
    }
    const std::uint8_t fourth = frame->arg(4).typeFlags;
    bool fits;
    if (thirdNumeric) {
        fits = rule == FourthArgumentRule::MustBeCharacter ? (fourth & kTypeCharacter) != 0
                                                            : (fourth & kTypeNumeric) == 0;
        *roles = {3, 4};
    } else {
        fits = (fourth & kTypeNumeric) != 0;
        *roles = {4, 3};
    }
    if (!fits) {
        frame->arg(4).errorMarks |= kErrorMark;
        return kStatusInvalidArgument;
    }
    return kStatusOk;
}

RegionResult regionFromStart(const ArgumentFrame* frame, int startArg, const char* data, std::int32_t length,
                             SearchRegion* region, double* result, std::int32_t* status) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
    if (length < 0) length = 0;
    *region = {bytes, length, 1, false};
    if (startArg == 0) return RegionResult::Search;
    const double* value = frame->number(startArg);
    if (value == nullptr) return RegionResult::Search;   // an absent start reads as none
    const double s = *value;
    if (exponentAllOnes(s)) {
        *result = missingValue();
        *status = kStatusMissingStart;
        return RegionResult::Done;
    }
    if (s > 0) {
        if (s > length) {
            *result = 0.0;
            *status = kStatusOk;
            return RegionResult::Done;
        }
        const auto k = static_cast<std::int32_t>(s);
        if (k < 1) {
            // A start between 0 and 1 counts as 0: nothing is searched, as
            // on the multi-byte path, and no byte before the source is read.
            region->length = 0;
            return RegionResult::Search;
        }
        *region = {bytes + (k - 1), length - k + 1, k, false};
        return RegionResult::Search;
    }
    region->leftwards = true;
    if (!(s < -static_cast<double>(length))) region->length = static_cast<std::int32_t>(-s);
    return RegionResult::Search;
}

}  // namespace txscan
