/// Discrete Fourier transforms of power-of-two size: complex data in two layouts, and real signals.
///
/// All transforms are unscaled in both directions,
///     forward  X[k] = sum over n of x[n] e^(-j 2 pi k n / N),
///     inverse  x[n] = sum over k of X[k] e^(+j 2 pi k n / N),
/// so an inverse after a forward gives N times the input.
///
/// Cooley & Tukey, "An algorithm for the machine calculation of complex Fourier series", Math.
/// Comp. 1965, decimation in time, with butterflies of up to eight points. The twiddle factors are
/// made once per size and then only read. Each comes from an angle of at most pi / 4, so that they
/// are right to the last bit or so and have the symmetries of the circle exactly.
///
/// Arrays that begin on a cache line (numeric/aligned.h) are transformed up to twice as fast. Data
/// in separate parts are what the kernel works on; interleaved data are split before it and joined
/// after it, in arrays of the call's own. The first transform of a size makes its tables. Both
/// throw std::bad_alloc when there is no memory. Needs numeric/dftplan, numeric/phasor and simd.

#pragma once

#include <cstddef>
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
/// This is the same complex transform as dofftc, to the last bit, and not a real-input transform:
/// for a real signal the caller clears im.
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

namespace nalveo {

/// Forward transform of a real signal. It takes about half the time of a complex transform: the
/// even samples go in as the real and the odd ones as the imaginary parts of a signal of half the
/// length.
///
/// \param[in]  n   number of samples, a power of two, at least 2; 0 or below does nothing
/// \param[in]  x   [n] signal
/// \param[out] re  [n / 2 + 1] real parts of bins 0 .. n / 2; the others are their mirror image
/// \param[out] im  [n / 2 + 1] imaginary parts; exactly 0 in the first and the last bin. None of
///                 the three may overlap
/// \return 0, or -1 when n is above 0 and not such a size; then nothing is written
int fftreal(std::int32_t n, const double *x, double *re, double *im);

/// Inverse transform of the spectrum of a real signal.
///
/// \param[in]     n   number of samples, a power of two, at least 2; 0 or below does nothing
/// \param[in,out] re  [n / 2 + 1] real parts of bins 0 .. n / 2; destroyed
/// \param[in,out] im  [n / 2 + 1] imaginary parts; destroyed. The first and the last are taken for
///                    0 without being read
/// \param[out]    x   [n] signal; none of the three may overlap
/// \return 0, or -1 when n is above 0 and not such a size; then nothing is written
int ifftreal(std::int32_t n, double *re, double *im, double *x);

/// Squared magnitudes of complex values, power(k) = re(k)^2 + im(k)^2.
///
/// \param[in]  n      number of values
/// \param[in]  re     [n] real parts
/// \param[in]  im     [n] imaginary parts
/// \param[out] power  [n]; may be re or im
void powerspectrum(std::size_t n, const double *re, const double *im, double *power);

}  // namespace nalveo
