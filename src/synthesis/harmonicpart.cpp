#include <cmath>
#include <utility>
#include <vector>

#include "numeric/aligned.h"
#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"
#include "synthesis/melenvelope.h"
#include "synthesis/parts.h"

namespace nalveo {
namespace {

constexpr double largestglide = 1.25;   // f0 of neighbours beyond this ratio is a jump
constexpr double smoothingtime = 0.04;  // s; half width of each of the two averages

// Sum of harmonics with amplitudes in between those of two frames.
//
// Horner's rule in u = e^(j F): s = u (a(1) + u (a(2) + ..)), eight samples a vector.
struct sumkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *ure, const double *uim, const double *fade,
                                           std::size_t nsamples, const double *re, const double *im,
                                           const double *dre, const double *dim, std::size_t top,
                                           double *out) {
        // Two vectors of samples at a time where registers suffice: their chains run side by side.
        constexpr std::size_t tile = Real8::registers >= 16 ? 2 : 1;
        std::size_t n = 0;
        for (; n + tile * vectorlength <= nsamples; n += tile * vectorlength)
            sum<tile, Real8>(ure + n, uim + n, fade + n, re, im, dre, dim, top, out + n);
        for (; n < nsamples; n += vectorlength)
            sum<1, Real8>(ure + n, uim + n, fade + n, re, im, dre, dim, top, out + n);
    }

    template <std::size_t tile, class Real8>
    [[gnu::always_inline]] static void sum(const double *ure, const double *uim, const double *fade,
                                           const double *re, const double *im, const double *dre,
                                           const double *dim, std::size_t top, double *out) {
        complexof<Real8> u[tile], s[tile];
        Real8 g[tile];
        for (std::size_t i = 0; i < tile; ++i) {
            u[i] = {Real8::load(ure + i * vectorlength), Real8::load(uim + i * vectorlength)};
            g[i] = Real8::load(fade + i * vectorlength);
            s[i] = {Real8::all(0.0), Real8::all(0.0)};
        }
        for (std::size_t h = top; h > 0; --h) {
            for (std::size_t i = 0; i < tile; ++i) {
                s[i].re += re[h] + g[i] * dre[h];
                s[i].im += im[h] + g[i] * dim[h];
                s[i] = s[i] * u[i];
            }
        }
        for (std::size_t i = 0; i < tile; ++i) s[i].re.store(out + i * vectorlength);
    }
};

// Complex amplitudes of harmonics 0 .. top of a frame; harmonic 0 is nothing, and so is all above
// top.
struct amplitudes {
    alignedreals re;
    alignedreals im;
    std::size_t top = 0;

    explicit amplitudes(std::size_t most) : re(most), im(most) {}
    void clear() {
        std::fill_n(re.begin(), top + 1, 0.0);
        std::fill_n(im.begin(), top + 1, 0.0);
        top = 0;
    }
};

// Averages of the rows of a voiced run over `half` rows to either side, as far as the run goes.
void averagerows(const double *rows, std::size_t nrows, std::size_t width, std::size_t half,
                 double *averages) {
    std::vector<double> sum(width, 0.0);
    std::size_t first = 0, end = 0;  // rows in the sum
    for (std::size_t k = 0; k < nrows; ++k) {
        for (; end < nrows && end <= k + half; ++end)
            for (std::size_t j = 0; j < width; ++j) sum[j] += rows[end * width + j];
        for (; first + half < k; ++first)
            for (std::size_t j = 0; j < width; ++j) sum[j] -= rows[first * width + j];
        const double scale = 1.0 / static_cast<double>(end - first);
        for (std::size_t j = 0; j < width; ++j) averages[k * width + j] = scale * sum[j];
    }
}

bool isglide(double f, double g) {
    return f > 0.0 && g > 0.0 && f <= largestglide * g && g <= largestglide * f;
}

class harmonicpart {
   public:
    harmonicpart(const partstracks &t, std::size_t most)
        : tracks(t),
          width(t.order + std::size_t{1}),
          halfaverage(static_cast<std::size_t>(std::floor(smoothingtime * t.fs / t.lframe))),
          here(most),
          next(most),
          nothing(most),
          cosine(most),
          sine(most),
          level(most),
          phase(most),
          dre(most),
          dim(most),
          ure(wholevectors(t.lframe)),
          uim(ure.size()),
          fade(ure.size()),
          sum(ure.size()) {
        std::copy_n(t.fade, t.lframe, fade.begin());
    }

    // Adds what lies between frame k and the one after it. The last frame holds on.
    void addinterval(std::uint32_t k, std::size_t nsamples, double *samples) {
        const bool last = k + 1 == tracks.nframes;
        const double f = tracks.f0[k];
        const double g = last ? f : tracks.f0[k + 1];
        std::swap(here, next);  // the frame of before
        if (k == 0) findamplitudes(0, here);
        if (last)
            next = here;
        else
            findamplitudes(k + 1, next);
        if (f == 0.0 && g == 0.0) return;

        // Beside an unvoiced frame, f0 stays what it is. Where it jumps, as from an octave to
        // another, a glide would sweep all harmonics through the band: the old ones go on while the
        // new ones rise.
        const double start = runningphase;
        if (f > 0.0 && g > 0.0 && !isglide(f, g)) {
            addsum(start, f, f, here, nothing, nsamples, samples);
            addsum(start, g, g, nothing, next, nsamples, samples);
            advance(g, g);
        } else {
            const double from = f > 0.0 ? f : g, to = g > 0.0 ? g : f;
            addsum(start, from, to, here, next, nsamples, samples);
            advance(from, to);
        }
    }

