#include "numeric/matvect.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <utility>

#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

// y -= s x over columns 0 .. n - 1.
inline void subtractscaled(double *__restrict y, const double *__restrict x, std::size_t n,
                           double s) {
    for (std::size_t i = 0; i < n; ++i) y[i] -= x[i] * s;
}

// out += x^T A for `rows` rows of A. Every element is summed in ascending order of the rows.
template <class Real8, std::size_t rows>
[[gnu::always_inline]] inline void addrows(const double *x, const double *a, std::size_t n,
                                           double *out) {
    for (std::size_t j = 0; j < n; j += vectorlength) {
        Real8 sum = Real8::load(out + j);
        for (std::size_t i = 0; i < rows; ++i) sum += x[i] * Real8::load(a + i * n + j);
        sum.store(out + j);
    }
}

struct vecbymatkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *x, const double *a, std::size_t m,
                                           std::size_t n, double *out) {
        for (std::size_t j = 0; j < n; ++j) out[j] = 0.0;
        std::size_t i = 0;
        for (; i + 8 <= m; i += 8) addrows<Real8, 8>(x + i, a + i * n, n, out);
        for (; i < m; ++i) addrows<Real8, 1>(x + i, a + i * n, n, out);
    }
};

// Tile of a product C = A B: four rows and two vectors of columns, the first of them at a, b and c.
// Element (r, k) of A is at r arow + k acolumn. Every element is summed over k in ascending order.
template <class Real8>
[[gnu::always_inline]] inline void producttile(const double *a, std::size_t arow,
                                               std::size_t acolumn, const double *b, double *c,
                                               std::size_t m, std::size_t n) {
    Real8 sums[4][2] = {};
    for (std::size_t k = 0; k < m; ++k, a += acolumn, b += n) {
        const Real8 left = Real8::load(b);
        const Real8 right = Real8::load(b + vectorlength);
        for (std::size_t r = 0; r < 4; ++r) {
            sums[r][0] += a[r * arow] * left;
            sums[r][1] += a[r * arow] * right;
        }
    }
    for (std::size_t r = 0; r < 4; ++r) {
        sums[r][0].store(c + r * n);
        sums[r][1].store(c + r * n + vectorlength);
    }
}

struct gramkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *c, std::size_t m, std::size_t n,
                                           std::size_t rows, double *gram) {
        constexpr std::size_t width = 2 * vectorlength;
        for (std::size_t j = 0; j < n; j += width)
            for (std::size_t i = 0; i < rows && i < j + width; i += 4)
                producttile<Real8>(c + i, 1, n, c + j, gram + i * n + j, m, n);
    }
};

// The first rows of a product C = A B with n columns, or the lower triangle of those rows at least.
// The last tiles of a row and of a column are moved back to end with the matrix, so that some
// elements are computed twice. Matrices below the size of a tile are done by single elements.
struct productkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *a, const double *b, double *c,
                                           std::size_t n, std::size_t m, std::size_t rows,
                                           bool triangle) {
        constexpr std::size_t width = 2 * vectorlength;
        if (n < width || rows < 4) {
            for (std::size_t i = 0; i < rows; ++i) {
                for (std::size_t j = 0; j < n; ++j) {
                    double sum = 0.0;
                    for (std::size_t k = 0; k < m; ++k) sum += a[i * m + k] * b[k * n + j];
                    c[i * n + j] = sum;
                }
            }
            return;
        }
        for (std::size_t j = 0; j < n; j += width) {
            const std::size_t first = std::min(j, n - width);
            for (std::size_t i = 0; i < rows; i += 4) {
                const std::size_t row = std::min(i, rows - 4);
                if (!triangle || first <= row + 3)
                    producttile<Real8>(a + row * m, m, 1, b + first, c + row * n + first, m, n);
            }
        }
    }
};

