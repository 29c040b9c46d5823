#include "analysis/pitchanalysis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "analysis/harmonicanalysis.h"
#include "numeric/aligned.h"
#include "numeric/dft.h"
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
constexpr double unvoicedlog = -1e10;

// Boersma (1993), the strengths and costs of the path search.
constexpr double voicingthreshold = 0.45;
constexpr double silencethreshold = 0.03;
constexpr double octavecost = 0.01;
constexpr double octavejumpcost = 0.35;
constexpr double voicingchangecost = 0.14;

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
    alignedreals raw;    // [2h + 1] the signal around the centre
    alignedreals frame;  // [nfft] the same, weighted, with zeros behind it
    alignedreals re;     // [nfft / 2 + 1]
    alignedreals im;
    // Autocorrelation at lags 0 .. nfft - 1, not scaled. Behind it there are zeros up to the
    // neighbour of the longest lag, where a search range beyond all pitch makes the window shorter
    // than that.
    alignedreals lags;
    alignedreals
        corrected;  // autocorrelation over that of the window, lags taumin - 1 .. taumax + 1

    explicit trackerscratch(const trackersetup &t)
        : raw(t.window.size()),
          frame(t.nfft),
          re(t.nfft / 2 + 1),
          im(t.nfft / 2 + 1),
          lags(std::max<std::size_t>(t.nfft, t.taumax + 2)),
          corrected(t.taumax + 2) {}
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

// Autocorrelation of the weighted frame: the transform of its power spectrum.
void correlateframe(const trackersetup &t, trackerscratch &s) {
    const auto size = static_cast<std::int32_t>(t.nfft);
    fftreal(size, s.frame.data(), s.re.data(), s.im.data());
    powerspectrum(s.re.size(), s.re.data(), s.im.data(), s.re.data());
    std::fill(s.im.begin(), s.im.end(), 0.0);
    ifftreal(size, s.re.data(), s.im.data(), s.lags.data());
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
    std::copy(t.window.begin(), t.window.end(), s.frame.begin());
    correlateframe(t, s);
    t.correction.resize(s.corrected.size());
    for (std::size_t tau = 0; tau < t.correction.size(); ++tau)
        t.correction[tau] = s.lags[tau] / s.lags[0];
    return t;
}

// Removes the local mean over about two periods and weights the frame. Returns the local peak, that
// over about one period.
struct weightkernel {
    template <class Real8>
    [[gnu::always_inline]] static double run(const trackersetup *t, const double *raw,
                                             double *frame) {
        // Search ranges in the kilohertz, beyond all pitch, have windows shorter than the span of the
        // mean: what is outside the window counts as 0.
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
    getwindowedsamples(signal, n, centre, s.raw.data(), t.h, nullptr);
    const double peak = runwidest<weightkernel>(&t, s.raw.data(), s.frame.data());
    correlateframe(t, s);
    runwidest<correctkernel>(&t, s.lags.data(), s.corrected.data());
    return peak;
}

// The weaker the frame beside the loudest one, the stronger its unvoiced candidate.
double unvoicedstrength(const trackersetup &t, double localpeak) {
    const double loudness = t.globalpeak > 0.0 ? std::min(1.0, localpeak / t.globalpeak) : 0.0;
    return voicingthreshold +
           std::max(0.0, 2.0 - loudness / (silencethreshold / (1.0 + voicingthreshold)));
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

// Collects a frame's candidates and their strengths from its corrected autocorrelation r.
void collectcandidates(const trackersetup &t, const double *r, slotvalues &freqs,
                       slotvalues &strengths) {
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
        const double period = (tau + offset) / t.fs;
        if (height > 1.0) height = 1.0 / height;
        // The octave cost lets the shorter of two periods win a slot...
        const double strength = height - octavecost * logarithm(t.f0min * period) / ln2;
        if (std::isfinite(strength)) keepcandidate(1.0 / period, strength, freqs, strengths);
    }
    // ... and is taken back: the path search is to see the heights alone.
    for (std::size_t s = 0; s < unvoicedslot; ++s)
        if (freqs[s] != 0.0) strengths[s] += octavecost * logarithm(t.f0min / freqs[s]) / ln2;
}

// Transition costs on a grid of `perten` frames per 10 ms. A denser grid adds more strengths to a
// path, so its jumps must cost more.
struct transitioncosts {
    double octavejump;
    double voicingchange;

    explicit transitioncosts(double perten)
        : octavejump(octavejumpcost * perten), voicingchange(voicingchangecost * perten) {}

