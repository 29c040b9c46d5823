// Pitch tracker: autocorrelation candidates of every frame and the cheapest path through them.
// Needs analysis/autocorrelation, numeric/elementary, polynom and windowing, and simd.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

#include "analysis/autocorrelation.h"
#include "analysis/pitchanalysis.h"
#include "numeric/aligned.h"
#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "numeric/polynom.h"
#include "numeric/windowing.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

constexpr double largest = std::numeric_limits<double>::max();
constexpr double ln2 = 0.6931471805599453;

// Boersma (1993), the strengths and costs of the path search.
constexpr double voicingthreshold = 0.45;
constexpr double silencethreshold = 0.03;
constexpr double octavecost = 0.01;
constexpr double octavejumpcost = 0.35;
constexpr double voicingchangecost = 0.14;

// ---- the autocorrelation of a frame ----

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

// Vertex of the corrected autocorrelation at a local maximum.
struct lagpeak {
    double period;  // seconds
    double height;
};

// What one frame needs.
struct trackerscratch {
    alignedreals raw;  // [2h + 1] the signal around the centre, where it ends within the window
    // A search range beyond all pitch makes the window shorter than the longest lag.
    autocorrelator correlator;
    alignedreals corrected;      // autocorrelation over that of the window, lags 0 .. taumax + 1
    std::vector<lagpeak> peaks;  // of it
    std::vector<double> octaves;

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

// Hann window, each cosine by itself. The recurrence behind winhanning is off by up to 34 units in
// the last place, which serves a spectrum; but the f0 of an exactly periodic signal is an exact
// number of samples to rounding, and later roundings of window lengths and harmonic counts hang on
// its last bit.
alignedreals trackerwindow(std::uint32_t length) {
    alignedreals window(length, 1.0);
    const double step = twopi / (length - 1);
    for (std::uint32_t i = 0; length > 1 && i < length; ++i)
        window[i] = 0.5 - 0.5 * cosine(step * i);
    return window;
}

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
    t.window = trackerwindow(lwin);

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

// ---- candidates ----

constexpr std::size_t unvoicedslot = 5;  // slots 0 .. 4 are for voiced candidates
constexpr std::size_t nslots = 6;

using slotvalues = std::array<double, nslots>;

// What the path search keeps of a frame to the end. Slot 0 never gets a candidate: a frame has at
// most four, in slots 1 .. 4.
struct framecandidates {
    slotvalues freq{};                         // Hz; 0 = empty; always 0 in the unvoiced slot
    std::array<std::uint32_t, nslots> back{};  // best slot of the frame before, where occupied
    bool occupied(std::size_t slot) const { return slot == unvoicedslot || freq[slot] != 0.0; }
};

// The weaker the frame beside the loudest one, the stronger its unvoiced candidate.
double unvoicedstrength(const trackersetup &t, double localpeak) {
    const double loudness = t.globalpeak > 0.0 ? std::min(1.0, localpeak / t.globalpeak) : 0.0;
    return voicingthreshold +
           std::max(0.0, 2.0 - loudness / (silencethreshold / (1.0 + voicingthreshold)));
}

// Finds the local maxima of a corrected autocorrelation r within the search range.
void findlagpeaks(const trackersetup &t, const double *r, std::vector<lagpeak> &peaks) {
    peaks.clear();
    for (std::uint32_t tau = t.taumin; tau <= t.taumax; ++tau) {
        if (!(r[tau] > 0.5 * voicingthreshold && r[tau] > r[tau - 1] && r[tau] > r[tau + 1]))
            continue;
        parabola p;
        parabfit(r + tau - 1, &p);
        double offset = parabextx(&p);
        double height = parabexty(&p);
        if ((tau == t.taumin && offset < 0.0) || (tau == t.taumax && offset > 0.0)) {
            offset = 0.0;
            height = r[tau];
        }
        // No autocorrelation is above 1: the correction has made too much of this one.
        if (height > 1.0) height = 1.0 / height;
        peaks.push_back({(tau + offset) / t.fs, height});
    }
}

// Keeps a candidate in the first empty slot of 1 .. 4 or, when they are all taken, in place of the
// weakest one unless that is stronger.
void keepcandidate(double freq, double strength, slotvalues &freqs, slotvalues &strengths) {
    std::size_t slot = 1;
    for (std::size_t s = 1; s < unvoicedslot && strengths[slot] != 0.0; ++s)
        if (strengths[s] < strengths[slot]) slot = s;
    if (freqs[slot] != 0.0 && strengths[slot] > strength) return;
    freqs[slot] = freq;
    strengths[slot] = strength;
}

// Collects a frame's candidates and their strengths from its peaks.
void collectcandidates(const trackersetup &t, trackerscratch &s, slotvalues &freqs,
                       slotvalues &strengths) {
    if (s.peaks.empty()) return;
    // The octave cost lets the shorter of two periods win a slot...
    s.octaves.clear();
    for (const lagpeak &peak : s.peaks) s.octaves.push_back(t.f0min * peak.period);
    logarithms(s.octaves.data(), s.octaves.size());
    for (std::size_t i = 0; i < s.peaks.size(); ++i) {
        const double strength = s.peaks[i].height - octavecost * s.octaves[i] / ln2;
        if (std::isfinite(strength))
            keepcandidate(1.0 / s.peaks[i].period, strength, freqs, strengths);
    }
    // ... and is taken back: the path search is to see the heights alone.
    slotvalues octaves{};
    for (std::size_t slot = 0; slot < nslots; ++slot)
        octaves[slot] = freqs[slot] != 0.0 ? t.f0min / freqs[slot] : 1.0;
    logarithms(octaves.data(), nslots);
    for (std::size_t slot = 0; slot < unvoicedslot; ++slot)
        if (freqs[slot] != 0.0) strengths[slot] += octavecost * octaves[slot] / ln2;
}

// ---- the path ----

// Natural logarithms of the ratios between the voiced candidates of two frames, in one batch: slot
// i of the first and slot j of the second frame at [(i - 1) 4 + j - 1]; 0 where either is empty.
constexpr std::size_t nvoiced = 4;
using ratiotable = std::array<double, nvoiced * nvoiced>;

ratiotable logratios(const framecandidates &from, const framecandidates &to) {
    ratiotable ratios{};
    if (from.freq[1] == 0.0 || to.freq[1] == 0.0) return ratios;  // one has none at all
    for (std::size_t i = 0; i < nvoiced; ++i)
        for (std::size_t j = 0; j < nvoiced; ++j) {
            const bool voiced = from.freq[i + 1] != 0.0 && to.freq[j + 1] != 0.0;
            ratios[i * nvoiced + j] = voiced ? to.freq[j + 1] / from.freq[i + 1] : 1.0;
        }
    logarithms(ratios.data(), ratios.size());
    return ratios;
}

// What transitions cost. A denser grid adds more strengths to a path, so its jumps must cost more.
struct transitioncosts {
    double octavejump;
    double voicingchange;

