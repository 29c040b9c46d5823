// Pitch tracker: the corrected autocorrelation of every frame, whose peaks are the candidates for
// the path search. Needs analysis/autocorrelation and pitchpath, numeric/elementary and windowing,
// and simd.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

#include "analysis/autocorrelation.h"
#include "analysis/defaults.h"
#include "analysis/pitchanalysis.h"
#include "analysis/pitchpath.h"
#include "numeric/aligned.h"
#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "numeric/windowing.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

// Constants of one call.
struct trackersetup {
    double fs;
    double f0min;
    std::uint32_t taumin;  // shortest and longest lag searched
    std::uint32_t taumax;
    std::uint32_t h;  // half length of the window
    std::uint32_t nfft;
    std::uint32_t m;  // half-width of the local peak, half that of the local mean
    double globalpeak;
    alignedreals window;      // [2h + 1]
    alignedreals correction;  // autocorrelation of the window, lag 0 = 1; lags to taumax + 1
};

// What one frame needs.
struct trackerscratch {
    alignedreals raw;  // [2h + 1] the signal around the centre, where it ends within the window
    // A search range beyond all pitch makes the window shorter than the longest lag.
    autocorrelator correlator;
    alignedreals corrected;      // autocorrelation over that of the window, lags 0 .. taumax + 1
    std::vector<lagpeak> peaks;  // of it

    explicit trackerscratch(const trackersetup &t)
        : raw(t.window.size()), correlator(t.nfft, t.taumax + 2), corrected(t.taumax + 2) {}
};

// Largest magnitude of the differences from an offset, 0 for none.
struct peakkernel {
    template <class Real8>
    [[gnu::always_inline]] static double run(const double *x, std::size_t n, double offset) {
        Real8 peaks{};
        std::size_t i = 0;
        for (; i + vectorlength <= n; i += vectorlength) {
            const Real8 d = Real8::load(x + i) - offset;
            const Real8 magnitude = select(d < 0.0, -d, d);
            peaks = select(peaks < magnitude, magnitude, peaks);
        }
        double peak = 0.0;
        for (std::size_t lane = 0; lane < vectorlength; ++lane) peak = std::max(peak, peaks[lane]);
        for (; i < n; ++i) peak = std::max(peak, std::abs(x[i] - offset));
        return peak;
    }
};

trackersetup setuptracker(const double *filtered, std::uint32_t n, double fs, double f0min,
                          double f0max) {
    trackersetup t{};
    t.fs = fs;
    t.f0min = f0min;
    // A lag of 0 is no period, so an infinite f0max stops at lag 1.
    t.taumin = std::max(1u, static_cast<std::uint32_t>(std::ceil(fs / f0max)));
    t.taumax = static_cast<std::uint32_t>(std::floor(fs / f0min));
    const std::uint32_t lwin = getwinlengthnperiodsodd(3.0, f0min, fs);
    t.h = lwin / 2;
    t.nfft = std::max(2u, getwinlengthceilpot2(lwin));
    t.m = getwinlengthnperiodsodd(0.5, f0min, fs);
    t.globalpeak = runwidest<peakkernel>(filtered, std::size_t{n}, 0.0);
    t.window.resize(lwin);
    winhannexact(t.window.data(), lwin);

    trackerscratch s(t);
    std::copy(t.window.begin(), t.window.end(), s.correlator.frame());
    const double *const lags = s.correlator.run();
    t.correction.resize(s.corrected.size());
    for (std::size_t tau = 0; tau < t.correction.size(); ++tau)
        t.correction[tau] = lags[tau] / lags[0];
    return t;
}

// Removes the local mean over about two periods and weights the frame. Returns the local peak, that
// over about one period.
struct weightkernel {
    template <class Real8>
    [[gnu::always_inline]] static double run(const trackersetup *t, const double *raw,
                                             double *frame) {
        // Search ranges in the kilohertz, beyond all pitch, have windows shorter than the span of
        // the mean: what is outside the window counts as 0.
        const std::size_t hmean = std::min(2 * t->m, t->h);
        const double mean = sumof<Real8>(raw + t->h - hmean, 2 * hmean + 1) / (4 * t->m + 1);
        const double *const window = t->window.data();
        for (std::size_t i = 0; i < 2 * std::size_t{t->h} + 1; ++i)
            frame[i] = (raw[i] - mean) * window[i];
        const std::size_t hpeak = std::min(t->m, t->h);
        return peakkernel::run<Real8>(raw + t->h - hpeak, 2 * hpeak + 1, mean);
    }
};

// Divides the autocorrelation of the frame by its own lag 0 and by that of the window.
struct correctkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const trackersetup *t, const double *lags,
                                           double *corrected) {
        const double *const correction = t->correction.data();
        const double energy = lags[0];
        for (std::size_t tau = t->taumin - 1; tau <= std::size_t{t->taumax} + 1; ++tau) {
            const double v = lags[tau] / energy / correction[tau];
            corrected[tau] = v > 0.0 ? v : 0.0;  // 0 also for the 0 / 0 of a silent frame
        }
    }
};

// Corrected autocorrelation of a frame. Returns the frame's local peak.
double analyseframe(const trackersetup &t, const double *signal, std::uint32_t n,
                    std::uint32_t centre, trackerscratch &s) {
    const bool whole = centre >= t.h && n - centre > t.h;
    if (!whole) getwindowedsamples(signal, n, centre, s.raw.data(), t.h, nullptr);
    const double *const raw = whole ? signal + (centre - t.h) : s.raw.data();
    const double peak = runwidest<weightkernel>(&t, raw, s.correlator.frame());
    runwidest<correctkernel>(&t, s.correlator.run(), s.corrected.data());
    return peak;
}

}  // namespace

int getpitch(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
             std::uint32_t nframes, double *f0, double fs, double f0min, double f0max) {
    if (nframes == 0) return 0;
    if (!(f0min > 0.0)) f0min = defaultf0min;
    if (!(f0max > f0min)) f0max = defaultf0max;

    const std::unique_ptr<double[], decltype(&std::free)> filtered(applyfftfilter(waveform, n, fs),
                                                                   std::free);
    const trackersetup t = setuptracker(filtered.get(), n, fs, f0min, f0max);
    const transitioncosts transition(fs * 0.01 / lframe);

    trackerscratch scratch(t);
    std::vector<framecandidates> frames(nframes);
    slotvalues cost{};
    for (std::uint32_t k = 0; k < nframes; ++k) {
        const double peak = analyseframe(t, filtered.get(), n, first + k * lframe, scratch);
        findlagpeaks(scratch.corrected.data(), t.taumin, t.taumax, fs, scratch.peaks);
        slotvalues strength{};
        strength[unvoicedslot] = unvoicedstrength(peak, t.globalpeak);
        collectcandidates(scratch.peaks, f0min, frames[k].freq, strength);
        if (k == 0) {
            for (std::size_t s = 0; s < nslots; ++s) cost[s] = -strength[s];
        } else {
            cost = linkframe(frames[k - 1], cost, frames[k], strength, transition);
        }
    }
    traceback(frames, cost, f0);
    return elimislands(nframes, f0, lframe, fs);
}
