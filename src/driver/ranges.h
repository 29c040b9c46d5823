/// What values may be: those of options, and those of a log f0 that is read from a file. A value
/// that may not be gets a line that says which it is and what is allowed. Uses
/// analysis/pitchanalysis for the value of unvoiced frames.

#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <string>

namespace nalveo {

/// A number in as few characters as give it back when they are read.
template <class Number>
std::string numbertext(Number number) {
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), end};
}

/// Says in a line that an option's value is not allowed, when it is not; returns whether it is.
/// Not-a-number fails every comparison, so `allowed` is written to hold for what is allowed.
template <class Number>
bool checkoption(bool allowed, const char *name, Number value, const std::string &range) {
    if (!allowed)
        std::printf("Error: %s is %s, but must be %s.\n", name, numbertext(value).c_str(),
                    range.c_str());
    return allowed;
}

/// Checks a warping factor.
bool checkalpha(double alpha);

/// Range of a log f0, 14.9 to 7943 Hz, beside what stands for unvoiced. Further down, the harmonics
/// of one frame would need matrices of gigabytes and a window of seconds; further up, no harmonic
/// lies below half the sample rate. Tracks of another kind (Hz, log10) fall outside and are found
/// out.
constexpr double lowestlogf0 = 2.7;
constexpr double highestlogf0 = 8.98;

/// Looks for a value that is no log f0.
///
/// \param[in] path     name of the file, for the line
/// \param[in] values   [nframes] its values
/// \param[in] nframes  number of values
/// \return whether all are good
bool checklogf0(const char *path, const double *values, std::uint32_t nframes);

}  // namespace nalveo
