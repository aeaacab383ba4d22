// The eight entry routines the host calls, in descriptor order.
#pragma once

#include <cstdint>

#include "module/abi/argument_frame.h"

namespace txscan {

using contract::ArgumentFrame;

std::int32_t kcountxEntry(ArgumentFrame* frame, void* result);
std::int32_t kcountcEntry(ArgumentFrame* frame, void* result);
std::int32_t kcountwEntry(ArgumentFrame* frame, void* result);
std::int32_t kfindEntry(ArgumentFrame* frame, void* result);
std::int32_t kfindcEntry(ArgumentFrame* frame, void* result);
std::int32_t kfindwEntry(ArgumentFrame* frame, void* result);
std::int32_t kscanxFunctionEntry(ArgumentFrame* frame, void* result);
std::int32_t kscanxCallEntry(ArgumentFrame* frame, void* result);

}  // namespace txscan
