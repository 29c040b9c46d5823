/// Dense matrix and vector routines over plain arrays of doubles, in their plain forms: what they
/// do is what one reads. The program takes copies, medians and the smoothness penalty from here;
/// its large products and systems go through numeric/products.h, numeric/toeplitz.h and
/// numeric/cholesky.h, which tests hold against the routines of this module.
///
/// A matrix is one contiguous array in row-major order: element (i, j) of a matrix with c columns
/// is at i c + j. Dimensions are passed separately. The caller owns every array; no routine keeps a
/// pointer. Only choleskyinvdet (to keep its input), toeplitzsiminv and solveleastsquares (without
/// a workspace) allocate, for their own duration; they throw std::bad_alloc when there is no
/// memory.

#pragma once

#include <cstddef>
#include <cstdint>

/// Sets count elements to a value. Returns 0.
int initializemat(double *a, std::uint32_t count, double value);

/// Sets an n x n matrix to 0 with value on its diagonal. Returns 0.
int initializedmat(double *a, std::uint32_t n, double value);

/// Sets an n x n matrix to the identity.
void identmat(double *a, std::uint32_t n);

/// Copies count elements from source to destination, which must not overlap. Returns 0.
int copymat(double *destination, const double *source, std::uint32_t count);

/// Adds a multiple of one array to another, destination += scale source. Returns 0.
///
/// \param[in,out] destination  [count]
/// \param[in]     source       [count]; not read when scale is 0
/// \param[in]     count        number of elements
/// \param[in]     scale        exactly 0, 1 and -1 leave alone, add and subtract without
///                             multiplying
int addmat(double *destination, const double *source, std::uint32_t count, double scale);

/// Copies a matrix, scaled and transposed on request. Returns 0.
///
/// \param[out] destination  [rows x cols]; must not overlap source
/// \param[in]  source       [rows x cols], or [cols x rows] to be transposed; not read when scale
///                          is 0
/// \param[in]  rows         rows of the destination
/// \param[in]  cols         columns of the destination
/// \param[in]  transpose    not 0: destination (i, j) = scale source (j, i)
/// \param[in]  scale        exactly 0 clears, exactly -1 negates, anything else multiplies
int copymatwtr(double *destination, const double *source, std::uint32_t rows, std::uint32_t cols,
               std::uint8_t transpose, double scale);

/// Product C = A B that is known to be symmetric or antisymmetric. Returns 0.
///
/// Only the lower triangle and the diagonal are computed, sums running over k = 0 .. m - 1.
///
/// \param[in]  a          [n x m]
/// \param[in]  b          [m x n]
/// \param[out] c          [n x n]; must not overlap a or b
/// \param[in]  n          rows of A, columns of B
/// \param[in]  m          columns of A, rows of B
/// \param[in]  symmetric  1: the upper triangle mirrors the lower; anything else: it is its
///                        negative
int simprodmat(const double *a, const double *b, double *c, std::uint32_t n, std::uint32_t m,
               std::int8_t symmetric);

/// Product C = A B that is known to be symmetric about its centre,
/// C(i, j) = +-C(n - 1 - i, n - 1 - j). Returns 0.
///
/// The first half of the elements in row-major order is computed, sums running over k = 0 .. m - 1;
/// the second half copies it in reverse order. With an odd n the centre element is its own image:
/// in the antisymmetric mode it ends up negated. It is 0 for a product that truly is antisymmetric.
///
/// \param[in]  a          [n x m]
/// \param[in]  b          [m x n]
/// \param[out] c          [n x n]; must not overlap a or b
/// \param[in]  n          rows of A, columns of B
/// \param[in]  m          columns of A, rows of B
/// \param[in]  symmetric  1: the image is a copy; anything else: it is the negative
int simpmprodmat(const double *a, const double *b, double *c, std::uint32_t n, std::uint32_t m,
                 std::int8_t symmetric);

/// Copies the lower triangle of an n x n matrix onto the upper one. Returns 0.
int repltriangmat(double *a, std::uint32_t n);

