// The function-table routine the host reaches through the ModuleHeader.
#pragma once

#include <cstdint>

namespace txscan {

// Mode 1: a new FunctionTable; mode 2: a new entry-routine table; other
// modes: null. Both tables come from the module pool and belong to the host.
void* functionTableRoutine(std::int32_t mode);

}  // namespace txscan
