/// Toeplitz systems as the harmonic model has them: normal equations of exact multiples of one
/// frequency. Needs simd.

#pragma once

#include <cstddef>
#include <cstdint>

namespace nalveo {

/// Solution of T x = b for a symmetric Toeplitz matrix of odd order 2k + 1 and a right-hand side
/// that is conjugate-symmetric about its centre, as the solution then is.
///
/// Levinson's recursion over the leading submatrices, with the same failure test as toeplitzsiminv.
/// Each second order embeds the problem of one entry more on either side of the centre, so that the
/// real parts stay even, the imaginary parts odd, and only entries from the centre on are kept.
///
/// \param[in]     k     entries on each side of the centre
/// \param[in]     t     [2k + 1] first row of T
/// \param[in,out] re    [k + 1] real parts of b, then of x, from the centre on
/// \param[in,out] im    [k + 1] imaginary parts; entry 0 counts as 0
/// \param[out]    work  [toeplitzworkspace(k)] scratch
/// \return 0, or -1 when a reflection coefficient is exactly +1; re and im are then unusable
[[nodiscard]] int toeplitzsolve(std::uint32_t k, const double *t, double *re, double *im,
                                double *work);

/// Doubles of scratch that toeplitzsolve needs.
std::size_t toeplitzworkspace(std::uint32_t k);

}  // namespace nalveo
