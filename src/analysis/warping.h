/// Warping of frequencies and cepstra by a first-order all-pass section with parameter alpha (0.42
/// comes close to the mel scale at 16 kHz).
///
/// Oppenheim & Johnson, "Discrete representation of signals", Proc. IEEE 60(6), 681-691, 1972.
/// Uses numeric/products for the product with the matrix of a warping, elementary, phasor and simd.

#pragma once

#include <cstdint>

#include "numeric/aligned.h"

namespace nalveo {

/// The warping of cepstra of order m to order p, a fixed linear map, as a matrix: row i is the
/// warped image of quefrency i. Made at first use; made anew when orders or alpha change.
struct warpmatrix {
    std::uint32_t m = 0;
    std::uint32_t p = 0;
    double alpha = 0.0;
    alignedreals rows;  // [(m + 1) x (p + 1, rounded up to whole vectors)]
};

/// The multiple of 0.01 whose warped axis has the least mean square distance from the mel scale
/// ln(1 + f / 1000 Hz), each from 0 at 0 Hz to 1 at fs / 2, over equal steps of mel.
///
/// \param[in] fs  sample rate in Hz, above 0
double melalpha(double fs);

/// Warps a cepstrum as ccwarp does. The warping is linear: with the matrix of the run it is a
/// product, which unlike the recursion need not wait for itself.
///
/// \param[in,out] warp     the matrix of the run; throws std::bad_alloc when it has to be made
/// \param[in]     c        [m + 1] cepstrum on the linear frequency axis
/// \param[in]     m        its order, at most longest
/// \param[in]     longest  highest order of the run
/// \param[out]    out      [p + 1] cepstrum on the warped axis, as ccwarp leaves it
/// \param[in]     p        order wanted
/// \param[out]    scratch  [p + 1, rounded up to whole vectors]
/// \param[in]     alpha    warping parameter
void warpcepstrum(warpmatrix &warp, const double *c, std::uint32_t m, std::uint32_t longest,
                  double *out, std::uint32_t p, double *scratch, double alpha);

/// Whether warpcepstrum takes the matrix, and not the recursion, for these orders and alpha.
bool warpsbymatrix(std::uint32_t longest, std::uint32_t p, double alpha);

/// Warps several cepstra of the highest order, each exactly as warpcepstrum does, where the matrix
/// serves: it is read fewer times than there are cepstra.
///
/// \param[in,out] warp     the matrix of the run; throws std::bad_alloc when it has to be made
/// \param[in]     c        [count x (longest + 1)] cepstra on the linear frequency axis
/// \param[in]     count    number of cepstra
/// \param[in]     longest  their order
/// \param[out]    out      [count x (p + 1, rounded up to whole vectors)] warped cepstra; what lies
///                         beyond p is 0
/// \param[in]     p        order wanted
/// \param[in]     alpha    warping parameter
void warpcepstra(warpmatrix &warp, const double *c, std::size_t count, std::uint32_t longest,
                 double *out, std::uint32_t p, double alpha);

}  // namespace nalveo

/// Warped angular frequency, atan2((1 - alpha^2) sin omega, (1 + alpha^2) cos omega - 2 alpha).
///
/// \param[in] omega  angular frequency, radians per sample
/// \param[in] alpha  warping parameter; above 0 it stretches the low frequencies
/// \return warped angular frequency; 0 and pi stay where they are
double fwarp(double omega, double alpha);

/// Warps a cepstrum by the frequency transformation recursion of Oppenheim & Johnson.
///
/// \param[in]  c        [m + 1] cepstrum on the linear frequency axis
/// \param[in]  m        its order
/// \param[out] out      [p + 1] cepstrum on the warped axis; must not overlap c. With alpha 0 only
///                      entries 0 .. p - 1 are written: c(i) for i < m, 0 from there on
/// \param[in]  p        order wanted
/// \param[out] scratch  [p + 1]
/// \param[in]  alpha    warping parameter
/// \return 0, or -1 when alpha is not between -1 and 1; nothing is written then
int ccwarp(const double *c, std::uint32_t m, double *out, std::uint32_t p, double *scratch,
           double alpha);
