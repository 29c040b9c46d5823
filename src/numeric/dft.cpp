#include "numeric/dft.h"

#include <array>
#include <bit>
#include <cstddef>
#include <utility>
#include <vector>

#include "numeric/aligned.h"
#include "numeric/rotation.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

constexpr double roothalf = 0.7071067811865476;

// Below this size a transform is too small for the kernel, which handles squares of 8 x 8 values.
constexpr std::size_t smallestvectorised = vectorlength * vectorlength;

// What a transform needs to know about its size. Made at the first use of a size and constant from
// then on, so that a frame costs no trigonometric call and no bit reversal.
struct plan {
    // Bit-reversed pairs i <= j: of values for a small transform, else of the squares that the
    // first pass of the kernel exchanges.
    std::vector<std::pair<std::size_t, std::size_t>> swaps;
    // Twiddles of all stages, one after the other: the stage that joins blocks of `half` values has
    // `half` of them, w^k = e^(-j pi k / half), and begins at `half`.
    alignedreals re;
    alignedreals im;
    // The cubes w^3k of the first half of each stage's twiddles, which begin at half / 2.
    alignedreals cubere;
    alignedreals cubeim;
};

std::size_t bitreversed(std::size_t i, unsigned bits) {
    std::size_t reversed = 0;
    for (unsigned b = 0; b < bits; ++b) {
        reversed = (reversed << 1) | (i & 1);
        i >>= 1;
    }
    return reversed;
}

// e^(-j 2 pi k / size), k = 0 .. size - 1, from an angle of at most pi / 4.
phasor twiddle(std::size_t k, std::size_t size) {
    if (2 * k >= size && k > 0) {
        const phasor w = twiddle(k - size / 2, size);
        return {-w.re, -w.im};
    }
    if (4 * k >= size && k > 0) {
        const phasor w = twiddle(k - size / 4, size);
        return {w.im, -w.re};
    }
    if (8 * k > size) {
        const phasor w = twiddle(size / 4 - k, size);
        return {-w.im, -w.re};
    }
    if (8 * k == size) return {roothalf, -roothalf};
    return unitphasor(-twopi * static_cast<double>(k) / static_cast<double>(size));
}

plan makeplan(unsigned bits) {
    plan p;
    const std::size_t n = std::size_t{1} << bits;
    const unsigned swapbits = n < smallestvectorised ? bits : bits - 6;
    for (std::size_t i = 0; i < std::size_t{1} << swapbits; ++i) {
        const std::size_t j = bitreversed(i, swapbits);
        if (j >= i) p.swaps.emplace_back(i, j);
    }
    p.re = p.im = p.cubere = p.cubeim = {0.0};  // begins stages of 8 or more on a cache line
    for (std::size_t size = 2; size <= n; size *= 2) {
        for (std::size_t k = 0; k < size / 2; ++k) {
            const phasor w = twiddle(k, size);
            p.re.push_back(w.re);
            p.im.push_back(w.im);
        }
        for (std::size_t k = 0; k < size / 4; ++k) {
            const phasor w = twiddle(3 * k, size);
            p.cubere.push_back(w.re);
            p.cubeim.push_back(w.im);
        }
    }
    return p;
}

template <std::size_t bits>
const plan &planof() {
    static const plan made = makeplan(static_cast<unsigned>(bits));
    return made;
}

template <std::size_t... bits>
constexpr auto planlist(std::index_sequence<bits...>) {
    return std::array{&planof<bits>...};
}

constexpr auto plans = planlist(std::make_index_sequence<31>{});  // every power of two in an int

const plan &planfor(std::size_t n) {
    return plans[static_cast<std::size_t>(std::countr_zero(n))]();
}

// ---- transforms too small for vectors ----

