// Host side of the random-number library (see rng_services.h).
#include "host/rng_services.h"

#include <map>
#include <string>
#include <variant>

namespace txhost {

struct RngServices {
    Session* session = nullptr;
    std::map<std::string, std::variant<double, std::int64_t, std::string>, std::less<>> store;
    std::vector<Message> messages;
};

std::unique_ptr<RngServices> makeRngServices(Session& session) {
    auto services = std::make_unique<RngServices>();
    services->session = &session;
    return services;
}

void installRngServices(RngServices&, void**) {}

void storeSetText(RngServices& services, std::string_view name, std::string_view text) {
    services.store.insert_or_assign(std::string(name), std::string(text));
}

void storeSetInteger(RngServices& services, std::string_view name, std::int64_t value) {
    services.store.insert_or_assign(std::string(name), value);
}

void storeSetDouble(RngServices& services, std::string_view name, double value) {
    services.store.insert_or_assign(std::string(name), value);
}

void storeClear(RngServices& services, std::string_view name) {
    if (auto found = services.store.find(name); found != services.store.end()) services.store.erase(found);
}

std::vector<Message> takeRngMessages(RngServices& services) {
    std::vector<Message> taken;
    taken.swap(services.messages);
    return taken;
}

}  // namespace txhost
