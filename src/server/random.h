#pragma once

#include <cstdint>

// One process-wide generator for initialisation vectors, ports and tokens.
namespace Random {
// The next raw 32-bit output of the engine.
uint32_t generate();
// A uniformly distributed integer in [min, max], both bounds included.
int integer(int min, int max);
} // namespace Random
