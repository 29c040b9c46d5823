// What is done to a finished f0 track: stray voiced islands are cleared, Hz become logarithms and
// back. The filter, the tracker and the refinement have sources of their own: prefilter,
// pitchtracker and pitchrefinement. Needs numeric/elementary.

#include "analysis/pitchanalysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "numeric/elementary.h"

using namespace nalveo;

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

// Factor between an end of an island and its voiced neighbour, at least 1 whichever is higher.
double jumpratio(double island, double neighbour) {
    const double ratio = island / neighbour;
    return ratio < 1.0 ? 1.0 / ratio : ratio;
}

}  // namespace

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

    double low = infinite;
    double high = 0.0;
    forvoicedruns([&](std::size_t begin, std::size_t end) {
        if (end - begin <= longestisland) return;
        low = std::min(low, *std::min_element(f0 + begin, f0 + end));
        high = std::max(high, *std::max_element(f0 + begin, f0 + end));
    });
    if (high == 0.0 || low == infinite) return 0;

    // Deliberate: where an island has no voiced neighbour on a side, that side's ratio is the last
    // island's. At the start the left ratio keeps an island and the right ratio clears it.
    double left = 0.0;
    double right = infinite;
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

int f02logf0(std::uint32_t nframes, double *track) {
    for (std::size_t k = 0; k < nframes; ++k)
        track[k] = track[k] > 0.0 ? logarithm(track[k]) : unvoicedlogf0;
    return 0;
}

int logf02f0(std::uint32_t nframes, double *track) {
    for (std::size_t k = 0; k < nframes; ++k)
        track[k] = track[k] > unvoicedlogf0 ? exponential(track[k]) : 0.0;
    return 0;
}
