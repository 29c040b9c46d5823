/// White noise that is the same everywhere and needs no state.

#pragma once

#include <cstdint>

namespace nalveo {

/// Value of white noise at a place: uniform from -1 to below 1, so that its variance is 1/3. A
/// filter's output, a sum of many, is as good as Gaussian.
///
/// The output function of a counter that runs in steps of an odd constant: G. L. Steele, D. Lea and
/// C. H. Flood, "Fast splittable pseudorandom number generators", OOPSLA 2014. Since the value
/// depends on seed and place alone, the noise of one frame does not change with what came before.
///
/// \param[in] seed   picks one of 2^64 noises
/// \param[in] place  position in it, 0 .. 2^32 - 1
inline double whitenoise(std::uint64_t seed, std::uint64_t place) {
    const auto mixed = [](std::uint64_t z) {
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    };
    // Seeds are mixed, too: those of two neighbours must not give one noise, shifted.
    const std::uint64_t bits = mixed(mixed(seed) + (place + 1) * 0x9e3779b97f4a7c15);
    return static_cast<double>(static_cast<std::int64_t>(bits) >> 11) * 0x1p-52;
}

}  // namespace nalveo
