// MH3: the MurmurHash3 64-bit finaliser iterated on its own output.
#include "module/rng/generator_kit.h"

namespace txscan::rng {
namespace {

struct Mh3State {
    std::uint64_t x;
};
void seedMh3(void* state, std::uint64_t s) { stateOf<Mh3State>(state).x = s; }
std::uint64_t nextMh3(void* state) {
    std::uint64_t& x = stateOf<Mh3State>(state).x;
    x = fmix64(x);
    return x;
}
constexpr MethodInfo kMh3Info{"MH3", "64-bit Murmur Hash 3", 64, 8, 8, 0x1017, ~std::uint64_t{0}, 0};
constexpr RngOperations kMh3Ops = methodOperations<kMh3Info, std::uint64_t, &seedMh3, &nextMh3>();

}  // namespace

void fillMh3(RngMethod* record) { fillMethod(record, kMh3Info, kMh3Ops); }

}  // namespace txscan::rng
