// The reference host: embeds txscanmd in any program. A Session is one host
// process's view of the module's world (HostVector, service tables, pools,
// options, session encoding, messages); a Module is a loaded module reached
// only through its two exports; a CallSite is one place in a program that
// calls a function row after row (one ArgumentFrame, so setCache persists).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "module/abi/argument_frame.h"
#include "module/abi/encoding.h"
#include "module/abi/function_table.h"
#include "module/abi/host_vector.h"
#include "module/abi/image_records.h"

namespace txhost {

namespace contract = txscan::contract;

// A message the module caused: a note or error through the service tables,
// or (random library) a catalogued message or a log line through the logger.
struct Message {
    enum class Source { Note, Error, Catalogued, LogLine };
    Source source = Source::Note;
    std::int32_t code = 0;       // note/error/message number (0 for log lines)
    std::int32_t kind = 0;       // note class, or severity / log level
    std::string functionName{};  // notes: the function's short name
    std::int32_t character = 0;  // notes: the letter
    std::int64_t detail = 0;     // errors: the detail word
    std::string text{};          // formatted from the host's catalogue (or the log line itself)
};

// Message code of a call into a directory slot the host does not serve; its
// text names the slot ("unexpected service (c, f)").
inline constexpr std::int32_t kUnexpectedServiceCode = -1;

// A numbered service call the host records besides messages: the forwarded
// service (1, 2), the option bracket (39, 108), the option flag (39, 138),
// and slots the host does not serve. Arguments widened to 64 bits.
struct ServiceCall {
    int table = 0;
    int function = 0;
    std::vector<std::int64_t> arguments{};
};

// Session encodings the host offers.
std::vector<std::string> availableEncodings();   // e.g. "UTF-8", "ISO-8859-1", "windows-1252", "ISO-8859-15", "Shift_JIS", "EUC-JP"

struct SessionOptions {
    std::string encoding = "UTF-8";
    // System options by name ("YEARCUTOFF" -> "1926"); the option text of
    // item 4163 ("RNGSEED=12345 ...") is built from optionText.
    // hostGetOption finds names without regard to case and stores the value
    // as an f64 in its 8-byte destination (status 0); an unknown name, or one
    // mapped to "", answers status 1 and a value that is not a number status
    // 2, storing nothing. "YEARCUTOFF" is "1926" unless given here.
    std::map<std::string, std::string> options{};
    std::string optionText{};
    bool cacheSessionHandle = true;   // false: cachedSessionHandle stays 0 and every call opens one
    bool hardwareRandom = true;       // false: the processor record reports no RDRAND
    bool guardedArguments = false;    // every CallSite starts in guarded mode (CallSite::setGuardedArguments)
    bool countOperations = false;     // HostCounters from the start (else from the first counters())
};

// Counters the tests read. The session counts only once Session::counters()
// has been asked for, so programs that never look pay nothing.
struct HostCounters {
    std::map<std::int32_t, std::int64_t> allocationsByFlags{};  // pool allocations by flag word
    std::int64_t reallocations = 0;
    std::int64_t openHandleCalls = 0;
    std::map<int, std::int64_t> handleOperations{};           // handle word -> calls
};

class Session {
public:
    explicit Session(SessionOptions options = {});
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    contract::HostVector* hostVector();
    const SessionOptions& options() const;
    contract::EncodingHandle* encodingHandle();       // the session's handle
    bool multiByte() const;                            // byte 72 of the session-encoding record
    void setMultiByteSessionFlag(bool on);             // tests: force the byte-72 flag
    void setSessionEncodingRecordNull(bool null);      // tests: word 3 of the session record null

    // Service-use flags (byte c of the flag array), resettable by tests. The
    // module sets them from every task at once, so they are read and cleared
    // as relaxed atomics.
    std::uint8_t serviceUseFlag(int table) const;
    void clearServiceUseFlags();

    // Messages issued since the last take (notes, errors, and the random
    // library's catalogued messages and log lines), in order. CallSite::call
    // also copies a call's messages into its CallResult; they stay here too.
    // Messages of a task with a MessageSink go to the sink instead.
    std::vector<Message> takeMessages();
    // Calls of (1, 2), (39, 108), (39, 138) and unserved slots since the last take.
    std::vector<ServiceCall> takeServiceCalls();