// out[r] = sum over s of x(s) y(r, s) for nrows rows of y, each sum in ascending order of s. Four
// rows at a time: a single running sum would wait for its own additions.
void rowproducts(const double *x, const double *y, std::size_t stride, std::size_t count,
                 double *out, std::size_t nrows) {
    std::size_t r = 0;
    for (; r + 4 <= nrows; r += 4) {
        const double *const y0 = y + r * stride;
        const double *const y1 = y0 + stride;
        const double *const y2 = y1 + stride;
        const double *const y3 = y2 + stride;
        double s0 = 0.0;
        double s1 = 0.0;
        double s2 = 0.0;
        double s3 = 0.0;
        for (std::size_t s = 0; s < count; ++s) {
            s0 += x[s] * y0[s];
            s1 += x[s] * y1[s];
            s2 += x[s] * y2[s];
            s3 += x[s] * y3[s];
        }
        out[r] = s0;
        out[r + 1] = s1;
        out[r + 2] = s2;
        out[r + 3] = s3;
    }
    for (; r < nrows; ++r) {
        double sum = 0.0;
        for (std::size_t s = 0; s < count; ++s) sum += x[s] * y[r * stride + s];
        out[r] = sum;
    }
}

// Upper Cholesky factor U of A = U^T U, in place in the upper triangle of u, row by row:
//   U(i, j) = (A(i, j) - sum over k < i of U(k, j) U(k, i)) / U(i, i),  j > i.
// Returns the determinant of A, or 0 for a negative pivot.
double choleskyfactor(std::size_t n, const double *a, double *u) {
    double determinant = 1.0;
    for (std::size_t i = 0; i < n; ++i) {
        double *const row = u + i * n;
        std::copy(a + i * n + i, a + (i + 1) * n, row + i);
        for (std::size_t k = 0; k < i; ++k) {
            const double *const above = u + k * n;
            subtractscaled(row + i, above + i, n - i, above[i]);
        }
        const double pivot = row[i];
        if (pivot < 0.0) return 0.0;
        determinant *= pivot;
        row[i] = std::sqrt(pivot);
        for (std::size_t j = i + 1; j < n; ++j) row[j] /= row[i];
    }
    return determinant;
}

// V = U^-1, upper triangle only:  V(r, i) = -(sum over s = r + 1 .. i of V(s, i) U(r, s)) / U(r,
// r).
void invertuppertriangle(std::size_t n, const double *u, double *v) {
    for (std::size_t r = n; r-- > 0;) {
        double *const row = v + r * n;
        std::fill(row + r, row + n, 0.0);
        for (std::size_t s = r + 1; s < n; ++s) {
            const double *const below = v + s * n;
            const double factor = u[r * n + s];
            for (std::size_t i = s; i < n; ++i) row[i] += below[i] * factor;
        }
        const double pivot = u[r * n + r];
        for (std::size_t i = r + 1; i < n; ++i) row[i] = -row[i] / pivot;
        row[r] = 1.0 / pivot;
    }
}

int invertnumber(const double *a, double *inverse) {
    if (a[0] == 0.0) return -1;
    inverse[0] = 1.0 / a[0];
    return 0;
}

// Levinson's recursion. x solves T(k) x = (1, 0, .., 0) for the leading submatrix of order k;
// reversed, it solves for the last unit vector. The next order needs the residual e that x leaves
// in row k,
//   e = sum over i < k of x(i) T(k, i),
//   x' = (x - e reversed x) / (1 - e^2), both padded with a zero to length k + 1.
// Row k of a Toeplitz matrix is the tail of its last row.
double levinsonresidual(const double *x, const double *row, std::size_t k) {
    double e = 0.0;
    for (std::size_t i = 0; i < k; ++i) e += x[i] * row[i];
    return e;
}

void levinsonstep(double *x, std::size_t k, double e) {
    const double g = 1.0 / (1.0 - e * e);
    const double h = -e * g;
    x[k] = 0.0;
    for (std::size_t i = 0, j = k; i < j; ++i, --j) {
        const double xi = x[i];
        const double xj = x[j];
        x[i] = xi * g + xj * h;
        x[j] = xj * g + xi * h;
    }
    if (k % 2 == 0) x[k / 2] *= g + h;
}