// One stage's butterflies on one block: lower half a, upper half b, twiddles w,
//   t = b w,  b <- a - t,  a <- a + t.
template <std::size_t stride>
void butterflies(std::size_t half, const double *wre, const double *wim, double *re, double *im) {
    double *const bre = re + half * stride;
    double *const bim = im + half * stride;
    for (std::size_t k = 0; k < half; ++k) {
        const std::size_t i = k * stride;
        const double tre = bre[i] * wre[k] - bim[i] * wim[k];
        const double tim = bim[i] * wre[k] + bre[i] * wim[k];
        bre[i] = re[i] - tre;
        bim[i] = im[i] - tim;
        re[i] += tre;
        im[i] += tim;
    }
}

template <std::size_t stride>
void smalltransform(std::size_t n, const plan &p, double *re, double *im) {
    for (const auto &[i, j] : p.swaps) {
        std::swap(re[i * stride], re[j * stride]);
        std::swap(im[i * stride], im[j * stride]);
    }
    for (std::size_t half = 1; half < n; half *= 2) {
        const double *const wre = p.re.data() + half;
        const double *const wim = p.im.data() + half;
        for (std::size_t m = 0; m < n; m += 2 * half)
            butterflies<stride>(half, wre, wim, re + m * stride, im + m * stride);
    }
}

// ---- the kernel ----
//
// Values k .. k + 7 of a transform, k a multiple of 8, have their real parts at re + k stride and
// their imaginary parts at im + k stride, eight in a row. Stride 1 is the split layout. Stride 2
// with im = re + 8 lets every 16 doubles of an interleaved array hold eight values.

template <class Real>
struct complexof {
    Real re;
    Real im;
};

using complexvector = complexof<real8>;

template <class Real>
[[gnu::always_inline]] inline complexof<Real> operator+(const complexof<Real> &a,
                                                        const complexof<Real> &b) {
    return {a.re + b.re, a.im + b.im};
}

template <class Real>
[[gnu::always_inline]] inline complexof<Real> operator-(const complexof<Real> &a,
                                                        const complexof<Real> &b) {
    return {a.re - b.re, a.im - b.im};
}

template <class Real>
[[gnu::always_inline]] inline complexof<Real> operator*(const complexof<Real> &a,
                                                        const complexof<Real> &b) {
    return {a.re * b.re - a.im * b.im, a.im * b.re + a.re * b.im};
}

// -j a
[[gnu::always_inline]] inline complexvector turned(const complexvector &a) { return {a.im, -a.re}; }

[[gnu::always_inline]] inline complexvector load(const double *re, const double *im) {
    return {vectorload(re), vectorload(im)};
}

[[gnu::always_inline]] inline void store(double *re, double *im, const complexvector &a) {
    vectorstore(re, a.re);
    vectorstore(im, a.im);
}

[[gnu::always_inline]] inline real8 reversed(const real8 &a) {
    return {__builtin_shufflevector(a.high, a.high, 3, 2, 1, 0),
            __builtin_shufflevector(a.low, a.low, 3, 2, 1, 0)};
}

// Real and imaginary parts of eight interleaved values.
[[gnu::always_inline]] inline complexvector deinterleaved(const double *x) {
    const real8 a = vectorload(x);
    const real8 b = vectorload(x + vectorlength);
    return {{__builtin_shufflevector(a.low, a.high, 0, 2, 4, 6),
             __builtin_shufflevector(b.low, b.high, 0, 2, 4, 6)},
            {__builtin_shufflevector(a.low, a.high, 1, 3, 5, 7),
             __builtin_shufflevector(b.low, b.high, 1, 3, 5, 7)}};
}

[[gnu::always_inline]] inline void interleave(const complexvector &a, double *x) {
    vectorstore(x, {__builtin_shufflevector(a.re.low, a.im.low, 0, 4, 1, 5),
                    __builtin_shufflevector(a.re.low, a.im.low, 2, 6, 3, 7)});
    vectorstore(x + vectorlength, {__builtin_shufflevector(a.re.high, a.im.high, 0, 4, 1, 5),
                                   __builtin_shufflevector(a.re.high, a.im.high, 2, 6, 3, 7)});
}

