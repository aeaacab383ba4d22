// selectMethod and the table of accepted method names.
#include "module/rng/select.h"

#include <cstdarg>

#include "module/rng/host_access.h"
#include "module/rng/messages.h"
#include "module/rng/seeds.h"
#include "module/rng/settings.h"
#include "module/rng/text.h"

namespace txscan::rng {
namespace {

struct AcceptedName {
    const char* name;
    FillRoutine fill;
};

// Grouped by first letter; within a group, in lookup order.
constexpr AcceptedName kAcceptedNames[] = {
    {"XOR64", &fillXor64},          {"XOR128", &fillXor128},          {"XOR1024", &fillXor1024},
    {"XOR4096", &fillXor4096},      {"XORGENS", &fillXorgens},        {"TF", &fillFry4x64},
    {"TF2", &fillFry2x64},          {"TF4", &fillFry4x64},            {"THREEFRY", &fillFry4x64},
    {"THREEFRY2X32", &fillFry2x32}, {"THREEFRY2X64", &fillFry2x64},   {"THREEFRY4X64", &fillFry4x64},
    {"TRNG", &fillRdrand},          {"SUBKEY32", &fillSubkey32},      {"SUBKEY64", &fillSubkey64},
    {"PCG", &fillPcg64i},           {"PCG32I", &fillPcg32i},          {"PCG64I", &fillPcg64i},
    {"MH3", &fillMh3},              {"MT", &fillMt64},                {"MT1998", &fillMt1998},
    {"MT2002", &fillMt32},          {"MT32", &fillMt32},              {"MT64", &fillMt64},
    {"MTHYBRID", &fillMtHybrid},    {"HARD", &fillRdrand},            {"HARDWARE", &fillRdrand},
    {"FRY2X32", &fillFry2x32},      {"FRY2X64", &fillFry2x64},        {"FRY4X64", &fillFry4x64},
    {"RANUNI", &fillRanuni},        {"RDRAND", &fillRdrand},
};

constexpr std::int32_t kMaxNameUnits = 15;
constexpr std::int32_t kSettingCapacity = 15;   // units with the terminator

FillRoutine lookUp(const TKChar* name, std::int32_t length) {
    const TKChar first = upperCase(name[0]);
    for (const AcceptedName& accepted : kAcceptedNames) {
        if (static_cast<TKChar>(accepted.name[0]) != first || textLength(accepted.name) != length) continue;
        bool equal = true;
        for (std::int32_t i = 1; equal && i < length; ++i)
            equal = upperCase(name[i]) == static_cast<TKChar>(accepted.name[i]);
        if (equal) return accepted.fill;
    }
    return nullptr;
}

std::int32_t issueHostFailure(std::int32_t status, ...) {
    contract::Logger* logger = hostLogger();
    if (logger == nullptr) return 0;
    std::va_list none;
    va_start(none, status);
    std::int32_t result = logger->issueMessage(logger, contract::kSeverityError, status, none);
    va_end(none);
    return result;
}

// Widens an 8-bit name in the session encoding into `wide`; the units
// written, or 0 when the host could not convert it (reported, and the name
// then counts as empty so that the setting or the default applies).
std::int32_t widenName(const char* name, std::int32_t length, TKChar* wide) {
    contract::NameTranscoder* transcoder = nameTranscoder();
    std::int64_t bytes = 0;
    std::int32_t status = transcoder->widen(transcoder, name, length, wide, kMaxNameUnits * 2, &bytes, 0);
    if (status != 0) {
        issueHostFailure(status);
        return 0;
    }
    if (bytes < 0 || bytes > kMaxNameUnits * 2) bytes = kMaxNameUnits * 2;
    return static_cast<std::int32_t>(bytes / 2);
}

template <typename Char>
std::int32_t trimmed(const Char* name, std::int32_t length, std::int32_t* start) {
    while (length > 0 && name[length - 1] == ' ') --length;
    std::int32_t first = 0;
    while (first < length && name[first] == ' ') ++first;
    *start = first;
    return length - first;
}

}  // namespace

std::int32_t selectMethod(const void* name, std::int32_t length, RngMethod* record, std::uint64_t options) {
    if (record == nullptr) return 0;
    const bool wide = (options & kNameIsWide) != 0;
    if (name == nullptr) length = 0;
    if (length < 0)
        length = wide ? textLength(static_cast<const TKChar*>(name)) : textLength(static_cast<const char*>(name));
    std::int32_t start = 0;
    std::int32_t units = wide ? trimmed(static_cast<const TKChar*>(name), length, &start)
                              : trimmed(static_cast<const char*>(name), length, &start);
    FillRoutine fill = nullptr;
    if (units > kMaxNameUnits) {
        fillMtHybrid(record);
        return kUnknownMethod;
    }
    if (units > 0) {
        if (wide) {
            const TKChar* source = static_cast<const TKChar*>(name) + start;
            for (std::int32_t i = 0; i < units; ++i) record->wideName[i] = source[i];
        } else {
            units = widenName(static_cast<const char*>(name) + start, units, record->wideName);
        }
        record->wideName[units] = 0;
    }
    if (units == 0) {
        for (TKChar& unit : record->wideName) unit = 0;
        // The configured name is taken as it is, trailing blanks included.
        units = tknrtget(kKeyMethod, 0, record->wideName, kSettingCapacity);
        if (units == 0) {
            fillMtHybrid(record);
            return 0;
        }
    }
    fill = lookUp(record->wideName, units);
    if (fill == nullptr) {
        fillMtHybrid(record);
        return kUnknownMethod;
    }
    fill(record);
    if (record->outputBits == 0 && record->stateBytes == 0 && !hardwareAvailable()) {
        fillMtHybrid(record);
        return kNoHardwareRandom;
    }
    return 0;
}

}  // namespace txscan::rng