// Trench: fills the inverse S of order n from its first column x, which stands as its first row,
//   S(i, j) = S(i - 1, j - 1) + (x(i) x(j) - x(n - i) x(n - j)) / x(0),  i, j >= 1.
// S is symmetric about both diagonals, so the lower half of its rows reverses the upper half.
void trenchfill(double *s, std::size_t n, std::size_t stride) {
    const double *const x = s;
    const double scale = 1.0 / x[0];
    const std::size_t half = (n + 1) / 2;
    for (std::size_t i = 1; i < half; ++i) {
        const double *const above = s + (i - 1) * stride;
        double *const row = s + i * stride;
        row[0] = x[i];
        for (std::size_t j = 1; j < n; ++j)
            row[j] = above[j - 1] + (x[i] * x[j] - x[n - i] * x[n - j]) * scale;
    }
    for (std::size_t i = half; i < n; ++i) {
        const double *const image = s + (n - 1 - i) * stride;
        std::reverse_copy(image, image + n, s + i * stride);
    }
}

// `count` vectors, from column j on, of `rows` rows from row i on of an augmented matrix, less the
// rows of the factor above them.
template <class Real8, std::size_t rows, std::size_t count>
[[gnu::always_inline]] inline void subtractabove(double *a, std::size_t stride, std::size_t i,
                                                 std::size_t j) {
    Real8 sums[rows][count];
    for (std::size_t r = 0; r < rows; ++r)
        for (std::size_t v = 0; v < count; ++v)
            sums[r][v] = Real8::load(a + (i + r) * stride + j + v * vectorlength);
    for (std::size_t k = 0; k < i; ++k) {
        const double *const above = a + k * stride;
        for (std::size_t v = 0; v < count; ++v) {
            const Real8 u = Real8::load(above + j + v * vectorlength);
            for (std::size_t r = 0; r < rows; ++r) sums[r][v] -= u * above[i + r];
        }
    }
    for (std::size_t r = 0; r < rows; ++r)
        for (std::size_t v = 0; v < count; ++v)
            sums[r][v].store(a + (i + r) * stride + j + v * vectorlength);
}