// Transposes 4 x 4 values: pairs of rows exchange single elements, then pairs.
[[gnu::always_inline]] inline void transpose(halfvector &a, halfvector &b, halfvector &c,
                                             halfvector &d) {
    const halfvector ab0 = __builtin_shufflevector(a, b, 0, 4, 2, 6);
    const halfvector ab1 = __builtin_shufflevector(a, b, 1, 5, 3, 7);
    const halfvector cd0 = __builtin_shufflevector(c, d, 0, 4, 2, 6);
    const halfvector cd1 = __builtin_shufflevector(c, d, 1, 5, 3, 7);
    a = __builtin_shufflevector(ab0, cd0, 0, 1, 4, 5);
    b = __builtin_shufflevector(ab1, cd1, 0, 1, 4, 5);
    c = __builtin_shufflevector(ab0, cd0, 2, 3, 6, 7);
    d = __builtin_shufflevector(ab1, cd1, 2, 3, 6, 7);
}

// Transposes 8 x 8 values by quarters, two of which change places.
[[gnu::always_inline]] inline void transpose(real8 (&a)[vectorlength]) {
    for (std::size_t i = 0; i < 8; i += 4) {
        transpose(a[i].low, a[i + 1].low, a[i + 2].low, a[i + 3].low);
        transpose(a[i].high, a[i + 1].high, a[i + 2].high, a[i + 3].high);
    }
    for (std::size_t i = 0; i < 4; ++i) std::swap(a[i].high, a[i + 4].low);
}

// Four-point transforms, one per lane: a, b, c, d become bins 0 .. 3.
[[gnu::always_inline]] inline void transform4(complexvector &a, complexvector &b, complexvector &c,
                                              complexvector &d) {
    const complexvector sum = a + c;
    const complexvector difference = a - c;
    const complexvector othersum = b + d;
    const complexvector otherdifference = turned(b - d);
    a = sum + othersum;
    b = difference + otherdifference;
    c = sum - othersum;
    d = difference - otherdifference;
}

// Eight-point transforms, one per lane, as two of four points of the sums and the turned
// differences of values four apart.
[[gnu::always_inline]] inline void transform8(real8 (&re)[vectorlength],
                                              real8 (&im)[vectorlength]) {
    complexvector even[4];
    complexvector odd[4];
    for (std::size_t i = 0; i < 4; ++i) {
        const complexvector a = {re[i], im[i]};
        const complexvector b = {re[i + 4], im[i + 4]};
        even[i] = a + b;
        odd[i] = a - b;
    }
    odd[1] = {(odd[1].re + odd[1].im) * roothalf, (odd[1].im - odd[1].re) * roothalf};
    odd[2] = turned(odd[2]);
    odd[3] = {(odd[3].im - odd[3].re) * roothalf, (odd[3].re + odd[3].im) * -roothalf};
    transform4(even[0], even[1], even[2], even[3]);
    transform4(odd[0], odd[1], odd[2], odd[3]);
    for (std::size_t i = 0; i < 4; ++i) {
        re[2 * i] = even[i].re;
        im[2 * i] = even[i].im;
        re[2 * i + 1] = odd[i].re;
        im[2 * i + 1] = odd[i].im;
    }
}

// Values m + i n / 8 of a transform, i = 0 .. 7 by row, m = first .. first + 7 by column.
struct square {
    real8 re[vectorlength];
    real8 im[vectorlength];
};

template <std::size_t stride>
[[gnu::always_inline]] inline void loadtransformed(square &s, std::size_t n, const double *re,
                                                   const double *im) {
    for (std::size_t i = 0; i < vectorlength; ++i) {
        s.re[i] = vectorload(re + i * (n / 8) * stride);
        s.im[i] = vectorload(im + i * (n / 8) * stride);
    }
    transform8(s.re, s.im);
    transpose(s.re);
    transpose(s.im);
}

