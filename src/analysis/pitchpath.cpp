#include "analysis/pitchpath.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "numeric/elementary.h"
#include "numeric/polynom.h"

namespace nalveo {

namespace {

constexpr double largest = std::numeric_limits<double>::max();
constexpr double ln2 = 0.6931471805599453;

// Boersma (1993), the strengths and costs of the path search.
constexpr double voicingthreshold = 0.45;
constexpr double silencethreshold = 0.03;
constexpr double octavecost = 0.01;
constexpr double octavejumpcost = 0.35;
constexpr double voicingchangecost = 0.14;

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

// Cost of a transition between two slots.
double costof(const transitioncosts &transition, std::size_t from, std::size_t to,
              const ratiotable &ratios) {
    if (from == unvoicedslot && to == unvoicedslot) return 0.0;
    if (from == unvoicedslot || to == unvoicedslot) return transition.voicingchange;
    return transition.octavejump * std::abs(ratios[(from - 1) * nvoiced + to - 1] / ln2);
}

}  // namespace

double unvoicedstrength(double localpeak, double globalpeak) {
    // A frame's loudness counts up to 0.041 of the loudest; beyond that the max keeps the strength
    // at the threshold alone.
    const double loudness = globalpeak > 0.0 ? localpeak / globalpeak : 0.0;
    return voicingthreshold +
           std::max(0.0, 2.0 - loudness / (silencethreshold / (1.0 + voicingthreshold)));
}

void findlagpeaks(const double *r, std::uint32_t taumin, std::uint32_t taumax, double fs,
                  std::vector<lagpeak> &peaks) {
    peaks.clear();
    for (std::uint32_t tau = taumin; tau <= taumax; ++tau) {
        if (!(r[tau] > 0.5 * voicingthreshold && r[tau] > r[tau - 1] && r[tau] > r[tau + 1]))
            continue;
        parabola p;
        parabfit(r + tau - 1, &p);
        double offset = parabextx(&p);
        double height = parabexty(&p);
        if ((tau == taumin && offset < 0.0) || (tau == taumax && offset > 0.0)) {
            offset = 0.0;
            height = r[tau];
        }
        // No autocorrelation is above 1: the correction has made too much of this one.
        if (height > 1.0) height = 1.0 / height;
        peaks.push_back({(tau + offset) / fs, height});
    }
}

void keepcandidate(double freq, double strength, slotvalues &freqs, slotvalues &strengths) {
    std::size_t slot = 1;
    for (std::size_t s = 1; s < unvoicedslot && strengths[slot] != 0.0; ++s)
        if (strengths[s] < strengths[slot]) slot = s;
    if (freqs[slot] != 0.0 && strengths[slot] > strength) return;
    freqs[slot] = freq;
    strengths[slot] = strength;
}

void collectcandidates(const std::vector<lagpeak> &peaks, double f0min, slotvalues &freqs,
                       slotvalues &strengths) {
    if (peaks.empty()) return;
    // The octave cost lets the shorter of two periods win a slot...
    for (const lagpeak &peak : peaks) {
        const double strength = peak.height - octavecost * logarithm(f0min * peak.period) / ln2;
        if (std::isfinite(strength)) keepcandidate(1.0 / peak.period, strength, freqs, strengths);
    }
    // ... and is taken back: the path search is to see the heights alone.
    slotvalues octaves{};
    for (std::size_t slot = 0; slot < nslots; ++slot)
        octaves[slot] = freqs[slot] != 0.0 ? f0min / freqs[slot] : 1.0;
    logarithms(octaves.data(), nslots);
    for (std::size_t slot = 0; slot < unvoicedslot; ++slot)
        if (freqs[slot] != 0.0) strengths[slot] += octavecost * octaves[slot] / ln2;
}

transitioncosts::transitioncosts(double framesper10ms)
    : octavejump(octavejumpcost * framesper10ms),
      voicingchange(voicingchangecost * framesper10ms) {}

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
            const double candidate =
                previouscost[i] - strength[j] + costof(transition, i, j, ratios);
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

}  // namespace nalveo
