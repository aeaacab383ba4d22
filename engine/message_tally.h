// Counts the notes and errors one worker's calls issue, per kind, keeping
// the first row of each: a run that notes the same unknown modifier on a
// million rows holds one MessageCount, and only the first of a kind costs
// an allocation (its text).
#pragma once

#include <cstdint>
#include <vector>

#include "engine/engine.h"
#include "host/host.h"

namespace txengine {

struct MessageTally {
    std::vector<MessageCount> counts;
    std::int64_t currentRow = 0;   // the row being evaluated, set before each call
    txhost::MessageSink sink{this, &MessageTally::receive};

    MessageTally() = default;
    MessageTally(const MessageTally&) = delete;
    MessageTally& operator=(const MessageTally&) = delete;

    static void receive(void* tally, const txhost::MessageEvent& event);
};

// Adds `from` into `into`: counts summed, the earlier first row kept, and
// the kinds ordered by first row so the outcome is the same for any split.
void mergeTallies(std::vector<MessageCount>& into, const std::vector<MessageCount>& from);
void orderByFirstRow(std::vector<MessageCount>& counts);

}  // namespace txengine
