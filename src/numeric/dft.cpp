#include "numeric/dft.h"

#include <array>
#include <bit>
#include <cstddef>
#include <utility>
#include <vector>

#include "numeric/rotation.h"

namespace {

// What a transform needs to know about its size. Made at the first use of a size and constant from
// then on, so that a frame costs no trigonometric call and no bit reversal.
struct plan {
    std::vector<std::pair<std::size_t, std::size_t>> swaps;  // bit-reversed pairs (i, j), i < j
    // Twiddles of all stages, one after the other: the stage that joins blocks of `half` values has
    // `half` of them and begins at half - 1.
    std::vector<double> re;
    std::vector<double> im;
};

std::size_t bitreversed(std::size_t i, unsigned bits) {
    std::size_t reversed = 0;
    for (unsigned b = 0; b < bits; ++b) {
        reversed = (reversed << 1) | (i & 1);
        i >>= 1;
    }
    return reversed;
}

plan makeplan(unsigned bits) {
    plan p;
    const std::size_t n = std::size_t{1} << bits;
    for (std::size_t i = 0; i < n; ++i) {
        const std::size_t j = bitreversed(i, bits);
        if (j > i) p.swaps.emplace_back(i, j);
    }
    p.re.reserve(n - 1);
    p.im.reserve(n - 1);
    for (std::size_t size = 2; size <= n; size *= 2) {
        const phasor step = unitphasor(-twopi / static_cast<double>(size));
        phasor w{1.0, 0.0};
        for (std::size_t k = 0; k < size / 2; ++k) {
            p.re.push_back(w.re);
            p.im.push_back(w.im);
            w.rotate(step);
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

// One stage's butterflies on one block: lower half a, upper half b, twiddles w,
//   t = b w,  b <- a - t,  a <- a + t.
template <std::size_t stride>
void butterflies(std::size_t half, const double *wre, const double *wim, double *__restrict re,
                 double *__restrict im) {
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

// Forward transform. The inverse has the conjugate twiddles, which is the same as exchanging the
// real with the imaginary parts on the way in and out, so callers swap the two pointers instead.
template <std::size_t stride>
void transform(std::size_t n, double *re, double *im) {
    const plan &p = plans[static_cast<std::size_t>(std::countr_zero(n))]();
    for (const auto &[i, j] : p.swaps) {
        std::swap(re[i * stride], re[j * stride]);
        std::swap(im[i * stride], im[j * stride]);
    }
    for (std::size_t half = 1; half < n; half *= 2) {
        const double *const wre = p.re.data() + (half - 1);
        const double *const wim = p.im.data() + (half - 1);
        for (std::size_t m = 0; m < n; m += 2 * half)
            butterflies<stride>(half, wre, wim, re + m * stride, im + m * stride);
    }
}

template <std::size_t stride>
int dofft(std::int32_t n, double *re, double *im, std::int8_t direction) {
    if (n <= 0) return 0;
    const auto size = static_cast<std::size_t>(n);
    if (!std::has_single_bit(size)) return -1;
    if (direction == -1)
        transform<stride>(size, im, re);
    else
        transform<stride>(size, re, im);
    return 0;
}

}  // namespace

int dofftc(std::int32_t n, double *x, std::int8_t direction) {
    return dofft<2>(n, x, x + 1, direction);
}

int dofftr(std::int32_t n, double *re, double *im, std::int8_t direction) {
    return dofft<1>(n, re, im, direction);
}

int fftc(std::int32_t n, double *x) { return dofftc(n, x, 1); }

int ifftc(std::int32_t n, double *x) { return dofftc(n, x, -1); }

int fftr(std::int32_t n, double *re, double *im) { return dofftr(n, re, im, 1); }

int ifftr(std::int32_t n, double *re, double *im) { return dofftr(n, re, im, -1); }
