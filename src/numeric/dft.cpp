#include "numeric/dft.h"

#include <array>
#include <bit>
#include <cstddef>
#include <utility>
#include <vector>

#include "numeric/aligned.h"
#include "numeric/dftplan.h"
#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

// ---- transforms too small for vectors ----

// One stage's butterflies on one block: lower half a, upper half b, twiddles w,
//   t = b w,  b <- a - t,  a <- a + t.
void butterflies(std::size_t half, const double *wre, const double *wim, double *re, double *im) {
    double *const bre = re + half;
    double *const bim = im + half;
    for (std::size_t k = 0; k < half; ++k) {
        const double tre = bre[k] * wre[k] - bim[k] * wim[k];
        const double tim = bim[k] * wre[k] + bre[k] * wim[k];
        bre[k] = re[k] - tre;
        bim[k] = im[k] - tim;
        re[k] += tre;
        im[k] += tim;
    }
}

void smalltransform(std::size_t n, const dftplan &p, double *re, double *im) {
    for (const auto &[i, j] : p.swaps) {
        std::swap(re[i], re[j]);
        std::swap(im[i], im[j]);
    }
    for (std::size_t half = 1; half < n; half *= 2) {
        const double *const wre = p.re.data() + half;
        const double *const wim = p.im.data() + half;
        for (std::size_t m = 0; m < n; m += 2 * half) butterflies(half, wre, wim, re + m, im + m);
    }
}

// ---- the kernel ----

// -j a
template <class Real8>
[[gnu::always_inline]] inline complexof<Real8> turned(const complexof<Real8> &a) {
    return {a.im, -a.re};
}

template <class Real8>
[[gnu::always_inline]] inline complexof<Real8> load(const double *re, const double *im) {
    return {Real8::load(re), Real8::load(im)};
}

template <class Real8>
[[gnu::always_inline]] inline void store(double *re, double *im, const complexof<Real8> &a) {
    a.re.store(re);
    a.im.store(im);
}

// Real and imaginary parts of eight interleaved values.
template <class Real8>
[[gnu::always_inline]] inline void deinterleave(const double *x, double *re, double *im) {
    const auto [even, odd] = deinterleaved(Real8::load(x), Real8::load(x + vectorlength));
    even.store(re);
    odd.store(im);
}

template <class Real8>
[[gnu::always_inline]] inline void interleave(const double *re, const double *im, double *x) {
    const auto [first, second] = interleaved(Real8::load(re), Real8::load(im));
    first.store(x);
    second.store(x + vectorlength);
}

// Four-point transforms, one per lane: a, b, c, d become bins 0 .. 3.
template <class Real8>
[[gnu::always_inline]] inline void transform4(complexof<Real8> &a, complexof<Real8> &b,
                                              complexof<Real8> &c, complexof<Real8> &d) {
    const complexof<Real8> sum = a + c;
    const complexof<Real8> difference = a - c;
    const complexof<Real8> othersum = b + d;
    const complexof<Real8> otherdifference = turned(b - d);
    a = sum + othersum;
    b = difference + otherdifference;
    c = sum - othersum;
    d = difference - otherdifference;
}

