// RDRAND: the processor's hardware generator. No state, no seed, no stream;
// every draw answers 0 when the host reports no instruction.
#include "module/rng/generator_kit.h"

namespace txscan::rng {
namespace {

std::uint32_t nextRdrand32(void*) { return hardwareAvailable() ? hardware32() : 0; }
std::uint64_t nextRdrand64(void*) { return hardwareAvailable() ? hardware64() : 0; }
std::int32_t noStateBytes(void*, const void*, std::int32_t, std::uint32_t) { return 0; }

constexpr MethodInfo kRdrandInfo{"RDRAND", "Intel RDRAND", 0, 0, 0, 0x3801, 0, 0};
constexpr RngOperations kRdrandOps = [] {
    RngOperations ops = baseOperations<kRdrandInfo>();
    ops.seedFromBytes = &noStateBytes;
    ops.next32 = &nextRdrand32;
    ops.next64 = &nextRdrand64;
    setConversions32<&nextRdrand32>(ops);
    setConversions64<&nextRdrand64>(ops);
    ops.uniform = ops.uniform64Open;
    ops.uniformScaled = ops.uniform64Closed;
    return ops;
}();

}  // namespace

void fillRdrand(RngMethod* record) { fillMethod(record, kRdrandInfo, kRdrandOps); }

}  // namespace txscan::rng
