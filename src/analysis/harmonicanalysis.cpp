#include "analysis/harmonicanalysis.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "numeric/cholesky.h"
#include "numeric/elementary.h"
#include "numeric/matvect.h"
#include "numeric/phasor.h"
#include "numeric/products.h"
#include "numeric/toeplitz.h"
#include "numeric/windowing.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

// Every design row is conjugate-symmetric about the frame's centre, and the rows of harmonics +k
// and -k are conjugates of each other. The QHA estimator therefore fills and reads only the left
// half and the centre (columns 0 .. h) of the rows 0 .. K; the public matrix routines complete the
// rest. The HA and SQHA estimators do without the matrix.

namespace {

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

// ---- design matrices ----

// Left half and centre of exp(i theta (n - h)), the conjugate of what lies right of the centre.
void exponentialrow(double *row, std::size_t h, double theta) {
    const phasor step = unitphasor(theta);
    phasor z{1.0, 0.0};
    row[2 * h] = 1.0;
    row[2 * h + 1] = 0.0;
    for (std::size_t j = 1; j <= h; ++j) {
        z.rotate(step);
        row[2 * (h - j)] = z.re;
        row[2 * (h - j) + 1] = -z.im;
    }
}

// out = a b, complex, left half and centre.
void multiplyrows(const double *__restrict a, const double *__restrict b, double *__restrict out,
                  std::size_t h) {
    for (std::size_t n = 0; n <= h; ++n) {
        const double ar = a[2 * n];
        const double ai = a[2 * n + 1];
        const double br = b[2 * n];
        const double bi = b[2 * n + 1];
        out[2 * n] = ar * br - ai * bi;
        out[2 * n + 1] = ai * br + ar * bi;
    }
}

void weightrow(double *__restrict row, const double *__restrict w, std::size_t h) {
    for (std::size_t n = 0; n <= h; ++n) {
        row[2 * n] *= w[n];
        row[2 * n + 1] *= w[n];
    }
}

void constantrow(double *row, const double *w, std::size_t h) {
    for (std::size_t n = 0; n <= h; ++n) {
        row[2 * n] = w[n];
        row[2 * n + 1] = 0.0;
    }
}

// HA rows K .. 0. Each harmonic is the one below times the fundamental; a row is weighted by the
// window as soon as the next no longer needs it bare.
void hahalfrows(double *e, const framesize &size, const double *w, double f0, double fs) {
    const auto row = [&](std::size_t r) { return e + r * size.stride; };
    constantrow(row(size.k), w, size.h);
    double *const fundamental = row(size.k - 1);
    exponentialrow(fundamental, size.h, twopi * f0 / fs);
    for (std::size_t r = size.k - 1; r-- > 0;) {
        multiplyrows(row(r + 1), fundamental, row(r), size.h);
        if (r + 1 < size.k - 1) weightrow(row(r + 1), w, size.h);
    }
    weightrow(row(0), w, size.h);
    if (size.k > 1) weightrow(fundamental, w, size.h);
}

// SQHA rows K .. 0.
void sqhahalfrows(double *e, const framesize &size, const double *fk, const double *w, double fs) {
    constantrow(e + size.k * size.stride, w, size.h);
    for (std::size_t m = 0; m < size.k; ++m) {
        double *const row = e + (size.k - 1 - m) * size.stride;
        exponentialrow(row, size.h, twopi * fk[m] / fs);
        weightrow(row, w, size.h);
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

// Time-weighted copies, rows L .. L + K, of the plain rows 0 .. K: times (n - h) s / fs. The
// factors come one by one: where the top harmonic meets its mirror image at fs / 2, the system is
// so ill-conditioned that last digits show.
void timeweightedrows(double *e, const framesize &size, double s, double fs) {
    const auto h = static_cast<int>(size.h);
    for (std::size_t r = 0; r <= size.k; ++r) {
        const double *const plain = e + r * size.stride;
        double *const weighted = e + (size.l + r) * size.stride;
        for (int n = 0; n <= h; ++n) {
            const double t = n - h;
            const std::size_t i = 2 * static_cast<std::size_t>(n);
            weighted[i] = plain[i] * t * s / fs;
            weighted[i + 1] = plain[i + 1] * t * s / fs;
        }
    }
}

// Completes a block of L rows from the left halves of its rows 0 .. K. The right half is `sign`
// times the conjugate of the left: +1 for plain rows, -1 for time-weighted ones.
void completerows(double *e, const framesize &size, double sign) {
    for (std::size_t r = 0; r <= size.k; ++r) {
        double *const row = e + r * size.stride;
        for (std::size_t j = 1; j <= size.h; ++j) {
            row[2 * (size.h + j)] = sign * row[2 * (size.h - j)];
            row[2 * (size.h + j) + 1] = -sign * row[2 * (size.h - j) + 1];
        }
        double *const mirror = e + (2 * size.k - r) * size.stride;
        if (mirror == row) continue;
        for (std::size_t n = 0; n < size.n; ++n) {
            mirror[2 * n] = row[2 * n];
            mirror[2 * n + 1] = -row[2 * n + 1];
        }
    }
}

// ---- inner products ----

// For rows q(r): sums over the left half of Re p Re q(r) and of Im p Im q(r), as pairs. Their sum
// and difference are half of the inner product of p with q(r) and with its conjugate.
template <std::size_t block>
void pairproductsof(const double *p, const double *q, std::size_t stride, std::size_t h,
                    double *sums) {
    double re[block] = {};
    double im[block] = {};
    for (std::size_t n = 0; n < 2 * h; n += 2) {
        for (std::size_t b = 0; b < block; ++b) {
            re[b] += p[n] * q[b * stride + n];
            im[b] += p[n + 1] * q[b * stride + n + 1];
        }
    }
    for (std::size_t b = 0; b < block; ++b) {
        sums[2 * b] = re[b];
        sums[2 * b + 1] = im[b];
    }
}

void pairproducts(const double *p, const double *q, std::size_t stride, std::size_t h,
                  std::size_t rows, double *sums) {
    std::size_t r = 0;
    for (; r + 4 <= rows; r += 4) pairproductsof<4>(p, q + r * stride, stride, h, sums + 2 * r);
    for (; r < rows; ++r) pairproductsof<1>(p, q + r * stride, stride, h, sums + 2 * r);
}

// Real matrix times complex vector, out(r) = sum over c of a(r, c) b(c).
template <std::size_t block>
void realbycomplexof(const double *a, const double *b, std::size_t cols, double *out) {
    double re[block] = {};
    double im[block] = {};
    for (std::size_t c = 0; c < cols; ++c) {
        for (std::size_t r = 0; r < block; ++r) {
            re[r] += a[r * cols + c] * b[2 * c];
            im[r] += a[r * cols + c] * b[2 * c + 1];
        }
    }
    for (std::size_t r = 0; r < block; ++r) {
        out[2 * r] = re[r];
        out[2 * r + 1] = im[r];
    }
}

void realbycomplex(const double *a, const double *b, std::size_t rows, std::size_t cols,
                   double *out) {
    std::size_t r = 0;
    for (; r + 4 <= rows; r += 4) realbycomplexof<4>(a + r * cols, b, cols, out + 2 * r);
    for (; r < rows; ++r) realbycomplexof<1>(a + r * cols, b, cols, out + 2 * r);
}

// ---- solvers ----

// Fills a Toeplitz matrix whose first row is in place; the first column is `sign` times that row.
void filltoeplitz(double *a, std::size_t m, double sign) {
    for (std::size_t i = 1; i < m; ++i) {
        double *const row = a + i * m;
        row[0] = sign * a[i];
        std::copy(row - m, row - 1, row + 1);
    }
}

// Symmetric Toeplitz matrix of inner products g(row 0, row j), j = 0 .. 2K, of a block of L rows.
void toeplitzproducts(const double *e, const framesize &size, double *scratch, double *a) {
    pairproducts(e, e, size.stride, size.h, size.k + 1, scratch);
    for (std::size_t j = 0; j <= size.k; ++j) {
        const double centre = e[2 * size.h] * e[j * size.stride + 2 * size.h];
        a[j] = centre + 2.0 * (scratch[2 * j] + scratch[2 * j + 1]);
        a[2 * size.k - j] = centre + 2.0 * (scratch[2 * j] - scratch[2 * j + 1]);
    }
    // Row K is its own mirror image, with no imaginary part; both formulas agree there.
    filltoeplitz(a, size.l, 1.0);
}

// Antisymmetric Toeplitz matrix of the cross products between row 0 of the plain block and the
// time-weighted rows j,
//   B(0, j) = Re E(0, h) Re E(L + j, h) + 2 sum over n < h of
//             (Im E(0, n) Re E(L + j, n) - Re E(0, n) Im E(L + j, n)),  B(0, 0) = 0.
void crossproducts(const double *e, const framesize &size, double *scratch, double *b) {
    double *const swapped = scratch;  // row 0 with real and imaginary parts exchanged
    double *const sums = scratch + 2 * size.h;
    for (std::size_t n = 0; n < size.h; ++n) {
        swapped[2 * n] = e[2 * n + 1];
        swapped[2 * n + 1] = e[2 * n];
    }
    const double *const weighted = e + size.l * size.stride;
    pairproducts(swapped, weighted, size.stride, size.h, size.k + 1, sums);
    for (std::size_t j = 0; j <= size.k; ++j) {
        const double centre = e[2 * size.h] * weighted[j * size.stride + 2 * size.h];
        b[j] = centre + 2.0 * (sums[2 * j] - sums[2 * j + 1]);
        b[2 * size.k - j] = centre + 2.0 * (sums[2 * j] + sums[2 * j + 1]);
    }
    b[0] = 0.0;
    filltoeplitz(b, size.l, -1.0);
}

// Symmetric matrix of inner products of rows at frequencies of any kind. Conjugating both rows does
// not change a product, so each one computed stands at four places.
void generalproducts(const double *e, const framesize &size, double *scratch, double *a) {
    const std::size_t last = size.l - 1;
    for (std::size_t i = 0; i <= size.k; ++i) {
        const double *const row = e + i * size.stride;
        pairproducts(row, e, size.stride, size.h, i + 1, scratch);
        for (std::size_t j = 0; j <= i; ++j) {
            const double centre = row[2 * size.h] * e[j * size.stride + 2 * size.h];
            const double same = centre + 2.0 * (scratch[2 * j] + scratch[2 * j + 1]);
            const double mirror = centre + 2.0 * (scratch[2 * j] - scratch[2 * j + 1]);
            a[i * size.l + j] = same;
            a[j * size.l + i] = same;
            a[(last - i) * size.l + (last - j)] = same;
            a[(last - j) * size.l + (last - i)] = same;
            a[i * size.l + (last - j)] = mirror;
            a[(last - j) * size.l + i] = mirror;
            a[(last - i) * size.l + j] = mirror;
            a[j * size.l + (last - i)] = mirror;
        }
    }
}

// Completes a complex vector of L entries from its entries 0 .. K.
void mirrorconjugate(double *x, const framesize &size) {
    x[2 * size.k + 1] = 0.0;
    for (std::size_t r = 0; r < size.k; ++r) {
        x[2 * (size.l - 1 - r)] = x[2 * r];
        x[2 * (size.l - 1 - r) + 1] = -x[2 * r + 1];
    }
}

// Projections b(r) = sum over n of y(n) E(r, n) of the frame y on a block of L rows. The frame is
// folded about its centre first: its even part meets the real parts of a row, its odd part the
// imaginary ones. Of time-weighted rows (sign -1) it is the other way round in sign.
void project(const double *y, const double *e, const framesize &size, double sign, double *scratch,
             double *b) {
    for (std::size_t n = 0; n < size.h; ++n) {
        const double left = y[n];
        const double right = sign * y[size.n - 1 - n];
        scratch[2 * n] = left + right;
        scratch[2 * n + 1] = left - right;
    }
    pairproducts(scratch, e, size.stride, size.h, size.k + 1, b);
    for (std::size_t r = 0; r <= size.k; ++r)
        b[2 * r] += y[size.h] * e[r * size.stride + 2 * size.h];
    mirrorconjugate(b, size);
}

// ---- harmonic model without a design matrix ----

// What the HA model needs of a frame: with theta = 2 pi f0 / fs and t in samples from the centre,
//   re(k) = sum of w(t) y(t) cos(k theta t),  im(k) = sum of w(t) y(t) sin(k theta t),
//   normal(j) = sum of w(t)^2 cos(j theta t),  j = 0 .. 2K, the first row of the normal matrix.
// All sums run over half the frame, folded onto itself, with eight harmonics side by side, each
// rotating from sample to sample. Harmonics above K are not made: normal(K +- k) are sums of
// products of the phasors of K and k.
struct harmonicsums {
    double *even;    // [h + 1] w(t) (y(t) + y(-t)), at t = 0 half of it
    double *odd;     // [h + 1] w(t) (y(t) - y(-t))
    double *topcos;  // [h + 1] w(t)^2 cos(K theta t), at t = 0 half of it
    double *topsin;  // [h + 1] w(t)^2 sin(K theta t)
    double *re;      // [K + 1] and whole vectors, as are the next three
    double *im;
    double *coscos;  // sums of topcos(t) cos(k theta t)
    double *sinsin;  // sums of topsin(t) sin(k theta t)
    double *normal;  // [2K + 1]
    double *work;    // for toeplitzsolve

    static std::size_t size(std::size_t h, std::size_t k) {
        return 4 * wholevectors(h + 1) + 4 * wholevectors(k + 1) + 2 * k + 1 +
               toeplitzworkspace(static_cast<std::uint32_t>(k));
    }

    harmonicsums(double *scratch, const framesize &size)
        : even(scratch),
          odd(even + wholevectors(size.h + 1)),
          topcos(odd + wholevectors(size.h + 1)),
          topsin(topcos + wholevectors(size.h + 1)),
          re(topsin + wholevectors(size.h + 1)),
          im(re + wholevectors(size.k + 1)),
          coscos(im + wholevectors(size.k + 1)),
          sinsin(coscos + wholevectors(size.k + 1)),
          normal(sinsin + wholevectors(size.k + 1)),
          work(normal + 2 * size.k + 1) {}
};

// First and eighth powers of a phasor: what eight consecutive ones and the next eight start from.
struct phasorpowers {
    phasor first;
    phasor eighth;

    explicit phasorpowers(double theta)
        : first(unitphasor(theta)), eighth(unitphasor(8.0 * theta)) {}
};

// Folds the frame and weights the top harmonic.
template <class Real8>
[[gnu::always_inline]] inline void foldframe(const harmonicsums &sums, const double *w,
                                             const double *y, std::size_t h,
                                             const phasorpowers &top) {
    const double *const weight = w + h;
    const double *const centre = y + h;
    const double *mirror = centre;
    for (std::size_t t = 0; t <= h; ++t, --mirror) {
        sums.even[t] = weight[t] * (centre[t] + *mirror);
        sums.odd[t] = weight[t] * (centre[t] - *mirror);
    }
    sums.even[0] *= 0.5;
    complexof<Real8> z = powersof<Real8>(top.first);
    const complexof<Real8> step = samephasors<Real8>(top.eighth);
    for (std::size_t t = 0; t <= h; t += vectorlength, z.rotate(step)) {
        z.re.store(sums.topcos + t);
        z.im.store(sums.topsin + t);
    }
    for (std::size_t t = 0; t <= h; ++t) {
        const double square = weight[t] * weight[t];
        sums.topcos[t] *= square;
        sums.topsin[t] *= square;
    }
    sums.topcos[0] *= 0.5;
}

// The sums of `count` times eight harmonics from harmonic k on; step holds the phasors of the first
// eight and turns to those of the next.
template <std::size_t count, class Real8>
[[gnu::always_inline]] inline void sumharmonics(const harmonicsums &sums, std::size_t h,
                                                std::size_t k, complexof<Real8> &step,
                                                const complexof<Real8> &eighth) {
    complexof<Real8> steps[count];
    complexof<Real8> z[count];
    Real8 re[count] = {};
    Real8 im[count] = {};
    Real8 coscos[count] = {};
    Real8 sinsin[count] = {};
    for (std::size_t c = 0; c < count; ++c) {
        steps[c] = step;
        step.rotate(eighth);
        z[c] = samephasors<Real8>({1.0, 0.0});
    }
    for (std::size_t t = 0; t <= h; ++t) {
        for (std::size_t c = 0; c < count; ++c) {
            re[c] += sums.even[t] * z[c].re;
            im[c] += sums.odd[t] * z[c].im;
            coscos[c] += sums.topcos[t] * z[c].re;
            sinsin[c] += sums.topsin[t] * z[c].im;
            z[c].rotate(steps[c]);
        }
    }
    for (std::size_t c = 0; c < count; ++c) {
        const std::size_t entry = k + c * vectorlength;
        re[c].store(sums.re + entry);
        im[c].store(sums.im + entry);
        coscos[c].store(sums.coscos + entry);
        sinsin[c].store(sums.sinsin + entry);
    }
}

struct harmonicsumskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const harmonicsums *sums, const double *w,
                                           const double *y, std::size_t h, std::size_t harmonics,
                                           const phasorpowers *fundamental,
                                           const phasorpowers *top) {
        foldframe<Real8>(*sums, w, y, h, *top);
        complexof<Real8> step = powersof<Real8>(fundamental->first);
        const complexof<Real8> eighth = samephasors<Real8>(fundamental->eighth);
        std::size_t k = 0;
        for (; k + vectorlength <= harmonics; k += 2 * vectorlength)
            sumharmonics<2>(*sums, h, k, step, eighth);
        if (k <= harmonics) sumharmonics<1>(*sums, h, k, step, eighth);
        for (k = 0; k <= harmonics; ++k) {
            sums->normal[harmonics - k] = 2.0 * (sums->coscos[k] + sums->sinsin[k]);
            sums->normal[harmonics + k] = 2.0 * (sums->coscos[k] - sums->sinsin[k]);
        }
    }
};

// Fits the HA model to the record's frame. The solution is as hasqhalscsolve leaves it.
int solveharmonics(hamem *record, const framesize &size, double f0, double fs) {
    const harmonicsums sums(record->scratch, size);
    const double theta = twopi * f0 / fs;
    const phasorpowers fundamental(theta);
    const phasorpowers top(theta * static_cast<double>(size.k));
    runwidest<harmonicsumskernel>(&sums, record->window, record->frame, size.h, size.k,
                                  &fundamental, &top);
    if (toeplitzsolve(static_cast<std::uint32_t>(size.k), sums.normal, sums.re, sums.im,
                      sums.work) != 0)
        return -1;
    for (std::size_t k = 0; k <= size.k; ++k) {
        double *const entry = record->solution + 2 * (size.k - k);
        entry[0] = sums.re[k];
        entry[1] = sums.im[k];
    }
    mirrorconjugate(record->solution, size);
    return 0;
}

// ---- simplified quasi-harmonic model in real numbers ----

// About the centre, cosines under the window are even and sines are odd, so that they fit the even
// and the odd part of the frame each by itself: over t = 0 .. h, with half the weight at t = 0,
//   (y(t) + y(-t)) / 2 = w(t) (c + sum of u(k) cos(omega(k) t)),
//   (y(t) - y(-t)) / 2 = w(t) sum of v(k) sin(omega(k) t),  a(k) = (u(k) - i v(k)) / 2.
// The part of the frame stands as one more column behind the basis; the inner products of the
// columns then are the normal equations with their right-hand side.
struct sqhaarrays {
    std::size_t stride;  // of all rows
    std::size_t rows;    // of the normal equations
    double *cosines;     // [(h + 1) x stride] columns for harmonics 1 .. K, the constant, the frame
    double *sines;       // [(h + 1) x stride] columns for harmonics 1 .. K, the frame
    double *normal;      // [rows x stride]
    double *re;          // [stride] first cos(omega), then u and c
    double *im;          // [stride] first sin(omega), then v