template <std::size_t stride>
[[gnu::always_inline]] inline void storereversed(const square &s, std::size_t n, double *re,
                                                 double *im) {
    constexpr std::size_t reversedrow[] = {0, 4, 2, 6, 1, 5, 3, 7};
    for (std::size_t i = 0; i < vectorlength; ++i) {
        vectorstore(re + i * (n / 8) * stride, s.re[reversedrow[i]]);
        vectorstore(im + i * (n / 8) * stride, s.im[reversedrow[i]]);
    }
}

// The first three stages and the bit reversal. A square's eight-point transforms, transposed, are
// contiguous blocks of the next stage. They go where the bit reversal takes them: into the rows of
// the square whose column index is the reversed one.
template <std::size_t stride>
[[gnu::always_inline]] inline void firstpass(std::size_t n, const plan &p, double *re, double *im) {
    for (const auto &[i, j] : p.swaps) {
        const std::size_t from = i * vectorlength * stride;
        const std::size_t to = j * vectorlength * stride;
        square s;
        loadtransformed<stride>(s, n, re + from, im + from);
        if (i != j) {
            square t;
            loadtransformed<stride>(t, n, re + to, im + to);
            storereversed<stride>(t, n, re + from, im + from);
        }
        storereversed<stride>(s, n, re + to, im + to);
    }
}

// One stage: blocks of `half` values a, b become a + w b, a - w b.
template <std::size_t stride>
[[gnu::always_inline]] inline void pass2(std::size_t half, std::size_t n, const plan &p, double *re,
                                         double *im) {
    const double *const wre = p.re.data() + half;
    const double *const wim = p.im.data() + half;
    for (std::size_t m = 0; m < n; m += 2 * half)
        for (std::size_t k = 0; k < half; k += vectorlength) {
            const std::size_t i = (m + k) * stride;
            const std::size_t j = i + half * stride;
            const complexvector a = load(re + i, im + i);
            const complexvector b = load(re + j, im + j) * load(wre + k, wim + k);
            store(re + i, im + i, a + b);
            store(re + j, im + j, a - b);
        }
}

// Two stages in one: blocks of `quarter` values a, c, b, d (the bit reversal has exchanged the
// middle ones) become the four-point transforms of a, w b, w^2 c, w^3 d.
template <std::size_t stride>
[[gnu::always_inline]] inline void pass4(std::size_t quarter, std::size_t n, const plan &p,
                                         double *re, double *im) {
    const double *const wre = p.re.data() + 2 * quarter;
    const double *const wim = p.im.data() + 2 * quarter;
    const double *const squarere = p.re.data() + quarter;
    const double *const squareim = p.im.data() + quarter;
    const double *const cubere = p.cubere.data() + quarter;
    const double *const cubeim = p.cubeim.data() + quarter;
    const std::size_t step = quarter * stride;
    for (std::size_t m = 0; m < n; m += 4 * quarter)
        for (std::size_t k = 0; k < quarter; k += vectorlength) {
            double *const r = re + (m + k) * stride;
            double *const i = im + (m + k) * stride;
            complexvector a = load(r, i);
            complexvector c = load(r + step, i + step) * load(squarere + k, squareim + k);
            complexvector b = load(r + 2 * step, i + 2 * step) * load(wre + k, wim + k);
            complexvector d = load(r + 3 * step, i + 3 * step) * load(cubere + k, cubeim + k);
            transform4(a, b, c, d);
            store(r, i, a);
            store(r + step, i + step, b);
            store(r + 2 * step, i + 2 * step, c);
            store(r + 3 * step, i + 3 * step, d);
        }
}

template <std::size_t stride>
[[gnu::always_inline]] inline void transformkernel(std::size_t n, const plan *p, double *re,
                                                   double *im) {
    firstpass<stride>(n, *p, re, im);
    std::size_t joined = vectorlength;
    if (std::countr_zero(n) % 2 == 0) {  // an odd number of stages is left
        pass2<stride>(joined, n, *p, re, im);
        joined *= 2;
    }
    for (; joined < n; joined *= 4) pass4<stride>(joined, n, *p, re, im);
}

