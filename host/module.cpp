// The loader and the call API: a Module reached only through mcn_main and
// tkvercn1, and CallSites that build the module's ArgumentFrame.
#if defined(_WIN32)
#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <dlfcn.h>
#include <unistd.h>
#endif

#include <atomic>
#include <bit>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <stdexcept>
#include <system_error>

#include "host/binder.h"
#include "host/guarded_memory.h"
#include "host/session_impl.h"

namespace txhost {

using namespace contract;

// ---------------------------------------------------------------- loading

namespace {

// The platform's loader: a module file opened by path (dlopen, or
// LoadLibrary on Windows), its symbols by name, and why opening failed.
#if defined(_WIN32)
void* openLibrary(const std::string& path, std::string& error) {
    HMODULE library = LoadLibraryA(path.c_str());
    if (library == nullptr) {
        const DWORD code = GetLastError();
        char text[256] = "";
        const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                            0, text, sizeof text, nullptr);
        error = std::string(text, length);
        while (!error.empty() && (error.back() == '\n' || error.back() == '\r' || error.back() == ' ')) error.pop_back();
        error += " (error " + std::to_string(code) + ")";
    }
    return reinterpret_cast<void*>(library);
}
void* findSymbol(void* library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}
void closeLibrary(void* library) { FreeLibrary(static_cast<HMODULE>(library)); }
#else
void* openLibrary(const std::string& path, std::string& error) {
    dlerror();
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* text = dlerror();
        error = text != nullptr ? text : "unknown error";
    }
    return library;
}
void* findSymbol(void* library, const char* name) {
    dlerror();
    return dlsym(library, name);
}
void closeLibrary(void* library) { dlclose(library); }
#endif

// A copy of the module file of its own, so the loader maps a new instance
// with its own globals: the loader shares one instance per file.
std::string privateCopy(const std::string& path) {
    namespace fs = std::filesystem;
    static std::atomic<unsigned> copies{0};
    std::error_code error;
    const fs::path directory = fs::temp_directory_path(error);
    if (error) throw std::runtime_error("cannot copy module '" + path + "': no temporary directory: " + error.message());
#if defined(_WIN32)
    const unsigned long process = GetCurrentProcessId();
#else
    const unsigned long process = static_cast<unsigned long>(getpid());
#endif
    const fs::path copy = directory / ("txscanmd-" + std::to_string(process) + "-" + std::to_string(++copies) +
                                       fs::path(path).extension().string());
    fs::copy_file(path, copy, fs::copy_options::overwrite_existing, error);
    if (error) {
        throw std::runtime_error("cannot copy module '" + path + "' to '" + copy.string() + "': " + error.message());
    }
    return copy.string();
}

}  // namespace

// ---------------------------------------------------------------- Module

// The Session a module instance serves, shared by every Module of it.
struct InstanceBinding {
    std::atomic<Session::Impl*> session{nullptr};   // read on every call: no lock
    std::map<Session::Impl*, int> modules;          // live Modules per Session, under Instances::mutex
};

struct Module::Impl {
    Session* session = nullptr;
    void* library = nullptr;   // the loader's handle; null for an attached module
    std::string path;
    std::string copyPath;      // the private copy loaded instead of path, removed with the Module
    std::shared_ptr<InstanceBinding> binding;   // set once this Module holds its instance
    McnMain mcnMain = nullptr;
    Tkvercn1 tkvercn1 = nullptr;
    const ImageInformation* image = nullptr;
    FunctionTableRoutine tableRoutine = nullptr;
    std::vector<FunctionInfo> functions;

    ~Impl();
};