    static std::size_t stridefor(std::size_t k) { return wholevectors((k + 3) / 2) * 2; }
    static std::size_t size(std::size_t h, std::size_t k) {
        return stridefor(k) * (2 * (h + 1) + (k + 4) + 2);
    }

    sqhaarrays(double *data, const framesize &size)
        : stride(stridefor(size.k)),
          rows((size.k + 4) / 4 * 4),
          cosines(data),
          sines(cosines + (size.h + 1) * stride),
          normal(sines + (size.h + 1) * stride),
          re(normal + rows * stride),
          im(re + stride) {}
};

struct sqhabasiskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const sqhaarrays *arrays, const double *w,
                                           const double *y, std::size_t h, std::size_t k) {
        constexpr double sqrthalf = 0.7071067811865476;
        const sqhaarrays &mem = *arrays;
        for (std::size_t column = 0; column < mem.stride; column += vectorlength) {
            const complexof<Real8> step{Real8::load(mem.re + column), Real8::load(mem.im + column)};
            complexof<Real8> z = samephasors<Real8>({1.0, 0.0});
            for (std::size_t t = 0; t <= h; ++t, z.rotate(step)) {
                const double weight = t == 0 ? sqrthalf * w[h] : w[h + t];
                (z.re * weight).store(mem.cosines + t * mem.stride + column);
                (z.im * weight).store(mem.sines + t * mem.stride + column);
            }
        }
        // A step of 1 has made the column of the constant.
        const double *mirror = y + h;
        for (std::size_t t = 0; t <= h; ++t, --mirror) {
            const double share = t == 0 ? 0.5 * sqrthalf : 0.5;
            mem.cosines[t * mem.stride + k + 1] = share * (y[h + t] + *mirror);
            mem.sines[t * mem.stride + k] = share * (y[h + t] - *mirror);
        }
    }
};