// Forward transform. The inverse has the conjugate twiddles, which is the same as exchanging the
// real with the imaginary parts on the way in and out, so callers swap the two pointers instead.
void transform(std::size_t n, double *re, double *im) {
    const plan &p = planfor(n);
    if (n < smallestvectorised)
        smalltransform<1>(n, p, re, im);
    else
        runwidest<transformkernel<1>>(n, &p, re, im);
}

// ---- interleaved data ----

[[gnu::always_inline]] inline void splitkernel(std::size_t n, const double *x, double *re,
                                               double *im, std::size_t stride) {
    for (std::size_t k = 0; k < n; k += vectorlength)
        store(re + k * stride, im + k * stride, deinterleaved(x + 2 * k));
}

[[gnu::always_inline]] inline void joinkernel(std::size_t n, const double *re, const double *im,
                                              double *x, std::size_t stride) {
    for (std::size_t k = 0; k < n; k += vectorlength)
        interleave(load(re + k * stride, im + k * stride), x + 2 * k);
}

// From interleaved data to separate real and imaginary parts.
void split(std::size_t n, const double *x, double *re, double *im) {
    if (n % vectorlength == 0) return runwidest<splitkernel>(n, x, re, im, std::size_t{1});
    for (std::size_t k = 0; k < n; ++k) {
        re[k] = x[2 * k];
        im[k] = x[2 * k + 1];
    }
}

// And back.
void join(std::size_t n, const double *re, const double *im, double *x) {
    if (n % vectorlength == 0) return runwidest<joinkernel>(n, re, im, x, std::size_t{1});
    for (std::size_t k = 0; k < n; ++k) {
        x[2 * k] = re[k];
        x[2 * k + 1] = im[k];
    }
}

[[gnu::always_inline]] inline void interleavedkernel(std::size_t n, const plan *p, double *x,
                                                     bool inverse) {
    double *const re = x;
    double *const im = x + vectorlength;
    splitkernel(n, x, re, im, 2);
    transformkernel<2>(n, p, inverse ? im : re, inverse ? re : im);
    joinkernel(n, re, im, x, 2);
}

// ---- real signals ----
//
// A real signal of n = 2M samples travels as one of M complex values z, the even samples being its
// real and the odd ones its imaginary parts. With w = e^(-j 2 pi k / n), k = 1 .. M / 2, and a
// star for the conjugate, the two halves of its spectrum,
//   E = (Z[k] + Z[M-k]*) / 2  of the even and  O = (Z[k] - Z[M-k]*) / 2j  of the odd samples,
// give the whole,
//   X[k] = E + w O,  X[M-k] = (E - w O)*.
// The bins 0 and M, both real, are the sum and the difference of the parts of Z[0].

template <class Real>
[[gnu::always_inline]] inline void tospectrum(complexof<Real> &low, complexof<Real> &high,
                                              const complexof<Real> &w) {
    const complexof<Real> even = {(low.re + high.re) * 0.5, (low.im - high.im) * 0.5};
    const complexof<Real> odd = {(low.im + high.im) * 0.5, (high.re - low.re) * 0.5};
    const complexof<Real> turnedodd = odd * w;
    low = even + turnedodd;
    high = {even.re - turnedodd.re, turnedodd.im - even.im};
}

// The way back, twice as large, as it is for unscaled transforms.
template <class Real>
[[gnu::always_inline]] inline void fromspectrum(complexof<Real> &low, complexof<Real> &high,
                                                const complexof<Real> &w) {
    const complexof<Real> even = {low.re + high.re, low.im - high.im};
    const complexof<Real> turnedodd = {low.re - high.re, low.im + high.im};
    const complexof<Real> odd = turnedodd * complexof<Real>{w.re, -w.im};
    low = {even.re - odd.im, even.im + odd.re};
    high = {even.re + odd.im, odd.re - even.im};
}

