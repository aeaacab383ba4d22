// Settings operations and the message emitter of the random library.
#include "module/rng/settings.h"

#include <cstdarg>
#include <limits>

#include "module/rng/host_access.h"
#include "module/rng/messages.h"
#include "module/rng/text.h"

namespace txscan::rng {
namespace {

using contract::kStatusNoValue;
using contract::kStatusOtherType;
using contract::kStatusOtherTypeStored;
using contract::Logger;

constexpr std::int32_t kNoValue = static_cast<std::int32_t>(kStatusNoValue);
constexpr double kIntegerLimit = 9007199254740992.0;   // 2^53
constexpr std::int32_t kWordBufferUnits = 100;
constexpr std::int32_t kIntegerTextUnits = 24;

constexpr TKChar kGetService[] = u"tkNameValueGet";
constexpr TKChar kSetService[] = u"tkNameValueSet";
constexpr TKChar kEmpty[] = u"";

bool otherType(std::int32_t status) {
    return status == static_cast<std::int32_t>(kStatusOtherType) ||
           status == static_cast<std::int32_t>(kStatusOtherTypeStored);
}

bool tracing() { return nameIsSetFn()(kernelRoot(), kKeyDebug, textLength(kKeyDebug)); }

// The host reads every "%.*S" argument, so a missing name is shown empty.
const TKChar* shown(const TKChar* text) { return text != nullptr ? text : kEmpty; }

template <typename... Args>
std::int32_t logLine(std::int32_t level, const TKChar* format, Args... args) {
    Logger* logger = hostLogger();
    if (logger == nullptr) return 0;
    return logger->logLine(logger, level, format, std::int64_t{0}, args...);
}

std::int32_t issueDirect(std::int32_t severity, std::int32_t messageCode, ...) {
    Logger* logger = hostLogger();
    if (logger == nullptr) return 0;
    std::va_list arguments;
    va_start(arguments, messageCode);
    std::int32_t status = logger->issueMessage(logger, severity, messageCode, arguments);
    va_end(arguments);
    return status;
}

// A host call failed: say so in a failure line, issue the status, and the
// status of the line itself when that failed too. The caller keeps its default.
void reportFailure(const TKChar* service, const TKChar* name, std::int32_t length, const char* operation,
                   std::int32_t status) {
    std::int32_t lineStatus = logLine(contract::kLevelFailure, u"%s failed for %.*S in %hs", service, length,
                                      shown(name), operation);
    issueDirect(contract::kSeverityError, status);
    if (lineStatus != 0) issueDirect(contract::kSeverityError, lineStatus);
}

std::int32_t getValue(const TKChar* name, std::int32_t length, std::int32_t type, void* value, std::int64_t* size) {
    return nameValueGetFn()(kernelRoot(), name, length, type, value, size);
}

std::int32_t setValue(const TKChar* name, std::int32_t length, std::int32_t type, const void* value,
                      std::int64_t size) {
    return nameValueSetFn()(kernelRoot(), name, length, 1, type, value, size, 0, 0);
}

// The text of a setting in buffer[0..units), terminated (empty when the
// host has none or fails); the characters read.
std::int32_t getText(const TKChar* name, std::int32_t length, TKChar* buffer, std::int32_t units, const char* operation) {
    const std::int64_t room = std::int64_t{units} * 2 - 2;
    std::int64_t size = room;
    std::int32_t status = getValue(name, length, contract::kValueText, buffer, &size);
    if (status != 0) {
        buffer[0] = 0;
        if (status != kNoValue) reportFailure(kGetService, name, length, operation, status);
        return 0;
    }
    buffer[size < 0 || size > room ? room / 2 : size / 2] = 0;
    return textLength(buffer);
}

std::int32_t setText(const TKChar* name, std::int32_t length, const TKChar* text, const char* operation) {
    std::int32_t status =
        setValue(name, length, contract::kValueText, shown(text), std::int64_t{textLength(text)} * 2);
    if (status != 0 && status != kNoValue) reportFailure(kSetService, name, length, operation, status);
    return status;
}

std::int32_t setInteger(const TKChar* name, std::int32_t length, std::int64_t value, bool trace) {
    if (trace)
        logLine(contract::kLevelTrace, u"%hs(%.*S)=%lli", "tknrlset", length, shown(name),
                static_cast<long long>(value));
    std::int32_t status = setValue(name, length, contract::kValueInteger, &value, 8);
    if (otherType(status)) {
        // The name already holds text (a user's "5"): keep it text.
        TKChar text[kIntegerTextUnits] = {};
        std::int64_t textUnits = 0;
        if (Logger* logger = hostLogger(); logger != nullptr)
            logger->formatText(logger, u"%lli", 0, text, kIntegerTextUnits, &textUnits,
                               static_cast<long long>(value));
        if (textUnits < 0 || textUnits >= kIntegerTextUnits) textUnits = textLength(text);
        if (trace) {
            issueDirect(contract::kSeverityError, status);
            logLine(contract::kLevelTrace, u"%hs(%.*S)='%.*S'", "tknrlset", length, shown(name),
                    static_cast<std::int32_t>(textUnits), text);
        }
        status = setValue(name, length, contract::kValueText, text, textUnits * 2);
    }
    if (status != 0 && status != kNoValue) reportFailure(kSetService, name, length, "tknrlset", status);
    return status;
}

bool isBlank(TKChar unit) { return unit == u' '; }

}  // namespace

bool parseIntegerText(const TKChar* text, std::int32_t length, std::int64_t* value) {
    std::int32_t i = 0;
    while (i < length && isBlank(text[i])) ++i;
    bool negative = false;
    if (i < length && (text[i] == u'-' || text[i] == u'+')) negative = text[i++] == u'-';
    if (i >= length || text[i] < u'0' || text[i] > u'9') return false;
    double accumulated = 0;
    for (; i < length && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        accumulated = accumulated * 10 + (text[i] - u'0');
        if (accumulated > kIntegerLimit) {
            if (negative) return false;
            *value = static_cast<std::int64_t>(kIntegerLimit);
            return true;
        }
    }
    if (i < length && text[i] == u'.')
        for (++i; i < length && text[i] == u'0'; ++i) {
        }
    while (i < length && isBlank(text[i])) ++i;
    if (i != length) return false;
    *value = static_cast<std::int64_t>(negative ? -accumulated : accumulated);
    return true;
}

std::int32_t tknrtget(const TKChar* name, std::int32_t length, TKChar* buffer, std::int32_t capacity) {
    bool trace = tracing();
    length = nameLength(name, length);
    if (capacity > 0) buffer[0] = 0;
    std::int32_t read = 0;
    if (capacity > 1 && name != nullptr) read = getText(name, length, buffer, capacity, "tknrtget");
    if (trace)
        logLine(contract::kLevelTrace, u"%hs(%.*S)='%s'", "tknrtget", length, shown(name),
                capacity > 0 ? buffer : kEmpty);
    return read;
}

// Nothing in the library reads 8-bit settings; this reader follows tknrtget
// and narrows what it reads, so a caller with an 8-bit buffer sees '?' for
// characters it cannot hold.
std::int32_t tknrcget(const TKChar* name, std::int32_t length, char* buffer, std::int32_t capacity) {
    constexpr std::int32_t kUnits = 256;
    bool trace = tracing();
    length = nameLength(name, length);
    if (capacity > 0) buffer[0] = 0;
    std::int32_t read = 0;
    if (capacity > 1 && name != nullptr) {
        TKChar wide[kUnits];
        getText(name, length, wide, capacity < kUnits ? capacity : kUnits, "tknrcget");
        for (; wide[read] != 0; ++read) buffer[read] = wide[read] < 0x100 ? static_cast<char>(wide[read]) : '?';
        buffer[read] = 0;
    }
    if (trace)
        logLine(contract::kLevelTrace, u"%hs(%.*S)='%hs'", "tknrcget", length, shown(name),
                capacity > 0 ? buffer : "");
    return read;
}

double tknrdget(const TKChar* name, std::int32_t length, double defaultValue) {
    bool trace = tracing();
    length = nameLength(name, length);
    double value = defaultValue;
    if (name != nullptr) {
        std::int64_t size = 8;
        std::int32_t status = getValue(name, length, contract::kValueDouble, &value, &size);
        if (status != 0) {
            value = defaultValue;
            if (status != kNoValue) reportFailure(kGetService, name, length, "tknrdget", status);
        }
    }
    if (trace) logLine(contract::kLevelTrace, u"%hs(%.*S)=%20g", "tknrdget", length, shown(name), value);
    return value;
}

std::int64_t tknrlget(const TKChar* name, std::int32_t length) {
    bool trace = tracing();
    length = nameLength(name, length);
    std::int64_t value = kNoInteger;
    if (name != nullptr) {
        std::int64_t stored = 0;
        std::int64_t size = 8;
        std::int32_t status = getValue(name, length, contract::kValueInteger, &stored, &size);
        if (status == 0) {
            value = stored;
        } else if (otherType(status)) {
            TKChar text[kWordBufferUnits];
            std::int32_t units = tknrtget(name, length, text, kWordBufferUnits);
            std::int64_t parsed = 0;
            if (units == 0) {
                reportFailure(kGetService, name, length, "tknrlget", status);
            } else if (parseIntegerText(text, units, &parsed)) {
                value = parsed;
            } else {
                // Issued directly: the emitter's own limits are read through here.
                issueDirect(contract::kSeverityError, kMsgLimitNotInteger, units, text, length, name,
                            static_cast<long long>(-kIntegerLimit), static_cast<long long>(kIntegerLimit));
            }
        } else if (status != kNoValue) {
            reportFailure(kGetService, name, length, "tknrlget", status);
        }
    }
    if (trace)
        logLine(contract::kLevelTrace, u"%hs(%.*S)=%lli", "tknrlget", length, shown(name),
                static_cast<long long>(value));
    return value;
}

void tknrlset(const TKChar* name, std::int32_t length, std::int64_t value) {
    bool trace = tracing();
    if (name == nullptr) return;
    setInteger(name, nameLength(name, length), value, trace);
}

void tknrtset(const TKChar* name, std::int32_t length, const TKChar* text) {
    tracing();
    if (name == nullptr) return;
    setText(name, nameLength(name, length), text, "tknrtset");
}

// Nothing in the library writes doubles; this writer follows tknrlset.
void tknrdset(const TKChar* name, std::int32_t length, double value) {
    bool trace = tracing();
    if (name == nullptr) return;
    length = nameLength(name, length);
    if (trace) logLine(contract::kLevelTrace, u"%hs(%.*S)=%20g", "tknrdset", length, name, value);
    std::int32_t status = setValue(name, length, contract::kValueDouble, &value, 8);
    if (status != 0 && status != kNoValue) reportFailure(kSetService, name, length, "tknrdset", status);
}

std::int32_t tknrlimit(const TKChar* name, std::int32_t length, std::int64_t defaultValue) {
    bool trace = tracing();
    length = nameLength(name, length);
    std::int64_t value = defaultValue;
    if (name != nullptr) {
        if (nameIsSetFn()(kernelRoot(), name, length)) {
            value = tknrlget(name, length);
            if (value == kNoInteger) {
                if (trace)
                    logLine(contract::kLevelFailure,
                            u"tkNameValueGet failed for %.*S in %hs. The existing value may not be a TKChar "
                            u"string or QIXLONG.",
                            length, name, "tknrlimit");
                value = kDefaultLimit;
            }
            // Spent and negative count-downs rest at -1; stepping down from any
            // of them first would overflow at the bottom of the range.
            value = value > 0 ? value - 1 : -1;
            if (value == 0) issueDirect(contract::kSeverityNote, kMsgLimitReached, length, name);
        }
        std::int32_t status = setInteger(name, length, value, trace);
        if (status != 0) issueDirect(contract::kSeverityError, status);
    }
    if (trace)
        logLine(contract::kLevelTrace, u"%hs(%.*S)=%lli", "tknrlimit", length, shown(name),
                static_cast<long long>(value));
    // A count-down above 2^31 (a user's huge limit) stays positive rather than wrapping.
    if (value > std::numeric_limits<std::int32_t>::max()) return std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(value);
}

std::int32_t tknrlook(const TKChar* name, std::int32_t length, std::int32_t defaultValue, ...) {
    bool trace = tracing();
    length = nameLength(name, length);
    std::int32_t result = defaultValue;
    TKChar text[kWordBufferUnits] = {};
    std::int32_t n = 0;
    if (name != nullptr) {
        n = tknrtget(name, length, text, kWordBufferUnits);
        while (n > 0 && isBlank(text[n - 1])) --n;
        if (n > 0) {
            for (std::int32_t i = 0; i < n; ++i) text[i] = upperCase(text[i]);
            std::va_list pairs;
            va_start(pairs, defaultValue);
            bool matched = false;
            while (const TKChar* word = va_arg(pairs, const TKChar*)) {
                std::int32_t value = va_arg(pairs, std::int32_t);
                std::int32_t wordLength = textLength(word);
                bool equal = wordLength == n;
                for (std::int32_t i = 0; equal && i < n; ++i) equal = word[i] == text[i];
                if (equal) {
                    result = value;
                    matched = true;
                    if (trace)
                        logLine(contract::kLevelTrace, u"%hs(%.*S) '%.*S' == '%.*S' %i", "tknrlook", length, name, n,
                                text, wordLength, word, value);
                    break;
                }
                if (trace)
                    logLine(contract::kLevelTrace, u"%hs(%.*S) '%.*S' != '%.*S' %i", "tknrlook", length, name, n, text,
                            wordLength, word, value);
            }
            va_end(pairs);
            if (!matched) {
                std::int32_t messageStatus = issueDirect(contract::kSeverityError, kMsgUnknownWord, n, text, length, name);
                std::int32_t clearStatus = setText(name, length, kEmpty, "tknrtset");
                if (clearStatus != 0) issueDirect(contract::kSeverityError, clearStatus);
                if (messageStatus != 0) issueDirect(contract::kSeverityError, messageStatus);
            }
        }
    }
    if (trace)
        logLine(contract::kLevelTrace, u"%hs(%.*S)=%i '%.*S'", "tknrlook", length, shown(name), result, n, text);
    return result;
}

std::int32_t issueRngMessage(std::int32_t severity, std::int32_t messageCode, ...) {
    Logger* logger = hostLogger();
    if (logger == nullptr) return 0;
    if (severity < contract::kSeverityNote)
        severity = tknrlook(kKeySeverity, 0, severity, u"ERROR", 4, u"ERRORS", 4, u"WARN", 3, u"WARNING", 3,
                            u"WARNINGS", 3, u"NOTE", 2, u"NOTES", 2, u"YES", 2, u"INFO", 1, u"ALL", 0,
                            static_cast<const TKChar*>(nullptr));
    std::int32_t threshold =
        tknrlook(kKeyMessages, 0, 4, u"NO", 9, u"NONE", 9, u"ERROR", 4, u"ERRORS", 4, u"WARN", 3, u"WARNING", 3,
                 u"WARNINGS", 3, u"NOTE", 2, u"NOTES", 2, u"YES", 2, u"INFO", 1, u"ALL", 0,
                 static_cast<const TKChar*>(nullptr));
    if (severity < threshold) return 0;
    if (severity <= contract::kSeverityNote) {
        if (tknrlimit(kKeyNoteLimit, 0, kDefaultLimit) < 0) return 0;
        severity = contract::kSeverityNote;
    } else if (tknrlimit(kKeyErrorLimit, 0, kDefaultLimit) < 0) {
        return 0;
    }
    std::va_list arguments;
    va_start(arguments, messageCode);
    std::int32_t status = logger->issueMessage(logger, severity, messageCode, arguments);
    va_end(arguments);
    if (status != 0) issueDirect(contract::kSeverityError, status);
    return status;
}

}  // namespace txscan::rng
