// The common part of every fill routine.
#include <cstring>

#include "module/rng/messages.h"
#include "module/rng/method.h"
#include "module/rng/settings.h"

namespace txscan::rng {

void fillMethod(RngMethod* record, const MethodInfo& info, const RngOperations& operations) {
    std::memset(static_cast<void*>(record), 0, sizeof *record);
    record->nameCapacity = sizeof record->shortName;
    record->descriptionCapacity = sizeof record->description;
    record->flags |= info.flags;
    std::size_t i = 0;
    for (; info.shortName[i] != 0 && i + 1 < sizeof record->shortName; ++i) {
        record->shortName[i] = info.shortName[i];
        record->wideName[i] = static_cast<unsigned char>(info.shortName[i]);
    }
    record->shortName[i] = 0;
    record->wideName[i] = 0;
    for (i = 0; info.description[i] != 0 && i + 1 < sizeof record->description; ++i)
        record->description[i] = info.description[i];
    record->description[i] = 0;
    issueRngMessage(contract::kSeverityInfo, kMsgMethodFilled,
                    info.description[0] != 0 ? record->description : record->shortName);
    record->stateBytes = info.stateBytes;
    record->stateBits = static_cast<std::uint32_t>(info.stateBytes * 8);
    record->outputBits = info.outputBits;
    record->maxSeed = info.maxSeed;
    record->maxStream = info.maxStream;
    record->ops = operations;
}

}  // namespace txscan::rng