    // Call contexts: the task record's default one (word 34), or a new one
    // with its own pool and empty slots, owned by the session.
    contract::CallContext* defaultCallContext();
    contract::CallContext* newCallContext();
    // Gives a context of newCallContext back once no call uses it. The
    // module frees nothing, and a context's function environment holds a
    // random stream in the host pool, so the context is kept as it is (pool,
    // slots, environment) and the next newCallContext takes it up again: a
    // program that opens and closes tasks all day holds no more contexts than
    // it had at once. Throws std::invalid_argument for the default context
    // or one the session did not make or already has back.
    void releaseCallContext(contract::CallContext* context);
    // The session's pools (HostVector words 5 and 10) and the pool of
    // growable results.
    contract::MemoryPool* hostPool();
    contract::MemoryPool* modulePool();
    contract::MemoryPool* resultPool();
    // Blocks held by all the session's pools: what a long-running program
    // watches to see that its memory stays flat.
    std::size_t poolBlocks() const;

    // Fault injection: the n-th allocation from now (1 = next) on any pool
    // returns null; 0 switches it off. Also for reallocation.
    void failAllocationAfter(std::int64_t n);
    void failReallocationAfter(std::int64_t n);
    HostCounters& counters();

    // Name-value store of the random library's settings (types 2, 3, 4).
    void setSetting(std::string_view name, std::string_view text);   // type 4 (text)
    void setSetting(std::string_view name, std::int64_t value);      // type 3 (integer)
    void setSetting(std::string_view name, double value);            // type 2 (double)
    void clearSetting(std::string_view name);

    struct Impl;
    Impl& impl();
private:
    std::unique_ptr<Impl> impl_;
};

// A note or error as a host service receives it, before any text is made:
// valid during the sink's call only, so a sink that counts needs no heap.
struct MessageEvent {
    Message::Source source = Message::Source::Note;
    std::int32_t code = 0;
    std::int32_t kind = 0;
    const char* functionName = "";   // notes: the function's short name
    std::int32_t character = 0;
    std::int64_t detail = 0;
    const std::string* text = nullptr;   // set when the host already made the text
};

// Where the messages of a task go instead of the session's record.
struct MessageSink {
    void* context = nullptr;
    void (*receive)(void* context, const MessageEvent& event) = nullptr;
};

// Makes the calling thread a task of `session` while it lives: the module's
// numbered services act on this session, and its messages go to `sink`
// (when given). One Session serves many threads this way, each with its own
// call context and call sites (one call at a time per call site). Scopes
// nest; CallSite::call opens one around each call, the row engine one per
// chunk of rows.
class TaskScope {
public:
    explicit TaskScope(Session& session, const MessageSink* sink = nullptr);
    explicit TaskScope(Session::Impl& session, const MessageSink* sink = nullptr);
    ~TaskScope();
    TaskScope(const TaskScope&) = delete;
    TaskScope& operator=(const TaskScope&) = delete;

