#include "analysis/discretecepstrum.h"

#include <algorithm>
#include <cmath>

#include "analysis/warping.h"
#include "numeric/cholesky.h"
#include "numeric/matvect.h"
#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

// Of each frequency in rdcscratch::powers.
constexpr std::size_t powerslength = 2 * vectorlength + 2;

// e^(i fwarp(omega)) from e^(i omega), but for the sign of its sine, which is of no use here and is
// all that tells alpha from 1 / alpha. Of the two, the one within -1 .. 1 is used: its square
// cannot overflow.
phasor warpedphasor(const phasor &z, double alpha) {
    const double a = std::abs(alpha) > 1.0 ? 1.0 / alpha : alpha;
    const double re = (1.0 + a * a) * z.re - 2.0 * a;
    const double im = (1.0 - a * a) * z.im;
    const double length = std::sqrt(re * re + im * im);
    return length > 0.0 ? phasor{re / length, im / length} : phasor{1.0, 0.0};
}

// Phasors of the warped frequencies: those in Hz, or the multiples of f0 when freqs is null.
void fillpowers(double *powers, std::uint32_t k, const double *freqs, double f0, double fs,
                double alpha) {
    const phasor fundamental = unitphasor(twopi * f0 / fs);
    phasor harmonic = fundamental;
    for (std::size_t i = 0; i < k; ++i, harmonic.rotate(fundamental), powers += powerslength) {
        const phasor z = freqs != nullptr ? unitphasor(freqs[i] * (twopi / fs)) : harmonic;
        const phasor step = warpedphasor(z, alpha);
        phasor power{1.0, 0.0};
        for (std::size_t m = 0; m < vectorlength; ++m, power.rotate(step)) {
            powers[m] = power.re;
            powers[vectorlength + m] = power.im;
        }
        powers[2 * vectorlength] = power.re;
        powers[2 * vectorlength + 1] = power.im;
    }
}

// Adds `count` frequencies to the sums; eight multiples m of each run side by side.
template <std::size_t count, class Real8>
[[gnu::always_inline]] inline void addfrequencies(const double *powers, const double *levels,
                                                  std::size_t p, double *cosines,
                                                  double *projection) {
    complexof<Real8> z[count];
    complexof<Real8> step[count];
    for (std::size_t i = 0; i < count; ++i, powers += powerslength) {
        z[i] = {Real8::load(powers), Real8::load(powers + vectorlength)};
        step[i] = samephasors<Real8>({powers[2 * vectorlength], powers[2 * vectorlength + 1]});
    }
    for (std::size_t m = 0; m <= 2 * p; m += vectorlength) {
        Real8 sum = Real8::load(cosines + m);
        for (std::size_t i = 0; i < count; ++i) sum += z[i].re;
        sum.store(cosines + m);
        if (m <= p) {
            Real8 weighted = Real8::load(projection + m);
            for (std::size_t i = 0; i < count; ++i) weighted += levels[i] * z[i].re;
            weighted.store(projection + m);
        }
        for (std::size_t i = 0; i < count; ++i) z[i].rotate(step[i]);
    }
}

// Sums over all frequencies.
struct sumskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *powers, const double *levels,
                                           std::size_t k, std::size_t p, double *cosines,
                                           double *projection) {
        for (std::size_t m = 0; m < wholevectors(2 * p + 1); ++m) cosines[m] = 0.0;
        for (std::size_t m = 0; m < wholevectors(p + 1); ++m) projection[m] = 0.0;
        std::size_t i = 0;
        for (; i + 4 <= k; i += 4)
            addfrequencies<4, Real8>(powers + i * powerslength, levels + i, p, cosines, projection);
        for (; i < k; ++i)
            addfrequencies<1, Real8>(powers + i * powerslength, levels + i, p, cosines, projection);
    }
};

// Normal equations of the basis 1, 2 cos(w), .. 2 cos(p w) at the frequencies: with C(m) the sum of
// cos(m w), element (i, j) is 2 (C(i + j) + C(i - j)), half of that where i or j is 0. Only the
// upper triangle is filled; to its left there are zeros. The right-hand side is in column p + 1.
void fillequations(const rdcscratch &scratch, std::size_t p, std::size_t stride, double *normal) {
    std::fill_n(normal, (p + 1) * stride, 0.0);
    const double *const c = scratch.cosines.data();
    for (std::size_t j = 0; j <= p; ++j) normal[j] = 2.0 * c[j];
    normal[0] = c[0];
    normal[p + 1] = scratch.projection[0];
    for (std::size_t i = 1; i <= p; ++i) {
        double *const row = normal + i * stride;
        for (std::size_t j = i; j <= p; ++j) row[j] = 2.0 * (c[j + i] + c[j - i]);
        row[i] += smoothnesspenalty * static_cast<double>(i * i);
        row[p + 1] = 2.0 * scratch.projection[i];
    }
}