// Fits the SQHA model at the frequencies fk to the record's frame. The solution is as
// hasqhalscsolve leaves it.
int solvesqharmonics(hamem *record, const framesize &size, const double *fk, double fs) {
    const sqhaarrays mem(record->design, size);
    const auto k = static_cast<std::uint32_t>(size.k);
    std::fill(mem.re, mem.re + mem.stride, 1.0);
    std::fill(mem.im, mem.im + mem.stride, 0.0);
    for (std::size_t m = 0; m < size.k; ++m) {
        const phasor step = unitphasor(twopi * fk[m] / fs);
        mem.re[m] = step.re;
        mem.im[m] = step.im;
    }
    runwidest<sqhabasiskernel>(&mem, record->window, record->frame, size.h, size.k);
    grammatrix(mem.cosines, size.h + 1, mem.stride, mem.rows, mem.normal);
    if (choleskysolve(k + 1, mem.normal, mem.stride, mem.re) == 0.0) return -1;
    grammatrix(mem.sines, size.h + 1, mem.stride, mem.rows, mem.normal);
    if (choleskysolve(k, mem.normal, mem.stride, mem.im) == 0.0) return -1;

    record->solution[2 * size.k] = mem.re[size.k];
    for (std::size_t m = 0; m < size.k; ++m) {  // harmonic m + 1, of which -(m + 1) comes first
        double *const entry = record->solution + 2 * (size.k - 1 - m);
        entry[0] = 0.5 * mem.re[m];
        entry[1] = 0.5 * mem.im[m];
    }
    mirrorconjugate(record->solution, size);
    return 0;
}

