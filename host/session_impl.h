// The host's side of a Session, shared by the host's own sources (and the
// random library's services): the pools, call contexts, records, service
// directory and encoding objects that the HostVector points to. Every host
// object the module reads starts with the contract record it expects, so the
// module's pointer is also the address of the host object.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/host.h"
#include "module/abi/services.h"

namespace txhost {

struct RngServices;
class Codec;
struct HandleObject;

// A memory pool: the contract's MemoryPool followed by the host's bookkeeping.
// Every block belongs to the pool until the pool is destroyed; blocks are
// aligned to 16 bytes and exactly as large as asked, so AddressSanitizer sees
// any read past them.
struct Pool {
    contract::MemoryPool table;   // must stay first: the module holds &table
    Session::Impl* session = nullptr;
    std::string name;
    // The session's shared pools serve every task at once.
    mutable std::mutex mutex;
    std::unordered_map<void*, std::size_t> blocks;   // address -> size, under mutex

    Pool(Session::Impl& owner, std::string poolName);
    ~Pool();
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    contract::MemoryPool* contractPool() { return &table; }
    void* allocate(std::int64_t size, std::int32_t flags);
    void* reallocate(void* address, std::int64_t size, std::int32_t flags);
    // Frees one block of this pool; false (nothing done) when it is not one.
    bool release(void* address);
    std::size_t blockCount() const {
        std::lock_guard<std::mutex> lock(mutex);
        return blocks.size();
    }
    bool owns(const void* address) const {
        std::lock_guard<std::mutex> lock(mutex);
        return blocks.count(const_cast<void*>(address)) != 0;
    }
    static Pool* from(void* pool) { return reinterpret_cast<Pool*>(pool); }
};
static_assert(std::is_standard_layout_v<contract::MemoryPool>);

inline constexpr int kContextSlots = 64;

// A call context: word 5 its pool, word 6 its slot table (kContextSlots words).
struct ContextObject {
    contract::CallContext record;   // must stay first
    std::array<void*, kContextSlots> slots{};
    std::unique_ptr<Pool> pool;
};

// The option value stored by hostGetOption: an f64 in the 8-byte destination.
inline constexpr std::int32_t kOptionUnknown = 1;     // no such option, or set to ""
inline constexpr std::int32_t kOptionNotNumeric = 2;  // text that is not a number
inline constexpr std::int32_t kOptionBadArguments = 3;

// The 8-byte blank-padded text of hostText8.
inline constexpr char kHostText8Value[] = "TXHOST  ";
// The 32-bit value behind word 98 of the init record ("TXH1").
inline constexpr std::uint32_t kInitValue = 0x31485854u;
// The hostWord handed to mcn_main ("TXHOSTVC").
inline constexpr std::uint64_t kHostWord = 0x43565453'4F485854ull;

struct Session::Impl {
    Session* owner = nullptr;
    SessionOptions options;
    std::map<std::string, std::string> systemOptions;   // upper-case names

    // Guards what every task of the session writes: messages, service calls,
    // counters and the random library's message buffers.
    std::mutex mutex;
    HostCounters counters;
    // Off until a test asks for the counters, so that counting costs one
    // relaxed load on the paths that count.
    std::atomic<bool> counting{false};
    std::vector<Message> messages;
    std::vector<ServiceCall> serviceCalls;
    std::atomic<std::int64_t> failAllocationCountdown{0};
    std::atomic<std::int64_t> failReallocationCountdown{0};

    // HostVector and what it points to.
    contract::HostVector hostVector{};
    std::vector<std::array<void*, contract::kServiceFunctions>> serviceTables;
    std::array<void* const*, contract::kServiceTables> serviceDirectory{};
    std::array<std::uint8_t, contract::kServiceTables> serviceUseFlags{};
    std::array<void*, 64> taskRecord{};
    std::array<void*, 16> sessionRecord{};
    std::array<std::uint8_t, 128> sessionEncodingRecord{};
    std::array<void*, 128> initRecord{};
    std::uint32_t initValue = kInitValue;
    std::array<std::uint8_t, 256> upcaseMap{};
    std::array<std::uint8_t, 256> lowcaseMap{};
    std::array<std::uint8_t, 256> classTable{};
    std::array<void*, 64> kernelWords{};

