/// Least squares in extended precision, which tells how far off a fit in doubles is where the
/// problem is ill-conditioned.

#pragma once

#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

using extendedreals = std::vector<long double>;

/// Minimises |y - sum of x(j) column(j)| by Householder reflections, whose error grows with the
/// condition of the columns and not with its square. 64 bits of mantissa at least.
inline extendedreals extendedleastsquares(std::vector<extendedreals> columns, extendedreals y) {
    const std::size_t n = columns.size();
    extendedreals diagonal(n);
    for (std::size_t j = 0; j < n; ++j) {
        extendedreals &v = columns[j];
        long double square = 0;
        for (std::size_t i = j; i < v.size(); ++i) square += v[i] * v[i];
        diagonal[j] = v[j] > 0 ? -std::sqrt(square) : std::sqrt(square);
        v[j] -= diagonal[j];
        const long double norm =
            2 * (square + std::abs(diagonal[j]) * std::abs(v[j] + diagonal[j]));
        const auto reflect = [&](extendedreals &x) {
            long double dot = 0;
            for (std::size_t i = j; i < v.size(); ++i) dot += v[i] * x[i];
            for (std::size_t i = j; i < v.size(); ++i) x[i] -= 2 * dot / norm * v[i];
        };
        for (std::size_t c = j + 1; c < n; ++c) reflect(columns[c]);
        reflect(y);
    }
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t c = i + 1; c < n; ++c) y[i] -= columns[c][i] * y[c];
        y[i] /= diagonal[i];
    }
    y.resize(n);
    return y;
}
