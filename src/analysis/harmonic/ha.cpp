#include "analysis/harmonic/ha.h"

#include <cstdint>

#include "analysis/harmonic/solution.h"
#include "numeric/phasor.h"
#include "numeric/toeplitz.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

// What the HA model needs of a frame: with theta = 2 pi f0 / fs and t in samples from the centre,
//   re(k) = sum of w(t) y(t) cos(k theta t),  im(k) = sum of w(t) y(t) sin(k theta t),
//   normal(j) = sum of w(t)^2 cos(j theta t),  j = 0 .. 2K, the first row of the normal matrix.
// All sums run over half the frame, folded onto itself, with eight harmonics side by side, each
// rotating from sample to sample. Harmonics above K are not made: normal(K +- k) are sums of
// products of the phasors of K and k.
struct harmonicsums {
    double *even;
    double *odd;
    double *topcos;
    double *topsin;
    double *re;
    double *im;
    double *coscos;
    double *sinsin;
    double *normal;
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

}  // namespace

void hascratch::reserve(std::size_t h, std::size_t k) {
    for (alignedreals *array : {&even, &odd, &topcos, &topsin}) growto(*array, wholevectors(h + 1));
    for (alignedreals *array : {&re, &im, &coscos, &sinsin}) growto(*array, wholevectors(k + 1));
    growto(normal, 2 * k + 1);
    growto(levinson, toeplitzworkspace(static_cast<std::uint32_t>(k)));
}

int solveharmonics(hascratch &scratch, const double *window, const double *frame, std::size_t h,
                   std::size_t k, double f0, double fs, double *solution) {
    scratch.reserve(h, k);
    const harmonicsums sums{scratch.even.data(),   scratch.odd.data(),    scratch.topcos.data(),
                            scratch.topsin.data(), scratch.re.data(),     scratch.im.data(),
                            scratch.coscos.data(), scratch.sinsin.data(), scratch.normal.data()};
    const double theta = twopi * f0 / fs;
    const phasorpowers fundamental(theta);
    const phasorpowers top(theta * static_cast<double>(k));
    runwidest<harmonicsumskernel>(&sums, window, frame, h, k, &fundamental, &top);
    if (toeplitzsolve(static_cast<std::uint32_t>(k), sums.normal, sums.re, sums.im,
                      scratch.levinson.data()) != 0)
        return -1;
    // The solution of T x = (re + i im) is that of -k; im(0) is 0.
    storeconjugates(solution, k, [&](std::size_t j) { return phasor{sums.re[j], -sums.im[j]}; });
    return 0;
}

}  // namespace nalveo