// Rows i .. i + rows - 1 of the factor. Returns false for a negative pivot, unless unknowns without
// a positive one are left out: their rows become 0.
template <class Real8, std::size_t rows, bool leaveout>
[[gnu::always_inline]] inline bool factorrows(double *a, std::size_t stride, std::size_t i,
                                              double *determinant) {
    const std::size_t start = i / vectorlength * vectorlength;
    std::size_t j = start;
    for (; j + 3 * vectorlength <= stride; j += 3 * vectorlength)
        subtractabove<Real8, rows, 3>(a, stride, i, j);
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

// Scratch of toeplitzsolve. Behind each array there is room for the rest of a vector, which stays
// at 0, or where it is t is multiplied by 0.
struct levinsonarrays {
    double *t;         // first row of T
    double *reversed;  // its last row
    double *x;         // solution of T x = (1, 0, .., 0) for the current order
    double *y;         // x reversed; it begins one entry earlier at every order
    double *even;      // real parts from the centre on, the centre itself halved
    double *odd;       // imaginary parts

    static std::size_t length(std::size_t k) { return wholevectors(2 * k + 1) + vectorlength; }
    static std::size_t size(std::size_t k) { return 4 * length(k) + 2 * wholevectors(k + 1); }

    levinsonarrays(double *work, std::size_t k)
        : t(work),
          reversed(t + length(k)),
          x(reversed + length(k)),
          y(x + length(k)),
          even(y + length(k)),
          odd(even + wholevectors(k + 1)) {}
};

// Carries the solution on from the 2j - 1 entries around the centre to 2j + 1. Solutions for unit
// vectors at both ends are sums and differences of x and y; they take away what the shorter
// solution, padded with zeros, leaves of the right-hand side there.
template <class Real8>
[[gnu::always_inline]] inline void widensolution(const levinsonarrays &mem, const double *x,
                                                 const double *y, const double *reversed,
                                                 std::size_t j, double re, double im) {
    Real8 evensum{};
    Real8 oddsum{};
    for (std::size_t i = 0; i < j; i += vectorlength) {
        const Real8 near = Real8::load(reversed + i);
        const Real8 far = Real8::load(mem.t + j + i);
        evensum += Real8::load(mem.even + i) * (near + far);
        oddsum += Real8::load(mem.odd + i) * (near - far);
    }
    const Real8 evenstep = Real8::all(re - sumof(evensum));
    const Real8 oddstep = Real8::all(im - sumof(oddsum));
    Real8 weight = Real8::all(1.0);
    weight.set(0, 0.5);
    for (std::size_t i = 0; i <= j; i += vectorlength) {
        const Real8 a = Real8::load(x + i);
        const Real8 b = Real8::load(y + i);
        (Real8::load(mem.even + i) + evenstep * ((a + b) * weight)).store(mem.even + i);
        (Real8::load(mem.odd + i) - oddstep * (a - b)).store(mem.odd + i);
        weight = Real8::all(1.0);
    }
}

struct toeplitzsolvekernel {
    template <class Real8>
    [[gnu::always_inline]] static int run(std::size_t k, const double *t, double *re, double *im,
                                          double *work) {
        const std::size_t last = 2 * k;
        const levinsonarrays mem(work, k);
        for (std::size_t i = 0; i < levinsonarrays::size(k); ++i) work[i] = 0.0;
        for (std::size_t i = 0; i <= last; ++i) mem.t[i] = mem.reversed[last - i] = t[i];
        mem.x[0] = mem.y[last] = 1.0 / t[0];
        mem.even[0] = 0.5 * (re[0] * mem.x[0]);

        // With e the residual that x, padded with a zero, leaves in the next row,
        //   x' = (x - e y) / (1 - e^2),  y' = (y - e x) / (1 - e^2),
        // x' meets the row after that at once.
        double e = last > 0 ? mem.x[0] * t[1] : 0.0;
        for (std::size_t m = 1; m <= last; ++m) {
            if (e == 1.0) return -1;
            const double g = 1.0 / (1.0 - e * e);
            const double h = -e * g;
            double *const y = mem.y + (last - m);
            const double *const row = mem.reversed + (m < last ? last - m - 1 : 0);
            Real8 sum{};
            for (std::size_t i = 0; i <= m; i += vectorlength) {
                const Real8 a = Real8::load(mem.x + i);
                const Real8 b = Real8::load(y + i);
                const Real8 next = a * g + b * h;
                next.store(mem.x + i);
                (b * g + a * h).store(y + i);
                sum += next * Real8::load(row + i);
            }
            e = sumof(sum);
            if (m % 2 != 0) continue;
            const std::size_t j = m / 2;
            widensolution<Real8>(mem, mem.x + j, y + j, mem.reversed + (last - j), j, re[j], im[j]);
        }
        re[0] = 2.0 * mem.even[0];
        im[0] = 0.0;
        for (std::size_t i = 1; i <= k; ++i) {
            re[i] = mem.even[i];
            im[i] = mem.odd[i];
        }
        return 0;
    }
};

// ---- Gauss-Jordan elimination in place ----
// Column i of A is done with when column i of the inverse begins, so both share one array: row r
// holds the inverse's elements to the left of the diagonal and A's from there on. A pivot stays
// where it is, and stands for a 1 of the inverse until its row is finished.

// `count` vectors, from column j on, of `rows` rows less multiples of other rows,
//   target(r) -= sum over p of factor(r, p) source(p), p in ascending order.
// Of each vector, lanes below `from` are left alone.
template <class Real8, std::size_t rows, std::size_t count>
[[gnu::always_inline]] inline void subtractrows(double *target, std::size_t n, std::size_t j,
                                                const double *source, std::ptrdiff_t sourcestep,
                                                std::size_t nsources, const double *factors,
                                                std::size_t factorstride, std::ptrdiff_t factorstep,
                                                double from) {
    Real8 sums[rows][count];
    for (std::size_t r = 0; r < rows; ++r)
        for (std::size_t v = 0; v < count; ++v)
            sums[r][v] = Real8::load(target + r * n + j + v * vectorlength);
    const double *row = source + j;
    const double *factor = factors;
    for (std::size_t p = 0; p < nsources; ++p, row += sourcestep, factor += factorstep) {
        for (std::size_t v = 0; v < count; ++v) {
            const Real8 x = Real8::load(row + v * vectorlength);
            for (std::size_t r = 0; r < rows; ++r) sums[r][v] -= x * factor[r * factorstride];
        }
    }
    const Real8 lanes = Real8::count();
    for (std::size_t r = 0; r < rows; ++r) {
        for (std::size_t v = 0; v < count; ++v) {
            double *const place = target + r * n + j + v * vectorlength;
            if (from > 0.0) sums[r][v] = select(lanes < from, Real8::load(place), sums[r][v]);
            sums[r][v].store(place);
        }
    }
}

// The same for columns 0 .. columns - 1 and some more up to a whole vector; n is at least a vector.
template <class Real8, std::size_t rows>
[[gnu::always_inline]] inline void subtractwiderows(double *target, std::size_t n,
                                                    std::size_t columns, const double *source,
                                                    std::ptrdiff_t sourcestep, std::size_t nsources,
                                                    const double *factors, std::size_t factorstride,
                                                    std::ptrdiff_t factorstep) {
    std::size_t j = 0;
    for (; j + vectorlength < columns && j + 2 * vectorlength <= n; j += 2 * vectorlength)
        subtractrows<Real8, rows, 2>(target, n, j, source, sourcestep, nsources, factors,
                                     factorstride, factorstep, 0.0);
    if (j < columns && j + vectorlength <= n) {
        subtractrows<Real8, rows, 1>(target, n, j, source, sourcestep, nsources, factors,
                                     factorstride, factorstep, 0.0);
        j += vectorlength;
    }
    if (j < columns)  // the last vector ends with the row and overlaps the one before
        subtractrows<Real8, rows, 1>(target, n, n - vectorlength, source, sourcestep, nsources,
                                     factors, factorstride, factorstep,
                                     static_cast<double>(j - (n - vectorlength)));
}

// Eliminates columns p .. p + pivots - 1 from `rows` rows from row r on. A column's factor is known
// when those before it have been dealt with, so these columns go first, by themselves.
template <class Real8, std::size_t rows, std::size_t pivots>
[[gnu::always_inline]] inline void eliminate(double *a, std::size_t n, std::size_t r,
                                             std::size_t p) {
    double factors[rows][pivots];
    double columns[rows][pivots];
    double *const target = a + r * n;
    const double *const source = a + p * n;
    for (std::size_t i = 0; i < rows; ++i)
        for (std::size_t k = 0; k < pivots; ++k) columns[i][k] = target[i * n + p + k];
    for (std::size_t k = 0; k < pivots; ++k) {
        const double *const row = source + k * n + p;
        for (std::size_t i = 0; i < rows; ++i) {
            const double factor = columns[i][k] / row[k];
            factors[i][k] = factor;
            for (std::size_t c = 0; c < pivots; ++c) columns[i][c] -= row[c] * factor;
            columns[i][k] = -factor;
        }
    }
    subtractwiderows<Real8, rows>(target, n, n, source, static_cast<std::ptrdiff_t>(n), pivots,
                                  factors[0], pivots, 1);
    for (std::size_t i = 0; i < rows; ++i)
        for (std::size_t k = 0; k < pivots; ++k) target[i * n + p + k] = columns[i][k];
}

// Forward elimination of `rows` rows from row r, all columns before the diagonal in ascending
// order. Returns false when a pivot is exactly 0.
template <class Real8, std::size_t rows>
[[gnu::always_inline]] inline bool eliminaterows(double *a, std::size_t n, std::size_t r) {
    std::size_t p = 0;
    for (; p + 4 <= r; p += 4) eliminate<Real8, rows, 4>(a, n, r, p);
    for (std::size_t i = r; i < r + rows; ++i) {
        for (std::size_t k = p; k < i; ++k) eliminate<Real8, 1, 1>(a, n, i, k);
        if (a[i * n + i] == 0.0) return false;
    }
    return true;
}

// Back substitution of `rows` rows from row r, given all rows below; only the lower triangle and
// the diagonal are of use. Above the diagonal, upper holds what a held after the elimination.
template <class Real8, std::size_t rows>
[[gnu::always_inline]] inline void substituterows(double *a, const double *upper, std::size_t n,
                                                  std::size_t r) {
    double *const target = a + r * n;
    const auto step = -static_cast<std::ptrdiff_t>(n);
    for (std::size_t i = 0; i < rows; ++i) target[i * n + r + i] = 1.0;
    subtractwiderows<Real8, rows>(target, n, r + rows, a + (n - 1) * n, step, n - r - rows,
                                  upper + r * n + n - 1, n, -1);
    for (std::size_t i = rows; i-- > 0;) {
        double *const row = target + i * n;
        const double *const above = upper + (r + i) * n;
        for (std::size_t k = rows; --k > i;)
            for (std::size_t c = 0; c <= r + i; ++c) row[c] -= target[k * n + c] * above[r + k];
        const double scale = 1.0 / above[r + i];
        for (std::size_t c = 0; c <= r + i; ++c) row[c] *= scale;
    }
}

// Inverse in place, lower triangle and diagonal; n is at least a vector. Returns whether every pivot
// was other than 0. scratch [n x n] is used only then.
struct gausskernel {
    template <class Real8>
    [[gnu::always_inline]] static bool run(std::size_t n, double *a, double *scratch) {
        const std::size_t blocks = n / 4 * 4;
        std::size_t r = 0;
        for (; r < blocks; r += 4)
            if (!eliminaterows<Real8, 4>(a, n, r)) return false;
        for (; r < n; ++r)
            if (!eliminaterows<Real8, 1>(a, n, r)) return false;
        for (std::size_t i = 0; i < n * n; ++i) scratch[i] = a[i];
        for (; r > blocks; --r) substituterows<Real8, 1>(a, scratch, n, r - 1);
        for (; r > 0; r -= 4) substituterows<Real8, 4>(a, scratch, n, r - 4);
        return true;
    }
};

// First row below the diagonal with something in column i; n when there is none. A NaN counts.
std::size_t pivotrow(std::size_t n, const double *a, std::size_t i) {
    std::size_t r = i + 1;
    while (r < n && a[r * n + i] == 0.0) ++r;
    return r;
}

}  // namespace

