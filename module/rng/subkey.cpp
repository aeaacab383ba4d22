// The subtract-key sequences: x = x - k, where the stream number is the key
// k. With k = 0 the output never changes, which is why streams of 0 keep it.
#include "module/rng/generator_kit.h"

namespace txscan::rng {
namespace {

template <typename Word>
struct SubkeyState {
    Word x;
    Word k;   // the stream; unchanged by seeding
};

template <typename Word>
void seedSubkey(void* state, Word s) {
    stateOf<SubkeyState<Word>>(state).x = s;
}

template <typename Word>
Word stepSubkey(void* state) {
    auto& st = stateOf<SubkeyState<Word>>(state);
    st.x -= st.k;
    return st.x;
}

template <typename Word>
std::int32_t streamSubkey(void* state, Word v) {
    if (v == 0) return 0;
    stateOf<SubkeyState<Word>>(state).k = v;
    return 1;
}

// Unlike the other methods, a floating stream that reduces to 0 is stored.
template <typename Word>
std::int32_t streamSubkeyFromDouble(void* state, double value) {
    if (isMissing(value) || value == 0) return 0;
    stateOf<SubkeyState<Word>>(state).k = reduceToWord<Word>(value);
    return 1;
}

constexpr MethodInfo kSubkey32Info{"SUBKEY32", "32-bit Subtract Key", 32, 4, 8, 0x082F, 0xFFFFFFFFull, 0xFFFFFFFFull};
constexpr MethodInfo kSubkey64Info{"SUBKEY64", "64-bit Subtract Key", 64, 8, 16, 0x1057, ~std::uint64_t{0},
                                   ~std::uint64_t{0}};

// A floating stream is stored even when it reduces to 0.
template <const MethodInfo& Info, typename Word>
constexpr RngOperations subkeyOperations() {
    RngOperations ops = methodOperations<Info, Word, &seedSubkey<Word>, &stepSubkey<Word>, &streamSubkey<Word>>();
    ops.setStreamFromDouble = &streamSubkeyFromDouble<Word>;
    return ops;
}
constexpr RngOperations kSubkey32Ops = subkeyOperations<kSubkey32Info, std::uint32_t>();
constexpr RngOperations kSubkey64Ops = subkeyOperations<kSubkey64Info, std::uint64_t>();

}  // namespace

void fillSubkey32(RngMethod* record) { fillMethod(record, kSubkey32Info, kSubkey32Ops); }
void fillSubkey64(RngMethod* record) { fillMethod(record, kSubkey64Info, kSubkey64Ops); }

}  // namespace txscan::rng