// Applies one of the two to the pairs k, M - k of M values, k = 1 .. M / 2. The last pair is the
// middle twice.
template <bool forward>
[[gnu::always_inline]] inline void pairskernel(std::size_t m, const double *wre, const double *wim,
                                               double *re, double *im) {
    std::size_t k = 1;
    for (; k + vectorlength <= m / 2 + 1; k += vectorlength) {
        const std::size_t mirrored = m - k - (vectorlength - 1);
        complexvector low = load(re + k, im + k);
        const complexvector upper = load(re + mirrored, im + mirrored);
        complexvector high = {reversed(upper.re), reversed(upper.im)};
        const complexvector w = load(wre + k, wim + k);
        forward ? tospectrum(low, high, w) : fromspectrum(low, high, w);
        store(re + k, im + k, low);
        store(re + mirrored, im + mirrored, {reversed(high.re), reversed(high.im)});
    }
    for (; k <= m / 2; ++k) {
        complexof<double> low = {re[k], im[k]};
        complexof<double> high = {re[m - k], im[m - k]};
        const complexof<double> w = {wre[k], wim[k]};
        forward ? tospectrum(low, high, w) : fromspectrum(low, high, w);
        re[k] = low.re;
        im[k] = low.im;
        re[m - k] = high.re;
        im[m - k] = high.im;
    }
}

template <bool forward>
void turnpairs(std::size_t m, double *re, double *im) {
    const plan &p = planfor(2 * m);  // its last stage has the twiddles of size 2 m
    runwidest<pairskernel<forward>>(m, p.re.data() + m, p.im.data() + m, re, im);
}

bool isrealsize(std::int32_t n) { return n >= 2 && std::has_single_bit(static_cast<unsigned>(n)); }

}  // namespace

int dofftc(std::int32_t n, double *x, std::int8_t direction) {
    if (n <= 0) return 0;
    const auto size = static_cast<std::size_t>(n);
    if (!std::has_single_bit(size)) return -1;
    const plan &p = planfor(size);
    const bool inverse = direction == -1;
    if (size < smallestvectorised)
        smalltransform<2>(size, p, inverse ? x + 1 : x, inverse ? x : x + 1);
    else
        runwidest<interleavedkernel>(size, &p, x, inverse);
    return 0;
}

int dofftr(std::int32_t n, double *re, double *im, std::int8_t direction) {
    if (n <= 0) return 0;
    const auto size = static_cast<std::size_t>(n);
    if (!std::has_single_bit(size)) return -1;
    if (direction == -1)
        transform(size, im, re);
    else
        transform(size, re, im);
    return 0;
}

int fftc(std::int32_t n, double *x) { return dofftc(n, x, 1); }

int ifftc(std::int32_t n, double *x) { return dofftc(n, x, -1); }

int fftr(std::int32_t n, double *re, double *im) { return dofftr(n, re, im, 1); }

int ifftr(std::int32_t n, double *re, double *im) { return dofftr(n, re, im, -1); }

namespace nalveo {

int fftreal(std::int32_t n, const double *x, double *re, double *im) {
    if (n <= 0) return 0;
    if (!isrealsize(n)) return -1;
    const std::size_t m = static_cast<std::size_t>(n) / 2;
    split(m, x, re, im);
    transform(m, re, im);
    const double even = re[0];
    const double odd = im[0];
    turnpairs<true>(m, re, im);
    re[0] = even + odd;
    re[m] = even - odd;
    im[0] = 0.0;
    im[m] = 0.0;
    return 0;
}

int ifftreal(std::int32_t n, double *re, double *im, double *x) {
    if (n <= 0) return 0;
    if (!isrealsize(n)) return -1;
    const std::size_t m = static_cast<std::size_t>(n) / 2;
    turnpairs<false>(m, re, im);
    im[0] = re[0] - re[m];
    re[0] += re[m];
    transform(m, im, re);  // the parts exchanged: an inverse
    join(m, re, im, x);
    return 0;
}

}  // namespace nalveo
