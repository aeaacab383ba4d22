// The process-wide Session and Module behind every connection.
#include "sqlite/shared_host.h"

#include <dlfcn.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace txsqlite {

namespace {

// The module file sits beside the extension in the build tree and in an
// installation alike, so it is found relative to this library, not the
// program that loaded it.
std::string modulePathBesideExtension() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&modulePathBesideExtension), &info) == 0 || info.dli_fname == nullptr) {
        return TXSCAN_MODULE_PATH;
    }
    return (std::filesystem::path(info.dli_fname).parent_path() / "txscanmd.so").string();
}

}  // namespace

SharedHost* sharedHost(std::string& error) {
    // Never destroyed: connections may outlive static destruction at exit.
    static SharedHost* host = nullptr;
    static std::string loadError;
    static std::once_flag once;
    std::call_once(once, [] {
        const std::string path = modulePathBesideExtension();
        try {
            auto session = std::make_unique<txhost::Session>(txhost::SessionOptions{});
            auto module = txhost::Module::load(*session, path);
            host = new SharedHost{session.release(), module.release()};
        } catch (const std::exception& e) {
            loadError = e.what();
        }
    });
    if (host == nullptr) error = loadError;
    return host;
}

}  // namespace txsqlite