   private:
    const partstracks &tracks;
    std::size_t width;                 // values of a row
    std::size_t halfaverage;           // frames
    std::vector<double> smooth, once;  // smoothed rows of the voiced run from runstart on
    std::uint32_t runstart = 0, runend = 0;
    double runningphase = 0.0;  // F at the frame, radians
    amplitudes here, next, nothing;
    alignedreals cosine, sine, level, phase;  // of the harmonics of a frame
    alignedreals dre, dim;                    // differences of two frames
    alignedreals ure, uim, fade, sum;         // of the samples between two frames

    double radians(double frequency) const { return twopi * frequency / tracks.fs; }

    void advance(double from, double to) {
        const double end = runningphase + 0.5 * radians(from + to) * tracks.lframe;
        runningphase = end - twopi * std::floor(end / twopi);
    }

    // Smooths the cepstra of the voiced run that begins at frame k.
    void smoothrun(std::uint32_t k) {
        runstart = runend = k;
        while (runend < tracks.nframes && tracks.f0[runend] > 0.0) ++runend;
        const std::size_t nrows = runend - runstart;
        once.resize(nrows * width);
        smooth.resize(nrows * width);
        averagerows(tracks.cc + runstart * width, nrows, width, halfaverage, once.data());
        averagerows(once.data(), nrows, width, halfaverage, smooth.data());
    }

    void findamplitudes(std::uint32_t k, amplitudes &a) {
        a.clear();
        const double f = tracks.f0[k];
        if (f == 0.0) return;
        if (k >= runend) smoothrun(k);

        // No harmonic may come to lie above half the sample rate on its way to a neighbour.
        double highest = f;
        if (k > 0 && isglide(f, tracks.f0[k - 1])) highest = std::max(highest, tracks.f0[k - 1]);
        if (k + 1 < tracks.nframes && isglide(f, tracks.f0[k + 1]))
            highest = std::max(highest, tracks.f0[k + 1]);
        std::size_t top = 0;
        while (static_cast<double>(top + 1) * highest < 0.5 * tracks.fs &&
               harmonicshare(static_cast<double>(top + 1) * f, tracks.fv[k]) > 0.0)
            ++top;

        const std::size_t count = wholevectors(top + 1);
        const double *const c = tracks.cc + k * width;
        const double *const smoothed = smooth.data() + (k - runstart) * width;
        warpmultiples(radians(f), count, tracks.alpha, cosine.data(), sine.data());
        envelopelevels(c, tracks.order, cosine.data(), count, level.data());
        envelopephases(smoothed, tracks.order, cosine.data(), sine.data(), count, phase.data());
        // As a density, a harmonic of amplitude a counts a / (2 sqrt(f0)).
        const double density = 2.0 * std::sqrt(f);
        for (std::size_t h = 1; h <= top; ++h) level[h] = std::min(level[h], highestlevel);
        exponentials(level.data() + 1, top);
        for (std::size_t h = 1; h <= top; ++h) {
            const double share = harmonicshare(static_cast<double>(h) * f, tracks.fv[k]);
            const double amplitude = density * level[h] * std::sqrt(share);
            a.re[h] = amplitude * nalveo::cosine(phase[h]);
            a.im[h] = amplitude * nalveo::sine(phase[h]);
        }
        a.top = top;
    }

    // Adds the harmonics from one set of amplitudes to another, f0 running from `from` to `to`.
    void addsum(double start, double from, double to, const amplitudes &a, const amplitudes &b,
                std::size_t nsamples, double *samples) {
        const std::size_t top = std::max(a.top, b.top);
        if (top == 0) return;
        for (std::size_t h = 1; h <= top; ++h) {
            dre[h] = b.re[h] - a.re[h];
            dim[h] = b.im[h] - a.im[h];
        }
        // F(n + 1) - F(n) = w + d (2 n + 1) / (2 lframe), where w goes to w + d.
        const double w = radians(from), d = radians(to - from) / tracks.lframe;
        phasor u = unitphasor(start);
        phasor step = unitphasor(w + 0.5 * d);
        const phasor turn = unitphasor(d);
        for (std::size_t n = 0; n < ure.size(); ++n) {
            ure[n] = u.re;
            uim[n] = u.im;
            u.rotate(step);
            step.rotate(turn);
        }
        runwidest<sumkernel>(ure.data(), uim.data(), fade.data(), ure.size(), a.re.data(),
                             a.im.data(), dre.data(), dim.data(), top, sum.data());
        for (std::size_t n = 0; n < nsamples; ++n) samples[n] += sum[n];
    }
};

}  // namespace

void addharmonics(const partstracks &tracks, std::size_t nsamples, double *samples) {
    double lowest = 0.5 * tracks.fs;
    for (std::uint32_t k = 0; k < tracks.nframes; ++k)
        if (tracks.f0[k] > 0.0) lowest = std::min(lowest, tracks.f0[k]);
    const auto most = static_cast<std::size_t>(0.5 * tracks.fs / lowest) + 1;
    harmonicpart part(tracks, wholevectors(most + 1));
    for (std::uint32_t k = 0; k < tracks.nframes; ++k) {
        const std::size_t first = std::size_t{k} * tracks.lframe;
        if (first >= nsamples) break;
        part.addinterval(k, std::min<std::size_t>(tracks.lframe, nsamples - first),
                         samples + first);
    }
}

}  // namespace nalveo
