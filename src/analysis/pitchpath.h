/// Candidates of the pitch tracker and the cheapest path through them. Needs numeric/elementary and
/// numeric/polynom.
///
/// The strengths and costs are those of Boersma (1993); see getpitch in analysis/pitchanalysis.h.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace nalveo {

constexpr std::size_t unvoicedslot = 5;  // the last; voiced candidates are before it
constexpr std::size_t nslots = 6;

/// A number for every slot of a frame.
using slotvalues = std::array<double, nslots>;

/// What the path search keeps of a frame to the end. Slot 0 never gets a candidate: a frame has at
/// most four, in slots 1 .. 4.
struct framecandidates {
    slotvalues freq{};                         // Hz; 0 = empty; always 0 in the unvoiced slot
    std::array<std::uint32_t, nslots> back{};  // best slot of the frame before, where occupied
    bool occupied(std::size_t slot) const { return slot == unvoicedslot || freq[slot] != 0.0; }
};

/// A local maximum of an autocorrelation.
struct lagpeak {
    double period;  // seconds
    double height;  // 0 .. 1
};

/// Strength of the unvoiced candidate: the weaker the frame beside the loudest one, the stronger.
///
/// \param[in] localpeak   largest magnitude around the middle of the frame
/// \param[in] globalpeak  largest magnitude of the signal
double unvoicedstrength(double localpeak, double globalpeak);

/// Finds the local maxima of a corrected autocorrelation: lags that are strictly above both their
/// neighbours and half the voicing threshold, refined by parabolas.
///
/// \param[in]  r       [taumax + 2] autocorrelation, lag 0 = 1
/// \param[in]  taumin  shortest lag, at least 1
/// \param[in]  taumax  longest lag
/// \param[in]  fs      sample rate in Hz
/// \param[out] peaks   the maxima, by lag; a vertex beyond taumin or taumax is taken at that lag.
///                     Throws std::bad_alloc when they grow beyond memory
void findlagpeaks(const double *r, std::uint32_t taumin, std::uint32_t taumax, double fs,
                  std::vector<lagpeak> &peaks);

/// Keeps a candidate in the first empty slot of 1 .. 4 or, when they are all taken, in place of the
/// weakest one, the first of equals, unless that is stronger.
void keepcandidate(double freq, double strength, slotvalues &freqs, slotvalues &strengths);

/// Collects a frame's candidates and their strengths from its peaks.
///
/// \param[in]     peaks      local maxima of the autocorrelation
/// \param[in]     f0min      lowest f0 searched, Hz
/// \param[in,out] freqs      Hz; all 0 at first
/// \param[in,out] strengths  heights of the peaks; 0 at first but for the unvoiced slot, which
///                           stays
void collectcandidates(const std::vector<lagpeak> &peaks, double f0min, slotvalues &freqs,
                       slotvalues &strengths);

/// What transitions cost on a grid of so many frames per 10 ms. A denser grid adds more strengths
/// to a path, so its jumps must cost more.
struct transitioncosts {
    double octavejump;     // per octave between two voiced candidates
    double voicingchange;  // into or out of the unvoiced slot

    explicit transitioncosts(double framesper10ms);
};

/// Links a frame to the one before.
///
/// \param[in]     previous      candidates of the frame before
/// \param[in]     previouscost  accumulated costs of their best paths
/// \param[in,out] current       candidates of this frame; where each one's best path comes from,
///                              the lowest slot of equals, goes to back
/// \param[in]     strength      strengths of this frame's candidates
/// \param[in]     transition    costs of transitions
/// \return accumulated costs of the best path to every candidate; 0 in empty slots
slotvalues linkframe(const framecandidates &previous, const slotvalues &previouscost,
                     framecandidates &current, const slotvalues &strength,
                     const transitioncosts &transition);

/// Follows the cheapest path, of equals that to the lowest slot, from the last frame back.
///
/// \param[in]  frames  linked frames, at least one
/// \param[in]  cost    accumulated costs of the last frame
/// \param[out] f0      [frames.size()] Hz, 0 where unvoiced
void traceback(const std::vector<framecandidates> &frames, const slotvalues &cost, double *f0);

}  // namespace nalveo
