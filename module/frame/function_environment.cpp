// Building and finding the FunctionEnvironment of a call context.
#include "module/frame/function_environment.h"

#include <bit>
#include <cstring>
#include <string_view>

#include "module/charset/wide_classes.h"
#include "module/frame/host_call.h"
#include "module/rng/stream.h"

namespace txscan {

using namespace contract;

namespace {

constexpr std::uint64_t kEmptyMarkBits = 0xC00921FB54442D18ull;  // -3.141592653589793

void** slotTable(void* callContext) { return static_cast<CallContext*>(callContext)->slots; }

}  // namespace

// Every step that allocates keeps what it got in the record, and the record
// sits in slot 37 from the moment it exists: a build that stops part way is
// taken up again by the next call instead of started afresh, so a failure
// that persists (an option the host never finds, a pool that stays
// exhausted) costs no memory per call, and one that passes lets the next
// call finish the record.
std::int32_t buildFunctionEnvironment(void* callContext) {
    void* pool = static_cast<CallContext*>(callContext)->pool;
    auto* record = static_cast<FunctionEnvironment*>(slotTable(callContext)[kEnvironmentSlot]);
    if (record == nullptr) {
        record = static_cast<FunctionEnvironment*>(poolAllocate(pool, sizeof(FunctionEnvironment), kPoolEnvironment));
        if (record == nullptr) return kEnvironmentNoMemory;
        // The pool gives this record no zero fill; these say which steps are done.
        record->randomStream = nullptr;
        record->defaultDelimiters = nullptr;
        record->spareTable = nullptr;
        callHost(kHostSetContextSlot, callContext, kEnvironmentSlot, static_cast<void*>(record));
    }
    if (environmentComplete(record)) return 0;

    if (record->randomStream == nullptr) {
        const std::int64_t seed = rng::readSeedOption("-rngseed");
        record->randomStream = rng::createStream(static_cast<std::uint64_t>(seed), 0);
        if (record->randomStream == nullptr) return kEnvironmentNoMemory;
    }
    record->zero4 = 0;
    record->emptyMark = std::bit_cast<double>(kEmptyMarkBits);

    const std::int32_t status = callHost(kHostGetOption, "YEARCUTOFF", 10, std::int64_t{0}, std::int64_t{0},
                                         std::int64_t{0}, &record->yearCutoff, std::int64_t{0}, callContext);
    if (status != 0) return status;

    callHost(kHostText8, record->hostText);
    std::uint16_t length = 8;
    while (length > 0 && record->hostText[length - 1] == ' ') --length;
    record->hostTextLength = length;

    if (record->defaultDelimiters == nullptr) {
        auto* delimiters = static_cast<std::uint8_t*>(poolAllocate(pool, 256, kPoolModuleZeroed));
        if (delimiters == nullptr) return kEnvironmentNoMemory;
        for (const char c : std::string_view(kDefaultDelimiterText)) delimiters[static_cast<unsigned char>(c)] = 1;
        record->defaultDelimiters = delimiters;
    }
    record->spareTable = static_cast<std::uint8_t*>(poolAllocate(pool, 256, kPoolModuleZeroed));
    if (record->spareTable == nullptr) return kEnvironmentNoMemory;
    return 0;
}

FunctionEnvironment* functionEnvironmentFor(ArgumentFrame* frame) {
    if (frame->callContext == nullptr) {
        frame->callContext = static_cast<void* const*>(host().taskRecord)[kTaskCallContextWord];
    }
    void* context = frame->callContext;
    if (context == nullptr) {
        callHost(kHostError, kErrorNoMemory, std::int64_t{0});
        return nullptr;
    }
    auto* environment = static_cast<FunctionEnvironment*>(slotTable(context)[kEnvironmentSlot]);
    if (environment != nullptr && environmentComplete(environment)) return environment;
    buildFunctionEnvironment(context);
    environment = static_cast<FunctionEnvironment*>(slotTable(context)[kEnvironmentSlot]);
    if (environment == nullptr || !environmentComplete(environment)) {
        callHost(kHostError, kErrorNoMemory, std::int64_t{0});
        return nullptr;
    }
    return environment;
}

}  // namespace txscan
