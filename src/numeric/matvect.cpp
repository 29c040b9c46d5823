#include "numeric/matvect.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

namespace {

// y -= s x over columns 0 .. n - 1.
void subtractscaled(double *y, const double *x, std::size_t n, double s) {
    for (std::size_t i = 0; i < n; ++i) y[i] -= x[i] * s;
}

// Element (i, j) of A B, of which A has m columns and B has n.
double productelement(const double *a, const double *b, std::size_t m, std::size_t n, std::size_t i,
                      std::size_t j) {
    double sum = 0.0;
    for (std::size_t k = 0; k < m; ++k) sum += a[i * m + k] * b[k * n + j];
    return sum;
}

int invertnumber(const double *a, double *inverse) {
    if (a[0] == 0.0) return -1;
    inverse[0] = 1.0 / a[0];
    return 0;
}

// Upper Cholesky factor U of A = U^T U, in place in the upper triangle of u, row by row:
//   U(i, j) = (A(i, j) - sum over k < i of U(k, j) U(k, i)) / U(i, i),  j > i.
// Returns the determinant of A, or 0 where a pivot is 0 or below.
double choleskyfactor(std::size_t n, const double *a, double *u) {
    double determinant = 1.0;
    for (std::size_t i = 0; i < n; ++i) {
        double *const row = u + i * n;
        std::copy(a + i * n + i, a + (i + 1) * n, row + i);
        for (std::size_t k = 0; k < i; ++k)
            subtractscaled(row + i, u + k * n + i, n - i, u[k * n + i]);
        const double pivot = row[i];
        if (pivot <= 0.0) return 0.0;
        determinant *= pivot;
        row[i] = std::sqrt(pivot);
        for (std::size_t j = i + 1; j < n; ++j) row[j] /= row[i];
    }
    return determinant;
}

// V = U^-1, upper triangle only, column by column from the diagonal up:
//   V(r, i) = -(sum over s = r + 1 .. i of V(s, i) U(r, s)) / U(r, r).
void invertuppertriangle(std::size_t n, const double *u, double *v) {
    for (std::size_t i = 0; i < n; ++i) {
        v[i * n + i] = 1.0 / u[i * n + i];
        for (std::size_t r = i; r-- > 0;) {
            double sum = 0.0;
            for (std::size_t s = r + 1; s <= i; ++s) sum += v[s * n + i] * u[r * n + s];
            v[r * n + i] = -sum / u[r * n + r];
        }
    }
}

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

int simprodmat(const double *a, const double *b, double *c, std::uint32_t n, std::uint32_t m,
               std::int8_t symmetric) {
    const double sign = symmetric == 1 ? 1.0 : -1.0;
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            c[i * n + j] = productelement(a, b, m, n, i, j);
            if (j < i) c[j * n + i] = sign * c[i * n + j];
        }
    }
    return 0;
}

int simpmprodmat(const double *a, const double *b, double *c, std::uint32_t n, std::uint32_t m,
                 std::int8_t symmetric) {
    const double sign = symmetric == 1 ? 1.0 : -1.0;
    const std::size_t count = std::size_t{n} * n;
    for (std::size_t p = 0; p < (count + 1) / 2; ++p) {
        c[p] = productelement(a, b, m, n, p / n, p % n);
        c[count - 1 - p] = sign * c[p];
    }
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
    const std::size_t order = n;
    const double determinant = choleskyfactor(order, a, inverse);
    if (determinant == 0.0) return 0.0;
    std::unique_ptr<double[]> scratch;
    if (keepinput == 1) scratch = std::make_unique_for_overwrite<double[]>(order * order);
    double *const v = scratch ? scratch.get() : a;
    invertuppertriangle(order, inverse, v);
    // A^-1 = V V^T; V is upper triangular, so the sums begin at the later of the two rows.
    for (std::size_t c = 0; c < order; ++c) {
        for (std::size_t r = 0; r <= c; ++r) {
            double sum = 0.0;
            for (std::size_t s = c; s < order; ++s) sum += v[r * order + s] * v[c * order + s];
            inverse[r * order + c] = inverse[c * order + r] = sum;
        }
    }
    return determinant;
}

int toeplitzsiminv(std::uint32_t n, const double *t, double *inverse) {
    if (n == 0) return -1;
    if (n == 1) return invertnumber(t, inverse);
    const std::size_t order = n;
    std::vector<double> x(order);  // solution of T x = (1, 0, .., 0) for the leading submatrices
    std::vector<double> next(order);
    std::fill(inverse, inverse + order * order, 0.0);
    inverse[0] = x[0] = 1.0 / t[0];
    for (std::size_t k = 1; k < order; ++k) {
        const double *const row = t + k * order;
        double e = 0.0;
        for (std::size_t i = 0; i < k; ++i) e += x[i] * row[i];
        if (e == 1.0) return -1;
        const double g = 1.0 / (1.0 - e * e);
        const double h = -e * g;
        next[0] = x[0] * g;
        next[k] = x[0] * h;
        for (std::size_t i = 1; i < k; ++i) next[i] = x[k - i] * h + x[i] * g;
        std::swap(x, next);
        // Reversed, x solves for the last unit vector. Multiples of it take away what the inverse
        // so far leaves in row k of the product with T.
        for (std::size_t j = 0; j <= k; ++j) {
            double v = 0.0;
            for (std::size_t i = 0; i < k; ++i) v += inverse[i * order + j] * row[i];
            const double rest = j == k ? 1.0 - v : -v;
            for (std::size_t i = 0; i <= k; ++i) inverse[i * order + j] += x[k - i] * rest;
        }
    }
    return 0;
}

int simgaussinv(std::uint32_t n, double *a, double *inverse) {
    if (n == 0) return -1;
    if (n == 1) return invertnumber(a, inverse);
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
            g[i * n + i] += nalveo::smoothnesspenalty * static_cast<double>(i * i);
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
