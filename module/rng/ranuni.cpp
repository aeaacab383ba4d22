// RANUNI: the multiplicative congruential generator with multiplier
// 397204094 and modulus 2^31 - 1, whose uniform is x / (2^31 - 1).
#include "module/rng/generator_kit.h"

namespace txscan::rng {
namespace {

struct RanuniState {
    std::uint32_t x;   // below 2^31 - 1 after the first step
};

void seedRanuni(void* state, std::uint32_t s) { stateOf<RanuniState>(state).x = s; }

std::uint32_t nextRanuni(void* state) {
    std::uint32_t& x = stateOf<RanuniState>(state).x;
    std::uint64_t p = std::uint64_t{397204094} * x;
    // 2^31 = 1 modulo 2^31 - 1, so the high part folds onto the low one.
    std::uint32_t r = static_cast<std::uint32_t>((p >> 31) + (p & 0x7FFFFFFF));
    if (r >= 0x7FFFFFFF) r -= 0x7FFFFFFF;
    x = r;
    return x;
}

double uniformRanuni(void* state) { return nextRanuni(state) / 2147483647.0; }

constexpr MethodInfo kRanuniInfo{"RANUNI", "", 31, 0, 4, 0x080A, 0xFFFFFFFFull, 0};
constexpr RngOperations kRanuniOps = [] {
    RngOperations ops = methodOperations<kRanuniInfo, std::uint32_t, &seedRanuni, &nextRanuni>();
    ops.uniformPreferred = &uniformRanuni;
    return ops;
}();

}  // namespace

void fillRanuni(RngMethod* record) { fillMethod(record, kRanuniInfo, kRanuniOps); }

}  // namespace txscan::rng