namespace {

std::string describe(const std::string& path) { return path.empty() ? "attached module" : "module '" + path + "'"; }

std::string messagesText(std::vector<Message> messages) {
    std::string text;
    for (const Message& m : messages) text += " [" + m.text + "]";
    return text;
}

std::string nameOf(const FunctionDescriptor& d) {
    return std::string(d.name, strnlen(d.name, sizeof d.name));
}

// A module instance keeps one HostVector (its mcn_main stores it), so it
// serves one Session at a time: per instance (by its mcn_main), the Session
// it serves and the live Modules of each Session that bound it. Never
// destroyed: a Session or Module held in a global may end after this file's
// globals would have.
struct Instances {
    std::mutex mutex;
    std::map<Module::McnMain, std::shared_ptr<InstanceBinding>> bindings;
};
Instances& instances() {
    static Instances* registry = new Instances;
    return *registry;
}

enum class Claim { Shared, Displacing };

// Claims the instance behind mcnMain for session. Claim::Shared fails (null)
// while another live Session holds it; Claim::Displacing takes it over.
std::shared_ptr<InstanceBinding> claimInstance(Module::McnMain mcnMain, Session::Impl& session, Claim claim) {
    Instances& registry = instances();
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto& binding = registry.bindings[mcnMain];
    if (!binding) binding = std::make_shared<InstanceBinding>();
    if (claim == Claim::Shared) {
        for (const auto& [holder, modules] : binding->modules) {
            if (holder != &session && modules > 0) return nullptr;
        }
    }
    ++binding->modules[&session];
    binding->session.store(&session, std::memory_order_relaxed);
    return binding;
}

void releaseInstance(Module::McnMain mcnMain, Session::Impl* session) {
    Instances& registry = instances();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const auto found = registry.bindings.find(mcnMain);
    if (found == registry.bindings.end()) return;
    InstanceBinding& binding = *found->second;
    const auto mine = binding.modules.find(session);
    if (mine != binding.modules.end() && --mine->second <= 0) binding.modules.erase(mine);
    if (binding.modules.empty()) registry.bindings.erase(found);
}

}  // namespace

Module::Impl::~Impl() {
    if (binding && session != nullptr) releaseInstance(mcnMain, &session->impl());
    if (library != nullptr) closeLibrary(library);
    if (!copyPath.empty()) {
        std::error_code ignored;
        std::filesystem::remove(copyPath, ignored);
    }
}

void forgetBindings(Session::Impl& session) {
    Instances& registry = instances();
    std::lock_guard<std::mutex> lock(registry.mutex);
    for (auto& [mcnMain, binding] : registry.bindings) {
        binding->modules.erase(&session);
        if (binding->session.load(std::memory_order_relaxed) == &session) {
            binding->session.store(nullptr, std::memory_order_relaxed);
        }
    }
    std::erase_if(registry.bindings, [](const auto& entry) { return entry.second->modules.empty(); });
}