// Eight-point transforms, one per lane, as two of four points of the sums and the turned
// differences of values four apart.
template <class Real8>
[[gnu::always_inline]] inline void transform8(Real8 (&re)[vectorlength],
                                              Real8 (&im)[vectorlength]) {
    complexof<Real8> even[4];
    complexof<Real8> odd[4];
    for (std::size_t i = 0; i < 4; ++i) {
        const complexof<Real8> a = {re[i], im[i]};
        const complexof<Real8> b = {re[i + 4], im[i + 4]};
        even[i] = a + b;
        odd[i] = a - b;
    }
    odd[1] = {(odd[1].re + odd[1].im) * sqrthalf, (odd[1].im - odd[1].re) * sqrthalf};
    odd[2] = turned(odd[2]);
    odd[3] = {(odd[3].im - odd[3].re) * sqrthalf, (odd[3].re + odd[3].im) * -sqrthalf};
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
template <class Real8>
struct square {
    Real8 re[vectorlength];
    Real8 im[vectorlength];
};

template <class Real8>
[[gnu::always_inline]] inline void loadtransformed(square<Real8> &s, std::size_t n,
                                                   const double *re, const double *im) {
    for (std::size_t i = 0; i < vectorlength; ++i) {
        s.re[i] = Real8::load(re + i * (n / 8));
        s.im[i] = Real8::load(im + i * (n / 8));
    }
    transform8(s.re, s.im);
    transpose(s.re);
    transpose(s.im);
}

template <class Real8>
[[gnu::always_inline]] inline void storereversed(const square<Real8> &s, std::size_t n, double *re,
                                                 double *im) {
    constexpr std::size_t reversedrow[] = {0, 4, 2, 6, 1, 5, 3, 7};
    for (std::size_t i = 0; i < vectorlength; ++i) {
        s.re[reversedrow[i]].store(re + i * (n / 8));
        s.im[reversedrow[i]].store(im + i * (n / 8));
    }
}

// The first three stages and the bit reversal. A square's eight-point transforms, transposed, are
// contiguous blocks of the next stage. They go where the bit reversal takes them: into the rows of
// the square whose column index is the reversed one.
template <class Real8>
[[gnu::always_inline]] inline void firstpass(std::size_t n, const dftplan &p, double *re,
                                             double *im) {
    for (const auto &[i, j] : p.swaps) {
        const std::size_t from = i * vectorlength;
        const std::size_t to = j * vectorlength;
        square<Real8> s;
        loadtransformed(s, n, re + from, im + from);
        if (i != j) {
            square<Real8> t;
            loadtransformed(t, n, re + to, im + to);
            storereversed(t, n, re + from, im + from);
        }
        storereversed(s, n, re + to, im + to);
    }
}

// One stage: blocks of `half` values a, b become a + w b, a - w b.
template <class Real8>
[[gnu::always_inline]] inline void pass2(std::size_t half, std::size_t n, const dftplan &p,
                                         double *re, double *im) {
    const double *const wre = p.re.data() + half;
    const double *const wim = p.im.data() + half;
    for (std::size_t m = 0; m < n; m += 2 * half)
        for (std::size_t k = 0; k < half; k += vectorlength) {
            const std::size_t i = m + k;
            const std::size_t j = i + half;
            const complexof<Real8> a = load<Real8>(re + i, im + i);
            const complexof<Real8> b = load<Real8>(re + j, im + j) * load<Real8>(wre + k, wim + k);
            store(re + i, im + i, a + b);
            store(re + j, im + j, a - b);
        }
}

// Two stages in one: blocks of `quarter` values a, c, b, d (the bit reversal has exchanged the
// middle ones) become the four-point transforms of a, w b, w^2 c, w^3 d.
template <class Real8>
[[gnu::always_inline]] inline void pass4(std::size_t quarter, std::size_t n, const dftplan &p,
                                         double *re, double *im) {
    const double *const wre = p.re.data() + 2 * quarter;
    const double *const wim = p.im.data() + 2 * quarter;
    const double *const squarere = p.re.data() + quarter;
    const double *const squareim = p.im.data() + quarter;
    const double *const cubere = p.cubere.data() + quarter;
    const double *const cubeim = p.cubeim.data() + quarter;
    const std::size_t step = quarter;
    for (std::size_t m = 0; m < n; m += 4 * quarter)
        for (std::size_t k = 0; k < quarter; k += vectorlength) {
            double *const r = re + m + k;
            double *const i = im + m + k;
            complexof<Real8> a = load<Real8>(r, i);
            complexof<Real8> c =
                load<Real8>(r + step, i + step) * load<Real8>(squarere + k, squareim + k);
            complexof<Real8> b =
                load<Real8>(r + 2 * step, i + 2 * step) * load<Real8>(wre + k, wim + k);
            complexof<Real8> d =
                load<Real8>(r + 3 * step, i + 3 * step) * load<Real8>(cubere + k, cubeim + k);
            transform4(a, b, c, d);
            store(r, i, a);
            store(r + step, i + step, b);
            store(r + 2 * step, i + 2 * step, c);
            store(r + 3 * step, i + 3 * step, d);
        }
}

struct transformkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(std::size_t n, const dftplan *p, double *re,
                                           double *im) {
        firstpass<Real8>(n, *p, re, im);
        std::size_t joined = vectorlength;
        if (std::countr_zero(n) % 2 == 0) {  // an odd number of stages is left
            pass2<Real8>(joined, n, *p, re, im);
            joined *= 2;
        }
        for (; joined < n; joined *= 4) pass4<Real8>(joined, n, *p, re, im);
    }
};

