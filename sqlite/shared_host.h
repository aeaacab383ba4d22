// The one host a process shares among all its SQLite connections: a UTF-8
// Session and the module file found beside the extension, made on the first
// load and kept until the process ends (SQLite may load the extension into
// many connections, and the module binds to one Session).
#pragma once

#include <string>

#include "host/host.h"

namespace txsqlite {

struct SharedHost {
    txhost::Session* session = nullptr;
    txhost::Module* module = nullptr;
};

// The process's host, or null with `error` saying why the module did not load.
SharedHost* sharedHost(std::string& error);

}  // namespace txsqlite
