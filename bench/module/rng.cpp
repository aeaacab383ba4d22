// Random-number methods: raw 64-bit and 32-bit draws and the stream's
// uniform, in ns per number, beside the standard engines, the PCG reference
// implementation and Random123's Threefry as peers.
#include <Random123/conventional/Engine.hpp>
#include <Random123/threefry.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <pcg_random.hpp>
#include <random>
#include <string>
#include <string_view>

#include "host/host.h"
#include "host/rng_services.h"
#include "module/frame/exports.h"
#include "module/rng/method.h"
#include "module/rng/stream.h"

namespace {

using namespace txscan::rng;

// One host session bound to the in-process module for the whole run.
struct BoundHost {
    txhost::Session session;
    std::unique_ptr<txhost::Module> module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
};
BoundHost& host() {
    static BoundHost bound;
    return bound;
}

struct Method {
    const char* name;
    FillRoutine fill;
};
const Method kMethods[] = {
    {"XOR64", &fillXor64},       {"XOR128", &fillXor128},   {"XOR1024", &fillXor1024}, {"XOR4096", &fillXor4096},
    {"XORGENS", &fillXorgens},   {"FRY2X64", &fillFry2x64}, {"FRY2X32", &fillFry2x32}, {"RDRAND", &fillRdrand},
    {"SUBKEY32", &fillSubkey32}, {"SUBKEY64", &fillSubkey64}, {"RANUNI", &fillRanuni}, {"PCG64I", &fillPcg64i},
    {"PCG32I", &fillPcg32i},     {"MH3", &fillMh3},         {"MT64", &fillMt64},       {"MT1998", &fillMt1998},
    {"MT32", &fillMt32},         {"MTHYBRID", &fillMtHybrid}, {"FRY4X64", &fillFry4x64},
};

// A stream of the method, seeded as a stream would seed it (SUBKEY with a stream, so it moves).
RngStream* streamFor(const Method& method) {
    host();
    RngStream* s = createStream(12345, 0);
    s->requestedName = method.name;
    if (method.fill == &fillSubkey32 || method.fill == &fillSubkey64) s->stream = 7;
    initStream(s);
    return s;
}

void next64(benchmark::State& state, const Method* method) {
    RngStream* s = streamFor(*method);
    auto next = s->method->ops.next64;
    void* words = s->state;
    for (auto _ : state) benchmark::DoNotOptimize(next(words));
    state.SetItemsProcessed(state.iterations());
}
void next32(benchmark::State& state, const Method* method) {
    RngStream* s = streamFor(*method);
    auto next = s->method->ops.next32;
    void* words = s->state;
    for (auto _ : state) benchmark::DoNotOptimize(next(words));
    state.SetItemsProcessed(state.iterations());
}
void uniform(benchmark::State& state, const Method* method) {
    RngStream* s = streamFor(*method);
    for (auto _ : state) benchmark::DoNotOptimize(streamUniform(s));
    state.SetItemsProcessed(state.iterations());
}

template <typename Engine>
void peer(benchmark::State& state) {
    Engine engine(12345);
    for (auto _ : state) benchmark::DoNotOptimize(engine());
    state.SetItemsProcessed(state.iterations());
}

template <typename Engine>
void peerUniform(benchmark::State& state) {
    Engine engine(12345);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (auto _ : state) benchmark::DoNotOptimize(u(engine));
    state.SetItemsProcessed(state.iterations());
}

// The Random123 peers number for number with a FRY stream: Random123's own
// engine (one word a call from the block of the current counter, every word
// of a block served before the next is computed), keyed with the stream's
// key read from its state (counter words, then key words), so both compute
// the very same blocks. The engine serves a block's words last to first; the
// first blocks are checked word for word before timing.
template <typename Block>
using Word = typename Block::ctr_type::value_type;
template <typename Block>
constexpr int kWords = Block::ctr_type::static_size;

template <typename Block>
r123::Engine<Block> engineLike(RngStream* s) {
    typename Block::key_type key;
    const auto* words = static_cast<const Word<Block>*>(s->state);
    for (int i = 0; i < kWords<Block>; ++i) key.v[i] = words[kWords<Block> + i];
    return r123::Engine<Block>(key);
}

template <typename Block>
bool sameNumbers(RngStream* s, r123::Engine<Block> engine) {
    for (int block = 0; block < 4; ++block) {
        Word<Block> ours[kWords<Block>];
        for (auto& w : ours) w = sizeof(Word<Block>) == 8 ? streamNext64(s) : streamNext32(s);
        for (int i = kWords<Block> - 1; i >= 0; --i)
            if (engine() != ours[i]) return false;
    }
    return true;
}

template <typename Block>
Word<Block> engineNext(void* engine) {
    return (*static_cast<r123::Engine<Block>*>(engine))();
}

// Called inline (the engine's state in registers), or through a function
// pointer as a stream's method is.
template <typename Block, bool Called>
void threefryEngine(benchmark::State& state, const Method* method) {
    RngStream* s = streamFor(*method);
    r123::Engine<Block> engine = engineLike<Block>(s);
    if (!sameNumbers(s, engine)) {
        state.SkipWithError("Random123 and the stream give different numbers");
        return;
    }
    if constexpr (Called) {
        auto next = &engineNext<Block>;
        benchmark::DoNotOptimize(next);
        for (auto _ : state) benchmark::DoNotOptimize(next(&engine));
    } else {
        for (auto _ : state) benchmark::DoNotOptimize(engine());
    }
    state.SetItemsProcessed(state.iterations());
}

// The stream's slot and Random123's engine, both through a function pointer,
// timed in alternate slices of the same run (thread CPU time): a busy spell
// of the shared machine falls on both alike, so the ratio stays steady where
// separate benchmarks drift apart. Counters: ns per number of each and
// peer/ours (above 1 when ours is faster).
double threadNanoseconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e9 + t.tv_nsec;
}

