// Host side of the random-number library (see rng_services.h): the typed
// name-value store, the logger with its catalogue, the system query with the
// processor record, the current task and the name transcoder.
#include "host/rng_services.h"

#if defined(_WIN32)
#include <process.h>
#else
#include <unicode/ucnv.h>
#include <unistd.h>
#endif

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <variant>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

#include "host/rng_catalogue.h"
#include "host/rng_format.h"
#include "host/session_impl.h"
#include "module/abi/host_vector.h"
#include "module/abi/rng_host.h"

namespace txhost {

namespace contract = txscan::contract;

namespace {

struct LoggerObject {
    contract::Logger table;   // must stay first: the module holds its address
    RngHostState* services = nullptr;
};

struct TranscoderObject {
    contract::NameTranscoder table;   // must stay first
    RngHostState* services = nullptr;
};

using Value = std::variant<double, std::int64_t, std::u16string>;

contract::ProcessorRecord readProcessor() {
    contract::ProcessorRecord record{};
#if defined(__x86_64__) || defined(__i386__)
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0) record.leaf1Ecx = ecx;
#endif
    return record;
}

}  // namespace

struct RngHostState {
    Session* session = nullptr;
    std::map<std::string, Value, std::less<>> store;
    std::vector<Message> messages;
    LoggerObject logger;
    TranscoderObject transcoder;
    contract::ProcessorRecord processor = readProcessor();   // as CPUID reports it
    std::array<std::uint64_t, 16> task{};
    void** kernelWords = nullptr;
    bool hardwareRandom = true;
    std::int32_t storeFailure = 0;
    std::int32_t logLineFailure = 0;
    std::int32_t transcodeFailure = 0;
};

