/// Log levels of harmonics and the log spectrum between them.
///
/// Uses numeric/elementary for the logarithms, numeric/phasor and simd for the kernels.

#pragma once

#include <cstddef>
#include <cstdint>

namespace nalveo {

/// Replaces n numbers by their natural logarithms.
///
/// \return false when one has none that is finite: of an amplitude of exactly 0, or of a NaN
[[nodiscard]] bool loglevels(double *levels, std::size_t n);

/// Interpolates the log levels of harmonics on a grid of frequencies as getlogspectrumfromharms of
/// analysis/harmonicanalysis.h tells.
///
/// \param[in]  levels   [k + 1] levels at 0, f0, .. k f0
/// \param[in]  k        number of harmonics, at least 1
/// \param[in]  f0       Hz, above 0
/// \param[in]  spacing  of the grid in Hz
/// \param[in]  nyquist  its last point, at half the sample rate
/// \param[out] out      [nyquist + 1] log spectrum at 0, spacing, .. nyquist spacing
void interpolatelevels(const double *levels, std::size_t k, double f0, double spacing,
                       std::int64_t nyquist, double *out);

}  // namespace nalveo
