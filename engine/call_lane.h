// One worker's call site of a Program: the ArgumentFrame (with the setCache
// the module fills under modifier O), the argument and result storage it
// points at, and the worker's message tally. Kept for the Program's
// lifetime and reused for every row and chunk the worker evaluates, so a row
// costs no allocation.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "engine/message_tally.h"
#include "module/abi/argument_frame.h"

namespace txengine {

struct CallLane {
    txscan::contract::ArgumentFrame frame{};
    std::array<double, txscan::contract::kMaxArguments> numbers{};
    std::array<txscan::contract::StringValue, txscan::contract::kMaxArguments> strings{};
    std::vector<char> resultBuffer;   // the receiving variable of KSCANX, maxLength bytes
    MessageTally tally;
    std::vector<char> textBytes;      // text results of the task at hand
};

}  // namespace txengine