// ---- estimators ----

// Cuts and windows the frame. Returns false when it is silent.
bool loadframe(hamem *record, const double *x, std::uint32_t len, std::uint32_t centre,
               std::uint32_t n) {
    winhamming(record->window, n, 1);
    return getwindowedsamples(x, len, centre, record->frame, n / 2, record->window) != 0;
}

// Amplitudes and phases from the solution's entries K + 1 .. 2K.
void polarform(const hamem *record, std::uint32_t harmonics, double *amp, double *phase) {
    const double *const a = record->solution + 2 * (std::size_t{harmonics} + 1);
    for (std::size_t k = 0; k < harmonics; ++k) {
        const double re = a[2 * k];
        const double im = a[2 * k + 1];
        if (amp != nullptr) amp[k] = 2.0 * std::sqrt(re * re + im * im);
        if (phase != nullptr) phase[k] = arctangent(im, re);
    }
}

// Frequency mismatch of harmonic k as the QHA solution tells it: the slope's component at right
// angles to the amplitude, over `divisor` times the squared amplitude.
double mismatch(const double *a, const double *b, double divisor) {
    const double power = a[0] * a[0] + a[1] * a[1];
    return (b[1] * a[0] - b[0] * a[1]) / (divisor * power);
}

// ---- log spectrum ----