// Forward transform. The inverse has the conjugate twiddles, which is the same as exchanging the
// real with the imaginary parts on the way in and out, so callers swap the two pointers instead.
void transform(std::size_t n, double *re, double *im) {
    const dftplan &p = planfor(n);
    if (n < smallestvectorised)
        smalltransform(n, p, re, im);
    else
        runwidest<transformkernel>(n, &p, re, im);
}

// ---- interleaved data ----

struct splitkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(std::size_t n, const double *x, double *re, double *im) {
        for (std::size_t k = 0; k < n; k += vectorlength)
            deinterleave<Real8>(x + 2 * k, re + k, im + k);
    }
};

struct joinkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(std::size_t n, const double *re, const double *im,
                                           double *x) {
        for (std::size_t k = 0; k < n; k += vectorlength)
            interleave<Real8>(re + k, im + k, x + 2 * k);
    }
};

// From interleaved data to separate real and imaginary parts.
void split(std::size_t n, const double *x, double *re, double *im) {
    if (n % vectorlength == 0) return runwidest<splitkernel>(n, x, re, im);
    for (std::size_t k = 0; k < n; ++k) {
        re[k] = x[2 * k];
        im[k] = x[2 * k + 1];
    }
}

// And back.
void join(std::size_t n, const double *re, const double *im, double *x) {
    if (n % vectorlength == 0) return runwidest<joinkernel>(n, re, im, x);
    for (std::size_t k = 0; k < n; ++k) {
        x[2 * k] = re[k];
        x[2 * k + 1] = im[k];
    }
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
struct pairskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(std::size_t m, const double *wre, const double *wim,
                                           double *re, double *im) {
        std::size_t k = 1;
        for (; k + vectorlength <= m / 2 + 1; k += vectorlength) {
            const std::size_t mirrored = m - k - (vectorlength - 1);
            complexof<Real8> low = load<Real8>(re + k, im + k);
            const complexof<Real8> upper = load<Real8>(re + mirrored, im + mirrored);
            complexof<Real8> high = {reversed(upper.re), reversed(upper.im)};
            const complexof<Real8> w = load<Real8>(wre + k, wim + k);
            forward ? tospectrum(low, high, w) : fromspectrum(low, high, w);
            store(re + k, im + k, low);
            store<Real8>(re + mirrored, im + mirrored, {reversed(high.re), reversed(high.im)});
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
};

template <bool forward>
void turnpairs(std::size_t m, double *re, double *im) {
    const dftplan &p = planfor(2 * m);  // its last stage has the twiddles of size 2 m
    runwidest<pairskernel<forward>>(m, p.re.data() + m, p.im.data() + m, re, im);
}

struct powerkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(std::size_t n, const double *re, const double *im,
                                           double *power) {
        std::size_t k = 0;
        for (; k + vectorlength <= n; k += vectorlength) {
            const auto x = load<Real8>(re + k, im + k);
            (x.re * x.re + x.im * x.im).store(power + k);
        }
        for (; k < n; ++k) power[k] = re[k] * re[k] + im[k] * im[k];
    }
};

bool isrealsize(std::int32_t n) { return n >= 2 && std::has_single_bit(static_cast<unsigned>(n)); }

}  // namespace

int dofftc(std::int32_t n, double *x, std::int8_t direction) {
    if (n <= 0) return 0;
    const auto size = static_cast<std::size_t>(n);
    if (!std::has_single_bit(size)) return -1;
    alignedreals re(size);
    alignedreals im(size);
    split(size, x, re.data(), im.data());
    dofftr(n, re.data(), im.data(), direction);
    join(size, re.data(), im.data(), x);
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

void powerspectrum(std::size_t n, const double *re, const double *im, double *power) {
    runwidest<powerkernel>(n, re, im, power);
}

}  // namespace nalveo
