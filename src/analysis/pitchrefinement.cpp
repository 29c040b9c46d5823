// Refinement of an f0 track with the quasi-harmonic model. Needs analysis/harmonicanalysis for the
// single step, and numeric/elementary.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "analysis/harmonicanalysis.h"
#include "analysis/pitchanalysis.h"
#include "numeric/elementary.h"

using namespace nalveo;

namespace {

// Lowest f0 that refinement can come to analyse. It starts from a track value and goes down by at
// most a fifth per iteration, but not below f0min unless the track lies there already. 0 when there
// is no voiced frame.
double lowestrefined(const double *f0, std::size_t nframes, std::uint32_t iterations,
                     double f0min) {
    constexpr double none = std::numeric_limits<double>::infinity();
    const double lowest = lowestvoiced(f0, nframes, none);
    if (lowest == none) return 0.0;
    const double reached = lowest * power(0.8 * 0.99, iterations);  // a margin for rounding
    return std::min(lowest, std::max(reached, f0min));
}

}  // namespace

int refinepitch(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, std::uint32_t iterations, double *f0, const double *fv,
                double fs, double f0min, double f0max) {
    constexpr double defaultband = 4500.0;  // Hz
    if (iterations == 0 || nframes == 0) return 0;
    f0min = std::max(f0min, lowestmodelled);
    const double lowest = lowestrefined(f0, nframes, iterations, f0min);
    if (lowest == 0.0) return 0;
    const double highest = fv != nullptr ? *std::max_element(fv, fv + nframes) : defaultband;
    const hamemhandle record(qhameminitialize(fs, highest, lowest));
    for (std::uint32_t k = 0; k < nframes; ++k) {
        if (!(f0[k] >= lowestmodelled)) continue;
        const double band = fv != nullptr ? fv[k] : defaultband;
        for (std::uint32_t i = 0; i < iterations; ++i) {
            const double f =
                qharefinepitch(waveform, n, first + k * lframe, record.get(), fs, f0[k], band);
            if (std::isnan(f) || f > f0max || f < f0min) break;
            const double change = std::abs(f - f0[k]) / f0[k];
            if (change > 0.2) break;
            f0[k] = f;
            if (change < 0.001) break;
        }
    }
    return 0;
}