// One harmonic of the interpolation and the bins within reach of its kernel. Bins below 0 are
// folded back onto their mirror images, but for those below -fs / 2, which have none.
struct harmonicspan {
    double level;
    double frequency;
    std::int64_t from;
    std::int64_t to;  // not above fs / 2; below `from`: no bins
};

harmonicspan spanof(std::size_t j, double level, double f0, double spacing, std::int64_t nyquist) {
    const double fj = static_cast<double>(j) * f0;
    const auto last = static_cast<std::int64_t>(std::ceil((fj + 4.0 * f0) / spacing)) - 1;
    harmonicspan span{level, fj, 0, std::min(nyquist, last)};
    // Of the first harmonics the kernel reaches below 0 Hz. The folded bins and those from 0 on are
    // one span.
    if (j >= 4)
        span.from = static_cast<std::int64_t>(std::floor((fj - 4.0 * f0) / spacing)) + 1;
    else if (j >= 1)
        span.from = 1 - static_cast<std::int64_t>(std::ceil((4.0 * f0 - fj) / spacing));
    return span;
}

// The kernels of eight harmonics, side by side along their bins,
//   W(d) = sin(alpha) / alpha (1 + cos(beta)) / 2,  alpha = pi d / f0,  beta = pi d / (4 f0),
// with d the distance from the harmonic in Hz. The angles start from the trigonometric functions at
// the first bin and go on by rotation, alpha itself by addition.
//
// Deliberate: the quotient is taken as it stands wherever alpha is not exactly 0. On a bin that
// falls on the harmonic (f0 on the bin grid, 500 Hz for one), alpha and the rotated sine are both
// mere rounding residue, and their quotient can be far from the 1 that the kernel has there; that
// bin then carries a wrong share of this harmonic's level.
struct harmonickernels {
    double f0;
    double spacing;
    double alphastep;
    phasor sincstep;
    phasor taperstep;
    // One entry per harmonic.
    double level[vectorlength] = {};
    double alpha[vectorlength] = {};
    double sincre[vectorlength] = {};
    double sincim[vectorlength] = {};
    double taperre[vectorlength] = {};
    double taperim[vectorlength] = {};