namespace {

// Binds the module and lists its functions; the Impl owns the library handle
// from here on, so every failure below closes it.
void bind(Module::Impl& m) {
    TaskScope task(*m.session);
    const std::string what = describe(m.path);
    void* info = m.mcnMain(m.session->hostVector(), kHostWord);
    if (info == nullptr) throw std::runtime_error(what + ": mcn_main returned no image information");
    m.image = static_cast<const ImageInformation*>(info);
    if (std::memcmp(m.image->tag, kImageTag, sizeof kImageTag) != 0 || m.image->magic != kImageMagic) {
        throw std::runtime_error(what + ": mcn_main returned a record that is not an ImageInformation");
    }
    const ModuleHeader* header = m.image->moduleHeader;
    if (header == nullptr || header->functionTableRoutine == nullptr) {
        throw std::runtime_error(what + ": the image information leads to no function-table routine");
    }
    m.tableRoutine = header->functionTableRoutine;
    const auto* table = static_cast<const FunctionTable*>(m.tableRoutine(kDescriptorTableMode));
    if (table == nullptr) {
        throw std::runtime_error(what + ": the function-table routine gave no descriptor table (mode 1)" +
                                 messagesText(m.session->takeMessages()));
    }
    const auto* entries = static_cast<const std::uint64_t*>(m.tableRoutine(kEntryTableMode));
    if (entries == nullptr) {
        throw std::runtime_error(what + ": the function-table routine gave no entry table (mode 2)" +
                                 messagesText(m.session->takeMessages()));
    }
    if (table->count < 0 || (table->count > 0 && table->descriptors == nullptr)) {
        throw std::runtime_error(what + ": the descriptor table is malformed");
    }
    for (int i = 0; i < table->count; ++i) {
        FunctionInfo f;
        f.descriptor = &table->descriptors[i];
        f.name = nameOf(*f.descriptor);
        f.index = i;
        f.entry = reinterpret_cast<EntryRoutine>(entries[i + 1]);
        if (f.entry == nullptr) throw std::runtime_error(what + ": no entry routine for " + f.name);
        m.functions.push_back(std::move(f));
    }
}

std::string upper(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

}  // namespace

Module::Module(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Module::~Module() = default;

namespace {

// The symbols of an opened module file; false when one is missing.
bool findExports(Module::Impl& m, std::string& missing) {
    void* mcnMain = findSymbol(m.library, "mcn_main");
    void* tkvercn1 = findSymbol(m.library, "tkvercn1");
    if (mcnMain == nullptr || tkvercn1 == nullptr) {
        missing = mcnMain == nullptr ? "mcn_main" : "tkvercn1";
        return false;
    }
    m.mcnMain = reinterpret_cast<Module::McnMain>(mcnMain);
    m.tkvercn1 = reinterpret_cast<Module::Tkvercn1>(tkvercn1);
    return true;
}

}  // namespace

std::unique_ptr<Module> Module::load(Session& session, const std::string& path) {
    auto impl = std::make_unique<Impl>();
    impl->path = path;
    std::string error;
    impl->library = openLibrary(path, error);
    if (impl->library == nullptr) throw std::runtime_error("cannot load module '" + path + "': " + error);
    std::string missing;
    if (!findExports(*impl, missing)) throw std::runtime_error("module '" + path + "' does not export '" + missing + "'");
    impl->binding = claimInstance(impl->mcnMain, session.impl(), Claim::Shared);
    if (!impl->binding) {
        // Another live Session holds the file's instance: this one gets a copy.
        closeLibrary(impl->library);
        impl->library = nullptr;
        impl->mcnMain = nullptr;
        impl->copyPath = privateCopy(path);
        impl->library = openLibrary(impl->copyPath, error);
        if (impl->library == nullptr) {
            throw std::runtime_error("cannot load module '" + path + "' (private copy '" + impl->copyPath +
                                     "'): " + error);
        }
#if !defined(_WIN32)
        // The mapping stays; the name is no longer needed.
        std::error_code ignored;
        std::filesystem::remove(impl->copyPath, ignored);
        impl->copyPath.clear();
#endif
        if (!findExports(*impl, missing)) {
            throw std::runtime_error("module '" + path + "' (private copy) does not export '" + missing + "'");
        }
        impl->binding = claimInstance(impl->mcnMain, session.impl(), Claim::Shared);
        if (!impl->binding) {
            throw std::runtime_error("module '" + path + "': its private copy is already bound to another session");
        }
    }
    impl->session = &session;
    bind(*impl);
    return std::unique_ptr<Module>(new Module(std::move(impl)));
}

std::unique_ptr<Module> Module::attach(Session& session, McnMain mcnMain, Tkvercn1 tkvercn1) {
    if (mcnMain == nullptr || tkvercn1 == nullptr) {
        throw std::runtime_error("attached module: mcn_main and tkvercn1 must both be given");
    }
    auto impl = std::make_unique<Impl>();
    impl->session = &session;
    impl->mcnMain = mcnMain;
    impl->tkvercn1 = tkvercn1;
    impl->binding = claimInstance(mcnMain, session.impl(), Claim::Displacing);
    bind(*impl);
    return std::unique_ptr<Module>(new Module(std::move(impl)));
}

Session& Module::session() { return *impl_->session; }

bool Module::servesItsSession() const {
    return impl_->binding && impl_->binding->session.load(std::memory_order_relaxed) == &impl_->session->impl();
}

void Module::requireItsSession() const {
    if (!servesItsSession()) {
        throw std::runtime_error(describe(impl_->path) +
                                 ": the module now serves another Session (Module::attach bound it there); "
                                 "attach it again, or load the module file, which gives each Session a copy");
    }
}
const ImageInformation& Module::image() const { return *impl_->image; }

VersionRecord Module::version() const {
    VersionRecord record{};
    impl_->tkvercn1(&record);
    return record;
}

const std::vector<FunctionInfo>& Module::functions() const { return impl_->functions; }

// The KSCANX name stands for two entries: the call routine (resultKind 1)
// only when callRoutine is true; every other name only without it.
const FunctionInfo& Module::function(std::string_view name, bool callRoutine) const {
    const std::string wanted = upper(name);
    for (const FunctionInfo& f : impl_->functions) {
        if (f.name != wanted) continue;
        if ((f.descriptor->resultKind == kCallRoutine) == callRoutine) return f;
    }
    throw std::invalid_argument("the module has no " + std::string(callRoutine ? "call routine" : "function") +
                                " named " + std::string(name));
}

int Module::functionIndex(std::string_view name, bool callRoutine) const { return function(name, callRoutine).index; }

FunctionTableRoutine Module::tableRoutine() const { return impl_->tableRoutine; }
Module::McnMain Module::mcnMain() const { return impl_->mcnMain; }
Module::Tkvercn1 Module::tkvercn1() const { return impl_->tkvercn1; }

CallResult Module::call(std::string_view name, const std::vector<Argument>& arguments, bool callRoutine) {
    CallSite site(*this, functionIndex(name, callRoutine));
    return site.call(arguments);
}

// ---------------------------------------------------------------- CallSite

namespace {
inline constexpr std::int64_t kDefaultResultLength = 200;   // the language's default variable length
}  // namespace

struct CallSite::Impl {
    Module* module = nullptr;
    Session* session = nullptr;
    Binding binding;
    BoundFrame bound;
    bool typeChecking = true;

    // Argument storage of the last call (kept until the next one).
    std::array<std::unique_ptr<char[]>, kMaxArguments> texts;
    // Guarded mode: each argument's bytes (text or f64) end where an
    // unreadable page begins.
    bool guarded = false;
    std::array<GuardedBuffer, kMaxArguments> guardedBytes;
    std::array<double, kMaxArguments> numbers{};
    std::array<double*, kMaxArguments> numberPlaces{};

    // Character result.
    std::unique_ptr<char[]> fixedBuffer;

    Impl(Module& m, const FunctionInfo& function, std::uint8_t siteKind)
        : module(&m), session(&m.session()), binding(function),
          bound(binding, m.session().defaultCallContext(), siteKind) {
        bound.setRecheck(true);   // a call site's default, as its callers expect (setRecheckFlag)
    }
};

CallSite::CallSite(Module& module, int functionIndex, std::uint8_t siteKind) {
    const auto& functions = module.functions();
    if (functionIndex < 0 || static_cast<std::size_t>(functionIndex) >= functions.size()) {
        throw std::invalid_argument("no function with index " + std::to_string(functionIndex));
    }
    impl_ = std::make_unique<Impl>(module, functions[static_cast<std::size_t>(functionIndex)], siteKind);
    impl_->guarded = impl_->session->options().guardedArguments;
    if (impl_->binding.resultKind() == kCharacterResult) useFixedResult(kDefaultResultLength);
}

CallSite::~CallSite() = default;

void CallSite::useFixedResult(std::int64_t capacity) {
    if (capacity < 0) throw std::invalid_argument("result capacity must not be negative");
    impl_->fixedBuffer.reset(new char[static_cast<std::size_t>(capacity)]);
    impl_->bound.useTextResult(impl_->fixedBuffer.get(), capacity);
}

void CallSite::useGrowableResult(std::int64_t maxLength, std::int64_t initialCapacity) {
    if (maxLength < 0 || initialCapacity < 0 || initialCapacity > maxLength) {
        throw std::invalid_argument("growable result: need 0 <= initialCapacity <= maxLength");
    }
    MemoryPool* pool = impl_->session->resultPool();
    TaskScope task(*impl_->session);
    void* data = pool->allocate(pool, initialCapacity, kPoolGrowResult);
    if (data == nullptr) throw std::runtime_error("growable result: the result pool refused the first buffer");
    impl_->fixedBuffer.reset();
    impl_->bound.useTextResult(static_cast<char*>(data), initialCapacity, pool, maxLength);
}

void CallSite::useNullCallContext(bool null) {
    impl_->bound.setCallContext(null ? nullptr : impl_->session->defaultCallContext());
}

void CallSite::useCallContext(CallContext* context) { impl_->bound.setCallContext(context); }
void CallSite::setSiteKind(std::uint8_t siteKind) { impl_->bound.setSiteKind(siteKind); }
void CallSite::setRecheckFlag(bool on) { impl_->bound.setRecheck(on); }
void CallSite::setTypeChecking(bool on) { impl_->typeChecking = on; }
void CallSite::setGuardedArguments(bool on) { impl_->guarded = on; }
ArgumentFrame& CallSite::frame() { return impl_->bound.frame(); }

CallResult CallSite::call(const std::vector<Argument>& arguments) {
    Impl& site = *impl_;
    const Binding& b = site.binding;
    const FunctionDescriptor& d = *b.function().descriptor;
    // A CallSite's arguments are the frame's, the call routine's outputs
    // (numeric variables) among them.
    const auto n = static_cast<int>(arguments.size());
    if (n < b.outputs() || !b.countProblem(n - b.outputs()).empty()) {
        throw std::invalid_argument(b.name() + " takes " + std::to_string(d.minArgs) + " to " +
                                    std::to_string(d.maxArgs) + " arguments, not " + std::to_string(n));
    }
    for (int k = 1; k <= n; ++k) {
        const Argument& a = arguments[static_cast<std::size_t>(k - 1)];
        if (b.isOutput(k)) {
            if (!std::holds_alternative<double>(a)) {
                throw std::invalid_argument(b.name() + ": output argument " + std::to_string(k) +
                                            " must be a numeric variable");
            }
            continue;
        }
        if (!site.typeChecking) continue;
        const int input = b.callRoutine() && k > Binding::kFirstOutput ? k - b.outputs() : k;
        const ValueKind kind = std::holds_alternative<double>(a)        ? ValueKind::Number
                               : std::holds_alternative<std::string>(a) ? ValueKind::Text
                                                                        : ValueKind::Absent;
        b.requireKind(input, kind);
    }

    BoundFrame& bound = site.bound;
    bound.start(n - b.outputs());
    for (int k = 1; k <= n; ++k) {
        const Argument& a = arguments[static_cast<std::size_t>(k - 1)];
        const auto i = static_cast<std::size_t>(k - 1);
        site.texts[i].reset();
        if (const double* number = std::get_if<double>(&a)) {
            site.numbers[i] = *number;
            site.numberPlaces[i] = site.guarded
                                       ? static_cast<double*>(site.guardedBytes[i].place(number, sizeof(double)))
                                       : &site.numbers[i];
            bound.numberPlace(k, site.numberPlaces[i]);
        } else if (const std::string* text = std::get_if<std::string>(&a)) {
            // Exactly the text's bytes, no terminator: a read past them is an
            // AddressSanitizer report, or in guarded mode a fault.
            char* data = nullptr;
            if (site.guarded) {
                data = static_cast<char*>(site.guardedBytes[i].place(text->data(), text->size()));
            } else {
                auto& bytes = site.texts[i];
                bytes.reset(new char[text->size()]);
                if (!text->empty()) std::memcpy(bytes.get(), text->data(), text->size());
                data = bytes.get();
            }
            bound.textAt(k, data, static_cast<std::int64_t>(text->size()));
        }
    }

    site.module->requireItsSession();
    Session::Impl& s = site.session->impl();
    s.collectRngMessages();
    CallResult r;
    {
        // The call's messages are its own even while other tasks of the
        // session call; the session's record gets them afterwards.
        MessageSink sink{&r.messages, [](void* context, const MessageEvent& e) {
                             Message m;
                             m.source = e.source;
                             m.code = e.code;
                             m.kind = e.kind;
                             m.functionName = e.functionName;
                             m.character = e.character;
                             m.detail = e.detail;
                             m.text = messageText(e);
                             static_cast<std::vector<Message>*>(context)->push_back(std::move(m));
                         }};
        TaskScope task(s, &sink);
        r.status = bound.call();
    }
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        const std::size_t before = s.messages.size();
        s.messages.insert(s.messages.end(), r.messages.begin(), r.messages.end());
        s.collectRngMessagesLocked();
        r.messages.assign(s.messages.begin() + static_cast<std::ptrdiff_t>(before), s.messages.end());
    }

    if (b.callRoutine()) {
        r.position = *site.numberPlaces[Binding::kFirstOutput - 1];
        r.length = *site.numberPlaces[Binding::kFirstOutput];
    } else if (b.resultKind() == kNumericResult) {
        r.number = bound.number();
    } else if (b.resultKind() == kCharacterResult) {
        if (bound.textImpossible()) {
            throw std::runtime_error(b.name() + ": the module stored an impossible result length");
        }
        if (const StringValue* text = bound.text()) {
            r.text = std::string(text->data, static_cast<std::size_t>(text->length));
        }
    }
    r.errorMarks.resize(static_cast<std::size_t>(n));
    for (int k = 1; k <= n; ++k) r.errorMarks[static_cast<std::size_t>(k - 1)] = bound.frame().arg(k).errorMarks;
    return r;
}

}  // namespace txhost