    double operator()(double from, double to) const {
        if (from == 0.0 && to == 0.0) return 0.0;
        if (from == 0.0 || to == 0.0) return voicingchange;
        return octavejump * std::abs(logarithm(to / from) / ln2);
    }
};

// Links a frame to the one before: the accumulated cost of every candidate and where its best path
// comes from. Empty slots keep cost 0 and are never looked at.
slotvalues linkframe(const framecandidates &previous, const slotvalues &previouscost,
                     framecandidates &current, const slotvalues &strength,
                     const transitioncosts &transition) {
    slotvalues cost{};
    for (std::size_t j = 0; j < nslots; ++j) {
        if (!current.occupied(j)) continue;
        double best = largest;
        for (std::uint32_t i = 0; i < nslots; ++i) {
            if (!previous.occupied(i)) continue;
            const double candidate =
                previouscost[i] - strength[j] + transition(previous.freq[i], current.freq[j]);
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

// Factor between an end of an island and its voiced neighbour, at least 1 whichever is higher.
double jumpratio(double island, double neighbour) {
    const double ratio = island / neighbour;
    return ratio < 1.0 ? 1.0 / ratio : ratio;
}

// Amplitude responses of a gain curve on bins 0 .. nt / 2.
void samplegaincurve(const double *freqs, const double *gains, double fs, std::size_t nt,
                     double *response) {
    constexpr double decibel = 0.1151292546497023;  // ln 10 / 20
    const double spacing = fs / static_cast<double>(nt);
    std::size_t segment = 0;
    for (std::size_t k = 0; k <= nt / 2; ++k) {
        // Deliberate: bin k takes the gain one bin above its own frequency.
        const double f = static_cast<double>(k + 1) * spacing;
        while (f > freqs[segment + 1]) ++segment;
        const double slope =
            (gains[segment + 1] - gains[segment]) / (freqs[segment + 1] - freqs[segment]);
        const double intercept = gains[segment] - freqs[segment] * slope;
        response[k] = exponential((slope * f + intercept) * decibel);
    }
}

// Turns a sampled response, bins 0 .. nt / 2, into that of a filter of nt / 2 + 1 taps: the impulse
// response is cut to nt / 4 taps either side of tap 0 and tapered by the halves of a Hamming
// window.
void truncateresponse(std::size_t nt, double *response) {
    const auto size = static_cast<std::int32_t>(nt);
    const std::size_t reach = nt / 4;
    std::vector<double> imag(nt / 2 + 1);
    std::vector<double> taps(nt);
    ifftreal(size, response, imag.data(), taps.data());
    const phasor step = unitphasor(pi / static_cast<double>(reach));
    phasor w{1.0, 0.0};
    for (std::size_t k = 1; k <= reach; ++k) {
        w.rotate(step);
        const double taper = 0.54 + 0.46 * w.re;
        taps[k] *= taper;
        taps[nt - k] *= taper;
    }
    std::fill(taps.begin() + static_cast<std::ptrdiff_t>(reach + 1),
              taps.end() - static_cast<std::ptrdiff_t>(reach), 0.0);
    fftreal(size, taps.data(), response, imag.data());
    // One pair of unscaled transforms is behind the response, another is to come.
    const double scale = 1.0 / static_cast<double>(nt);
    for (std::size_t k = 0; k <= nt / 2; ++k) response[k] *= scale * scale;
}

// Lowest f0 that refinement can come to analyse. It starts from a track value and goes down by at
// most a fifth per iteration, but not below f0min unless the track lies there already. 0 when there
// is no voiced frame.
double lowestrefined(const double *f0, std::size_t nframes, std::uint32_t iterations,
                     double f0min) {
    double lowest = largest;
    for (std::size_t k = 0; k < nframes; ++k)
        if (f0[k] >= lowestmodelled) lowest = std::min(lowest, f0[k]);
    if (lowest == largest) return 0.0;
    const double reached = lowest * power(0.8 * 0.99, iterations);  // a margin for rounding
    return std::min(lowest, std::max(reached, f0min));
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
        slotvalues strength{};
        strength[unvoicedslot] = unvoicedstrength(t, peak);
        collectcandidates(t, scratch.corrected.data(), frames[k].freq, strength);
        if (k == 0) {
            for (std::size_t s = 0; s < nslots; ++s) cost[s] = -strength[s];
        } else {
            cost = linkframe(frames[k - 1], cost, frames[k], strength, transition);
        }
    }
    traceback(frames, cost, f0);
    return elimislands(nframes, f0, lframe, fs);
}

int autocorrelation(std::int32_t n, double *x) {
    if (n <= 0) return 0;
    if (fftc(n, x) != 0) return -1;
    for (std::size_t k = 0; k < static_cast<std::size_t>(n); ++k) {
        x[2 * k] = x[2 * k] * x[2 * k] + x[2 * k + 1] * x[2 * k + 1];
        x[2 * k + 1] = 0.0;
    }
    return ifftc(n, x);
}

int elimislands(std::uint32_t nframes, double *f0, std::uint32_t lframe, double fs) {
    const std::size_t count = nframes;
    const std::size_t longestisland = static_cast<std::size_t>(std::floor(fs * 0.05 / lframe)) + 1;

    // Calls use(begin, end) for every maximal voiced run, from left to right.
    const auto forvoicedruns = [=](auto use) {
        for (std::size_t begin = 0; begin < count; ++begin) {
            if (f0[begin] == 0.0) continue;
            std::size_t end = begin + 1;
            while (end < count && f0[end] != 0.0) ++end;
            use(begin, end);
            begin = end;
        }
    };

    double low = largest;
    double high = 0.0;
    forvoicedruns([&](std::size_t begin, std::size_t end) {
        if (end - begin <= longestisland) return;
        low = std::min(low, *std::min_element(f0 + begin, f0 + end));
        high = std::max(high, *std::max_element(f0 + begin, f0 + end));
    });
    if (high == 0.0 || low == largest) return 0;

    // Deliberate: where an island has no voiced neighbour on a side, that side's ratio is the last
    // island's. At the start the left ratio keeps an island and the right ratio clears it.
    double left = 0.0;
    double right = largest;
    double before = 0.0;  // the last voiced frame that stays; 0 = none so far
    const auto isvoiced = [](double f) { return f != 0.0; };
    const auto inrange = [=](double f) { return low <= f && f <= high; };
    forvoicedruns([&](std::size_t begin, std::size_t end) {
        if (end - begin <= longestisland && std::none_of(f0 + begin, f0 + end, inrange)) {
            const double *const after = std::find_if(f0 + end, f0 + count, isvoiced);
            if (before != 0.0) left = jumpratio(f0[begin], before);
            if (after != f0 + count) right = jumpratio(f0[end - 1], *after);
            if (left > 1.7 || right > 1.7) {
                std::fill(f0 + begin, f0 + end, 0.0);
                return;
            }
        }
        before = f0[end - 1];
    });
    return 0;
}

double *applyfftfilter(const double *waveform, std::uint32_t n, double fs) {
    constexpr std::array<double, 6> freqs = {0.0, 45.0, 55.0, 3000.0, 5000.0, 1e6};
    constexpr std::array<double, 6> gains = {-30.0, -30.0, 0.0, 0.0, -30.0, -30.0};
    const std::uint32_t nt =
        fs == 16000.0 ? 2048
                      : getwinlengthceilpot2(static_cast<std::uint32_t>(2048.0 * fs / 16000.0));
    std::unique_ptr<double[], decltype(&std::free)> filtered(
        static_cast<double *>(std::malloc(std::max<std::size_t>(n, 1) * sizeof(double))),
        std::free);
    if (!filtered) throw std::bad_alloc();
    fftfilter(waveform, filtered.get(), n, nt, freqs.data(), gains.data(), fs);
    return filtered.release();
}

int fftfilter(const double *input, double *output, std::uint32_t n, std::uint32_t nt,
              const double *freqs, const double *gains, double fs) {
    const std::size_t half = nt / 2;
    const std::size_t reach = nt / 4;
    const std::size_t count = n;
    alignedreals response(half + 1);
    alignedreals re(half + 1);
    alignedreals im(half + 1);
    alignedreals block(nt);
    samplegaincurve(freqs, gains, fs, nt, response.data());
    truncateresponse(nt, response.data());

    // Overlap-add, nt / 2 samples at a time: a block's response reaches nt / 4 samples back into
    // the output before it, where the circular convolution has wrapped it to the end, and as many
    // into the next block.
    std::vector<double> carry(reach);
    const auto size = static_cast<std::int32_t>(nt);
    for (std::size_t s = 0; s < count; s += half) {
        const std::size_t have = std::min(half, count - s);
        std::copy(input + s, input + s + have, block.begin());
        std::fill(block.begin() + static_cast<std::ptrdiff_t>(have), block.end(), 0.0);
        fftreal(size, block.data(), re.data(), im.data());
        for (std::size_t k = 0; k <= half; ++k) {
            re[k] *= response[k];
            im[k] *= response[k];
        }
        ifftreal(size, re.data(), im.data(), block.data());
        if (s > 0)
            for (std::size_t j = 0; j < reach; ++j) output[s - reach + j] += block[nt - reach + j];
        for (std::size_t j = 0; j < std::min(reach, have); ++j) {
            output[s + j] = carry[j] + block[j];
            carry[j] = block[half + j];
        }
        for (std::size_t j = reach; j < have; ++j) output[s + j] = block[j];
    }
    return 0;
}

int refinepitch(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, std::uint32_t iterations, double *f0, const double *fv,
                double fs, double f0min, double f0max) {
    constexpr double defaultband = 4500.0;  // Hz
    if (iterations == 0 || nframes == 0) return 0;
    f0min = std::max(f0min, lowestmodelled);
    const double lowest = lowestrefined(f0, nframes, iterations, f0min);
    if (lowest == 0.0) return 0;
    const double highest = fv != nullptr ? *std::max_element(fv, fv + nframes) : defaultband;
    const std::unique_ptr<hamem, int (*)(hamem *)> record(qhameminitialize(fs, highest, lowest),
                                                          qhamemdestroy);
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

int f02logf0(std::uint32_t nframes, double *track) {
    for (std::size_t k = 0; k < nframes; ++k)
        track[k] = track[k] > 0.0 ? logarithm(track[k]) : unvoicedlog;
    return 0;
}

int logf02f0(std::uint32_t nframes, double *track) {
    for (std::size_t k = 0; k < nframes; ++k)
        track[k] = track[k] > unvoicedlog ? exponential(track[k]) : 0.0;
    return 0;
}