// The same for eight fits side by side, a vector being one element of all.
struct eightequationskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *cosines, const double *projection,
                                           double *normal, std::size_t p) {
        const auto c = [=](std::size_t m) { return Real8::load(cosines + m * vectorlength); };
        const auto b = [=](std::size_t i) { return Real8::load(projection + i * vectorlength); };
        for (std::size_t i = 0; i <= p; ++i) {
            double *const row = normal + i * (p + 2) * vectorlength;
            for (std::size_t j = i; j <= p; ++j) {
                const Real8 element = i == 0 ? 2.0 * c(j) : 2.0 * (c(j + i) + c(j - i));
                element.store(row + j * vectorlength);
            }
            double *const diagonal = row + i * vectorlength;
            if (i == 0)
                c(0).store(diagonal);
            else
                (Real8::load(diagonal) + smoothnesspenalty * static_cast<double>(i * i))
                    .store(diagonal);
            (i == 0 ? b(0) : 2.0 * b(i)).store(row + (p + 1) * vectorlength);
        }
    }
};

// Room for the sums, and the sums.
void makesums(rdcscratch &scratch, const double *levels, std::uint32_t k, const double *freqs,
              std::size_t p, double fs, double f0, double alpha) {
    growto(scratch.powers, k * powerslength);
    growto(scratch.cosines, wholevectors(2 * p + 1));
    growto(scratch.projection, wholevectors(p + 1));
    fillpowers(scratch.powers.data(), k, freqs, f0, fs, alpha);
    runwidest<sumskernel>(scratch.powers.data(), levels, std::size_t{k}, p, scratch.cosines.data(),
                          scratch.projection.data());
}

}  // namespace

int fitcepstrum(rdcscratch &scratch, const double *levels, std::uint32_t k, const double *freqs,
                std::uint32_t p, double *out, double fs, double f0, double alpha) {
    makesums(scratch, levels, k, freqs, p, fs, f0, alpha);
    const std::size_t stride = wholevectors(std::size_t{p} + 2);
    growto(scratch.normal, (std::size_t{p} + 1) * stride);
    fillequations(scratch, p, stride, scratch.normal.data());
    return choleskysolve(p + 1, scratch.normal.data(), stride, out) != 0.0 ? 0 : -1;
}

void rdcbatch::add(rdcscratch &scratch, const double *levels, std::uint32_t k, const double *freqs,
                   std::uint32_t p, double fs, double f0, double alpha) {
    const std::size_t order = std::size_t{p} + 1;
    growto(cosines, (2 * order - 1) * size);
    growto(projection, order * size);
    makesums(scratch, levels, k, freqs, p, fs, f0, alpha);
    for (std::size_t m = 0; m < 2 * order - 1; ++m) cosines[m * size + count] = scratch.cosines[m];
    for (std::size_t m = 0; m < order; ++m) projection[m * size + count] = scratch.projection[m];
    ++count;
}

void rdcbatch::solve(std::uint32_t p) {
    const std::size_t order = std::size_t{p} + 1;
    growto(normal, order * (order + 1) * size);
    growto(cepstra, order * size);
    runwidest<eightequationskernel>(cosines.data(), projection.data(), normal.data(),
                                    std::size_t{p});
    choleskysolveeight(p + 1, normal.data(), cepstra.data(), determinants);
    count = 0;
}

int rdcbatch::take(std::size_t place, std::uint32_t p, double *out) const {
    if (determinants[place] == 0.0) return -1;
    for (std::size_t i = 0; i <= p; ++i) out[i] = cepstra[i * size + place];
    return 0;
}

}  // namespace nalveo

using namespace nalveo;

int ccmatrixcreate(std::uint32_t p, std::uint32_t k, const double *freqs, double *c, double *s,
                   double f0, double fs, double alpha) {
    if (c == nullptr && s == nullptr) return -1;
    if (c == nullptr) return 0;
    const double scale = freqs != nullptr ? twopi / fs : twopi * f0 / fs;
    const std::size_t columns = std::size_t{p} + 1;
    for (std::size_t row = 0; row < k; ++row) {
        const double position = freqs != nullptr ? freqs[row] : static_cast<double>(row + 1);
        const phasor step = unitphasor(fwarp(position * scale, alpha));
        double *const cosines = c + row * columns;
        double *const sines = s != nullptr ? s + row * columns : nullptr;
        cosines[0] = 1.0;
        if (sines != nullptr) sines[0] = -0.0;
        phasor z{1.0, 0.0};
        for (std::size_t j = 1; j <= p; ++j) {
            z.rotate(step);
            cosines[j] = 2.0 * z.re;
            if (sines != nullptr) sines[j] = -2.0 * z.im;
        }
    }
    return 0;
}
