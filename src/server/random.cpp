#include "random.h"

#include <random>

namespace {
std::mt19937 makeEngine()
{
    std::random_device device("/dev/urandom");
    return std::mt19937(device());
}

// Seeded once, at program start.
std::mt19937 engine = makeEngine();
} // namespace

namespace Random {
uint32_t generate() { return engine(); }

int integer(int min, int max)
{
    if (min == max)
        return min;
    std::uniform_int_distribution<int> distribution(min, max);
    return distribution(engine);
}
} // namespace Random
