#include "analysis/harmonic/sqha.h"

#include <algorithm>
#include <cstdint>

#include "analysis/harmonic/solution.h"
#include "numeric/cholesky.h"
#include "numeric/phasor.h"
#include "numeric/products.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

// About the centre, cosines under the window are even and sines are odd, so that they fit the even
// and the odd part of the frame each by itself: over t = 0 .. h, with half the weight at t = 0,
//   (y(t) + y(-t)) / 2 = w(t) (c + sum of u(k) cos(omega(k) t)),
//   (y(t) - y(-t)) / 2 = w(t) sum of v(k) sin(omega(k) t),  a(k) = (u(k) - i v(k)) / 2.
// The part of the frame stands as one more column behind the basis; the inner products of the
// columns then are the normal equations with their right-hand side.
struct sqhaarrays {
    std::size_t stride;     // of all rows
    double *cosines;        // columns for harmonics 1 .. K, the constant, the frame
    double *sines;          // columns for harmonics 1 .. K, the frame
    const double *stepcos;  // cos(omega) of the columns, 1 for the constant
    const double *stepsin;  // sin(omega)
};

std::size_t stridefor(std::size_t k) { return wholevectors((k + 3) / 2) * 2; }
std::size_t rowsfor(std::size_t k) { return (k + 4) / 4 * 4; }

struct sqhabasiskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const sqhaarrays *arrays, const double *w,
                                           const double *y, std::size_t h, std::size_t k) {
        const sqhaarrays &mem = *arrays;
        for (std::size_t column = 0; column < mem.stride; column += vectorlength) {
            const complexof<Real8> step{Real8::load(mem.stepcos + column),
                                        Real8::load(mem.stepsin + column)};
            complexof<Real8> z = samephasors<Real8>({1.0, 0.0});
            for (std::size_t t = 0; t <= h; ++t, z.rotate(step)) {
                const double weight = t == 0 ? sqrthalf * w[h] : w[h + t];
                (z.re * weight).store(mem.cosines + t * mem.stride + column);
                (z.im * weight).store(mem.sines + t * mem.stride + column);
            }
        }
        // The frame goes into the column behind those of the basis.
        const double *mirror = y + h;
        for (std::size_t t = 0; t <= h; ++t, --mirror) {
            const double share = t == 0 ? 0.5 * sqrthalf : 0.5;
            mem.cosines[t * mem.stride + k + 1] = share * (y[h + t] + *mirror);
            mem.sines[t * mem.stride + k] = share * (y[h + t] - *mirror);
        }
    }
};

}  // namespace

void sqhascratch::reserve(std::size_t h, std::size_t k) {
    const std::size_t stride = stridefor(k);
    for (alignedreals *array : {&cosines, &sines}) growto(*array, (h + 1) * stride);
    growto(normal, rowsfor(k) * stride);
    for (alignedreals *array : {&stepcos, &stepsin, &even, &odd}) growto(*array, stride);
}

int solvesqharmonics(sqhascratch &scratch, const double *window, const double *frame, std::size_t h,
                     std::size_t k, const double *fk, double fs, double *solution) {
    scratch.reserve(h, k);
    const sqhaarrays mem{stridefor(k), scratch.cosines.data(), scratch.sines.data(),
                         scratch.stepcos.data(), scratch.stepsin.data()};
    std::fill_n(scratch.stepcos.data(), mem.stride, 1.0);
    std::fill_n(scratch.stepsin.data(), mem.stride, 0.0);
    for (std::size_t m = 0; m < k; ++m) {
        const phasor step = unitphasor(twopi * fk[m] / fs);
        scratch.stepcos[m] = step.re;
        scratch.stepsin[m] = step.im;
    }
    runwidest<sqhabasiskernel>(&mem, window, frame, h, k);
    const auto count = static_cast<std::uint32_t>(k);
    double *const normal = scratch.normal.data();
    double *const even = scratch.even.data();
    double *const odd = scratch.odd.data();
    grammatrix(mem.cosines, h + 1, mem.stride, rowsfor(k), normal);
    if (choleskysolve(count + 1, normal, mem.stride, even) == 0.0) return -1;
    grammatrix(mem.sines, h + 1, mem.stride, rowsfor(k), normal);
    if (choleskysolve(count, normal, mem.stride, odd) == 0.0) return -1;
    storeconjugates(solution, k, [&](std::size_t j) {
        return j == 0 ? phasor{even[k], 0.0} : phasor{0.5 * even[j - 1], -0.5 * odd[j - 1]};
    });
    return 0;
}

}  // namespace nalveo