int initializemat(double *a, std::uint32_t count, double value) {
    std::fill(a, a + count, value);
    return 0;
}

int initializedmat(double *a, std::uint32_t n, double value) {
    const std::size_t count = std::size_t{n} * n;
    std::fill(a, a + count, 0.0);
    for (std::size_t i = 0; i < n; ++i) a[i * (std::size_t{n} + 1)] = value;
    return 0;
}

void identmat(double *a, std::uint32_t n) { initializedmat(a, n, 1.0); }

int copymat(double *destination, const double *source, std::uint32_t count) {
    std::copy(source, source + count, destination);
    return 0;
}

int addmat(double *destination, const double *source, std::uint32_t count, double scale) {
    if (scale == 0.0) return 0;
    if (scale == 1.0) {
        for (std::size_t i = 0; i < count; ++i) destination[i] += source[i];
    } else if (scale == -1.0) {
        for (std::size_t i = 0; i < count; ++i) destination[i] -= source[i];
    } else {
        for (std::size_t i = 0; i < count; ++i) destination[i] += scale * source[i];
    }
    return 0;
}

int copymatwtr(double *destination, const double *source, std::uint32_t rows, std::uint32_t cols,
               std::uint8_t transpose, double scale) {
    const std::size_t count = std::size_t{rows} * cols;
    if (scale == 0.0) {
        std::fill(destination, destination + count, 0.0);
        return 0;
    }
    // A product with -1 is the exact negative, so the one scale serves both cases.
    if (transpose == 0) {
        for (std::size_t i = 0; i < count; ++i) destination[i] = scale * source[i];
        return 0;
    }
    for (std::size_t i = 0; i < rows; ++i)
        for (std::size_t j = 0; j < cols; ++j)
            destination[i * cols + j] = scale * source[j * rows + i];
    return 0;
}

