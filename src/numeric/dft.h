/// Discrete Fourier transforms of power-of-two size: one radix-2 algorithm, two data layouts.
///
/// Transforms are complex, in place and unscaled in both directions,
///     forward  X[k] = sum over n of x[n] e^(-j 2 pi k n / N),
///     inverse  x[n] = sum over k of X[k] e^(+j 2 pi k n / N),
/// so an inverse after a forward gives N times the input.
///
/// Cooley & Tukey, "An algorithm for the machine calculation of complex Fourier series", Math.
/// Comp. 1965, decimation in time. The twiddle factors of a stage follow the recurrence
/// w <- w e^(-j 2 pi / size) from w = 1. They are made once per size and then only read.

#pragma once

#include <cstdint>

/// Transforms interleaved complex data in place.
///
/// \param[in]     n          number of complex values, a power of two; 0 or below does nothing
/// \param[in,out] x          [2 n] real part of value k at 2k, imaginary part at 2k + 1
/// \param[in]     direction  -1 inverse, anything else forward
/// \return 0, or -1 when n is above 0 and not a power of two; then x is as it was
int dofftc(std::int32_t n, double *x, std::int8_t direction);

/// Transforms complex data held as separate real and imaginary parts, in place.
///
/// This is the same complex transform as dofftc, not a real-input transform: for a real signal the
/// caller clears im.
///
/// \param[in]     n          number of complex values, a power of two; 0 or below does nothing
/// \param[in,out] re         [n] real parts
/// \param[in,out] im         [n] imaginary parts; must not overlap re
/// \param[in]     direction  -1 inverse, anything else forward
/// \return 0, or -1 when n is above 0 and not a power of two; then the data are as they were
int dofftr(std::int32_t n, double *re, double *im, std::int8_t direction);

/// Forward transform of interleaved data; arguments and result as for dofftc.
int fftc(std::int32_t n, double *x);

/// Inverse transform of interleaved data; arguments and result as for dofftc.
int ifftc(std::int32_t n, double *x);

/// Forward transform of split data; arguments and result as for dofftr.
int fftr(std::int32_t n, double *re, double *im);

/// Inverse transform of split data; arguments and result as for dofftr.
int ifftr(std::int32_t n, double *re, double *im);