template <typename W>
[[gnu::noinline]] double timeSlice(W (*next)(void*), void* words, int calls) {
    benchmark::DoNotOptimize(next);
    const double start = threadNanoseconds();
    for (int i = 0; i < calls; ++i) benchmark::DoNotOptimize(next(words));
    return threadNanoseconds() - start;
}

template <typename Block>
void threefryPaired(benchmark::State& state, const Method* method) {
    constexpr int kSlice = 1 << 16;
    RngStream* s = streamFor(*method);
    r123::Engine<Block> engine = engineLike<Block>(s);
    if (!sameNumbers(s, engine)) {
        state.SkipWithError("Random123 and the stream give different numbers");
        return;
    }
    Word<Block> (*ours)(void*);
    if constexpr (sizeof(Word<Block>) == 8)
        ours = s->method->ops.next64;
    else
        ours = s->method->ops.next32;
    double oursNs = 0, peerNs = 0;
    for (auto _ : state) {
        oursNs += timeSlice(ours, s->state, kSlice);
        peerNs += timeSlice(&engineNext<Block>, &engine, kSlice);
    }
    const double numbers = static_cast<double>(state.iterations()) * kSlice;
    state.counters["ours_ns"] = oursNs / numbers;
    state.counters["r123_ns"] = peerNs / numbers;
    state.counters["r123/ours"] = peerNs / oursNs;
    state.SetItemsProcessed(state.iterations() * 2 * kSlice);
}

// Random123 in counter mode, a block a call, all its words used: one
// iteration per block, items count the words.
template <typename Block>
void threefryBlocks(benchmark::State& state, const Method* method) {
    RngStream* s = streamFor(*method);
    Block block;
    typename Block::ctr_type ctr{};
    typename Block::key_type key;
    const auto* words = static_cast<const Word<Block>*>(s->state);
    for (int i = 0; i < kWords<Block>; ++i) key.v[i] = words[kWords<Block> + i];
    for (auto _ : state) {
        ++ctr.v[0];
        auto out = block(ctr, key);
        for (int i = 0; i < kWords<Block>; ++i) benchmark::DoNotOptimize(out.v[i]);
    }
    state.SetItemsProcessed(state.iterations() * kWords<Block>);
}

template <typename Block>
void registerThreefryPeers(const char* name, const Method* method) {
    std::string peer = std::string("peer/Random123 ") + name;
    benchmark::RegisterBenchmark((peer + " engine").c_str(), threefryEngine<Block, false>, method);
    benchmark::RegisterBenchmark((peer + " engine called").c_str(), threefryEngine<Block, true>, method);
    benchmark::RegisterBenchmark((peer + " blocks").c_str(), threefryBlocks<Block>, method);
    benchmark::RegisterBenchmark((std::string("paired/") + method->name + " vs Random123").c_str(), threefryPaired<Block>,
                                 method);
}

const Method* methodNamed(std::string_view name) {
    for (const Method& m : kMethods)
        if (name == m.name) return &m;
    return nullptr;
}

const bool kRegistered = [] {
    for (const Method& m : kMethods) {
        benchmark::RegisterBenchmark((std::string("next64/") + m.name).c_str(), next64, &m);
        benchmark::RegisterBenchmark((std::string("next32/") + m.name).c_str(), next32, &m);
        benchmark::RegisterBenchmark((std::string("uniform/") + m.name).c_str(), uniform, &m);
    }
    benchmark::RegisterBenchmark("peer/std::mt19937_64", peer<std::mt19937_64>);
    benchmark::RegisterBenchmark("peer/std::mt19937", peer<std::mt19937>);
    benchmark::RegisterBenchmark("peer/uniform std::mt19937_64", peerUniform<std::mt19937_64>);
    benchmark::RegisterBenchmark("peer/uniform std::mt19937", peerUniform<std::mt19937>);
    benchmark::RegisterBenchmark("peer/pcg rxs_m_xs 64/64", peer<pcg_engines::setseq_rxs_m_xs_64_64>);
    benchmark::RegisterBenchmark("peer/pcg rxs_m_xs 32/32", peer<pcg_engines::setseq_rxs_m_xs_32_32>);
    registerThreefryPeers<r123::Threefry2x64_R<20>>("threefry2x64-20", methodNamed("FRY2X64"));
    registerThreefryPeers<r123::Threefry2x32_R<20>>("threefry2x32-20", methodNamed("FRY2X32"));
    registerThreefryPeers<r123::Threefry4x64_R<20>>("threefry4x64-20", methodNamed("FRY4X64"));
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