namespace nalveo {

void vecbymat(const double *x, const double *a, std::size_t m, std::size_t n, double *out) {
    runwidest<vecbymatkernel>(x, a, m, n, out);
}

void grammatrix(const double *c, std::size_t m, std::size_t n, std::size_t rows, double *gram) {
    runwidest<gramkernel>(c, m, n, rows, gram);
}

}  // namespace nalveo

int simprodmat(const double *a, const double *b, double *c, std::uint32_t n, std::uint32_t m,
               std::int8_t symmetric) {
    const double sign = symmetric == 1 ? 1.0 : -1.0;
    runwidest<productkernel>(a, b, c, std::size_t{n}, std::size_t{m}, std::size_t{n}, true);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < i; ++j) c[j * n + i] = sign * c[i * n + j];
    return 0;
}

int simpmprodmat(const double *a, const double *b, double *c, std::uint32_t n, std::uint32_t m,
                 std::int8_t symmetric) {
    const double sign = symmetric == 1 ? 1.0 : -1.0;
    const std::size_t count = std::size_t{n} * n;
    const std::size_t half = (count + 1) / 2;  // elements to compute, the centre included
    const std::size_t rows = (std::size_t{n} + 1) / 2;
    runwidest<productkernel>(a, b, c, std::size_t{n}, std::size_t{m}, rows, false);
    for (std::size_t p = 0; p < half; ++p) c[count - 1 - p] = sign * c[p];
    return 0;
}