    harmonickernels(double f, double binspacing)
        : f0(f),
          spacing(binspacing),
          alphastep(pi * spacing / f0),
          sincstep(unitphasor(alphastep)),
          taperstep(unitphasor(pi * spacing / (4.0 * f0))) {}

    void start(std::size_t lane, const harmonicspan &span) {
        const double d = static_cast<double>(span.from) * spacing - span.frequency;
        level[lane] = span.level;
        alpha[lane] = pi * d / f0;
        const phasor sincstart = unitphasor(alpha[lane]);
        sincre[lane] = sincstart.re;
        sincim[lane] = sincstart.im;
        const phasor taperstart = unitphasor(pi * d / (4.0 * f0));
        taperre[lane] = taperstart.re;
        taperim[lane] = taperstart.im;
    }
};

// Levels times kernels on the next `count` bins, eight harmonics to a row.
struct kernelrowskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(harmonickernels *kernels, std::int64_t count,
                                           double *rows) {
        const complexof<Real8> sincstep = samephasors<Real8>(kernels->sincstep);
        const complexof<Real8> taperstep = samephasors<Real8>(kernels->taperstep);
        const Real8 level = Real8::load(kernels->level);
        Real8 alpha = Real8::load(kernels->alpha);
        complexof<Real8> sinc{Real8::load(kernels->sincre), Real8::load(kernels->sincim)};
        complexof<Real8> taper{Real8::load(kernels->taperre), Real8::load(kernels->taperim)};
        for (std::int64_t i = 0; i < count; ++i, rows += vectorlength) {
            const Real8 quotient = sinc.im / alpha * (1.0 + taper.re) / 2.0;
            (level * select(alpha == 0.0, Real8::all(1.0), quotient)).store(rows);
            alpha += kernels->alphastep;
            sinc.rotate(sincstep);
            taper.rotate(taperstep);
        }
        alpha.store(kernels->alpha);
        sinc.re.store(kernels->sincre);
        sinc.im.store(kernels->sincim);
        taper.re.store(kernels->taperre);
        taper.im.store(kernels->taperim);
    }
};

// Adds the shares of up to eight harmonics to the bins, one harmonic after the other. Only spans
// longer than any voice has come in more than one piece.
void addharmonics(harmonickernels &kernels, const harmonicspan *spans, std::size_t count,
                  std::int64_t nyquist, double *out) {
    constexpr std::int64_t rowsatonce = 256;
    double rows[rowsatonce * vectorlength];
    std::int64_t longest = 0;
    for (std::size_t lane = 0; lane < count; ++lane) {
        kernels.start(lane, spans[lane]);
        longest = std::max(longest, spans[lane].to - spans[lane].from + 1);
    }
    for (std::int64_t done = 0; done < longest; done += rowsatonce) {
        const std::int64_t nrows = std::min(rowsatonce, longest - done);
        runwidest<kernelrowskernel>(&kernels, nrows, rows);
        for (std::size_t lane = 0; lane < count; ++lane) {
            const std::int64_t from = spans[lane].from + done;
            const std::int64_t end = std::min(from + nrows, spans[lane].to + 1);
            const double *share = rows + lane;
            for (std::int64_t i = from; i < end; ++i, share += vectorlength)
                if (i >= -nyquist) out[i < 0 ? -i : i] += *share;
        }
    }
}

// Natural log of half the harmonic amplitudes over sqrt(f0), entries 1 .. K; entry 0 repeats the
// first harmonic's. Returns false when an amplitude has no logarithm.
bool loglevels(const hamem *record, std::uint32_t harmonics, double f0, double *levels) {
    for (std::size_t k = 1; k <= harmonics; ++k) {
        const double *const a = record->solution + 2 * (harmonics + k);
        levels[k] = 0.5 * logarithm((a[0] * a[0] + a[1] * a[1]) / f0);
        if (!std::isfinite(levels[k])) return false;
    }
    levels[0] = levels[1];
    return true;
}

}  // namespace

std::uint32_t haframesize(double fs, double f0) { return getwinlengthnperiodsodd(2.5, f0, fs); }

std::uint32_t qhaframesize(double fs, double f0) { return getwinlengthnperiodsodd(3.0, f0, fs); }

std::uint32_t sqhaframesize(double fs, double f0) { return getwinlengthnperiodsodd(2.5, f0, fs); }

std::uint32_t hanoharms(double fs, double fmax, double f0) {
    const double nyquist = fs / 2.0;
    if (!(f0 > 0.0) || f0 >= fmax || f0 >= nyquist) return 0;
    const double limit = fmax > nyquist ? nyquist : fmax;
    constexpr double most = 4294967295.0;  // an f0 next to 0 has more than can be counted
    return static_cast<std::uint32_t>(std::min(std::ceil(limit / f0), most)) - 1;
}

hamem *hameminitialize(double fs, double fmax, double f0min) {
    return haqhameminitialize(0, fs, fmax, f0min);
}

hamem *qhameminitialize(double fs, double fmax, double f0min) {
    return haqhameminitialize(1, fs, fmax, f0min);
}

