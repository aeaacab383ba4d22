// Seed sources: automatic seeds (the "tkbug.RNGSEED" setting, else the
// processor's RDRAND instruction, else the clock), the folding of floating
// seeds into a method's range, and access to the hardware generator.
#pragma once

#include <cstdint>

namespace txscan::rng {

std::uint32_t autoSeed32();   // hardware and clock seeds stay in 1 .. 2^31 - 2
std::uint64_t autoSeed64();   // hardware and clock seeds above 2048 keep 53 bits
// A seed in 1 .. limit: whole values in range unchanged, others folded
// through their mantissa; 0 for missing or non-positive values.
double convertSeed(double value, std::uint64_t limit);
double clockReading();        // seconds, from the host's clock

// RDRAND, asked of the host's processor record on every call.
bool hardwareAvailable();
std::uint32_t hardware32();   // retried until the processor reports success
std::uint64_t hardware64();

}  // namespace txscan::rng
