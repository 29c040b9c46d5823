/// Values of the options where nobody gives any, and the limits of some: the same for the analyser,
/// the synthesiser and the C interface.

#pragma once

#include <cstdint>

namespace nalveo {

constexpr double defaultf0min = 60.0;   // Hz
constexpr double defaultf0max = 500.0;  // Hz
constexpr double defaultalpha = 0.42;   // comes close to the mel scale at 16 kHz
constexpr int defaultlframe = 80;       // samples, 5 ms at 16 kHz
constexpr int defaultccord = 39;
constexpr int defaultzfill = 160;  // samples

constexpr std::uint32_t highestorder = 511;  // at 16 kHz envelopes have 513 points
constexpr std::uint32_t mostrefinements = 5;

}  // namespace nalveo
