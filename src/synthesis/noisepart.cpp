#include <cmath>
#include <vector>

#include "numeric/aligned.h"
#include "numeric/dft.h"
#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "simd/vectors.h"
#include "synthesis/melenvelope.h"
#include "synthesis/parts.h"
#include "synthesis/whitenoise.h"

namespace nalveo {
namespace {

constexpr double responsetime = 0.02;  // s; that much room for the filters' responses

// By how much the mean of the logarithm of a noise's power lies below the logarithm of its mean, in
// nepers of amplitude: half of Euler's constant. The envelope of a voiced frame lacks this: it runs
// smoothly through many harmonics.
constexpr double logarithmicloss = 0.28860783245076643;

// What the envelope of an unvoiced frame lacks to the density of the noise at an angular frequency
// whose cosine is given, in nepers.
//
// The power of noise in a bin of a spectrum has an exponential distribution: the mean of its
// logarithm lies 0.577 below the logarithm of its mean, its variance is pi^2 / 6. A smooth envelope
// lacks the first. One of order P keeps a part of the variance: it has P + 1 values where a window
// of 25 ms (Hamming, 1.36 / 25 ms wide) tells fs / 2 / (1.36 / 25 ms) apart, and more than its
// share of them where the warped axis w is stretched, by dw / d omega. The mean power of what has a
// normal logarithm of variance v is v / 2 above its middle, so that the envelope lacks that much
// less.
double unvoicedgain(const partstracks &t, double cosine) {
    constexpr double variance = pi * pi / 6.0;  // of the logarithm of power
    const double alpha = t.alpha;
    const double stretch = (1.0 - alpha * alpha) / (1.0 + alpha * alpha - 2.0 * alpha * cosine);
    const double kept = (t.order + 1.0) * stretch / (0.5 * t.fs * 0.025 / 1.36);
    return std::max(logarithmicloss - 0.25 * variance * kept, 0.0);
}

std::size_t transformsize(const partstracks &t) {
    const double least = 2.0 * t.lframe + responsetime * t.fs;
    std::size_t size = 2 * vectorlength;
    while (static_cast<double>(size) < least) size *= 2;
    return size;
}

class noisepart {
   public:
    noisepart(const partstracks &t, std::uint64_t noiseseed)
        : tracks(t),
          seed(noiseseed),
          nfft(transformsize(t)),
          nbins(nfft / 2 + 1),
          cosine(wholevectors(nbins)),
          level(cosine.size()),
          unvoiced(nbins),
          re(nbins),
          im(nbins),
          frame(nfft),
          white(std::size_t{2} * t.lframe) {
        warpmultiples(twopi / static_cast<double>(nfft), cosine.size(), t.alpha, cosine.data(),
                      nullptr);
        for (std::size_t i = 0; i < nbins; ++i)
            unvoiced[i] = unvoicedgain(
                t, nalveo::cosine(twopi * static_cast<double>(i) / static_cast<double>(nfft)));
        for (std::size_t n = 0; n < t.lframe; ++n) white[t.lframe + n] = whitenoise(seed, n);
    }

    // Adds the noise of frame k, from one frame before its centre to one after and some more. The
    // frame after the last one is the last one, which holds on.
    void addframe(std::uint32_t k, std::size_t nsamples, double *samples) {
        const std::uint32_t lframe = tracks.lframe;
        const bool more = findgains(std::min(k, tracks.nframes - 1));
        nextwhite(k);
        if (!more) return;
        for (std::size_t n = 0; n < lframe; ++n) {
            frame[n] = tracks.fade[n] * white[n];
            frame[lframe + n] = (1.0 - tracks.fade[n]) * white[lframe + n];
        }
        std::fill(frame.begin() + std::ptrdiff_t{2} * lframe, frame.end(), 0.0);
        const auto size = static_cast<std::int32_t>(nfft);
        fftreal(size, frame.data(), re.data(), im.data());
        for (std::size_t i = 0; i < nbins; ++i) {
            re[i] *= level[i];
            im[i] *= level[i];
        }
        ifftreal(size, re.data(), im.data(), frame.data());

        // The filter has no phase, so that its response goes both ways: half of the room is after
        // the frame, the other half before it, at the end of the transform.
        const std::size_t room = (nfft - 2 * std::size_t{lframe}) / 2;
        const std::size_t centre = std::size_t{k} * lframe;
        addpart(frame.data(), nfft - room, centre, lframe, nsamples, samples);
        addpart(frame.data() + nfft - room, room, centre, lframe + room, nsamples, samples);
    }

   private:
    const partstracks &tracks;
    std::uint64_t seed;
    std::size_t nfft, nbins;
    alignedreals cosine, level;  // of the bins; levels become gains
    alignedreals unvoiced;       // what unvoiced frames lack
    alignedreals re, im, frame;
    std::vector<double> white;  // of the two intervals beside the frame

    // The noise runs on: what was after the last frame is before this one.
    void nextwhite(std::uint32_t k) {
        const std::uint32_t lframe = tracks.lframe;
        if (k == 0) return;
        std::copy_n(white.begin() + lframe, lframe, white.begin());
        for (std::size_t n = 0; n < lframe; ++n)
            white[lframe + n] = whitenoise(seed, std::uint64_t{k} * lframe + n);
    }

    // Turns the envelope of a frame into gains; false when there is no noise in it.
    bool findgains(std::uint32_t k) {
        const bool voiced = tracks.f0[k] > 0.0;
        const double spacing = tracks.fs / static_cast<double>(nfft);
        std::size_t first = 1;  // a waveform has no use for a constant
        if (voiced)
            while (first < nbins &&
                   harmonicshare(static_cast<double>(first) * spacing, tracks.fv[k]) == 1.0)
                ++first;
        if (first == nbins) return false;

        const double *const c = tracks.cc + std::size_t{k} * (tracks.order + 1);
        envelopelevels(c, tracks.order, cosine.data(), cosine.size(), level.data());
        // White noise of variance 1/3 has the density sqrt(1/3) / sqrt(fs); and an inverse
        // transform multiplies by its size.
        const double unit = std::sqrt(3.0 * tracks.fs) / static_cast<double>(nfft);
        std::fill_n(level.begin(), first, 0.0);
        for (std::size_t i = first; i < nbins; ++i)
            level[i] = std::min(level[i], highestlevel) + (voiced ? logarithmicloss : unvoiced[i]);
        exponentials(level.data() + first, nbins - first);
        for (std::size_t i = first; i < nbins; ++i) {
            const double share =
                voiced ? harmonicshare(static_cast<double>(i) * spacing, tracks.fv[k]) : 0.0;
            level[i] *= share > 0.0 ? unit * std::sqrt(1.0 - share) : unit;
        }
        return true;
    }

    // Adds values to the waveform, the first of them `before` samples ahead of the centre.
    static void addpart(const double *values, std::size_t count, std::size_t centre,
                        std::size_t before, std::size_t nsamples, double *samples) {
        const std::size_t skipped = before > centre ? before - centre : 0;
        const std::size_t first = centre + skipped - before;
        for (std::size_t n = skipped; n < count && first + n - skipped < nsamples; ++n)
            samples[first + n - skipped] += values[n];
    }
};

}  // namespace

void addnoise(const partstracks &tracks, std::uint64_t seed, std::size_t nsamples,
              double *samples) {
    noisepart part(tracks, seed);
    for (std::uint32_t k = 0; k <= tracks.nframes; ++k) part.addframe(k, nsamples, samples);
}

}  // namespace nalveo
