// The host of a database extension: the extension library finds the module
// file beside itself, and one process shares one Session and Module among
// all its connections (a database may load the extension into many
// connections, and the module binds to one Session).
#pragma once

#include <string>

#include "host/host.h"

namespace txhost {

// The module file beside the library this code is linked into, in the build
// tree and in an installation alike; the build's module when there is none
// (a program linking the host, or Windows, where the DLL sits beside it).
std::string moduleBesideThisLibrary();

struct SharedHost {
    Session* session = nullptr;
    Module* module = nullptr;
};

// The process's host, made on first use and kept until the process ends,
// or null with `error` saying why the module did not load. Throws
// std::bad_alloc when memory ran out on the way; a later call tries again.
SharedHost* sharedHost(std::string& error);

}  // namespace txhost
