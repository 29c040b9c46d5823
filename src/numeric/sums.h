/// Sums whose order is fixed, so that they round alike on every processor: eight partial sums, one
/// per element of a vector, and then these from the first to the last.

#pragma once

#include <cstddef>

#include "numeric/vectors.h"

/// Sum of the elements of a vector.
[[gnu::always_inline]] inline double sumof(const vector &v) {
    double sum = v[0];
    for (std::size_t i = 1; i < vectorlength; ++i) sum += v[i];
    return sum;
}

/// Sum of n doubles.
[[gnu::always_inline]] inline double sumof(const double *x, std::size_t n) {
    vector partial{};
    std::size_t i = 0;
    for (; i + vectorlength <= n; i += vectorlength) partial += vectorload(x + i);
    double sum = sumof(partial);
    for (; i < n; ++i) sum += x[i];
    return sum;
}
