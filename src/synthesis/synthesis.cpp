#include "synthesis/synthesis.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "synthesis/melenvelope.h"
#include "synthesis/parts.h"

namespace nalveo {
namespace {

// Border of a voiced frame whose maximum voiced frequency is 0: the least that the analysis finds.
// Its median over neighbours leaves such frames at the ends of a voiced run.
constexpr double leastborder = 1000.0;  // Hz

// Negated comparisons find NaN, too.
bool badf0(double f, double fs) { return !(f == 0.0 || (f >= lowestsynthesised && f < 0.5 * fs)); }

std::vector<double> plaincepstra(const speechtracks &tracks, bool htsscale) {
    const std::size_t width = tracks.order + std::size_t{1};
    std::vector<double> plain(tracks.cc, tracks.cc + tracks.nframes * width);
    if (!htsscale) return plain;
    for (std::size_t i = 0; i < plain.size(); i += width)
        undohtsscale(plain.data() + i, tracks.order);
    return plain;
}

std::vector<double> borders(const speechtracks &tracks) {
    std::vector<double> fv(tracks.nframes, std::numeric_limits<double>::infinity());
    if (tracks.fv != nullptr)
        for (std::uint32_t k = 0; k < tracks.nframes; ++k)
            fv[k] = tracks.fv[k] > 0.0 ? tracks.fv[k] : leastborder;
    return fv;
}

std::vector<double> raisedcosine(std::uint32_t length) {
    std::vector<double> fade(length);
    for (std::uint32_t n = 0; n < length; ++n) fade[n] = 0.5 - 0.5 * cosine(pi * n / length);
    return fade;
}

}  // namespace

badvalue findbadvalue(const speechtracks &tracks, double fs) {
    const std::size_t width = tracks.order + std::size_t{1};
    for (std::uint32_t k = 0; k < tracks.nframes; ++k)
        if (badf0(tracks.f0[k], fs)) return {badvalue::track::f0, k, tracks.f0[k]};
    for (std::size_t i = 0; i < tracks.nframes * width; ++i)
        if (!(std::abs(tracks.cc[i]) <= largestcoefficient))
            return {badvalue::track::cc, static_cast<std::uint32_t>(i / width), tracks.cc[i]};
    if (tracks.fv != nullptr)
        for (std::uint32_t k = 0; k < tracks.nframes; ++k)
            if (!(tracks.fv[k] >= 0.0 && tracks.fv[k] <= 0.5 * fs))
                return {badvalue::track::fv, k, tracks.fv[k]};
    return {};
}

void synthesise(const speechtracks &tracks, const synthesissettings &settings, std::size_t nsamples,
                double *samples) {
    const std::vector<double> cc = plaincepstra(tracks, settings.htsscale);
    const std::vector<double> fv = borders(tracks);
    const std::vector<double> fade = raisedcosine(settings.lframe);
    const partstracks parts{tracks.nframes, tracks.order,   settings.lframe,
                            settings.fs,    settings.alpha, tracks.f0,
                            cc.data(),      fv.data(),      fade.data()};
    std::fill_n(samples, nsamples, 0.0);
    addharmonics(parts, nsamples, samples);
    addnoise(parts, settings.seed, nsamples, samples);
}

}  // namespace nalveo
