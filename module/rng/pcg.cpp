// The permuted congruential generators with the RXS M XS output: PCG64I
// (64/64) and PCG32I (32/32). A stream picks the increment, which stays odd.
#include "module/rng/generator_kit.h"

namespace txscan::rng {
namespace {

template <typename Word>
struct PcgState {
    Word s;
    Word inc;   // always odd
};

template <typename Word>
void seedPcg(void* state, Word seed) {
    auto& st = stateOf<PcgState<Word>>(state);
    st.inc = 1;
    st.s = seed + 1;
}

template <typename Word>
std::int32_t streamPcg(void* state, Word v) {
    if (v == 0) return 0;
    auto& st = stateOf<PcgState<Word>>(state);
    st.inc = static_cast<Word>(v << 1 | 1);
    st.s = st.s + st.inc - 1;
    return 1;
}

std::uint64_t nextPcg64(void* state) {
    auto& st = stateOf<PcgState<std::uint64_t>>(state);
    st.s = st.s * 0x5851F42D4C957F2Dull + st.inc;
    std::uint64_t w = ((st.s >> ((st.s >> 59) + 5)) ^ st.s) * 0xAEF17502108EF2D9ull;
    return (w >> 43) ^ w;
}

std::uint32_t nextPcg32(void* state) {
    auto& st = stateOf<PcgState<std::uint32_t>>(state);
    st.s = st.s * 0x2C9277B5u + st.inc;
    std::uint32_t w = ((st.s >> ((st.s >> 28) + 4)) ^ st.s) * 0x108EF2D9u;
    return (w >> 22) ^ w;
}

constexpr MethodInfo kPcg64Info{"PCG64I", "64-bit PCG64i", 64, 8, 16, 0x1057, ~std::uint64_t{0},
                                (std::uint64_t{1} << 63) - 1};
constexpr MethodInfo kPcg32Info{"PCG32I", "32-bit PCG32i", 32, 4, 8, 0x082F, 0xFFFFFFFFull, 0x7FFFFFFFull};

constexpr RngOperations kPcg64Ops =
    methodOperations<kPcg64Info, std::uint64_t, &seedPcg<std::uint64_t>, &nextPcg64, &streamPcg<std::uint64_t>>();
constexpr RngOperations kPcg32Ops =
    methodOperations<kPcg32Info, std::uint32_t, &seedPcg<std::uint32_t>, &nextPcg32, &streamPcg<std::uint32_t>>();

}  // namespace

void fillPcg64i(RngMethod* record) { fillMethod(record, kPcg64Info, kPcg64Ops); }
void fillPcg32i(RngMethod* record) { fillMethod(record, kPcg32Info, kPcg32Ops); }

}  // namespace txscan::rng
