// The module beside the extension, and the process-wide Session and Module
// behind every connection.
#include "host/extension_host.h"

#if !defined(_WIN32)
#include <dlfcn.h>
#endif

#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>

namespace txhost {

std::string moduleBesideThisLibrary() {
#if !defined(_WIN32)
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&moduleBesideThisLibrary), &info) != 0 && info.dli_fname != nullptr) {
        const auto beside = std::filesystem::path(info.dli_fname).parent_path() / "txscanmd.so";
        std::error_code ignored;
        if (std::filesystem::exists(beside, ignored)) return beside.string();
    }
#endif
    return TXSCAN_MODULE_PATH;
}

SharedHost* sharedHost(std::string& error) {
    // Never destroyed: connections may outlive static destruction at exit.
    static SharedHost* host = nullptr;
    static std::string loadError;
    static std::mutex once;
    // Asked once per connection, never per row, so a lock costs nothing.
    std::lock_guard<std::mutex> lock(once);
    if (host == nullptr && loadError.empty()) {
        try {
            auto session = std::make_unique<Session>(SessionOptions{});
            auto module = Module::load(*session, moduleBesideThisLibrary());
            host = new SharedHost{session.release(), module.release()};
        } catch (const std::bad_alloc&) {
            throw;   // not kept: the next connection tries again
        } catch (const std::exception& e) {
            loadError = e.what();
        }
    }
    if (host == nullptr) error = loadError;
    return host;
}

}  // namespace txhost