hamem *haqhameminitialize(std::uint8_t type, double fs, double fmax, double f0min) {
    const std::size_t n = type == 0 ? haframesize(fs, f0min) : qhaframesize(fs, f0min);
    const std::size_t exponentials = 2 * std::size_t{hanoharms(fs, fmax, f0min)} + 1;
    const std::size_t m = type == 0 ? exponentials : 2 * exponentials;
    // Projection and solution share the normal matrix's storage. Below 5 unknowns there would not
    // be room for both, so the region gets at least that much.
    const std::size_t projectionroom = std::max(m * m / 2, 2 * m);
    const std::size_t normalsize = std::max(m * m, projectionroom + 2 * m);

    auto record = std::make_unique<hamem>();
    const std::size_t scratchsize =
        std::max(2 * (n + 1), harmonicsums::size(n / 2, exponentials / 2));
    const std::size_t designsize = std::max(2 * m * n, sqhaarrays::size(n / 2, exponentials / 2));
    record->size = 2 * n + designsize + normalsize + m * m + scratchsize;
    record->data = std::make_unique_for_overwrite<double[]>(record->size);
    record->window = record->data.get();
    record->frame = record->window + n;
    record->design = record->frame + n;
    record->normal = record->design + designsize;
    record->inverse = record->normal + normalsize;
    record->projection = record->normal;
    record->solution = record->normal + projectionroom;
    record->scratch = record->inverse + m * m;
    return record.release();
}

namespace nalveo {

void hamemreserve(hamem *record, std::size_t count) {
    if (count <= record->size) return;
    auto larger = std::make_unique_for_overwrite<double[]>(count);
    const double *const old = record->data.get();
    for (double **region :
         {&record->window, &record->frame, &record->design, &record->normal, &record->inverse,
          &record->projection, &record->solution, &record->scratch})
        *region = larger.get() + (*region - old);
    record->data = std::move(larger);
    record->size = count;
}

}  // namespace nalveo

int hamemdestroy(hamem *record) {
    const std::unique_ptr<hamem> owned(record);
    return 0;
}

int qhamemdestroy(hamem *record) { return hamemdestroy(record); }

int hamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *w, double f0,
                   double fs) {
    const framesize size(n, k);
    hahalfrows(e, size, w, f0, fs);
    completerows(e, size, 1.0);
    return 0;
}

double qhamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *w, double f0,
                       double fs) {
    const framesize size(n, k);
    const double s = timescale(w, size.h, fs);
    hahalfrows(e, size, w, f0, fs);
    timeweightedrows(e, size, s, fs);
    completerows(e, size, 1.0);
    completerows(e + size.l * size.stride, size, -1.0);
    return s;
}

int sqhamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *fk, const double *w,
                     double fs) {
    const framesize size(n, k);
    sqhahalfrows(e, size, fk, w, fs);
    completerows(e, size, 1.0);
    return 0;
}

int hasqhalscsolve(hamem *record, std::uint32_t n, std::uint32_t m, std::uint8_t toeplitz) {
    const framesize size(n, m / 2);
    if (toeplitz == 1) {
        toeplitzproducts(record->design, size, record->scratch, record->normal);
        if (toeplitzsiminv(m, record->normal, record->inverse) != 0) return -1;
    } else {
        generalproducts(record->design, size, record->scratch, record->normal);
        if (choleskyinvdet(m, record->normal, record->inverse, 0) == 0.0) return -1;
    }
    project(record->frame, record->design, size, 1.0, record->scratch, record->projection);
    realbycomplex(record->inverse, record->projection, size.k + 1, size.l, record->solution);
    mirrorconjugate(record->solution, size);
    return 0;
}

int qhalscsolve(hamem *record, std::uint32_t n, std::uint32_t m, double s) {
    const std::uint32_t l = m / 2;
    const std::uint32_t square = l * l;
    const framesize size(n, l / 2);
    const double *const weighted = record->design + size.l * size.stride;

    // Complex normal matrix [[A, iB], [iB, C]] with real blocks.
    double *const a = record->normal;
    double *const b = a + square;
    double *const c = b + square;
    double *const d = c + square;
    toeplitzproducts(record->design, size, record->scratch, a);
    toeplitzproducts(weighted, size, record->scratch, c);
    crossproducts(record->design, size, record->scratch, b);

    // Its inverse [[P0, -i P1], [-i P2, P3]], by the Schur complements of C and of A.
    double *const p0 = record->inverse;
    double *const p1 = p0 + square;
    double *const p2 = p1 + square;
    double *const p3 = p2 + square;
    if (toeplitzsiminv(l, c, d) != 0) return -1;
    simpmprodmat(d, b, p3, l, l, -1);  // C^-1 B
    simprodmat(b, p3, p1, l, l, 1);
    addmat(p1, a, square, 1.0);
    if (simgaussinv(l, p1, p0) != 0) return -1;  // (A + B C^-1 B)^-1
    simpmprodmat(p3, p0, p2, l, l, -1);
    if (toeplitzsiminv(l, a, d) != 0) return -1;
    simpmprodmat(d, b, a, l, l, -1);  // A^-1 B
    simprodmat(b, a, d, l, l, 1);
    addmat(d, c, square, 1.0);
    if (simgaussinv(l, d, p3) != 0) return -1;  // (C + B A^-1 B)^-1
    copymatwtr(p1, p2, l, l, 1, -1.0);

    double *const b1 = record->projection;
    double *const b2 = b1 + 2 * size.l;
    project(record->frame, record->design, size, 1.0, record->scratch, b1);
    project(record->frame, weighted, size, -1.0, record->scratch, b2);

    // x1 = P0 b1 - i P1 b2,  x2 = (P3 b2 - i P2 b1) s
    double *const x1 = record->solution;
    double *const x2 = x1 + 2 * size.l;
    double *const crossed = record->scratch;
    const std::size_t rows = size.k + 1;
    realbycomplex(p0, b1, rows, size.l, x1);
    realbycomplex(p1, b2, rows, size.l, crossed);
    for (std::size_t r = 0; r < rows; ++r) {
        x1[2 * r] += crossed[2 * r + 1];
        x1[2 * r + 1] -= crossed[2 * r];
    }
    realbycomplex(p3, b2, rows, size.l, x2);
    realbycomplex(p2, b1, rows, size.l, crossed);
    for (std::size_t r = 0; r < rows; ++r) {
        x2[2 * r] = (x2[2 * r] + crossed[2 * r + 1]) * s;
        x2[2 * r + 1] = (x2[2 * r + 1] - crossed[2 * r]) * s;
    }
    mirrorconjugate(x1, size);
    mirrorconjugate(x2, size);
    return 0;
}

int getharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                 double *amp, double *phase, hamem *record, double fs, double f0) {
    if (f0 == 0.0 || k == 0) return -1;
    const std::uint32_t n = haframesize(fs, f0);
    if (!loadframe(record, x, len, centre, n)) return -1;
    if (solveharmonics(record, framesize(n, k), f0, fs) != 0) return -1;
    polarform(record, k, amp, phase);
    return 0;
}

int getqharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                  double *amp, double *phase, double *freq, hamem *record, double fs, double f0) {
    if (f0 == 0.0 || k == 0) return -1;
    const std::uint32_t n = qhaframesize(fs, f0);
    if (!loadframe(record, x, len, centre, n)) return -1;
    const framesize size(n, k);
    solveqharmonics(record->quasi, record->window, record->frame, size.h, size.k, f0, fs,
                    record->solution);
    polarform(record, k, amp, phase);
    if (freq == nullptr) return 0;
    const double *const x1 = record->solution;
    const double *const x2 = x1 + 2 * size.l;
    for (std::size_t j = 1; j <= k; ++j) {
        const std::size_t entry = 2 * (size.k + j);
        const double shift = mismatch(x1 + entry, x2 + entry, twopi);
        const double nominal = static_cast<double>(j) * f0;
        freq[j - 1] = std::abs(shift) >= f0 / 2.0 ? nominal : nominal + shift;
    }
    return 0;
}

int getsqharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                   double *amp, double *phase, double *freq, hamem *record, double fs, double f0) {
    if (f0 == 0.0 || k == 0) return -1;
    // Without an array of the caller's, the frequencies go where the next solution will be.
    double *const found = freq != nullptr ? freq : record->solution;
    if (getqharmonics(x, len, centre, k, nullptr, nullptr, found, record, fs, f0) != 0) return -1;
    const std::uint32_t n = sqhaframesize(fs, f0);
    if (!loadframe(record, x, len, centre, n)) return -1;
    if (solvesqharmonics(record, framesize(n, k), found, fs) != 0) return -1;
    polarform(record, k, amp, phase);
    return 0;
}

double qharefinepitch(const double *x, std::uint32_t len, std::uint32_t centre, hamem *record,
                      double fs, double f0, double fmax) {
    if (f0 == 0.0) return 0.0;
    const std::uint32_t k = hanoharms(fs, fmax, f0);
    if (getqharmonics(x, len, centre, k, nullptr, nullptr, nullptr, record, fs, f0) != 0) return f0;
    const double *const x1 = record->solution;
    const double *const x2 = x1 + 2 * (2 * std::size_t{k} + 1);
    double sum = 0.0;
    double weights = 0.0;
    for (std::size_t j = 1; j <= k; ++j) {
        const double *const a = x1 + 2 * (k + j);
        const double *const b = x2 + 2 * (k + j);
        const double estimate = f0 + mismatch(a, b, twopi * static_cast<double>(j));
        const double weight = std::sqrt(std::sqrt(a[0] * a[0] + a[1] * a[1]));
        sum += weight * estimate;
        weights += weight;
    }
    return sum / weights;
}

int getlogspectrumfromharms(const double *x, std::uint32_t len, std::uint32_t centre,
                            std::uint32_t nfft, double *out, hamem *record, std::uint8_t sqha,
                            double fs, double f0) {
    const std::uint32_t k = hanoharms(fs, fs, f0);
    const int failed =
        sqha == 0 ? getharmonics(x, len, centre, k, nullptr, nullptr, record, fs, f0)
                  : getsqharmonics(x, len, centre, k, nullptr, nullptr, nullptr, record, fs, f0);
    double *const levels = record->inverse;
    if (failed != 0 || !loglevels(record, k, f0, levels)) return -1;

    const std::int64_t nyquist = nfft / 2;
    const double spacing = fs / nfft;
    harmonickernels kernels(f0, spacing);
    std::fill(out, out + nyquist + 1, 0.0);
    double floorlevel = levels[1];
    const std::size_t count = std::size_t{k} + 5;  // from 0 Hz to four beyond the last
    for (std::size_t first = 0; first < count; first += vectorlength) {
        harmonicspan spans[vectorlength];
        const std::size_t lanes = std::min(vectorlength, count - first);
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            const std::size_t j = first + lane;
            if (j <= k) floorlevel = std::min(floorlevel, levels[j]);
            spans[lane] = spanof(j, j <= k ? levels[j] : floorlevel, f0, spacing, nyquist);
        }
        addharmonics(kernels, spans, lanes, nyquist, out);
    }
    for (std::int64_t i = 1; i < nyquist; ++i) out[nfft - i] = out[i];
    return 0;
}
