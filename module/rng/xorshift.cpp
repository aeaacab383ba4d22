// The shift-register generators: xorshift64*, xorshift128 with a stored sum,
// xorshift1024*, xorshift4096* and xorgens (xor4096 for 64-bit words).
#include "module/rng/generator_kit.h"

namespace txscan::rng {
namespace {

constexpr std::uint64_t kAll64 = ~std::uint64_t{0};

// ---- XOR64: x is never 0 once seeded (a zero seed is replaced).
struct Xor64State {
    std::uint64_t x;
};
void seedXor64(void* state, std::uint64_t s) { stateOf<Xor64State>(state).x = s; }
std::uint64_t nextXor64(void* state) {
    std::uint64_t& x = stateOf<Xor64State>(state).x;
    x ^= x >> 12;
    x ^= x << 25;
    x ^= x >> 27;
    return x * 0x2545F4914F6CDD1Dull;
}
constexpr MethodInfo kXor64Info{"XOR64", "64-bit XORSHIFT64*", 64, 8, 8, 0x1017, kAll64, 0};

// ---- XOR128: the stored s1 is the sum t + b, and the output is that sum.
struct Xor128State {
    std::uint64_t s0;
    std::uint64_t s1;
};
void seedXor128(void* state, std::uint64_t s) {
    auto& st = stateOf<Xor128State>(state);
    st.s0 = s;
    st.s1 = fmix64(s + 1);
}
std::uint64_t nextXor128(void* state) {
    auto& st = stateOf<Xor128State>(state);
    std::uint64_t a = st.s0;
    const std::uint64_t b = st.s1;
    a ^= a << 23;
    const std::uint64_t sum = (a ^ b ^ (a >> 17) ^ (b >> 26)) + b;
    // Stored word by word: a compiler that pairs the two stores into one
    // 16-byte store makes the next call's 8-byte loads wait for it (the
    // processor cannot forward half of a wide store), costing twice the step.
    st.s1 = sum;
    asm volatile("" ::: "memory");
    st.s0 = b;
    return sum;
}
constexpr MethodInfo kXor128Info{"XOR128", "64-bit XORSHIFT128+", 64, 16, 16, 0x1017, kAll64, 0};

// ---- XOR1024 and XOR4096: one template over the word count and shifts.
template <int Words>
struct XorRingState {
    std::uint64_t s[Words];
    std::int32_t p;   // next word, 0 .. Words - 1; reset by seeding only
};
template <int Words>
void seedXorRing(void* state, std::uint64_t s) {
    auto& st = stateOf<XorRingState<Words>>(state);
    st.p = 0;
    st.s[0] = s;
    for (int k = 1; k < Words; ++k) st.s[k] = fmix64(s + k);
}
template <int Words, int A, int B, int C, std::uint64_t Multiplier>
std::uint64_t nextXorRing(void* state) {
    auto& st = stateOf<XorRingState<Words>>(state);
    std::uint64_t a = st.s[st.p];
    st.p = (st.p + 1) & (Words - 1);
    std::uint64_t b = st.s[st.p];
    b ^= b << A;
    st.s[st.p] = b ^ a ^ (b >> B) ^ (a >> C);
    return st.s[st.p] * Multiplier;
}
constexpr auto nextXor1024 = &nextXorRing<16, 31, 11, 30, 0x106689D45497FDB5ull>;
constexpr auto nextXor4096 = &nextXorRing<64, 25, 3, 49, 0x74321163EEC4A005ull>;
constexpr MethodInfo kXor1024Info{"XOR1024", "64-bit XORSHIFT1024*", 64, 128, 136, 0x1017, kAll64, 0};
constexpr MethodInfo kXor4096Info{"XOR4096", "64-bit XORSHIFT4096*", 64, 512, 520, 0x1017, kAll64, 0};
static_assert(sizeof(XorRingState<16>) == 136 && sizeof(XorRingState<64>) == 520);

// ---- XORGENS: r = 64, s = 53, shifts 33, 26, 27, 29, with a Weyl sequence.
struct XorgensState {
    std::uint64_t x[64];
    std::uint64_t w;   // Weyl value
    std::uint32_t i;   // last word written, 0 .. 63
};
static_assert(sizeof(XorgensState) == 528);
constexpr std::uint64_t kWeyl = 0x61C8864680B583EBull;

std::uint64_t xorgensScramble(std::uint64_t v) {
    v ^= v << 10;
    v ^= v >> 15;
    v ^= v << 4;
    v ^= v >> 13;
    return v;
}
inline void xorgensStep(XorgensState& st) {
    st.i = (st.i + 1) & 63;
    std::uint64_t t = st.x[st.i];
    t ^= t << 33;
    std::uint64_t u = st.x[(st.i + 11) & 63];
    u ^= u << 27;
    st.x[st.i] = u ^ (u >> 29) ^ t ^ (t >> 26);
}
void seedXorgens(void* state, std::uint64_t s) {
    auto& st = stateOf<XorgensState>(state);
    std::uint64_t v = s;
    for (int k = 0; k < 64; ++k) v = xorgensScramble(v);
    std::uint64_t w = v;
    for (int k = 0; k < 64; ++k) {
        v = xorgensScramble(v);
        w += kWeyl;
        st.x[k] = v + w;
    }
    st.w = w;
    st.i = 63;
    // Discard the first outputs so that similar seeds drift apart.
    for (int k = 0; k < 256; ++k) xorgensStep(st);
}
std::uint64_t nextXorgens(void* state) {
    auto& st = stateOf<XorgensState>(state);
    st.w += kWeyl;
    xorgensStep(st);
    return (st.w ^ (st.w >> 27)) + st.x[st.i];
}
constexpr MethodInfo kXorgensInfo{"XORGENS", "64-bit XORGENS*", 64, 0, 528, 0x1013, kAll64, 0};

constexpr RngOperations kXor64Ops = methodOperations<kXor64Info, std::uint64_t, &seedXor64, &nextXor64>();
constexpr RngOperations kXor128Ops = methodOperations<kXor128Info, std::uint64_t, &seedXor128, &nextXor128>();
constexpr RngOperations kXor1024Ops = methodOperations<kXor1024Info, std::uint64_t, &seedXorRing<16>, nextXor1024>();
constexpr RngOperations kXor4096Ops = methodOperations<kXor4096Info, std::uint64_t, &seedXorRing<64>, nextXor4096>();
constexpr RngOperations kXorgensOps = methodOperations<kXorgensInfo, std::uint64_t, &seedXorgens, &nextXorgens>();

}  // namespace

void fillXor64(RngMethod* record) { fillMethod(record, kXor64Info, kXor64Ops); }
void fillXor128(RngMethod* record) { fillMethod(record, kXor128Info, kXor128Ops); }
void fillXor1024(RngMethod* record) { fillMethod(record, kXor1024Info, kXor1024Ops); }
void fillXor4096(RngMethod* record) { fillMethod(record, kXor4096Info, kXor4096Ops); }
void fillXorgens(RngMethod* record) { fillMethod(record, kXorgensInfo, kXorgensOps); }

}  // namespace txscan::rng
