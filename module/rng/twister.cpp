// The Mersenne Twister methods: MT64 (MT19937-64) and the three 32-bit
// twisters MT1998, MT32 and MTHYBRID (MT19937 with the 1998 seeding, the
// 2002 seeding, or a choice by the seed). Streams and keys rehash every
// state word with its index, a tag and the value.
#include <bit>

#include "module/rng/generator_kit.h"

namespace txscan::rng {
namespace {

constexpr std::uint32_t kStreamTag = 0x0F;
constexpr std::uint32_t kKeyTag = 0xFF;

// The state of a twister of N words: the array and the position of its
// next word, where N means "twist first".
template <typename Word, int N>
struct MtState {
    Word mt[N];
    std::uint32_t mti;
};

// ---- MT64

constexpr int kN64 = 312;
constexpr int kM64 = 156;
using Mt64State = MtState<std::uint64_t, kN64>;
static_assert(sizeof(Mt64State) == 2504);

// One twist of the recurrence over the whole array; the two word sizes
// differ only in their constants.
template <typename Word, int N, int M, Word Upper, Word Lower, Word Matrix>
void twist(Word (&mt)[N], std::uint32_t& mti) {
    const auto step = [&](int i, int next, int far) {
        const Word x = (mt[i] & Upper) | (mt[next] & Lower);
        mt[i] = mt[far] ^ (x >> 1) ^ ((Word{0} - (x & 1)) & Matrix);
    };
    int i = 0;
    for (; i < N - M; ++i) step(i, i + 1, i + M);
    for (; i < N - 1; ++i) step(i, i + 1, i + M - N);
    step(N - 1, 0, M - 1);
    mti = 0;
}

void twist64(Mt64State& st) {
    twist<std::uint64_t, kN64, kM64, 0xFFFFFFFF80000000ull, 0x7FFFFFFFull, 0xB5026F5AA96619E9ull>(st.mt, st.mti);
}

void seedMt64(void* state, std::uint64_t s) {
    auto& st = stateOf<Mt64State>(state);
    st.mt[0] = s;
    for (int i = 1; i < kN64; ++i)
        st.mt[i] = 6364136223846793005ull * (st.mt[i - 1] ^ (st.mt[i - 1] >> 62)) + static_cast<std::uint64_t>(i);
    st.mti = kN64;
}

std::uint64_t nextMt64(void* state) {
    auto& st = stateOf<Mt64State>(state);
    if (st.mti >= kN64) twist64(st);
    std::uint64_t x = st.mt[st.mti++];
    x ^= (x >> 29) & 0x5555555555555555ull;
    x ^= (x << 17) & 0x71D67FFFEDA60000ull;
    x ^= (x << 37) & 0xFFF7EEE000000000ull;
    x ^= x >> 43;
    return x;
}

// ---- MT19937

constexpr int kN32 = 624;
constexpr int kM32 = 397;

using Mt32State = MtState<std::uint32_t, kN32>;
static_assert(sizeof(Mt32State) == 2500);

void twist32(Mt32State& st) { twist<std::uint32_t, kN32, kM32, 0x80000000u, 0x7FFFFFFFu, 0x9908B0DFu>(st.mt, st.mti); }

inline std::uint32_t tempered32(Mt32State& st) {
    if (st.mti >= kN32) twist32(st);
    std::uint32_t y = st.mt[st.mti++];
    y ^= y >> 11;
    y ^= (y << 7) & 0x9D2C5680u;
    y ^= (y << 15) & 0xEFC60000u;
    y ^= y >> 18;
    return y;
}

// Zero outputs are skipped, so every conversion sees y > 0. An all-zero
// array (only seedFromBytes can load one) gives up like a dead generator.
std::uint32_t nextMt32(void* state) {
    auto& st = stateOf<Mt32State>(state);
    std::uint32_t y = tempered32(st);
    for (int draws = 1; y == 0 && draws < kDeadGeneratorDraws; ++draws) y = tempered32(st);
    return y;
}

// y × (the largest double below 2^-32): below 1 even for y = 2^32 - 1.
double uniformPreferredMt32(void* state) { return nextMt32(state) * 0x1.fffffffffffffp-33; }

enum class SeedRule { Mt1998, Mt2002, Hybrid };

template <SeedRule Rule>
void seedMt32(void* state, std::uint32_t s) {
    auto& st = stateOf<Mt32State>(state);
    // MTHYBRID takes the 2002 rule only for seeds with 13 low zero bits,
    // whose zero bits the 1998 rule's plain products would carry into every word.
    const bool rule2002 = Rule == SeedRule::Mt2002 || (Rule == SeedRule::Hybrid && (s & 0x1FFF) == 0);
    st.mt[0] = s;
    for (int i = 1; i < kN32; ++i)
        st.mt[i] = rule2002 ? 1812433253u * (st.mt[i - 1] ^ (st.mt[i - 1] >> 30)) + static_cast<std::uint32_t>(i)
                            : 69069u * st.mt[i - 1];
    st.mti = kN32;
}

// One state word rehashed with its index, a tag and a value, the old word
// as the seed: MurmurHash3 x86_32 of the three little-endian words for the
// 32-bit twisters, hashWords64 for MT64.
inline std::uint32_t rehashWord(std::uint32_t index, std::uint32_t tag, std::uint32_t value, std::uint32_t old) {
    const std::uint32_t words[3] = {index, tag, value};
    unsigned char bytes[12];
    for (int k = 0; k < 12; ++k) bytes[k] = static_cast<unsigned char>(words[k / 4] >> (8 * (k % 4)));
    return murmur3x86_32(bytes, sizeof bytes, old);
}
inline std::uint64_t rehashWord(std::uint64_t index, std::uint64_t tag, std::uint64_t value, std::uint64_t old) {
    const std::uint64_t words[3] = {index, tag, value};
    return hashWords64(words, 3, old);
}

// A stream or key: mti stays, so the next output continues from the current
// position in the rehashed array.
template <typename Word, int N, Word Tag>
std::int32_t rehash(void* state, Word value) {
    if (value == 0) return 0;
    auto& st = stateOf<MtState<Word, N>>(state);
    for (int i = 0; i < N; ++i) st.mt[i] = rehashWord(static_cast<Word>(i), Tag, value, st.mt[i]);
    return 1;
}

// ---- The records

constexpr std::uint64_t kAll64 = ~std::uint64_t{0};
constexpr std::uint64_t kAll32 = 0xFFFFFFFFull;
constexpr MethodInfo kMt64Info{"MT64", "64-bit Mersenne Twister", 64, 2496, 2504, 0x1157, kAll64, kAll64};
constexpr MethodInfo kMt1998Info{"MT1998", "1998 32-bit Mersenne Twister", 32, 2496, 2500, 0x28AF, kAll32, kAll32};
constexpr MethodInfo kMt32Info{"MT32", "2002 32-bit Mersenne Twister", 32, 2496, 2500, 0x28AF, kAll32, kAll32};
constexpr MethodInfo kMtHybridInfo{"MTHYBRID", "Hybrid 1998/2002 32-bit Mersenne Twister", 32, 2496, 2500, 0x28AF,
                                   kAll32, kAll32};

template <std::uint64_t Tag>
constexpr auto kRehash64 = &rehash<std::uint64_t, kN64, Tag>;
template <std::uint32_t Tag>
constexpr auto kRehash32 = &rehash<std::uint32_t, kN32, Tag>;

constexpr RngOperations kMt64Ops = methodOperations<kMt64Info, std::uint64_t, &seedMt64, &nextMt64,
                                                    kRehash64<kStreamTag>, kRehash64<kKeyTag>>();

template <const MethodInfo& Info, SeedRule Rule>
constexpr RngOperations mt32Operations() {
    RngOperations ops = methodOperations<Info, std::uint32_t, &seedMt32<Rule>, &nextMt32, kRehash32<kStreamTag>,
                                         kRehash32<kKeyTag>>();
    ops.uniformPreferred = &uniformPreferredMt32;
    return ops;
}

constexpr RngOperations kMt1998Ops = mt32Operations<kMt1998Info, SeedRule::Mt1998>();
constexpr RngOperations kMt32Ops = mt32Operations<kMt32Info, SeedRule::Mt2002>();
constexpr RngOperations kMtHybridOps = mt32Operations<kMtHybridInfo, SeedRule::Hybrid>();

}  // namespace

void fillMt64(RngMethod* record) { fillMethod(record, kMt64Info, kMt64Ops); }
void fillMt1998(RngMethod* record) { fillMethod(record, kMt1998Info, kMt1998Ops); }
void fillMt32(RngMethod* record) { fillMethod(record, kMt32Info, kMt32Ops); }
void fillMtHybrid(RngMethod* record) { fillMethod(record, kMtHybridInfo, kMtHybridOps); }

}  // namespace txscan::rng
