// Stream creation, initialisation and seeding.
#include "module/rng/stream.h"

#include <cmath>
#include <cstring>

#include "module/abi/host_vector.h"
#include "module/frame/host_call.h"
#include "module/rng/hash.h"
#include "module/rng/host_access.h"
#include "module/rng/messages.h"
#include "module/rng/numbers.h"
#include "module/rng/seeds.h"
#include "module/rng/select.h"
#include "module/rng/settings.h"

namespace txscan::rng {
namespace {

constexpr double kMinusPi = -3.141592653589793;   // marks the saved values empty
constexpr std::uint64_t kPackedStreamLimit32 = 1023;
constexpr std::uint64_t kPackedStreamLimit64 = 1048575;
constexpr int kPackShift32 = 21;
constexpr int kPackShift64 = 43;

bool has(const RngMethod* method, std::uint32_t capability) { return (method->flags & capability) != 0; }

void setStatus(RngStream* s, std::int32_t status) {
    if (s->status == 0) s->status = status;
}

using ull = unsigned long long;

// Whether the method lacks the capability of a seed or stream; a missing
// request counts as none, and one that was given, as a request or as the
// stream's own value, is then ignored with a warning.
bool lacks(RngStream* s, std::uint32_t capability, double& requested, std::uint64_t current, std::int32_t status,
           std::int32_t message) {
    if (isMissing(requested)) requested = 0;
    if (has(s->method, capability)) return false;
    if (requested != 0 || current != 0) {
        setStatus(s, status);
        issueRngMessage(contract::kSeverityWarning, message, requested != 0 ? requested : static_cast<double>(current),
                        s->methodName);
    }
    return true;
}

void checkSeed(RngStream* s, std::uint32_t bitsBefore) {
    RngMethod* method = s->method;
    if (lacks(s, kSeedCapability, s->requestedSeed, s->seed, kSeedNotAccepted, kMsgSeedIgnored)) return;
    if (s->requestedSeed != 0) s->seed = reduceToWord<std::uint64_t>(convertSeed(s->requestedSeed, method->maxSeed));
    if (s->seed == 0) {
        // The width of the method in force before this initialisation: a new
        // stream has none yet and takes a 32-bit seed whatever method the
        // setting names, so the function environment's stream gets the same
        // automatic seed under every configuration; the selected method then
        // receives it through its own seed32 or seed64.
        s->seed = bitsBefore <= 32 ? static_cast<std::uint64_t>(static_cast<std::int64_t>(
                                         static_cast<std::int32_t>(autoSeed32())))
                                   : autoSeed64();
    } else if (s->requestedSeed != 0 && static_cast<double>(s->seed) != s->requestedSeed) {
        issueRngMessage(contract::kSeverityWarning, kMsgSeedConverted, s->requestedSeed, static_cast<ull>(method->maxSeed),
                        s->methodName, static_cast<ull>(s->seed), static_cast<ull>(s->seed));
    }
}

void checkStream(RngStream* s) {
    RngMethod* method = s->method;
    if (lacks(s, kStreamCapability, s->requestedStream, s->stream, kStreamNotAccepted, kMsgStreamIgnored)) return;
    const double requested = s->requestedStream;
    if (!wholeNumberWithin(requested, method->maxStream)) {
        setStatus(s, kStreamOutOfRange);
        issueRngMessage(contract::kSeverityError, kMsgRequestedStreamBad, requested,
                        static_cast<ull>(method->maxStream), s->methodName);
    } else if (s->stream > method->maxStream) {
        setStatus(s, kStreamOutOfRange);
        issueRngMessage(contract::kSeverityError, kMsgStreamTooLarge, static_cast<ull>(s->stream),
                        static_cast<ull>(method->maxStream), s->methodName);
    }
}

void noteMethod(RngStream* s) {
    if ((s->options & kMethodNamed) == 0 || (s->options & kMethodNoted) != 0) return;
    s->options |= kMethodNoted;
    const RngMethod* method = s->method;
    const char* label = has(method, RNG_NOTE_BY_DESCRIPTION) ? method->description : method->shortName;
    const auto seed = static_cast<ull>(s->seed);
    const auto stream = static_cast<ull>(s->stream);
    if (s->stream == 0 && s->seed == 0)
        issueRngMessage(contract::kSeverityNote, kMsgMethod, label);
    else if (s->stream == 0)
        issueRngMessage(contract::kSeverityNote, kMsgMethodSeed, label, seed, seed);
    else
        issueRngMessage(contract::kSeverityNote, kMsgMethodSeedStream, label, seed, seed, stream, stream);
}

void* currentCallContext() {
    return static_cast<void* const*>(host().taskRecord)[contract::kTaskCallContextWord];
}

bool isWhiteSpace(unsigned char c) { return (host().classTable[c] & contract::kClassSpace) != 0; }
bool isAlphanumeric(unsigned char c) {
    return (host().classTable[c] & (contract::kMaskAlpha | contract::kClassDigit)) != 0;
}

}  // namespace

std::int32_t readSeedOption(const char* name) {
    constexpr std::int32_t kCapacity = 1024;
    char text[kCapacity + 1];
    std::int32_t length = kCapacity;
    std::int32_t status = callHost(contract::kHostQueryText, 0, contract::kOptionTextItem, 0, 0, 0, text, &length, 0,
                                   currentCallContext());
    if (status != 0 || length <= 0) return 0;
    if (length > kCapacity) length = kCapacity;
    text[length] = 0;

    if (name[0] == '-') {
        ++name;
        while (*name == ' ') ++name;
    }
    const std::uint8_t* upcase = host().upcaseMap;
    const auto* t = reinterpret_cast<const unsigned char*>(text);
    const auto* wanted = reinterpret_cast<const unsigned char*>(name);
    std::int32_t result = 0;
    std::int32_t p = 0;
    while (true) {
        while (p < length && isWhiteSpace(t[p])) ++p;
        if (p >= length) break;
        std::int32_t n = 0;
        while (wanted[n] != 0 && wanted[n] != ' ' && p < length && upcase[t[p]] == upcase[wanted[n]]) {
            ++n;
            ++p;
        }
        bool nameEnded = wanted[n] == 0 || wanted[n] == ' ';
        if (p < length && t[p] == '*') {   // "RNG*" stands for any name that starts with RNG
            ++p;
            nameEnded = true;
        }
        const unsigned char after = p < length ? t[p] : 0;
        const bool matched = nameEnded && !isAlphanumeric(after) && after != '_';
        if (matched) result = 1;
        while (p < length && t[p] != ' ') {
            if (matched && t[p] == '=') {
                std::int32_t used = 0;
                std::int32_t value = 0;
                callHost(contract::kHostParseInteger, text + p + 1, length - (p + 1), 0, &used, &value);
                result = value;
                p += 1 + (used > 0 ? used : 0);
                continue;
            }
            ++p;
        }
    }
    if (result != 0) {
        callHost(contract::kHostOptionBracket, 0, -1);
        callHost(contract::kHostSetOptionFlag, 0, 28, 1);
        callHost(contract::kHostOptionBracket, 0, 0);
    }
    return result;
}

RngStream* createStream(std::uint64_t seed, std::uint64_t stream) {
    auto* s = static_cast<RngStream*>(
        poolAllocate(host().hostPool, sizeof(RngStream), contract::kPoolModuleZeroed));
    if (s == nullptr) return nullptr;
    s->method = &s->embedded;
    s->state = s->stateArea;
    s->seed = seed;
    s->stream = stream;
    initStream(s);
    return s;
}

std::int32_t initStream(RngStream* s) {
    if (s == nullptr) return kNullContext;
    const std::uint32_t bitsBefore = s->method != nullptr ? s->method->outputBits : s->embedded.outputBits;
    s->headMark = kHeadMark;
    s->tailMark = kTailMark;
    s->status = 0;
    if (s->logger == nullptr) s->logger = hostLogger();
    if (s->method == nullptr) s->method = &s->embedded;
    RngMethod* method = s->method;

    if (s->requestedName != s->embedded.shortName) {
        const void* wanted = s->requestedName;
        s->requestedName = s->embedded.shortName;
        if (wanted != nullptr) {
            s->options |= kMethodNamed;
            s->options &= ~std::uint64_t{kMethodNoted};
        }
        s->status = selectMethod(wanted, -1, method, s->options);
        s->uniformFn = method->ops.uniform;
        s->stateSizeBytes = method->ops.stateSize();
        std::memcpy(s->methodName, method->wideName, sizeof s->methodName);
        s->seeded = 0;
    }
    checkSeed(s, bitsBefore);
    checkStream(s);
    noteMethod(s);
    applySeed(s);
    s->lastSeed = s->seed;
    s->seedHash = method->outputBits <= 32 ? fmix32(static_cast<std::uint32_t>(s->seed))
                                            : static_cast<std::uint32_t>(fmix64(s->seed));
    if (method->ops.uniformPreferred != nullptr) s->uniformFn = method->ops.uniformPreferred;
    return s->status;
}

std::int32_t applySeed(RngStream* s) {
    if (s == nullptr) return kNullContext;
    RngMethod* method = s->method;
    const RngOperations& ops = method->ops;
    const bool narrow = method->outputBits <= 32;
    if (has(method, kSeedCapability)) {
        if (narrow)
            ops.seed32(s->state, static_cast<std::uint32_t>(s->seed));
        else
            ops.seed64(s->state, s->seed);
    }
    if (has(method, kKeyCapability)) {
        if (narrow) {
            ops.setKey32(s->state, static_cast<std::uint32_t>(s->key));
            if (has(method, kStreamCapability)) ops.setStream32(s->state, static_cast<std::uint32_t>(s->stream));
        } else {
            ops.setKey64(s->state, s->key);
            if (has(method, kStreamCapability)) ops.setStream64(s->state, s->stream);
        }
    } else if (has(method, kStreamCapability)) {
        // Without a key, `key` is a sub-stream packed below the stream number.
        const std::uint64_t limit = narrow ? kPackedStreamLimit32 : kPackedStreamLimit64;
        if (s->stream > limit) {
            setStatus(s, kStreamOutOfRange);
            issueRngMessage(contract::kSeverityError, kMsgStreamTooLarge, static_cast<ull>(s->stream),
                            static_cast<ull>(limit), s->methodName);
        }
        if (narrow)
            ops.setStream32(s->state, static_cast<std::uint32_t>((s->stream << kPackShift32) | s->key));
        else
            ops.setStream64(s->state, (s->stream << kPackShift64) | s->key);
    }
    s->savedValueA = kMinusPi;
    s->savedValueB = kMinusPi;
    s->savedWord = 0x80000001u;
    s->savedFlagA = 0;
    s->savedValueC = kMinusPi;
    s->savedFlagB = 0;
    s->seeded = 1;
    return s->status;
}

}  // namespace txscan::rng
