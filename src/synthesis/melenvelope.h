/// Envelopes of mel-warped cepstra, with the phase that goes with them.
///
/// A plain cepstrum c(0) .. c(P) stands for the amplitude A and the minimum phase p
///     ln A = c(0) + 2 sum over j of c(j) cos(j w),  p = -2 sum over j of c(j) sin(j w),
/// at the warped frequency w. The same coefficients give both since they are the real cepstrum of a
/// minimum-phase sequence (A. V. Oppenheim and R. W. Schafer, Discrete-Time Signal Processing,
/// Prentice Hall, 1989), which a causal and stable all-pass keeps minimum-phase (Oppenheim and
/// Johnson, 1972; see analysis/warping.h).
///
/// The sums run by Clenshaw's recursion, b(j) = c(j) + 2 cos w b(j + 1) - b(j + 2): C. W. Clenshaw,
/// "A note on the summation of Chebyshev series", Math. Comp. 9, 118-120, 1955.
/// Needs numeric/phasor and simd.

#pragma once

#include <cstddef>
#include <cstdint>

namespace nalveo {

/// Turns a cepstrum on the HTS toolkit's scale into a plain one: takes 5 off c(0) and halves the
/// others, which is to undo what htsadapteradhoc does.
///
/// \param[in,out] c      [order + 1] cepstrum
/// \param[in]     order  P
void undohtsscale(double *c, std::uint32_t order);

/// Cosines and sines of the warped frequencies of the multiples 0, 1, .. of a frequency.
///
/// \param[in]  omega   angular frequency, radians per sample
/// \param[in]  count   number of multiples, a multiple of vectorlength; those above pi count, too
/// \param[in]  alpha   warping parameter, above -1 and below 1
/// \param[out] cosine  [count] cos w of multiple k of omega
/// \param[out] sine    [count] sin w; may be null when not wanted
void warpmultiples(double omega, std::size_t count, double alpha, double *cosine, double *sine);

/// Log amplitudes of an envelope, c(0) + 2 sum over j of c(j) cos(j w).
///
/// \param[in]  c       [order + 1] plain cepstrum
/// \param[in]  order   P
/// \param[in]  cosine  [count] cos w
/// \param[in]  count   number of frequencies, a multiple of vectorlength
/// \param[out] level   [count] natural logarithms
void envelopelevels(const double *c, std::uint32_t order, const double *cosine, std::size_t count,
                    double *level);

/// Minimum phases of an envelope, -2 sum over j of c(j) sin(j w).
///
/// \param[in]  c       [order + 1] plain cepstrum; c(0) does not count
/// \param[in]  order   P
/// \param[in]  cosine  [count] cos w
/// \param[in]  sine    [count] sin w
/// \param[in]  count   number of frequencies, a multiple of vectorlength
/// \param[out] phase   [count] radians
void envelopephases(const double *c, std::uint32_t order, const double *cosine, const double *sine,
                    std::size_t count, double *phase);

}  // namespace nalveo