    explicit transitioncosts(double framesper10ms)
        : octavejump(octavejumpcost * framesper10ms),
          voicingchange(voicingchangecost * framesper10ms) {}

    double operator()(std::size_t from, std::size_t to, const ratiotable &ratios) const {
        if (from == unvoicedslot && to == unvoicedslot) return 0.0;
        if (from == unvoicedslot || to == unvoicedslot) return voicingchange;
        return octavejump * std::abs(ratios[(from - 1) * nvoiced + to - 1] / ln2);
    }
};

// Links a frame to the one before: the accumulated cost of every candidate and where its best path
// comes from. Empty slots keep cost 0 and are never looked at.
slotvalues linkframe(const framecandidates &previous, const slotvalues &previouscost,
                     framecandidates &current, const slotvalues &strength,
                     const transitioncosts &transition) {
    const ratiotable ratios = logratios(previous, current);
    slotvalues cost{};
    for (std::size_t j = 1; j < nslots; ++j) {
        if (!current.occupied(j)) continue;
        double best = largest;
        for (std::uint32_t i = 1; i < nslots; ++i) {
            if (!previous.occupied(i)) continue;
            const double candidate = previouscost[i] - strength[j] + transition(i, j, ratios);
            if (candidate < best) {
                best = candidate;
                current.back[j] = i;
            }
        }
        cost[j] = best;
    }
    return cost;
}

void traceback(const std::vector<framecandidates> &frames, const slotvalues &cost, double *f0) {
    std::size_t slot = unvoicedslot;
    double best = largest;
    for (std::size_t s = 0; s < nslots; ++s) {
        if (!frames.back().occupied(s) || !(cost[s] < best)) continue;
        best = cost[s];
        slot = s;
    }
    for (std::size_t k = frames.size(); k-- > 0;) {
        f0[k] = frames[k].freq[slot];
        slot = frames[k].back[slot];
    }
}

}  // namespace

int getpitch(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
             std::uint32_t nframes, double *f0, double fs, double f0min, double f0max) {
    if (nframes == 0) return 0;
    if (!(f0min > 0.0)) f0min = 60.0;
    if (!(f0max > f0min)) f0max = 500.0;

    const std::unique_ptr<double[], decltype(&std::free)> filtered(applyfftfilter(waveform, n, fs),
                                                                   std::free);
    const trackersetup t = setuptracker(filtered.get(), n, fs, f0min, f0max);
    const transitioncosts transition(fs * 0.01 / lframe);

    trackerscratch scratch(t);
    std::vector<framecandidates> frames(nframes);
    slotvalues cost{};
    for (std::uint32_t k = 0; k < nframes; ++k) {
        const double peak = analyseframe(t, filtered.get(), n, first + k * lframe, scratch);
        findlagpeaks(t, scratch.corrected.data(), scratch.peaks);
        slotvalues strength{};
        strength[unvoicedslot] = unvoicedstrength(t, peak);
        collectcandidates(t, scratch, frames[k].freq, strength);
        if (k == 0) {
            for (std::size_t s = 0; s < nslots; ++s) cost[s] = -strength[s];
        } else {
            cost = linkframe(frames[k - 1], cost, frames[k], strength, transition);
        }
    }
    traceback(frames, cost, f0);
    return elimislands(nframes, f0, lframe, fs);
}
