// The harmonic models in the plain form in which they are published: design matrices of complex
// exponentials, the normal equations of their rows, explicit inverses. The estimators run the fits
// of ha.h, qha.h and sqha.h, which come to the same in a fraction of the time and are tested
// against these.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "analysis/harmonicanalysis.h"
#include "numeric/matvect.h"
#include "numeric/phasor.h"

namespace {

using namespace nalveo;

// Sizes of one frame's matrices. Strides are in doubles.
struct framesize {
    std::size_t n;       // samples
    std::size_t h;       // half length
    std::size_t k;       // harmonics
    std::size_t l;       // exponentials, 2k + 1
    std::size_t stride;  // of a design row

    framesize(std::uint32_t samples, std::uint32_t harmonics)
        : n(samples), h(n / 2), k(harmonics), l(2 * k + 1), stride(2 * n) {}
};

phasor numberat(const double *row, std::size_t i) { return {row[2 * i], row[2 * i + 1]}; }

void setnumber(double *row, std::size_t i, const phasor &z) {
    row[2 * i] = z.re;
    row[2 * i + 1] = z.im;
}

phasor conjugateof(const phasor &z) { return {z.re, -z.im}; }

// ---- design matrices ----

// exp(i theta (n - h)).
void exponentialrow(double *row, std::size_t h, double theta) {
    const phasor step = unitphasor(theta);
    phasor z{1.0, 0.0};
    for (std::size_t j = 0; j <= h; ++j, z.rotate(step)) {
        setnumber(row, h + j, z);
        setnumber(row, h - j, conjugateof(z));
    }
}

// Weights rows 0 .. K - 1, makes rows K + 1 .. 2K their conjugates, and row K the window itself.
void weightandmirror(double *e, const framesize &size, const double *w) {
    for (std::size_t r = 0; r <= size.k; ++r) {
        double *const row = e + r * size.stride;
        double *const mirror = e + (2 * size.k - r) * size.stride;
        for (std::size_t n = 0; n < size.n; ++n) {
            const phasor z = r == size.k ? phasor{1.0, 0.0} : numberat(row, n);
            setnumber(mirror, n, {z.re * w[n], -z.im * w[n]});
            setnumber(row, n, {z.re * w[n], r == size.k ? 0.0 : z.im * w[n]});
        }
    }
}

// Scale of the time-weighted rows, from the coefficients of the window a + b cos(pi t / h): with it
// they carry the same windowed energy as the plain rows.
double timescale(const double *w, std::size_t h, double fs) {
    const double a = (w[h] + w[0]) / 2.0;
    const double b = w[h] - a;
    constexpr double twopisquaredplus3 = 22.739208802178716;
    const double energies = 6.0 * (b * b + 2.0 * a * a) /
                            (twopisquaredplus3 * b * b - 48.0 * a * b + 4.0 * a * a * pi * pi);
    return pi * fs / static_cast<double>(h) * std::sqrt(energies);
}

// ---- normal equations ----

// Real part of the inner product of two rows, from their left halves.
double innerproduct(const double *p, const double *q, const framesize &size) {
    double sum = 0.0;
    for (std::size_t i = 0; i < 2 * size.h; ++i) sum += p[i] * q[i];
    return p[2 * size.h] * q[2 * size.h] + 2.0 * sum;
}

// Imaginary part of the inner product of a plain row and a time-weighted one.
double crossproduct(const double *p, const double *q, const framesize &size) {
    double sum = 0.0;
    for (std::size_t n = 0; n < size.h; ++n)
        sum += p[2 * n + 1] * q[2 * n] - p[2 * n] * q[2 * n + 1];
    return p[2 * size.h] * q[2 * size.h] + 2.0 * sum;
}

// Fills a Toeplitz matrix whose first row is in place; the first column is `sign` times that row.
void filltoeplitz(double *a, std::size_t l, double sign) {
    for (std::size_t i = 1; i < l; ++i) {
        double *const row = a + i * l;
        row[0] = sign * a[i];
        std::copy(row - l, row - 1, row + 1);
    }
}

// Symmetric Toeplitz matrix of the inner products of the rows of a block.
void toeplitzproducts(const double *e, const framesize &size, double *a) {
    for (std::size_t j = 0; j < size.l; ++j) a[j] = innerproduct(e, e + j * size.stride, size);
    filltoeplitz(a, size.l, 1.0);
}

// b(r) = sum over n of y(n) E(r, n) for the rows of a block.
void project(const double *y, const double *e, const framesize &size, double *b) {
    for (std::size_t r = 0; r < size.l; ++r) {
        phasor sum{};
        for (std::size_t n = 0; n < size.n; ++n) {
            const phasor z = numberat(e + r * size.stride, n);
            sum = sum + phasor{y[n] * z.re, y[n] * z.im};
        }
        setnumber(b, r, sum);
    }
}

// Row r of a real matrix times a complex vector.
phasor rowtimes(const double *a, std::size_t r, std::size_t l, const double *b) {
    phasor sum{};
    for (std::size_t c = 0; c < l; ++c) {
        const phasor z = numberat(b, c);
        sum = sum + phasor{a[r * l + c] * z.re, a[r * l + c] * z.im};
    }
    return sum;
}

// Room for the solvers' matrices and results.
void makeroom(hamem *record, std::size_t matrix, std::size_t unknowns) {
    growto(record->normal, matrix);
    growto(record->inverse, matrix);
    growto(record->projection, 2 * unknowns);
    growto(record->solution, 2 * unknowns);
}

}  // namespace

int hamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *w, double f0,
                   double fs) {
    const framesize size(n, k);
    if (k > 0) {
        // Each harmonic is the one below times the fundamental.
        double *const fundamental = e + (size.k - 1) * size.stride;
        exponentialrow(fundamental, size.h, twopi * f0 / fs);
        for (std::size_t r = size.k - 1; r-- > 0;) {
            double *const row = e + r * size.stride;
            for (std::size_t i = 0; i < size.n; ++i)
                setnumber(row, i, numberat(row + size.stride, i) * numberat(fundamental, i));
        }
    }
    weightandmirror(e, size, w);
    return 0;
}

double qhamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *w, double f0,
                       double fs) {
    const framesize size(n, k);
    const double s = timescale(w, size.h, fs);
    hamatrixcreate(e, n, k, w, f0, fs);
    double *const weighted = e + size.l * size.stride;
    for (std::size_t r = 0; r < size.l; ++r)
        for (std::size_t i = 0; i < size.stride; ++i) {
            const std::size_t sample = i / 2;  // of real and imaginary part in turn
            const double t = static_cast<double>(sample) - static_cast<double>(size.h);
            weighted[r * size.stride + i] = e[r * size.stride + i] * t * s / fs;
        }
    return s;
}

int sqhamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *fk, const double *w,
                     double fs) {
    const framesize size(n, k);
    for (std::size_t m = 0; m < size.k; ++m)
        exponentialrow(e + (size.k - 1 - m) * size.stride, size.h, twopi * fk[m] / fs);
    weightandmirror(e, size, w);
    return 0;
}

int hasqhalscsolve(hamem *record, std::uint32_t n, std::uint32_t m, std::uint8_t toeplitz) {
    const framesize size(n, m / 2);
    makeroom(record, size.l * size.l, size.l);
    const double *const e = record->design.data();
    double *const normal = record->normal.data();
    double *const inverse = record->inverse.data();
    if (toeplitz == 1) {
        toeplitzproducts(e, size, normal);
        if (toeplitzsiminv(m, normal, inverse) != 0) return -1;
    } else {
        for (std::size_t i = 0; i < size.l; ++i)
            for (std::size_t j = 0; j < size.l; ++j)
                normal[i * size.l + j] =
                    innerproduct(e + i * size.stride, e + j * size.stride, size);
        if (choleskyinvdet(m, normal, inverse, 0) == 0.0) return -1;
    }
    double *const b = record->projection.data();
    double *const x = record->solution.data();
    project(record->frame.data(), e, size, b);
    for (std::size_t r = 0; r < size.l; ++r) setnumber(x, r, rowtimes(inverse, r, size.l, b));
    return 0;
}

int qhalscsolve(hamem *record, std::uint32_t n, std::uint32_t m, double s) {
    const std::uint32_t l = m / 2;
    const std::size_t block = std::size_t{l} * l;
    const framesize size(n, l / 2);
    makeroom(record, 4 * block, 2 * size.l);
    const double *const e = record->design.data();
    const double *const weighted = e + size.l * size.stride;
    const auto addblock = [l](double *to, const double *from) {
        for (std::size_t r = 0; r < l; ++r) addmat(to + r * l, from + r * l, l, 1.0);
    };

    // Complex normal matrix [[A, iB], [iB, C]] with real blocks.
    double *const a = record->normal.data();
    double *const b = a + block;
    double *const c = b + block;
    double *const d = c + block;
    toeplitzproducts(e, size, a);
    toeplitzproducts(weighted, size, c);
    for (std::size_t j = 0; j < l; ++j) b[j] = crossproduct(e, weighted + j * size.stride, size);
    b[0] = 0.0;
    filltoeplitz(b, l, -1.0);

    // Its inverse [[P0, -i P1], [-i P2, P3]], by the Schur complements of C and of A.
    double *const p0 = record->inverse.data();
    double *const p1 = p0 + block;
    double *const p2 = p1 + block;
    double *const p3 = p2 + block;
    if (toeplitzsiminv(l, c, d) != 0) return -1;
    simpmprodmat(d, b, p3, l, l, -1);  // C^-1 B
    simprodmat(b, p3, p1, l, l, 1);
    addblock(p1, a);
    if (simgaussinv(l, p1, p0) != 0) return -1;  // (A + B C^-1 B)^-1
    simpmprodmat(p3, p0, p2, l, l, -1);
    if (toeplitzsiminv(l, a, d) != 0) return -1;
    simpmprodmat(d, b, a, l, l, -1);  // A^-1 B
    simprodmat(b, a, d, l, l, 1);
    addblock(d, c);
    if (simgaussinv(l, d, p3) != 0) return -1;  // (C + B A^-1 B)^-1
    copymatwtr(p1, p2, l, l, 1, -1.0);

    // x1 = P0 b1 - i P1 b2,  x2 = (P3 b2 - i P2 b1) s
    double *const b1 = record->projection.data();
    double *const b2 = b1 + 2 * size.l;
    project(record->frame.data(), e, size, b1);
    project(record->frame.data(), weighted, size, b2);
    double *const x1 = record->solution.data();
    double *const x2 = x1 + 2 * size.l;
    for (std::size_t r = 0; r < l; ++r) {
        const phasor fromslopes = rowtimes(p1, r, l, b2);
        const phasor fromamplitudes = rowtimes(p2, r, l, b1);
        setnumber(x1, r, rowtimes(p0, r, l, b1) + phasor{fromslopes.im, -fromslopes.re});
        const phasor slope = rowtimes(p3, r, l, b2) + phasor{fromamplitudes.im, -fromamplitudes.re};
        setnumber(x2, r, {slope.re * s, slope.im * s});
    }
    return 0;
}
