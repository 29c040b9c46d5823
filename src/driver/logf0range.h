/// What a log f0 that is read from a file may be.

#pragma once

#include <cstdint>

namespace nalveo {

/// Range of a log f0, 14.9 to 7943 Hz. Further down, the harmonics of one frame would need matrices
/// of gigabytes and a window of seconds; further up, no harmonic lies below half the sample rate.
/// Tracks of another kind (Hz, log10) fall outside and are found out.
constexpr double lowestlogf0 = 2.7;
constexpr double highestlogf0 = 8.98;
constexpr double unvoicedlogf0 = -1e10;  // or anything below

/// Looks for a value that is no log f0, and says in a line which it is and what is allowed.
///
/// \param[in] path     name of the file, for the line
/// \param[in] values   [nframes] its values
/// \param[in] nframes  number of values
/// \return whether all are good
bool checklogf0(const char *path, const double *values, std::uint32_t nframes);

}  // namespace nalveo