    Session::Impl* session() const { return session_; }
    const MessageSink* sink() const { return sink_; }
    static const TaskScope* current();
private:
    Session::Impl* session_;
    const MessageSink* sink_;
    const TaskScope* previous_;
};

// Typed argument of a call: absent (null value pointer), a number or a text.
struct Absent {};
using Argument = std::variant<Absent, double, std::string>;

// Bit pattern the host puts into a numeric result place before a call; a
// result still holding it was not stored. Distinct from the missing value.
inline constexpr std::uint64_t kResultSentinelBits = 0x7FF4'0BAD'5E17'1E11ull;

// What a call produced.
struct CallResult {
    std::int32_t status = 0;
    std::optional<double> number;          // numeric functions (stored result), else empty
                                           // (the result place is pre-filled with a NaN
                                           // pattern no module stores, kResultSentinelBits)
    std::optional<std::string> text;       // KSCANX function: the result string, when the
                                           // module stored a length (the host passes -1)
    std::optional<double> position;        // CALL KSCANX: argument 3 after the call
    std::optional<double> length;          // CALL KSCANX: argument 4 after the call
    std::vector<std::uint8_t> errorMarks;  // per argument
    std::vector<Message> messages;
    bool numberStored() const { return number.has_value(); }
};

struct FunctionInfo {
    std::string name{};
    int index = 0;
    const contract::FunctionDescriptor* descriptor = nullptr;
    contract::EntryRoutine entry = nullptr;
};

class Module;
struct InstanceBinding;

// One call site: one ArgumentFrame reused across calls.
class CallSite {
public:
    CallSite(Module& module, int functionIndex, std::uint8_t siteKind = 0);
    ~CallSite();
    // Result buffer for the KSCANX function: fixed of `capacity` bytes, or
    // growable (from a host pool) up to `maxLength`.
    void useFixedResult(std::int64_t capacity);
    void useGrowableResult(std::int64_t maxLength, std::int64_t initialCapacity = 0);
    // The frame's call context: the session's default (false) or null (true).
    // Set once: a context the module writes into a null frame stays there for
    // later calls, as in a host frame that lives as long as its call site.
    void useNullCallContext(bool null);
    void useCallContext(contract::CallContext* context);
    void setSiteKind(std::uint8_t siteKind);
    // Refuse (std::invalid_argument) arguments whose type the descriptor's
    // type code does not allow at their position; on by default.
    void setTypeChecking(bool on);
    // Type flags of argument 1 bit 3 (set by default on character arguments).
    void setRecheckFlag(bool on);
    // Guarded mode: each argument's bytes (a text's, or a number's f64) are
    // copied flush against an unreadable page, so a read past them faults at
    // once. Off unless the session's options ask for it.
    void setGuardedArguments(bool on);

    // Throws std::invalid_argument when the argument count lies outside the
    // descriptor's min and max; the module is not called then.
    CallResult call(const std::vector<Argument>& arguments);

    contract::ArgumentFrame& frame();
    struct Impl;
private:
    std::unique_ptr<Impl> impl_;
};

// The module keeps what mcn_main stores in globals, so one copy of it serves
// one Session. Module::load gives a Session the module file's copy when no
// other live Session holds it, and otherwise a private copy of the file
// (copied to the temporary directory and loaded from there), so every
// Session gets its own. Module::attach cannot copy the program's own module:
// it binds it to its Session, and the Modules of the Session it served
// before refuse every call from then on (std::runtime_error), never
// answering with another Session's state.
class Module {
public:
    // dlopen the module file, call mcn_main once, read the records and call
    // the function-table routine in modes 1 and 2. Throws std::runtime_error
    // with a clear message on any failure.
    static std::unique_ptr<Module> load(Session& session, const std::string& path = TXSCAN_MODULE_PATH);
    // The same for a module linked into the program (tests of internals).
    using McnMain = void* (*)(void* hostVector, std::uint64_t hostWord);
    using Tkvercn1 = void (*)(void* destination);
    static std::unique_ptr<Module> attach(Session& session, McnMain mcnMain, Tkvercn1 tkvercn1);
    ~Module();

    Session& session();
    // False once Module::attach bound the instance to another Session;
    // requireItsSession throws std::runtime_error then.
    bool servesItsSession() const;
    void requireItsSession() const;
    const contract::ImageInformation& image() const;      // the address mcn_main returned
    contract::VersionRecord version() const;              // through tkvercn1
    const std::vector<FunctionInfo>& functions() const;
    // The function by name, found without regard to case; KSCANX gives the
    // function form unless callRoutine is true. Throws std::invalid_argument
    // naming what is missing.
    const FunctionInfo& function(std::string_view name, bool callRoutine = false) const;
    int functionIndex(std::string_view name, bool callRoutine = false) const;
    contract::FunctionTableRoutine tableRoutine() const;
    McnMain mcnMain() const;
    Tkvercn1 tkvercn1() const;

    // One-off call on a fresh call site.
    CallResult call(std::string_view name, const std::vector<Argument>& arguments, bool callRoutine = false);

    struct Impl;
private:
    explicit Module(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace txhost
