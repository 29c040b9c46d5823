#include "numeric/cholesky.h"

#include <cmath>

#include "simd/dispatch.h"
#include "simd/tile.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

// `count` vectors, from column j on, of `rows` rows from row i on of an augmented matrix, less the
// rows of the factor above them.
template <class Real8, std::size_t rows, std::size_t count>
[[gnu::always_inline]] inline void subtractabove(double *a, std::size_t stride, std::size_t i,
                                                 std::size_t j) {
    double *const first = a + i * stride + j;
    tile<Real8, rows, count> sums;
    sums.load(first, stride);
    for (std::size_t k = 0; k < i; ++k) {
        const double *const above = a + k * stride;
        sums.subtract(above + i, 1, above + j);
    }
    sums.store(first, stride);
}

// Rows i .. i + rows - 1 of the factor. Returns false for a negative pivot, unless unknowns without
// a positive one are left out: their rows become 0.
template <class Real8, std::size_t rows, bool leaveout>
[[gnu::always_inline]] inline bool factorrows(double *a, std::size_t stride, std::size_t i,
                                              double *determinant) {
    const std::size_t start = i / vectorlength * vectorlength;
    // As many columns as leave room for a row of the factor among the registers.
    constexpr std::size_t columns = Real8::registers >= 16 ? 3 : Real8::registers >= 8 ? 2 : 1;
    std::size_t j = start;
    for (; j + columns * vectorlength <= stride; j += columns * vectorlength)
        subtractabove<Real8, rows, columns>(a, stride, i, j);
    for (; j < stride; j += vectorlength) subtractabove<Real8, rows, 1>(a, stride, i, j);
    for (std::size_t r = i; r < i + rows; ++r) {
        double *const row = a + r * stride;
        for (std::size_t k = i; k < r; ++k) {
            const double *const above = a + k * stride;
            const double factor = above[r];
            for (j = start; j < stride; j += vectorlength)
                (Real8::load(row + j) - Real8::load(above + j) * factor).store(row + j);
        }
        const double pivot = row[r];
        if (!leaveout && pivot < 0.0) return false;
        *determinant *= pivot;
        const bool left = leaveout && !(pivot > 0.0);
        const double scale = left ? 0.0 : 1.0 / std::sqrt(pivot);
        for (j = start; j < stride; j += vectorlength)
            (Real8::load(row + j) * scale).store(row + j);
        row[r] = scale;
    }
    return true;
}

// Cholesky factor U of A = U^T U, in place, its diagonal inverted. What follows A in a row, a
// right-hand side b, becomes U^-T b. Vectors begin at whole multiples of their length, so they
// cover some elements to the left of the diagonal, which are never read.
template <bool leaveout>
struct choleskyrowskernel {
    template <class Real8>
    [[gnu::always_inline]] static double run(std::size_t n, double *a, std::size_t stride) {
        double determinant = 1.0;
        std::size_t i = 0;
        bool positive = true;
        for (; i + 2 <= n && positive; i += 2)
            positive = factorrows<Real8, 2, leaveout>(a, stride, i, &determinant);
        if (i < n && positive)
            positive = factorrows<Real8, 1, leaveout>(a, stride, i, &determinant);
        return positive ? determinant : 0.0;
    }
};

// Solves U x = b for the factor and the right-hand side that choleskyrowskernel leaves. Eight
// columns go together, so that a row's share of a cache line is used up at once; what is taken off
// an element is in descending order of the columns all the same.
void substituteback(std::size_t n, const double *a, std::size_t stride, double *x) {
    for (std::size_t i = 0; i < n; ++i) x[i] = a[i * stride + n];
    for (std::size_t end = n; end > 0;) {
        const std::size_t begin = (end - 1) / vectorlength * vectorlength;
        for (std::size_t i = end; i-- > begin;) {
            x[i] *= a[i * stride + i];
            for (std::size_t r = begin; r < i; ++r) x[r] -= a[r * stride + i] * x[i];
        }
        for (std::size_t r = 0; r < begin; ++r)
            for (std::size_t i = end; i-- > begin;) x[r] -= a[r * stride + i] * x[i];
        end = begin;
    }
}

