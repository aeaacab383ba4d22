// Host side of the random-number library: the name-value store of its
// settings, the logger (format text, log lines, catalogued messages), the
// system query (processor record, clock codes), the current task and the
// transcoder the library reaches through kernel words.
//
// Who calls what:
//   - Session's constructor calls makeRngServices(session), keeps the result
//     and calls installRngServices(services, kernelWords) on the kernel object
//     it hands the module (words 11, 13, 14, 15, 26, 33, 35 are filled here).
//   - The host implements rngServices(session), returning that object.
//   - Session::setSetting/clearSetting forward to storeSet*/storeClear.
//   - Session::takeMessages appends takeRngMessages(services) to its own list.
//   - systemQuery and currentTask carry no session: they answer for the
//     host's active session (session_impl.h).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/host.h"

namespace txhost {

class Session;

// The host objects live in RngHostState (rng_services.cpp); RngServices is
// complete here so that any owner can hold and destroy it.
struct RngHostState;
struct RngHostStateDeleter {
    void operator()(RngHostState* state) const;
};
struct RngServices {
    std::unique_ptr<RngHostState, RngHostStateDeleter> state;
};

std::unique_ptr<RngServices> makeRngServices(Session& session);   // owns store, logger, system query, task
void installRngServices(RngServices& services, void** kernelWords); // fills kernel words 11,13,14,15,26,33,35
RngServices& rngServices(Session& session);                         // accessor the host implements

// The settings store, by name (names are case-sensitive, as the library
// writes them).
void storeSetText(RngServices& services, std::string_view name, std::string_view text);
void storeSetInteger(RngServices& services, std::string_view name, std::int64_t value);
void storeSetDouble(RngServices& services, std::string_view name, double value);
void storeClear(RngServices& services, std::string_view name);

// What the store holds under a name (tests): nothing, a double, an integer or text (UTF-8).
using StoredValue = std::variant<std::monostate, double, std::int64_t, std::string>;
StoredValue storeGet(RngServices& services, std::string_view name);

// Log lines and catalogued messages recorded since the last take, in order.
std::vector<Message> takeRngMessages(RngServices& services);

// Switches for tests. The hardware switch acts together with
// SessionOptions::hardwareRandom: RDRAND is reported only when both allow it
// and the processor has it.
void setHardwareRandom(RngServices& services, bool available);
void setLoggerPresent(RngServices& services, bool present);       // false: kernel word 26 is null
void failStoreCalls(RngServices& services, std::int32_t status);  // every get and set answers status (0: off)
void failLogLines(RngServices& services, std::int32_t status);    // logLine answers status (0: off)
void failTranscoding(RngServices& services, std::int32_t status); // the name transcoder answers status (0: off)

}  // namespace txhost
