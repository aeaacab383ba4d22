// The counter-based Threefry methods (20 rounds): FRY2X64, FRY2X32 and
// FRY4X64. Seed, key and stream are hashed into key and counter words; each
// block of output words is computed once and served word by word.
#include "module/rng/threefry.h"

#include <bit>
#include <utility>

#include "module/rng/generator_kit.h"

namespace txscan::rng {

namespace {

constexpr std::size_t kThreefryRounds = 20;

constexpr int kRotation2x64[8] = {16, 42, 12, 31, 16, 32, 24, 21};
constexpr int kRotation2x32[8] = {13, 15, 26, 6, 17, 29, 16, 24};
constexpr int kRotation4x64[8][2] = {{14, 16}, {52, 57}, {23, 40}, {5, 37}, {25, 33}, {46, 12}, {58, 22}, {32, 32}};

// The rotation of round R's mix of the given pair (the four-word method mixes two pairs a round).
template <typename Word, int N>
constexpr int rotation(std::size_t round, int pair) {
    if constexpr (N == 4)
        return kRotation4x64[round % 8][pair];
    else if constexpr (sizeof(Word) == 4)
        return kRotation2x32[round % 8];
    else
        return kRotation2x64[round % 8];
}

template <typename Word>
constexpr Word kParity = sizeof(Word) == 8 ? Word(0x1BD11BDAA9FC1A22ull) : Word(0x1BD11BDAu);

// Everything below is forced inline so that the words of a block live in
// registers and every rotation and key-schedule index is a constant: the
// compiler's size limits otherwise leave the rounds in a call working on memory.
template <int Rotation, typename Word>
[[gnu::always_inline]] inline void mix(Word& a, Word& b) {
    a += b;
    b = std::rotl(b, Rotation);
    b ^= a;
}

// Every fourth round injects key words (s + i) mod (N + 1) and the injection number s.
template <typename Word, int N, std::size_t S, std::size_t... I>
[[gnu::always_inline]] inline void injectKey(Word (&x)[N], const Word (&ks)[N + 1], std::index_sequence<I...>) {
    ((x[I] += ks[(S + I) % (N + 1)]), ...);
    x[N - 1] += static_cast<Word>(S);
}

template <typename Word, int N, std::size_t R>
[[gnu::always_inline]] inline void round(Word (&x)[N], const Word (&ks)[N + 1]) {
    if constexpr (N == 2) {
        mix<rotation<Word, N>(R, 0)>(x[0], x[1]);
    } else if constexpr (R % 2 == 0) {
        // Even rounds mix the pairs (0,1) and (2,3), odd rounds (0,3) and (2,1).
        mix<rotation<Word, N>(R, 0)>(x[0], x[1]);
        mix<rotation<Word, N>(R, 1)>(x[2], x[3]);
    } else {
        mix<rotation<Word, N>(R, 0)>(x[0], x[3]);
        mix<rotation<Word, N>(R, 1)>(x[2], x[1]);
    }
    if constexpr (R % 4 == 3) injectKey<Word, N, R / 4 + 1>(x, ks, std::make_index_sequence<N>{});
}

template <typename Word, int N, std::size_t... R>
[[gnu::always_inline]] inline void rounds(Word (&x)[N], const Word (&ks)[N + 1], std::index_sequence<R...>) {
    (round<Word, N, R>(x, ks), ...);
}

template <typename Word, int N>
[[gnu::always_inline]] inline void block(const Word* ctr, const Word* key, Word (&x)[N]) {
    Word ks[N + 1];
    ks[N] = kParity<Word>;
    for (int i = 0; i < N; ++i) {
        ks[i] = key[i];
        ks[N] ^= key[i];
        x[i] = ctr[i] + key[i];
    }
    rounds<Word, N>(x, ks, std::make_index_sequence<kThreefryRounds>{});
}

template <typename Word, int N>
void blockInto(const Word* ctr, const Word* key, Word* out) {
    Word x[N];
    block<Word, N>(ctr, key, x);
    for (int i = 0; i < N; ++i) out[i] = x[i];
}

}  // namespace

void threefryBlock2x64(const std::uint64_t ctr[2], const std::uint64_t key[2], std::uint64_t out[2]) {
    blockInto<std::uint64_t, 2>(ctr, key, out);
}

void threefryBlock2x32(const std::uint32_t ctr[2], const std::uint32_t key[2], std::uint32_t out[2]) {
    blockInto<std::uint32_t, 2>(ctr, key, out);
}

void threefryBlock4x64(const std::uint64_t ctr[4], const std::uint64_t key[4], std::uint64_t out[4]) {
    blockInto<std::uint64_t, 4>(ctr, key, out);
}

namespace {

template <typename Word, int N>
struct FryState {
    Word ctr[N];   // little-endian multi-word counter; starts at 1
    Word key[N];
    Word out[N];   // the block of ctr, valid while idx != 0
    Word idx;      // next word of out, always below N
};
static_assert(sizeof(FryState<std::uint64_t, 2>) == 56);
static_assert(sizeof(FryState<std::uint32_t, 2>) == 28);
static_assert(sizeof(FryState<std::uint64_t, 4>) == 104);

template <typename Word, int N>
void seedFry(void* state, Word s) {
    auto& st = stateOf<FryState<Word, N>>(state);
    st.key[0] = s;
    for (int k = 1; k < N; ++k) st.key[k] = fmix<Word>(static_cast<Word>(s + k));
    for (int k = 0; k < N; ++k) {
        st.ctr[k] = 0;
        st.out[k] = 0;
    }
    st.ctr[0] = 1;
    st.idx = 0;
}

// The block is computed when its first word is asked for and served from
// the buffer; the counter moves on after its last word.
template <typename Word, int N>
Word nextFry(void* state) {
    auto& st = stateOf<FryState<Word, N>>(state);
    const Word i = st.idx;
    if (i == 0) {
        Word x[N];
        block<Word, N>(st.ctr, st.key, x);
        for (int k = 0; k < N; ++k) st.out[k] = x[k];
        st.idx = 1;
        return x[0];
    }
    // With two words a block, a nonzero index can only be the last word's.
    const Word value = st.out[N == 2 ? 1 : i];
    if (N > 2 && i + 1 < N) {
        st.idx = i + 1;
        return value;
    }
    st.idx = 0;
    for (int k = 0; k < N && ++st.ctr[k] == 0; ++k) {
    }
    return value;
}

// A stream changes key[1]; the block already computed keeps serving.
template <typename Word, int N>
std::int32_t streamFry(void* state, Word v) {
    if (v == 0) return 0;
    stateOf<FryState<Word, N>>(state).key[1] ^= fmix<Word>(v);
    return 1;
}

// The two-word methods key the second counter word; FRY4X64 the third key word.
template <typename Word, int N>
std::int32_t keyFry(void* state, Word k) {
    if (k == 0) return 0;
    auto& st = stateOf<FryState<Word, N>>(state);
    if constexpr (N == 2)
        st.ctr[1] = fmix<Word>(k);
    else
        st.key[2] ^= fmix<Word>(k);
    return 1;
}

// A position counts output words from the seeding: word p is word p mod N
// of the block of counter 1 + p / N. The index therefore always stays inside
// the block, and position 0 is where a freshly seeded generator starts. Only
// the low counter word moves; the others (key or stream material for the
// two-word methods) are left as they are.
template <typename Word, int N>
void positionFry(void* state, std::uint64_t p) {
    auto& st = stateOf<FryState<Word, N>>(state);
    st.ctr[0] = static_cast<Word>(1 + p / N);
    st.idx = static_cast<Word>(p % N);
    if (st.idx != 0) blockInto<Word, N>(st.ctr, st.key, st.out);
}

constexpr std::uint64_t kAll64 = ~std::uint64_t{0};
constexpr MethodInfo kFry2x64Info{"FRY2X64", "64-bit Random123 2x64-bit Threefry", 64, 16, 56, 0x1557, kAll64, kAll64};
constexpr MethodInfo kFry2x32Info{"FRY2X32", "32-bit Random123 2x32-bit Threefry", 32, 8, 28, 0x0AAF, 0xFFFFFFFFull,
                                  0xFFFFFFFFull};
constexpr MethodInfo kFry4x64Info{"FRY4X64", "64-bit Random123 4x64-bit Threefry", 64, 32, 104, 0x1557, kAll64, kAll64};

template <const MethodInfo& Info, typename Word, int N>
constexpr RngOperations fryOperations() {
    RngOperations ops = methodOperations<Info, Word, &seedFry<Word, N>, &nextFry<Word, N>, &streamFry<Word, N>,
                                         &keyFry<Word, N>>();
    (sizeof(Word) == 8 ? ops.setPosition64 : ops.setPosition32) = &positionFry<Word, N>;
    return ops;
}

constexpr RngOperations kFry2x64Ops = fryOperations<kFry2x64Info, std::uint64_t, 2>();
constexpr RngOperations kFry2x32Ops = fryOperations<kFry2x32Info, std::uint32_t, 2>();
constexpr RngOperations kFry4x64Ops = fryOperations<kFry4x64Info, std::uint64_t, 4>();

}  // namespace

void fillFry2x64(RngMethod* record) { fillMethod(record, kFry2x64Info, kFry2x64Ops); }
void fillFry2x32(RngMethod* record) { fillMethod(record, kFry2x32Info, kFry2x32Ops); }
void fillFry4x64(RngMethod* record) { fillMethod(record, kFry4x64Info, kFry4x64Ops); }

}  // namespace txscan::rng