int repltriangmat(double *a, std::uint32_t n) {
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < i; ++j) a[j * n + i] = a[i * n + j];
    return 0;
}

int sortelems(double *a, std::uint32_t n, std::uint32_t k, std::int8_t order) {
    const std::size_t last = std::min(k, n);
    for (std::size_t i = 0; i <= last; ++i)
        for (std::size_t j = i + 1; j < n; ++j)
            if (order == -1 ? a[j] > a[i] : a[i] > a[j]) std::swap(a[i], a[j]);
    return 0;
}

double medianelem(double *a, std::uint32_t n) {
    // Deliberate: an even count gives the upper middle element. A smoothed track then holds only
    // values that some frame had, never an average of two.
    sortelems(a, n, n / 2, 0);
    return a[n / 2];
}

double choleskyinvdet(std::uint32_t n, double *a, double *inverse, std::int16_t keepinput) {
    if (n == 0) return 0.0;
    if (n == 1) {
        const double determinant = a[0];
        return invertnumber(a, inverse) == 0 ? determinant : 0.0;
    }
    double *const u = inverse;
    const double determinant = choleskyfactor(n, a, u);
    if (determinant == 0.0) return 0.0;

    std::unique_ptr<double[]> scratch;
    if (keepinput == 1) scratch = std::make_unique_for_overwrite<double[]>(std::size_t{n} * n);
    double *const v = scratch ? scratch.get() : a;
    invertuppertriangle(n, u, v);

    // A^-1 = V V^T. V is upper triangular, so element (r, c), c >= r, sums from s = c on; as (c, r)
    // it is written over U, of which nothing is needed any more.
    for (std::size_t c = 0; c < n; ++c) {
        const double *const column = v + c * n + c;
        rowproducts(column, v + c, n, n - c, inverse + c * n, c + 1);
        for (std::size_t r = 0; r < c; ++r) inverse[r * n + c] = inverse[c * n + r];
    }
    return determinant;
}

namespace nalveo {

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

std::size_t toeplitzworkspace(std::uint32_t k) { return levinsonarrays::size(k); }

int toeplitzsolve(std::uint32_t k, const double *t, double *re, double *im, double *work) {
    return runwidest<toeplitzsolvekernel>(std::size_t{k}, t, re, im, work);
}

}  // namespace nalveo

int toeplitzsiminv(std::uint32_t n, const double *t, double *inverse) {
    if (n == 0) return -1;
    if (n == 1) return invertnumber(t, inverse);

    // Leading submatrix of order n - 1, then the last order by itself. With exponentials at
    // frequencies that fill the band, the outermost two nearly coincide when the top one lies just
    // below fs / 2. Only the last order is ill-conditioned then, and bordering keeps its error in
    // the one direction to which the data are blind; Trench's sums would spread it everywhere.
    const std::size_t order = n;
    const std::size_t last = order - 1;
    const double *const lastrow = t + order * last;
    double *const x = inverse;  // first column of the inverse, kept as its first row
    x[0] = 1.0 / t[0];
    for (std::size_t k = 1; k < last; ++k) {
        const double e = levinsonresidual(x, lastrow + (last - k), k);
        if (e == 1.0) return -1;
        levinsonstep(x, k, e);
    }
    const double e = levinsonresidual(x, lastrow, last);
    if (e == 1.0) return -1;
    trenchfill(inverse, last, order);

    // Bordering: S' = [S 0; 0 0] + y y^T / y(n - 1), with y the last row of S': its first one
    // reversed.
    double *const y = inverse + last * order;
    std::copy(x, x + last, y);
    levinsonstep(y, last, e);
    std::reverse(y, y + order);
    const double scale = 1.0 / y[last];
    for (std::size_t i = 0; i < last; ++i) {
        double *const row = inverse + i * order;
        for (std::size_t j = 0; j < last; ++j) row[j] += y[i] * y[j] * scale;
        row[last] = y[i];
    }
    return 0;
}