/// Sorts the front of an array by exchanges: afterwards positions 0 .. min(k, n) hold the smallest
/// (or largest) elements in order, the rest are in no particular order. Returns 0.
///
/// \param[in,out] a      [n]
/// \param[in]     n      number of elements
/// \param[in]     k      last position to be sorted
/// \param[in]     order  -1 descending, anything else ascending
int sortelems(double *a, std::uint32_t n, std::uint32_t k, std::int8_t order);

/// Median, the upper of the two middle elements when n is even. Reorders the array.
///
/// \param[in,out] a  [n]
/// \param[in]     n  number of elements, at least 1
double medianelem(double *a, std::uint32_t n);

/// Inverse and determinant of a symmetric positive-definite matrix, by Cholesky factors.
///
/// \param[in]     n          order
/// \param[in,out] a          [n x n], of which the diagonal and the upper triangle are read.
///                           Without keepinput its upper triangle is overwritten by the inverse of
///                           the upper Cholesky factor (for n = 1 it is left alone)
/// \param[out]    inverse    [n x n]; must not overlap a
/// \param[in]     keepinput  1 leaves a intact, at the price of an allocation
/// \return the determinant, or 0 when n is 0, a pivot is 0 or negative, or the determinant is
///         exactly 0; then a is intact and the inverse is unusable. A NaN that meets no such pivot
///         before it gives a NaN.
[[nodiscard]] double choleskyinvdet(std::uint32_t n, double *a, double *inverse,
                                    std::int16_t keepinput);

/// Inverse of a symmetric Toeplitz matrix.
///
/// By bordering, from one leading submatrix to the next: Levinson's recursion gives the solutions
/// for its first and last unit vector, the inverse follows from them. N. Levinson, "The Wiener RMS
/// (root mean square) error criterion in filter design and prediction", J. Math. Phys. 25, 1947.
///
/// \param[in]  n        order
/// \param[in]  t        [n x n], taken to be symmetric Toeplitz without a check; only T(0, 0) and
///                      the strict lower triangle are read
/// \param[out] inverse  [n x n], symmetric to rounding; must not overlap t
/// \return 0, or -1 when n is 0, when n is 1 and T(0, 0) is 0, or when a reflection coefficient is
///         exactly +1; the inverse is then unusable. A coefficient of -1, which is as singular, is
///         not looked for: the inverse then holds values that are not finite.
[[nodiscard]] int toeplitzsiminv(std::uint32_t n, const double *t, double *inverse);

/// Inverse of a symmetric matrix by Gauss-Jordan elimination. It pivots only around a diagonal
/// element that is exactly 0.
///
/// \param[in]     n        order
/// \param[in,out] a        [n x n]; destroyed
/// \param[out]    inverse  [n x n]; must not overlap a
/// \return 0, or -1 when n is 0, when n is 1 and the element is 0, or when a column is 0 from the
///         diagonal down; the inverse is then unusable
[[nodiscard]] int simgaussinv(std::uint32_t n, double *a, double *inverse);

namespace nalveo {

/// Smoothness penalty of the regularised discrete cepstrum, 8 pi^2 0.0002: times i^2, what is added
/// to element i of the diagonal of its normal matrix.
constexpr double smoothnesspenalty = 0.015791367;

}  // namespace nalveo

/// Linear least squares by the normal equations, with an optional smoothness penalty.
///
/// With the penalty this is the solver of the regularised discrete cepstrum, in which the element
/// with index 0, the level, is not penalised. Cappé & Moulines, "Regularization techniques for
/// discrete cepstrum estimation", IEEE SPL 3(4), 1996.
///
/// \param[in]  a           [m x n] one row per equation
/// \param[in]  b           [m x k] right-hand sides
/// \param[out] x           [n x k] solutions
/// \param[in]  m           number of equations
/// \param[in]  n           number of unknowns
/// \param[in]  k           number of right-hand sides
/// \param[in]  work        [(k + 2n) n] scratch, or null to have it allocated
/// \param[in]  regularise  1 adds the penalty
/// \return 0, or -1 when the normal matrix is singular; x is then as it was
[[nodiscard]] int solveleastsquares(const double *a, const double *b, double *x, std::uint32_t m,
                                    std::uint32_t n, std::uint32_t k, double *work,
                                    std::int16_t regularise);
