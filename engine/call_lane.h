// One worker's call site of a Program: the bound frame (with the setCache
// the module fills under modifier O), the receiving buffer and the worker's
// message tally. Kept for the Program's lifetime and reused for every row and
// chunk the worker evaluates, so a row costs no allocation.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/message_tally.h"
#include "host/binder.h"

namespace txengine {

struct CallLane {
    txhost::BoundFrame call;
    std::vector<char> resultBuffer;   // the receiving variable of KSCANX, maxLength bytes
    MessageTally tally;
    std::vector<char> textBytes;      // text results of the task at hand

    CallLane(const txhost::Binding& binding, txscan::contract::CallContext* context) : call(binding, context) {}
};

}  // namespace txengine