int simgaussinv(std::uint32_t n, double *a, double *inverse) {
    if (n == 0) return -1;
    if (n == 1) return invertnumber(a, inverse);

    if (n >= vectorlength) {
        std::copy(a, a + std::size_t{n} * n, inverse);
        if (runwidest<gausskernel>(std::size_t{n}, inverse, a)) return repltriangmat(inverse, n);
    }
    // Rows must be exchanged (or there are few): from the start, with the inverse apart.
    identmat(inverse, n);
    std::size_t width = 0;  // highest column of the inverse that can be anything but 0
    for (std::size_t i = 0; i < n; ++i) {
        double *const arow = a + i * n;
        double *const irow = inverse + i * n;
        width = std::max(width, i);
        if (arow[i] == 0.0) {
            const std::size_t r = pivotrow(n, a, i);
            if (r == n) return -1;
            width = std::max(width, r);
            std::swap_ranges(arow + i, arow + n, a + r * n + i);
            std::swap_ranges(irow, irow + width + 1, inverse + r * n);
        }
        for (std::size_t r = i + 1; r < n; ++r) {
            double *const lower = a + r * n;
            if (lower[i] == 0.0) continue;
            const double f = lower[i] / arow[i];
            lower[i] = 0.0;
            subtractscaled(lower + i + 1, arow + i + 1, n - i - 1, f);
            subtractscaled(inverse + r * n, irow, width + 1, f);
        }
    }
    // The result is symmetric, so from here on only columns up to the diagonal are carried.
    for (std::size_t i = n; i-- > 0;) {
        double *const irow = inverse + i * n;
        const double f = 1.0 / a[i * n + i];
        a[i * n + i] = 1.0;
        for (std::size_t c = 0; c <= i; ++c) irow[c] *= f;
        for (std::size_t r = 0; r < i; ++r) {
            const double above = a[r * n + i];
            if (above == 0.0) continue;
            a[r * n + i] = 0.0;
            subtractscaled(inverse + r * n, irow, r + 1, above);
        }
    }
    return repltriangmat(inverse, n);
}

int solveleastsquares(const double *a, const double *b, double *x, std::uint32_t m, std::uint32_t n,
                      std::uint32_t k, double *work, std::int16_t regularise) {
    const std::size_t order = n;
    std::unique_ptr<double[]> own;
    if (work == nullptr) {
        own = std::make_unique_for_overwrite<double[]>((k + 2 * order) * order);
        work = own.get();
    }
    double *const g = work;                   // A^T A
    double *const inverse = g + order * n;    // its inverse
    double *const atb = inverse + order * n;  // A^T B, n x k

    // Both products grow by one equation at a time, so each element sums over the rows of A in
    // order.
    std::fill(g, g + order * n, 0.0);
    std::fill(atb, atb + order * k, 0.0);
    for (std::size_t r = 0; r < m; ++r) {
        const double *const arow = a + r * n;
        const double *const brow = b + r * k;
        for (std::size_t i = 0; i < n; ++i) {
            const double ai = arow[i];
            double *const grow = g + i * n;
            for (std::size_t j = 0; j <= i; ++j) grow[j] += ai * arow[j];
            for (std::size_t j = 0; j < k; ++j) atb[i * k + j] += brow[j] * ai;
        }
    }
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < i; ++j) g[j * n + i] = g[i * n + j];
    if (regularise == 1) {
        for (std::size_t i = 0; i < n; ++i)
            g[i * n + i] += smoothnesspenalty * static_cast<double>(i * i);
    }
    if (choleskyinvdet(n, g, inverse, 0) == 0.0) return -1;
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < k; ++j) {
            double sum = 0.0;
            for (std::size_t l = 0; l < n; ++l) sum += inverse[i * n + l] * atb[l * k + j];
            x[i * k + j] = sum;
        }
    }
    return 0;
}
