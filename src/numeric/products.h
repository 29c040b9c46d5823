/// Matrix products that the analysis spends its time in. Every element is summed in ascending order
/// of the index that is summed over, whatever the width of the registers.
///
/// A matrix is one array in row-major order, as in numeric/matvect.h. Needs simd.

#pragma once

#include <cstddef>

namespace nalveo {

/// Product of a row vector and a matrix, out(j) = sum over i of x(i) a(i, j), i in ascending order.
///
/// \param[in]  x    [m]
/// \param[in]  a    [m x n]
/// \param[in]  m    length of x, rows of A
/// \param[in]  n    columns of A, a multiple of vectorlength
/// \param[out] out  [n]; must not overlap x or a
void vecbymat(const double *x, const double *a, std::size_t m, std::size_t n, double *out);

/// The same for several row vectors at a time, out(f, j) = sum over i of x(f, i) a(i, j), each
/// exactly as vecbymat gives it. The matrix is read once for every four of them, where
/// registers are few once for every two.
///
/// \param[in]  x      [count x m] row vectors
/// \param[in]  count  number of row vectors
/// \param[in]  a      [m x n]
/// \param[in]  m      length of the vectors, rows of A
/// \param[in]  n      columns of A, a multiple of vectorlength
/// \param[out] out    [count x n]; must not overlap x or a
void rowsbymat(const double *x, std::size_t count, const double *a, std::size_t m, std::size_t n,
               double *out);

/// Upper triangle and diagonal of G = C^T C, the inner products of the columns of C. Each is summed
/// in ascending order of the rows.
///
/// \param[in]  c     [m x n]
/// \param[in]  m     rows of C
/// \param[in]  n     columns of C, a multiple of 2 vectorlength
/// \param[in]  rows  rows of G that are wanted; a multiple of 4, at most n
/// \param[out] gram  [rows x n]; left of the diagonal there are numbers of no meaning
void grammatrix(const double *c, std::size_t m, std::size_t n, std::size_t rows, double *gram);

}  // namespace nalveo
