// Random-number methods: raw 64-bit and 32-bit draws and the stream's
// uniform, in ns per number, beside the standard engines, the PCG reference
// implementation and Random123's Threefry as peers.
#include <Random123/threefry.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <pcg_random.hpp>
#include <random>

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
    for (auto _ : state) benchmark::DoNotOptimize(next(s->state));
    state.SetItemsProcessed(state.iterations());
}
void next32(benchmark::State& state, const Method* method) {
    RngStream* s = streamFor(*method);
    auto next = s->method->ops.next32;
    for (auto _ : state) benchmark::DoNotOptimize(next(s->state));
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

// Random123 in counter mode, a block per counter value, all its words used.
template <typename Ctr, typename Key, Ctr (*Block)(Ctr, Key)>
void threefryPeer(benchmark::State& state) {
    Ctr ctr{};
    Key key{};
    key.v[0] = 12345;
    constexpr int words = sizeof(Ctr) / sizeof(ctr.v[0]);
    for (auto _ : state) {
        ++ctr.v[0];
        Ctr out = Block(ctr, key);
        for (int i = 0; i < words; ++i) benchmark::DoNotOptimize(out.v[i]);
    }
    state.SetItemsProcessed(state.iterations() * words);
}
threefry2x64_ctr_t r123_2x64(threefry2x64_ctr_t c, threefry2x64_key_t k) { return threefry2x64_R(20, c, k); }
threefry4x64_ctr_t r123_4x64(threefry4x64_ctr_t c, threefry4x64_key_t k) { return threefry4x64_R(20, c, k); }
threefry2x32_ctr_t r123_2x32(threefry2x32_ctr_t c, threefry2x32_key_t k) { return threefry2x32_R(20, c, k); }

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
    benchmark::RegisterBenchmark("peer/Random123 threefry2x64-20",
                                 threefryPeer<threefry2x64_ctr_t, threefry2x64_key_t, &r123_2x64>);
    benchmark::RegisterBenchmark("peer/Random123 threefry4x64-20",
                                 threefryPeer<threefry4x64_ctr_t, threefry4x64_key_t, &r123_4x64>);
    benchmark::RegisterBenchmark("peer/Random123 threefry2x32-20",
                                 threefryPeer<threefry2x32_ctr_t, threefry2x32_key_t, &r123_2x32>);
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
