// The Session: HostVector, service directory and numbered services, records,
// pools, call contexts, the kernel object with the EncodingService, options,
// messages and the host's message catalogue.
#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

#include "host/encoding.h"
#include "host/rng_services.h"
#include "host/session_impl.h"

namespace txhost {

using namespace contract;

// ---------------------------------------------------------------- tasks

namespace {
thread_local const TaskScope* tCurrentTask = nullptr;

// Live sessions in the order they were made; a thread without a TaskScope
// uses the newest. Never destroyed: a Session held in a global may end after
// this file's globals would have.
struct LiveSessions {
    std::mutex mutex;
    std::vector<Session::Impl*> sessions;
    std::atomic<Session::Impl*> newest{nullptr};
};
LiveSessions& liveSessions() {
    static LiveSessions* live = new LiveSessions;
    return *live;
}
}  // namespace

TaskScope::TaskScope(Session& session, const MessageSink* sink) : TaskScope(session.impl(), sink) {}
TaskScope::TaskScope(Session::Impl& session, const MessageSink* sink)
    : session_(&session), sink_(sink), previous_(tCurrentTask) {
    tCurrentTask = this;
}
TaskScope::~TaskScope() { tCurrentTask = previous_; }
const TaskScope* TaskScope::current() { return tCurrentTask; }

Session::Impl* activeSession() {
    if (tCurrentTask != nullptr) return tCurrentTask->session();
    return liveSessions().newest.load(std::memory_order_acquire);
}

const MessageSink* activeSink() { return tCurrentTask != nullptr ? tCurrentTask->sink() : nullptr; }

// ---------------------------------------------------------------- catalogue

namespace {

struct CatalogueEntry {
    Message::Source source;
    std::int32_t code;
    const char* text;
};

// The host's own wording; %s is the function name, %c the letter.
const CatalogueEntry kCatalogue[] = {
    {Message::Source::Note, kNoteUnknownModifier,
     "NOTE: Modifier letter %c is not known to function %s; the letter is ignored."},
    {Message::Source::Error, kErrorNoMemory,
     "ERROR: Out of memory: the host could not supply the memory a function module asked for."},
};

std::string substitute(std::string text, const char* functionName, std::int32_t character) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 1 < text.size()) {
            if (text[i + 1] == 's') {
                out += functionName != nullptr ? functionName : "";
                ++i;
                continue;
            }
            if (text[i + 1] == 'c') {
                out += static_cast<char>(character);
                ++i;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

}  // namespace

std::string catalogueText(Message::Source source, std::int32_t code) {
    for (const CatalogueEntry& entry : kCatalogue) {
        if (entry.source == source && entry.code == code) return entry.text;
    }
    return {};
}

std::string formatNote(std::int32_t code, const char* functionName, std::int32_t character) {
    std::string text = catalogueText(Message::Source::Note, code);
    if (text.empty()) text = "NOTE: Note " + std::to_string(code) + " about function %s, character %c.";
    return substitute(text, functionName, character);
}

std::string formatError(std::int32_t code, std::int64_t detail) {
    std::string text = catalogueText(Message::Source::Error, code);
    if (text.empty()) text = "ERROR: Error " + std::to_string(code) + " (detail " + std::to_string(detail) + ").";
    return text;
}

// ---------------------------------------------------------------- services

namespace {

Session::Impl& serviceSession() {
    Session::Impl* session = activeSession();
    if (session == nullptr) {
        // A service reached with no session alive: nothing can record it.
        std::fputs("txhost: host service called with no active session\n", stderr);
        std::abort();
    }
    return *session;
}

std::int64_t widen(std::uint64_t v) { return static_cast<std::int64_t>(v); }

// A note or error goes to the task's sink when one is active, else into the
// session's record with its text from the catalogue.
void deliver(const MessageEvent& event, std::string (*format)(const MessageEvent&)) {
    if (const MessageSink* sink = activeSink()) {
        sink->receive(sink->context, event);
        return;
    }
    serviceSession().addMessage({event.source, event.code, event.kind, event.functionName, event.character,
                                 event.detail, format(event)});
}

void hostNote(std::int32_t code, std::int32_t kind, const char* functionName, std::int32_t character) {
    MessageEvent event{.source = Message::Source::Note, .code = code, .kind = kind,
                       .functionName = functionName != nullptr ? functionName : "", .character = character};
    deliver(event, [](const MessageEvent& e) { return formatNote(e.code, e.functionName, e.character); });
}

void hostError(std::int32_t code, std::int64_t detail) {
    MessageEvent event{.source = Message::Source::Error, .code = code, .detail = detail};
    deliver(event, [](const MessageEvent& e) { return formatError(e.code, e.detail); });
}

std::string upper(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::int32_t hostGetOption(const char* name, std::int32_t nameLength, std::int64_t, std::int64_t, std::int64_t,
                           void* destination, std::int64_t, void*) {
    Session::Impl& s = serviceSession();
    if (name == nullptr || nameLength < 0 || destination == nullptr) return kOptionBadArguments;
    const auto found = s.systemOptions.find(upper(std::string_view(name, static_cast<std::size_t>(nameLength))));
    if (found == s.systemOptions.end() || found->second.empty()) return kOptionUnknown;
    const std::string& text = found->second;
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    while (end != nullptr && *end == ' ') ++end;
    if (end == text.c_str() || end == nullptr || *end != '\0' || errno == ERANGE) return kOptionNotNumeric;
    std::memcpy(destination, &value, sizeof value);
    return 0;
}

void hostText8(char* destination) {
    serviceSession();
    if (destination != nullptr) std::memcpy(destination, kHostText8Value, 8);
}

void hostSetContextSlot(void* callContext, std::int32_t slot, void* value) {
    Session::Impl& s = serviceSession();
    auto* context = static_cast<CallContext*>(callContext);
    if (context == nullptr || context->slots == nullptr || slot < 0 || slot >= kContextSlots) {
        s.addMessage({Message::Source::Error, kUnexpectedServiceCode, 0, {}, 0, slot,
                      "hostSetContextSlot: no call context or slot " + std::to_string(slot) + " out of range"});
        return;
    }
    context->slots[slot] = value;
}

// (1, 2), the target of moduleProcedureB: answers the sum of its arguments.
std::uint64_t hostForwarded(std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d) {
    serviceSession().recordServiceCall(1, 2, {widen(a), widen(b), widen(c), widen(d)});
    return a + b + c + d;
}

// Item 4163 is SessionOptions::optionText; a text longer than the buffer is
// cut to the capacity. Any other item: status 1, length 0.
std::int32_t hostQueryText(std::int64_t, std::int32_t item, std::int64_t, std::int64_t, std::int64_t, char* buffer,
                           std::int32_t* length, std::int64_t, void*) {
    Session::Impl& s = serviceSession();
    if (length == nullptr) return 2;
    if (item != kOptionTextItem || buffer == nullptr || *length < 0) {
        *length = 0;
        return item != kOptionTextItem ? 1 : 2;
    }
    const std::string& text = s.options.optionText;
    const auto n = static_cast<std::int32_t>(std::min<std::size_t>(text.size(), static_cast<std::size_t>(*length)));
    std::memcpy(buffer, text.data(), static_cast<std::size_t>(n));
    *length = n;
    return 0;
}

// Blanks, an optional sign and decimal digits. Status 0 with the characters
// used (blanks and sign included) and the value; 1 when no digit follows
// (nothing used, value 0); 2 when the value leaves the 32-bit range (the
// digits are used, the value is clamped).
std::int32_t hostParseInteger(const char* text, std::int32_t length, std::int64_t, std::int32_t* charactersUsed,
                              std::int32_t* value) {
    serviceSession();
    std::int32_t used = 0;
    std::int64_t v = 0;
    std::int32_t status = 1;
    if (text != nullptr) {
        std::int32_t i = 0;
        while (i < length && text[i] == ' ') ++i;
        bool negative = false;
        if (i < length && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
        const std::int32_t digitsStart = i;
        bool overflow = false;
        while (i < length && text[i] >= '0' && text[i] <= '9') {
            v = v * 10 + (text[i] - '0');
            if (v > 2147483648LL) {
                overflow = true;
                v = 2147483648LL;
            }
            ++i;
        }
        if (i > digitsStart) {
            used = i;
            if (negative) v = -v;
            if (v > 2147483647LL) {
                v = 2147483647LL;
                overflow = true;
            }
            status = overflow ? 2 : 0;
        } else {
            v = 0;
        }
    }
    if (charactersUsed != nullptr) *charactersUsed = used;
    if (value != nullptr) *value = static_cast<std::int32_t>(v);
    return status;
}

std::int32_t hostOptionBracket(std::int64_t a, std::int32_t b) {
    serviceSession().recordServiceCall(39, 108, {a, b});
    return 0;
}

std::int32_t hostSetOptionFlag(std::int64_t a, std::int32_t b, std::int32_t c) {
    serviceSession().recordServiceCall(39, 138, {a, b, c});
    return 0;
}

template <typename R, typename... P>
void serve(Session::Impl& s, HostService<R(P...)> service, R (*fn)(P...)) {
    s.serviceTables[static_cast<std::size_t>(service.table)][static_cast<std::size_t>(service.function)] =
        reinterpret_cast<void*>(fn);
}

// ---------------------------------------------------------------- encoding service

EncodingHandle* openHandle(void* service, const char16_t*, std::int32_t, std::int64_t* status);

}  // namespace

struct Session::Impl::ServiceObject {
    EncodingService record{};   // must stay first
    Session::Impl* session = nullptr;
};

namespace {

EncodingHandle* openHandle(void* service, const char16_t*, std::int32_t, std::int64_t* status) {
    auto* object = static_cast<Session::Impl::ServiceObject*>(service);
    object->session->count([](HostCounters& c) { ++c.openHandleCalls; });
    if (status != nullptr) *status = 0;
    return contractHandle(*object->session->handle);
}

}  // namespace

// ---------------------------------------------------------------- random library services

// RngServices may be declared only (rng_services.h) with its definition in
// rng_services.cpp; then no code here can create or destroy its unique_ptr,
// whose destructor needs the complete type. The two templates below do the
// work only when the type is complete here, and otherwise leave the slot
// empty (the kernel words stay null).
template <typename T, typename = void>
struct IsComplete : std::false_type {};
template <typename T>
struct IsComplete<T, std::void_t<decltype(sizeof(T))>> : std::true_type {};

template <typename T = RngServices>
void createRngServices(Session::Impl& impl, Session& session) {
    if constexpr (IsComplete<T>::value) {
        new (&impl.rng.services) std::unique_ptr<T>(makeRngServices(session));
        impl.rngCreated = true;
        installRngServices(*impl.rng.services, impl.kernelWords.data());
    }
}

template <typename T = RngServices>
void destroyRngServices(Session::Impl& impl) {
    if constexpr (IsComplete<T>::value) {
        if (impl.rngCreated) std::destroy_at(reinterpret_cast<std::unique_ptr<T>*>(&impl.rng.services));
        impl.rngCreated = false;
    }
}

RngServices* rngOf(Session::Impl& impl) { return impl.rngCreated ? impl.rng.services.get() : nullptr; }

// ---------------------------------------------------------------- Impl

Session::Impl::Impl(Session& session, SessionOptions sessionOptions) : owner(&session), options(std::move(sessionOptions)) {
    counting.store(options.countOperations, std::memory_order_relaxed);
    systemOptions["YEARCUTOFF"] = "1926";
    for (const auto& [name, value] : options.options) systemOptions[upper(name)] = value;

    handle = makeEncodingHandle(*this, options.encoding);

    // Service directory: every slot answers, the served ones do the work.
    serviceTables.resize(kServiceTables);
    for (int c = 0; c < kServiceTables; ++c) {
        for (int f = 0; f < kServiceFunctions; ++f) {
            serviceTables[static_cast<std::size_t>(c)][static_cast<std::size_t>(f)] = unexpectedServiceSlot(c, f);
        }
        serviceDirectory[static_cast<std::size_t>(c)] = serviceTables[static_cast<std::size_t>(c)].data();
    }
    serve(*this, kHostNote, &hostNote);
    serve(*this, kHostError, &hostError);
    serve(*this, kHostGetOption, &hostGetOption);
    serve(*this, kHostText8, &hostText8);
    serve(*this, kHostSetContextSlot, &hostSetContextSlot);
    serve(*this, kHostForwarded, &hostForwarded);
    serve(*this, kHostQueryText, &hostQueryText);
    serve(*this, kHostParseInteger, &hostParseInteger);
    serve(*this, kHostOptionBracket, &hostOptionBracket);
    serve(*this, kHostSetOptionFlag, &hostSetOptionFlag);

    hostPool = std::make_unique<Pool>(*this, "host");
    modulePool = std::make_unique<Pool>(*this, "module");
    resultPool = std::make_unique<Pool>(*this, "result");
    ContextObject& task = newContext();

    taskRecord[kTaskCallContextWord] = &task.record;
    sessionEncodingRecord[kMultiByteSessionByte] = handleIsMultiByte(*handle) ? 1 : 0;
    sessionRecord[kSessionEncodingWord] = sessionEncodingRecord.data();
    initRecord[kInitRecordValueWord] = &initValue;
    fillByteTables(*handle, upcaseMap.data(), lowcaseMap.data(), classTable.data());

    encodingService = std::make_unique<ServiceObject>();
    encodingService->session = this;
    encodingService->record.openHandle = &openHandle;
    if (options.cacheSessionHandle) encodingService->record.cachedSessionHandle = contractHandle(*handle);
    kernelWords[kKernelEncodingService] = &encodingService->record;

    hostVector.serviceDirectory = serviceDirectory.data();
    hostVector.serviceUseFlags = serviceUseFlags.data();
    hostVector.taskRecord = taskRecord.data();
    hostVector.hostPool = hostPool->contractPool();
    hostVector.upcaseMap = upcaseMap.data();
    hostVector.lowcaseMap = lowcaseMap.data();
    hostVector.classTable = classTable.data();
    hostVector.modulePool = modulePool->contractPool();
    hostVector.sessionRecord = sessionRecord.data();
    hostVector.initRecord = initRecord.data();
    hostVector.encodingRoot = kernelWords.data();
    hostVector.word95 = 0;

    createRngServices(*this, session);
}

Session::Impl::~Impl() {
    forgetBindings(*this);
    {
        LiveSessions& live = liveSessions();
        std::lock_guard<std::mutex> lock(live.mutex);
        std::erase(live.sessions, this);
        live.newest.store(live.sessions.empty() ? nullptr : live.sessions.back(), std::memory_order_release);
    }
    destroyRngServices(*this);
}

void Session::Impl::addMessage(Message message) {
    if (const MessageSink* sink = activeSink()) {
        MessageEvent event;
        event.source = message.source;
        event.code = message.code;
        event.kind = message.kind;
        event.functionName = message.functionName.c_str();
        event.character = message.character;
        event.detail = message.detail;
        event.text = &message.text;
        sink->receive(sink->context, event);
        return;
    }
    std::lock_guard<std::mutex> lock(mutex);
    collectRngMessagesLocked();
    messages.push_back(std::move(message));
}

void Session::Impl::collectRngMessages() {
    std::lock_guard<std::mutex> lock(mutex);
    collectRngMessagesLocked();
}

void Session::Impl::collectRngMessagesLocked() {
    RngServices* services = rngOf(*this);
    if (services == nullptr) return;
    for (Message& m : takeRngMessages(*services)) messages.push_back(std::move(m));
}

void Session::Impl::recordServiceCall(int table, int function, std::vector<std::int64_t> arguments) {
    std::lock_guard<std::mutex> lock(mutex);
    serviceCalls.push_back({table, function, std::move(arguments)});
}

ContextObject& Session::Impl::newContext() {
    std::lock_guard<std::mutex> lock(mutex);
    if (!spareContexts.empty()) {
        ContextObject* spare = spareContexts.back();
        spareContexts.pop_back();
        return *spare;
    }
    auto context = std::make_unique<ContextObject>();
    context->pool = std::make_unique<Pool>(*this, "context " + std::to_string(contexts.size()));
    context->record.pool = context->pool->contractPool();
    context->record.slots = context->slots.data();
    contexts.push_back(std::move(context));
    return *contexts.back();
}

namespace {
// True for the call that takes a positive countdown to zero.
bool countDown(std::atomic<std::int64_t>& countdown) {
    std::int64_t left = countdown.load(std::memory_order_relaxed);
    while (left > 0) {
        if (countdown.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) return left == 1;
    }
    return false;
}
}  // namespace

bool Session::Impl::allocationFails() { return countDown(failAllocationCountdown); }
bool Session::Impl::reallocationFails() { return countDown(failReallocationCountdown); }

// ---------------------------------------------------------------- Session

Session::Session(SessionOptions options) : impl_(std::make_unique<Impl>(*this, std::move(options))) {
    LiveSessions& live = liveSessions();
    std::lock_guard<std::mutex> lock(live.mutex);
    live.sessions.push_back(impl_.get());
    live.newest.store(impl_.get(), std::memory_order_release);
}

Session::~Session() = default;

HostVector* Session::hostVector() { return &impl_->hostVector; }
const SessionOptions& Session::options() const { return impl_->options; }
EncodingHandle* Session::encodingHandle() { return contractHandle(*impl_->handle); }
bool Session::multiByte() const {
    const auto* record = static_cast<const std::uint8_t*>(impl_->sessionRecord[kSessionEncodingWord]);
    return record != nullptr && record[kMultiByteSessionByte] != 0;
}
void Session::setMultiByteSessionFlag(bool on) { impl_->sessionEncodingRecord[kMultiByteSessionByte] = on ? 1 : 0; }
void Session::setSessionEncodingRecordNull(bool null) {
    impl_->sessionRecord[kSessionEncodingWord] = null ? nullptr : impl_->sessionEncodingRecord.data();
}

std::uint8_t Session::serviceUseFlag(int table) const {
    if (table < 0 || table >= kServiceTables) throw std::out_of_range("service table " + std::to_string(table));
    return std::atomic_ref<std::uint8_t>(impl_->serviceUseFlags[static_cast<std::size_t>(table)])
        .load(std::memory_order_relaxed);
}
void Session::clearServiceUseFlags() {
    for (std::uint8_t& flag : impl_->serviceUseFlags) std::atomic_ref<std::uint8_t>(flag).store(0, std::memory_order_relaxed);
}

std::vector<Message> Session::takeMessages() {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->collectRngMessagesLocked();
    std::vector<Message> taken;
    taken.swap(impl_->messages);
    return taken;
}

std::vector<ServiceCall> Session::takeServiceCalls() {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    std::vector<ServiceCall> taken;
    taken.swap(impl_->serviceCalls);
    return taken;
}

CallContext* Session::defaultCallContext() {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return &impl_->contexts.front()->record;
}
CallContext* Session::newCallContext() { return &impl_->newContext().record; }

void Session::releaseCallContext(CallContext* context) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    auto& contexts = impl_->contexts;
    const auto made = std::find_if(contexts.begin() + 1, contexts.end(),
                                   [&](const auto& c) { return &c->record == context; });
    auto& spare = impl_->spareContexts;
    if (made == contexts.end() || std::find(spare.begin(), spare.end(), made->get()) != spare.end()) {
        throw std::invalid_argument("releaseCallContext: not a context of newCallContext in use");
    }
    spare.push_back(made->get());
}
MemoryPool* Session::hostPool() { return impl_->hostPool->contractPool(); }
MemoryPool* Session::modulePool() { return impl_->modulePool->contractPool(); }
MemoryPool* Session::resultPool() { return impl_->resultPool->contractPool(); }
std::size_t Session::poolBlocks() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    std::size_t blocks = impl_->hostPool->blockCount() + impl_->modulePool->blockCount() + impl_->resultPool->blockCount();
    for (const auto& context : impl_->contexts) blocks += context->pool->blockCount();
    return blocks;
}

void Session::failAllocationAfter(std::int64_t n) { impl_->failAllocationCountdown = n > 0 ? n : 0; }
void Session::failReallocationAfter(std::int64_t n) { impl_->failReallocationCountdown = n > 0 ? n : 0; }
HostCounters& Session::counters() {
    impl_->counting.store(true, std::memory_order_relaxed);
    return impl_->counters;
}

void Session::setSetting(std::string_view name, std::string_view text) { storeSetText(rngServices(*this), name, text); }
void Session::setSetting(std::string_view name, std::int64_t value) { storeSetInteger(rngServices(*this), name, value); }
void Session::setSetting(std::string_view name, double value) { storeSetDouble(rngServices(*this), name, value); }
void Session::clearSetting(std::string_view name) { storeClear(rngServices(*this), name); }

Session::Impl& Session::impl() { return *impl_; }

RngServices& rngServices(Session& session) {
    RngServices* services = rngOf(session.impl());
    if (services == nullptr) throw std::logic_error("the random library's host services are not built in");
    return *services;
}

}  // namespace txhost
