/// Solutions of symmetric positive-definite systems by Cholesky factors: one system at a time, or
/// eight of the same order side by side. Needs simd.

#pragma once

#include <cstddef>
#include <cstdint>

namespace nalveo {

/// Solution of A x = b for a symmetric positive-definite A, by Cholesky factors.
///
/// \param[in]     n       order
/// \param[in,out] a       [n x stride] rows of A, of which the diagonal and the upper triangle
///                        count, with b in column n; destroyed
/// \param[in]     stride  columns of the array, a multiple of vectorlength and above n
/// \param[out]    x       [n]
/// \return the determinant of A, or 0 when n is 0, a pivot is 0 or negative or the determinant is
///         exactly 0; x is then as it was. Not a number for an A that holds such: no failure, x is
///         not a number then either
[[nodiscard]] double choleskysolve(std::uint32_t n, double *a, std::size_t stride, double *x);

/// The same for a matrix that may be singular to within rounding: an unknown whose pivot is not
/// above 0 is left out, which is to say that its x is 0.
void choleskysolvepossible(std::uint32_t n, double *a, std::size_t stride, double *x);

/// Solutions of eight systems of one order, each in an element (lane) of the vectors. Every one
/// comes out exactly as choleskysolve gives it, in a third of the time.
///
/// \param[in]     n             order, the same for all
/// \param[in,out] a             [n x (n + 1) x 8] element (i, j) of system s at
///                              ((n + 1) i + j) 8 + s, of which the diagonals and the upper
///                              triangles count, with the right-hand sides in column n; destroyed.
///                              Systems that are not needed may hold anything
/// \param[out]    x             [n x 8] unknown i of system s at 8 i + s
/// \param[out]    determinants  [8] for each system as choleskysolve returns it; where it is 0, the
///                              system's part of x holds numbers of no meaning
void choleskysolveeight(std::uint32_t n, double *a, double *x, double *determinants);

}  // namespace nalveo