namespace {

constexpr std::int32_t kNoValue = static_cast<std::int32_t>(contract::kStatusNoValue);
constexpr std::int32_t kGetOtherType = static_cast<std::int32_t>(contract::kStatusOtherTypeStored);
constexpr std::int32_t kSetOtherType = static_cast<std::int32_t>(contract::kStatusOtherType);

// The kernel object's logger leads back to the services of its session.
RngHostState& servicesOf(void* root) {
    auto* logger = static_cast<void**>(root)[contract::kKernelLogger];
    if (logger == nullptr) {
        // Tests may take the logger away; the store still belongs to the active session.
        return *rngServices(*activeSession()->owner).state;
    }
    return *static_cast<LoggerObject*>(logger)->services;
}

RngHostState* activeServices() {
    Session::Impl* session = activeSession();
    return session != nullptr && session->owner != nullptr ? rngServices(*session->owner).state.get() : nullptr;
}

std::string keyOf(const char16_t* name, std::int32_t length) {
    if (name == nullptr) return {};
    if (length < 1) length = static_cast<std::int32_t>(std::char_traits<char16_t>::length(name));
    return toUtf8(std::u16string(name, static_cast<std::size_t>(length)));
}

// ---- The name-value store.

bool nameIsSet(void* root, const char16_t* name, std::int32_t length) {
    RngHostState& services = servicesOf(root);
    return services.store.count(keyOf(name, length)) != 0;
}

std::int32_t nameValueGet(void* root, const char16_t* name, std::int32_t length, std::int32_t type, void* value,
                          std::int64_t* size) {
    RngHostState& services = servicesOf(root);
    if (services.storeFailure != 0) return services.storeFailure;
    auto found = services.store.find(keyOf(name, length));
    if (found == services.store.end()) return kNoValue;
    const Value& stored = found->second;
    switch (type) {
    case contract::kValueDouble:
    case contract::kValueInteger: {
        if (*size < 8) return kStatusBadValueSize;
        if (std::holds_alternative<std::u16string>(stored)) return kGetOtherType;
        if (type == contract::kValueDouble) {
            double d = std::holds_alternative<double>(stored) ? std::get<double>(stored)
                                                              : static_cast<double>(std::get<std::int64_t>(stored));
            std::memcpy(value, &d, 8);
        } else {
            std::int64_t i = 0;
            if (std::holds_alternative<std::int64_t>(stored)) {
                i = std::get<std::int64_t>(stored);
            } else {
                // A double is an integer only when it is a whole number in range.
                double d = std::get<double>(stored);
                if (!(d >= -0x1p63 && d < 0x1p63) || d != static_cast<double>(static_cast<std::int64_t>(d)))
                    return kGetOtherType;
                i = static_cast<std::int64_t>(d);
            }
            std::memcpy(value, &i, 8);
        }
        *size = 8;
        return 0;
    }
    case contract::kValueText: {
        if (!std::holds_alternative<std::u16string>(stored)) return kGetOtherType;
        const std::u16string& text = std::get<std::u16string>(stored);
        // A text longer than the buffer is cut to whole units.
        std::int64_t bytes = static_cast<std::int64_t>(text.size()) * 2;
        if (bytes > *size) bytes = *size / 2 * 2;
        std::memcpy(value, text.data(), static_cast<std::size_t>(bytes));
        *size = bytes;
        return 0;
    }
    default:
        return kGetOtherType;
    }
}

std::int32_t nameValueSet(void* root, const char16_t* name, std::int32_t length, std::int32_t, std::int32_t type,
                          const void* value, std::int64_t size, std::int64_t, std::int64_t) {
    RngHostState& services = servicesOf(root);
    if (services.storeFailure != 0) return services.storeFailure;
    std::string key = keyOf(name, length);
    auto found = services.store.find(key);
    bool storedText = found != services.store.end() && std::holds_alternative<std::u16string>(found->second);
    bool storedNumber = found != services.store.end() && !storedText;
    // A name keeps the kind of value it was first given (text or number).
    switch (type) {
    case contract::kValueDouble:
    case contract::kValueInteger: {
        if (size != 8) return kStatusBadValueSize;
        if (storedText) return kSetOtherType;
        if (type == contract::kValueDouble) {
            double d;
            std::memcpy(&d, value, 8);
            services.store.insert_or_assign(key, d);
        } else {
            std::int64_t i;
            std::memcpy(&i, value, 8);
            services.store.insert_or_assign(key, i);
        }
        return 0;
    }
    case contract::kValueText: {
        if (size < 0 || size % 2 != 0) return kStatusBadValueSize;
        if (storedNumber) return kSetOtherType;
        services.store.insert_or_assign(
            key, std::u16string(static_cast<const char16_t*>(value), static_cast<std::size_t>(size / 2)));
        return 0;
    }
    default:
        return kSetOtherType;
    }
}

// ---- The logger.

void record(RngHostState& services, Message::Source source, std::int32_t code, std::int32_t kind, std::string text) {
    Message message;
    message.source = source;
    message.code = code;
    message.kind = kind;
    message.text = std::move(text);
    services.messages.push_back(std::move(message));
}

std::int32_t formatText(void* logger, const char16_t* format, std::int64_t, char16_t* buffer, std::int64_t capacity,
                        std::int64_t* length, ...) {
    (void)logger;
    std::va_list arguments;
    va_start(arguments, length);
    std::u16string text = formatTk(format, arguments);
    va_end(arguments);
    std::int64_t units = 0;
    if (capacity > 0) {
        units = static_cast<std::int64_t>(text.size()) < capacity - 1 ? static_cast<std::int64_t>(text.size())
                                                                       : capacity - 1;
        std::memcpy(buffer, text.data(), static_cast<std::size_t>(units) * 2);
        buffer[units] = 0;
    }
    if (length != nullptr) *length = units;
    return 0;
}

std::int32_t logLine(void* logger, std::int32_t level, const char16_t* format, std::int64_t zero, ...) {
    RngHostState& services = *static_cast<LoggerObject*>(logger)->services;
    std::va_list arguments;
    va_start(arguments, zero);
    std::u16string text = formatTk(format, arguments);
    va_end(arguments);
    record(services, Message::Source::LogLine, 0, level, toUtf8(text));
    return services.logLineFailure;
}

std::int32_t issueMessage(void* logger, std::int32_t severity, std::int32_t code, std::va_list arguments) {
    RngHostState& services = *static_cast<LoggerObject*>(logger)->services;
    std::string text = rngSeverityPrefix(severity);
    if (const char16_t* format = rngCatalogueText(code)) {
        text += toUtf8(formatTk(format, arguments));
    } else {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "Message 0x%08X.", static_cast<unsigned>(code));
        text += buffer;
    }
    record(services, Message::Source::Catalogued, code, severity, std::move(text));
    return 0;
}

// ---- The system query, the current task and the transcoder.

std::int32_t systemQuery(std::int32_t code, void* buffer, std::uint32_t flags) {
    RngHostState* services = activeServices();
    if (code == contract::kQueryClock.code && flags == contract::kQueryClock.flags) {
        auto now = std::chrono::system_clock::now().time_since_epoch();
        contract::ClockReading reading{std::chrono::duration<double>(now).count(), 0.0};
        std::memcpy(buffer, &reading, sizeof reading);
        return 0;
    }
    if (code == contract::kQueryProcessor.code && flags == contract::kQueryProcessor.flags) {
        contract::SystemInfoRecord info{};
        if (services != nullptr) {
            // Per thread: tasks on several threads query at once, and each
            // reads the record it was handed right after the query.
            static thread_local contract::ProcessorRecord reported{};
            reported = services->processor;
            bool allowed = services->hardwareRandom && services->session->options().hardwareRandom;
            if (!allowed) reported.leaf1Ecx &= ~(1u << 30);
            info.processor = &reported;
        }
        std::memcpy(buffer, &info, sizeof info);
        return 0;
    }
    if (code == contract::kQueryMachine.code && flags == contract::kQueryMachine.flags) {
        contract::MachineRecord machine{};
        machine.seedWord = static_cast<std::uint64_t>(getpid());
        std::memcpy(buffer, &machine, sizeof machine);
        return 0;
    }
    return kStatusUnknownQuery;
}

