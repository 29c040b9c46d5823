#include "numeric/cholesky.h"

#include <cmath>

#include "simd/dispatch.h"
#include "simd/tile.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

// Columns of a tile whose sums, with a row of the factor, fit the registers. tilerows divide 8.
template <class Real8>
constexpr std::size_t tilecolumns = Real8::registers >= 16 ? 4 : 1;

// `count` vectors, from column j on, of `rows` rows from row i on of an augmented matrix, less what
// rows from .. to - 1 of the factor take off them.
template <class Real8, std::size_t rows, std::size_t count>
[[gnu::always_inline]] inline void subtractabove(double *a, std::size_t stride, std::size_t i,
                                                 std::size_t j, std::size_t from, std::size_t to) {
    double *const first = a + i * stride + j;
    tile<Real8, rows, count> sums;
    sums.load(first, stride);
    for (std::size_t k = from; k < to; ++k) {
        const double *const above = a + k * stride;
        sums.subtract(above + i, 1, above + j);
    }
    sums.store(first, stride);
}

// What rows i .. i + rows - 1 of the factor take off each other, and their scales.
template <std::size_t rows>
struct rowsystem {
    double factors[rows][rows];  // U(i + k, i + r) at k, r
    double scales[rows];
};

// Solves the rows' own part of the factor for eight columns from column j on.
template <class Real8, std::size_t rows>
[[gnu::always_inline]] inline void finishcolumns(double *a, std::size_t stride, std::size_t i,
                                                 std::size_t j, const rowsystem<rows> &system) {
    Real8 v[rows];
    for (std::size_t r = 0; r < rows; ++r) {
        v[r] = Real8::load(a + (i + r) * stride + j);
        for (std::size_t k = 0; k < r; ++k) v[r] -= v[k] * system.factors[k][r];
        v[r] = v[r] * system.scales[r];
        v[r].store(a + (i + r) * stride + j);
    }
}

// Rows i .. i + rows - 1 of the factor, of which the rows above `from` have been taken off. Returns
// false for a pivot of 0 or below, unless unknowns without a positive one are left out: their rows
// become 0. All diagonal elements of the rows are in the vector that begins at `start`, which goes
// first.
template <class Real8, std::size_t rows, bool leaveout>
[[gnu::always_inline]] inline bool factorrows(double *a, std::size_t stride, std::size_t i,
                                              std::size_t from, double *determinant) {
    const std::size_t start = i / vectorlength * vectorlength;
    rowsystem<rows> system;
    subtractabove<Real8, rows, 1>(a, stride, i, start, from, i);
    for (std::size_t r = 0; r < rows; ++r) {
        double *const row = a + (i + r) * stride;
        Real8 v = Real8::load(row + start);
        for (std::size_t k = 0; k < r; ++k)
            v -= Real8::load(a + (i + k) * stride + start) * system.factors[k][r];
        v.store(row + start);
        const double pivot = row[i + r];
        if (!leaveout && (pivot <= 0.0 || *determinant == 0.0)) return false;
        *determinant *= pivot;
        const bool left = leaveout && !(pivot > 0.0);
        const double scale = left ? 0.0 : 1.0 / std::sqrt(pivot);
        (v * scale).store(row + start);
        for (std::size_t k = 0; k < rows; ++k) system.factors[r][k] = row[i + k];
        system.scales[r] = scale;
        row[i + r] = scale;
    }
    constexpr std::size_t columns = tilecolumns<Real8>;
    std::size_t j = start + vectorlength;
    for (; j + columns * vectorlength <= stride; j += columns * vectorlength) {
        subtractabove<Real8, rows, columns>(a, stride, i, j, from, i);
        for (std::size_t c = 0; c < columns; ++c)
            finishcolumns<Real8>(a, stride, i, j + c * vectorlength, system);
    }
    for (; j < stride; j += vectorlength) {
        subtractabove<Real8, rows, 1>(a, stride, i, j, from, i);
        finishcolumns<Real8>(a, stride, i, j, system);
    }
    return true;
}

// Takes all rows of the factor above a block of rows off it. Column by column, so that of a matrix
// beyond the cache, each column of the factor is fetched once for the block and not for each tile.
template <class Real8>
[[gnu::always_inline]] inline void subtractfromblock(double *a, std::size_t stride,
                                                     std::size_t begin, std::size_t end) {
    constexpr std::size_t rows = tilerows<Real8>;
    constexpr std::size_t columns = tilecolumns<Real8>;
    std::size_t j = begin / vectorlength * vectorlength;
    for (; j + columns * vectorlength <= stride; j += columns * vectorlength)
        for (std::size_t i = begin; i < end && i < j + columns * vectorlength; i += rows)
            subtractabove<Real8, rows, columns>(a, stride, i, j, 0, begin);
    for (; j < stride; j += vectorlength)
        for (std::size_t i = begin; i < end && i < j + vectorlength; i += rows)
            subtractabove<Real8, rows, 1>(a, stride, i, j, 0, begin);
}

// Cholesky factor U of A = U^T U, in place, its diagonal inverted. What follows A in a row, a
// right-hand side b, becomes U^-T b. Vectors begin at whole multiples of their length, so they
// cover some elements to the left of the diagonal, which are never read. From every element, what
// the rows of the factor take off it goes off in their order.
template <bool leaveout>
struct choleskyrowskernel {
    template <class Real8>
    [[gnu::always_inline]] static double run(std::size_t n, double *a, std::size_t stride) {
        constexpr std::size_t rows = tilerows<Real8>;
        constexpr std::size_t blocklength = 32;  // its columns of the factor fit the cache
        constexpr std::size_t smallest = 160;    // order from which blocks pay
        double determinant = 1.0;
        std::size_t from = 0;
        for (std::size_t i = 0; i < n;) {
            if (n >= smallest && i % blocklength == 0 && i + blocklength <= n) {
                subtractfromblock<Real8>(a, stride, i, i + blocklength);
                from = i;
            } else if (i >= from + blocklength) {
                from = 0;
            }
            const bool whole = i + rows <= n;
            if (whole ? !factorrows<Real8, rows, leaveout>(a, stride, i, from, &determinant)
                      : !factorrows<Real8, 1, leaveout>(a, stride, i, from, &determinant))
                return 0.0;
            i += whole ? rows : 1;
        }
        return determinant;
    }
};

// Takes eight unknowns, already found, off the eight equations from row r on: x(r) -= U(r, i) x(i)
// for i = begin + 7 .. begin.
struct eightunknownskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *a, std::size_t stride, std::size_t begin,
                                           double *x) {
        for (std::size_t r = 0; r < begin; r += vectorlength) {
            Real8 columns[vectorlength];
            for (std::size_t i = 0; i < vectorlength; ++i)
                columns[i] = Real8::load(a + (r + i) * stride + begin);
            transpose(columns);
            Real8 rest = Real8::load(x + r);
            for (std::size_t i = vectorlength; i-- > 0;) rest -= columns[i] * x[begin + i];
            rest.store(x + r);
        }
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
        if (end - begin == vectorlength) {
            runwidest<eightunknownskernel>(a, stride, begin, x);
        } else {
            for (std::size_t r = 0; r < begin; ++r)
                for (std::size_t i = end; i-- > begin;) x[r] -= a[r * stride + i] * x[i];
        }
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
            // What has failed stays 0, whatever its later pivots are.
            const bool fails = pivots[s] <= 0.0 || determinants[s] == 0.0;
            determinants[s] = fails ? 0.0 : determinants[s] * pivots[s];
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