    std::unique_ptr<Pool> hostPool;
    std::unique_ptr<Pool> modulePool;
    std::unique_ptr<Pool> resultPool;
    std::vector<std::unique_ptr<ContextObject>> contexts;   // [0] is the task's default context
    std::vector<ContextObject*> spareContexts;              // given back, taken up by newContext first

    std::unique_ptr<HandleObject> handle;
    struct ServiceObject;
    std::unique_ptr<ServiceObject> encodingService;

    // The random library's services (rng_services.h). Kept in a union so that
    // only session.cpp decides when the unique_ptr is built and destroyed:
    // that needs the complete RngServices (see createRngServices). While
    // rng_services.h only declares RngServices, the Session cannot build the
    // services: rngCreated stays false and kernel words 11, 13, 14, 15, 26,
    // 33, 35 stay null. Define the struct in the header to switch them on.
    union RngSlot {
        std::unique_ptr<RngServices> services;
        RngSlot() {}
        ~RngSlot() {}
    } rng;
    bool rngCreated = false;

    explicit Impl(Session& session, SessionOptions sessionOptions);
    ~Impl();

    // To the current task's sink when it has one, else to messages.
    void addMessage(Message message);
    // Runs `change` on counters under the lock, when counting is on.
    template <typename Change>
    void count(Change change) {
        if (!counting.load(std::memory_order_relaxed)) return;
        std::lock_guard<std::mutex> lock(mutex);
        change(counters);
    }
    // Pulls the random library's log lines and catalogued messages into
    // messages (collectRngMessagesLocked: the caller holds mutex).
    void collectRngMessages();
    void collectRngMessagesLocked();
    void recordServiceCall(int table, int function, std::vector<std::int64_t> arguments);
    ContextObject& newContext();
    // Fault injection: true when this allocation (or reallocation) must fail.
    bool allocationFails();
    bool reallocationFails();
};

// The session whose services the calling thread uses: numbered services
// carry no session argument, so they act on the session of the thread's
// TaskScope, or, on a thread without one, on the newest live Session.
Session::Impl* activeSession();
// The message sink of the calling thread's TaskScope, or null.
const MessageSink* activeSink();

// Drops the record that `session` bound a module (module.cpp), so that a
// later session at the same address rebinds.
void forgetBindings(Session::Impl& session);

// The function behind directory slot (table, function) when the host does
// not serve it: it records the call and an "unexpected service" error.
void* unexpectedServiceSlot(int table, int function);

// The host's message catalogue: the text of note or error `code`, with
// printf-style %s (function name) and %c (letter) where the message has them.
std::string catalogueText(Message::Source source, std::int32_t code);
std::string formatNote(std::int32_t code, const char* functionName, std::int32_t character);
std::string formatError(std::int32_t code, std::int64_t detail);

// Encoding objects (encoding.cpp).
std::unique_ptr<HandleObject> makeEncodingHandle(Session::Impl& session, const std::string& encoding);
void fillByteTables(const HandleObject& handle, std::uint8_t* upcase, std::uint8_t* lowcase, std::uint8_t* classes);
bool handleIsMultiByte(const HandleObject& handle);
contract::EncodingHandle* contractHandle(HandleObject& handle);
// Text in `encoding` -> UTF-16 through the encoding backend: false (nothing
// counted) for an unknown encoding or when the result does not fit.
bool widenSessionText(const std::string& encoding, const char* source, std::int64_t sourceBytes, char16_t* destination,
                      std::int64_t capacityUnits, std::int64_t* units);

}  // namespace txhost