void* currentTask() {
    RngHostState* services = activeServices();
    if (services == nullptr) return nullptr;
    services->task[contract::kTaskSeedWord] = std::hash<std::thread::id>{}(std::this_thread::get_id());
    return services->task.data();
}

std::int32_t widenText(void* transcoder, const char* source, std::int64_t sourceBytes, char16_t* destination,
                       std::int64_t capacityBytes, std::int64_t* destinationBytes, std::int32_t) {
    RngHostState& services = *static_cast<TranscoderObject*>(transcoder)->services;
    if (destinationBytes != nullptr) *destinationBytes = 0;
    if (services.transcodeFailure != 0) return services.transcodeFailure;
#if defined(_WIN32)
    // No ICU here: the host's encoding backend widens the text.
    std::int64_t units = 0;
    const std::string& encoding = services.session->options().encoding;
    if (!widenSessionText(encoding, source, sourceBytes, destination, capacityBytes / 2, &units)) {
        return kStatusTranscodeFailed;
    }
    if (destinationBytes != nullptr) *destinationBytes = units * 2;
    return 0;
#else
    UErrorCode error = U_ZERO_ERROR;
    UConverter* converter = ucnv_open(services.session->options().encoding.c_str(), &error);
    if (U_FAILURE(error)) return kStatusTranscodeFailed;
    std::int32_t units = ucnv_toUChars(converter, destination, static_cast<std::int32_t>(capacityBytes / 2), source,
                                       static_cast<std::int32_t>(sourceBytes), &error);
    ucnv_close(converter);
    // A name that fills the buffer exactly is whole (only the terminator is missing).
    if (U_FAILURE(error)) return kStatusTranscodeFailed;
    if (destinationBytes != nullptr) *destinationBytes = std::int64_t{units} * 2;
    return 0;
#endif
}

}  // namespace

void RngHostStateDeleter::operator()(RngHostState* state) const { delete state; }

std::unique_ptr<RngServices> makeRngServices(Session& session) {
    // The session is still being built: nothing of it may be read here.
    auto services = std::make_unique<RngServices>();
    services->state.reset(new RngHostState);
    RngHostState& state = *services->state;
    state.session = &session;
    state.logger.services = &state;
    state.logger.table.formatText = &formatText;
    state.logger.table.logLine = &logLine;
    state.logger.table.issueMessage = &issueMessage;
    state.transcoder.services = &state;
    state.transcoder.table.widen = &widenText;
    return services;
}

void installRngServices(RngServices& services, void** kernelWords) {
    services.state->kernelWords = kernelWords;
    kernelWords[contract::kKernelCurrentTask] = reinterpret_cast<void*>(&currentTask);
    kernelWords[contract::kKernelNameIsSet] = reinterpret_cast<void*>(&nameIsSet);
    kernelWords[contract::kKernelNameValueGet] = reinterpret_cast<void*>(&nameValueGet);
    kernelWords[contract::kKernelNameValueSet] = reinterpret_cast<void*>(&nameValueSet);
    kernelWords[contract::kKernelLogger] = &services.state->logger.table;
    kernelWords[contract::kKernelSystemQuery] = reinterpret_cast<void*>(&systemQuery);
    kernelWords[contract::kKernelNameTranscoder] = &services.state->transcoder.table;
}

void storeSetText(RngServices& services, std::string_view name, std::string_view text) {
    services.state->store.insert_or_assign(std::string(name), fromUtf8(text));
}

void storeSetInteger(RngServices& services, std::string_view name, std::int64_t value) {
    services.state->store.insert_or_assign(std::string(name), value);
}

void storeSetDouble(RngServices& services, std::string_view name, double value) {
    services.state->store.insert_or_assign(std::string(name), value);
}

void storeClear(RngServices& services, std::string_view name) {
    auto& store = services.state->store;
    if (auto found = store.find(name); found != store.end()) store.erase(found);
}

StoredValue storeGet(RngServices& services, std::string_view name) {
    auto found = services.state->store.find(name);
    if (found == services.state->store.end()) return std::monostate{};
    if (const auto* d = std::get_if<double>(&found->second)) return *d;
    if (const auto* i = std::get_if<std::int64_t>(&found->second)) return *i;
    return toUtf8(std::get<std::u16string>(found->second));
}

std::vector<Message> takeRngMessages(RngServices& services) {
    std::vector<Message> taken;
    taken.swap(services.state->messages);
    return taken;
}

void setHardwareRandom(RngServices& services, bool available) { services.state->hardwareRandom = available; }

void setLoggerPresent(RngServices& services, bool present) {
    if (services.state->kernelWords != nullptr)
        services.state->kernelWords[contract::kKernelLogger] = present ? &services.state->logger.table : nullptr;
}

void failStoreCalls(RngServices& services, std::int32_t status) { services.state->storeFailure = status; }
void failLogLines(RngServices& services, std::int32_t status) { services.state->logLineFailure = status; }
void failTranscoding(RngServices& services, std::int32_t status) { services.state->transcodeFailure = status; }

}  // namespace txhost