// ---- eight systems side by side ----

// Elements (i + r, j + c) less what the rows of the factor above take off them. A vector is one
// element of all eight systems.
template <class Real8, std::size_t rows, std::size_t columns>
[[gnu::always_inline]] inline void subtracteight(double *a, std::size_t rowlength, std::size_t i,
                                                 std::size_t j) {
    double *const first = a + i * rowlength + j * vectorlength;
    tile<Real8, rows, columns> sums;
    sums.load(first, rowlength);
    for (std::size_t k = 0; k < i; ++k) {
        const double *const above = a + k * rowlength;
        sums.subtracteight(above + i * vectorlength, above + j * vectorlength);
    }
    sums.store(first, rowlength);
}

// Rows i .. i + rows - 1 of the factors.
template <class Real8, std::size_t rows>
[[gnu::always_inline]] inline void factoreight(std::size_t n, double *a, std::size_t i,
                                               double *determinants) {
    constexpr std::size_t columns = Real8::registers >= 16 ? 4 : Real8::registers >= 8 ? 2 : 1;
    const std::size_t rowlength = (n + 1) * vectorlength;
    std::size_t j = i;
    for (; j + columns <= n + 1; j += columns)
        subtracteight<Real8, rows, columns>(a, rowlength, i, j);
    for (; j <= n; ++j) subtracteight<Real8, rows, 1>(a, rowlength, i, j);
    for (std::size_t r = i; r < i + rows; ++r) {
        double *const row = a + r * rowlength;
        for (std::size_t k = i; k < r; ++k) {
            const double *const above = a + k * rowlength;
            const Real8 factor = Real8::load(above + r * vectorlength);
            for (std::size_t c = r * vectorlength; c < rowlength; c += vectorlength)
                (Real8::load(row + c) - Real8::load(above + c) * factor).store(row + c);
        }
        double *const pivots = row + r * vectorlength;
        for (std::size_t s = 0; s < vectorlength; ++s) {
            determinants[s] = pivots[s] < 0.0 ? 0.0 : determinants[s] * pivots[s];
            pivots[s] = 1.0 / std::sqrt(pivots[s]);
        }
        const Real8 scale = Real8::load(pivots);
        for (std::size_t c = (r + 1) * vectorlength; c < rowlength; c += vectorlength)
            (Real8::load(row + c) * scale).store(row + c);
    }
}

// Factors and back substitution, element by element as for one system.
struct eightkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(std::size_t n, double *a, double *x,
                                           double *determinants) {
        const std::size_t rowlength = (n + 1) * vectorlength;
        for (std::size_t s = 0; s < vectorlength; ++s) determinants[s] = 1.0;
        std::size_t i = 0;
        for (; i + 2 <= n; i += 2) factoreight<Real8, 2>(n, a, i, determinants);
        if (i < n) factoreight<Real8, 1>(n, a, i, determinants);
        for (i = n; i-- > 0;) {
            const double *const row = a + i * rowlength;
            Real8 sum = Real8::load(row + n * vectorlength);
            for (std::size_t k = n; --k > i;)
                sum -= Real8::load(row + k * vectorlength) * Real8::load(x + k * vectorlength);
            (sum * Real8::load(row + i * vectorlength)).store(x + i * vectorlength);
        }
    }
};

}  // namespace

double choleskysolve(std::uint32_t n, double *a, std::size_t stride, double *x) {
    if (n == 0) return 0.0;
    const double determinant = runwidest<choleskyrowskernel<false>>(std::size_t{n}, a, stride);
    if (determinant != 0.0) substituteback(n, a, stride, x);
    return determinant;
}

void choleskysolvepossible(std::uint32_t n, double *a, std::size_t stride, double *x) {
    runwidest<choleskyrowskernel<true>>(std::size_t{n}, a, stride);
    substituteback(n, a, stride, x);
}

void choleskysolveeight(std::uint32_t n, double *a, double *x, double *determinants) {
    runwidest<eightkernel>(std::size_t{n}, a, x, determinants);
}

}  // namespace nalveo
