#include "analysis/fvanalysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include "analysis/harmonicanalysis.h"
#include "numeric/dft.h"
#include "numeric/matvect.h"
#include "numeric/polynom.h"
#include "numeric/rotation.h"
#include "numeric/windowing.h"

namespace {

constexpr double peakdrop = 3.4538776394910693;  // 15 dB in natural-log power, 1.5 ln 10
constexpr double sharpening = 8.31295041412083;  // ln 0.5 / ln 0.92: a match of 0.92 is even odds
constexpr double lowestboundary = 1000.0;        // Hz
constexpr double sizingf0 = 60.0;                // Hz; scratch is sized for this or the lowest f0
constexpr std::uint32_t medianlength = 5;        // frames

// Sizes that follow from a frame's f0.
struct bandframe {
    double f0;
    std::uint32_t lwin;  // three periods, odd
    std::uint32_t a;     // half of it
    std::uint32_t nfft;
    double spacing;  // of bins, Hz
    std::uint32_t halfband;

    bandframe(double frequency, double fs)
        : f0(frequency),
          lwin(getwinlengthnperiodsodd(3.0, f0, fs)),
          a(lwin / 2),
          nfft(getwinlengthceilpot2(4 * lwin)),
          spacing(fs / nfft),
          halfband(
              static_cast<std::uint32_t>(std::min(std::floor(0.5 * f0 / spacing), 0.5 * nfft))) {}
};

// Scratch of one call, sized for the lowest f0.
struct fvscratch {
    std::vector<double> spectrum;   // [2 nfft] interleaved
    std::vector<double> logpower;   // [nfft / 2 + 1]
    std::vector<double> frequency;  // one per harmonic, Hz; 0 = dropped
    std::vector<double> match;      // one per harmonic; becomes its voicing probability
    std::vector<double> boundary;   // one per harmonic: probability that voicing ends below it

    explicit fvscratch(const bandframe &largest)
        : spectrum(2 * std::size_t{largest.nfft}),
          logpower(largest.nfft / 2 + 1),
          frequency(largest.nfft / 2),
          match(largest.nfft / 2),
          boundary(largest.nfft / 2),
          windows(largest.a + 1) {}

    // Right half of the Hann window of half length a, peak 2: cos(pi i / a) + 1. Made at the first
    // use of its length and kept for the run, each cosine by itself: a frame that holds a lone
    // click has a flat spectrum, and the last bit of the window decides where its local maxima are.
    const std::vector<double> &windowof(std::uint32_t a) {
        std::vector<double> &window = windows[a];
        if (window.empty()) {
            window.assign(std::size_t{a} + 1, 2.0);
            for (std::uint32_t i = 1; i <= a; ++i) window[i] = std::cos(pi * i / a) + 1.0;
        }
        return window;
    }

   private:
    std::vector<std::vector<double>> windows;  // by half length
};

struct spectralpeak {
    std::uint32_t bin;
    double height;
    double frequency;
};

// Hann-windowed frame with its centre at time 0, so that a sinusoid's line has one phase
// throughout, transformed; then its log power.
void loadspectrum(const double *x, std::uint32_t n, std::uint32_t centre, const bandframe &frame,
                  fvscratch &scratch) {
    const std::vector<double> &window = scratch.windowof(frame.a);
    double *const spectrum = scratch.spectrum.data();
    std::fill(spectrum, spectrum + 2 * std::size_t{frame.nfft}, 0.0);
    spectrum[0] = 2.0 * x[centre];
    for (std::size_t i = 1; i <= frame.a; ++i) {
        if (centre + i < n) spectrum[2 * i] = x[centre + i] * window[i];
        if (centre >= i) spectrum[2 * (frame.nfft - i)] = x[centre - i] * window[i];
    }
    fftc(static_cast<std::int32_t>(frame.nfft), spectrum);
    for (std::size_t i = 0; i <= frame.nfft / 2; ++i) {
        const double re = spectrum[2 * i];
        const double im = spectrum[2 * i + 1];
        scratch.logpower[i] = std::log(re * re + im * im);
    }
}

// Highest local maximum among bins from .. to - 1, the first of equal ones; without any, the bin
// nearest to the harmonic itself.
spectralpeak findpeak(const std::vector<double> &s, std::uint32_t from, std::uint32_t to,
                      double harmonic, double spacing) {
    std::uint32_t bin = 0;
    for (std::uint32_t i = from; i < to; ++i)
        if (s[i] > s[i - 1] && s[i] > s[i + 1] && (bin == 0 || s[i] > s[bin])) bin = i;
    if (bin == 0) {
        const auto nearest = static_cast<std::uint32_t>(std::floor(harmonic / spacing + 0.5));
        return {nearest, s[nearest], nearest * spacing};
    }
    parabola p;
    parabfitpoints(&p, s[bin - 1], s[bin], s[bin + 1]);
    return {bin, parabexty(&p), (bin + parabextx(&p)) * spacing};
}

// Frequencies and match values of the harmonics, in order. Returns how many bands there are.
std::size_t matchharmonics(const bandframe &frame, double fs, fvscratch &scratch) {
    double previous = -std::numeric_limits<double>::max();
    std::size_t count = 0;
    auto bin = static_cast<std::uint32_t>(
        std::min(std::ceil(0.5 * frame.f0 / frame.spacing), static_cast<double>(frame.nfft)));
    for (double h = 1.0; (h + 0.5) * frame.f0 < fs / 2.0; h += 1.0) {
        const double edge = (h + 0.5) * frame.f0;
        const auto to = static_cast<std::uint32_t>(std::ceil(edge / frame.spacing));
        const spectralpeak peak =
            findpeak(scratch.logpower, bin, to, edge - 0.5 * frame.f0, frame.spacing);
        bin = to;
        // A peak 15 dB below its predecessor is no harmonic of the same voice. One 15 dB above
        // shows that the predecessor was none. Either way the next is compared with this one.
        scratch.frequency[count] = 0.0;
        if (previous - peakdrop <= peak.height) {
            scratch.frequency[count] = peak.frequency;
            scratch.match[count] = slm(scratch.spectrum.data(), frame.nfft, frame.lwin, peak.bin,
                                       frame.halfband, fs, peak.frequency);
            if (count > 0 && previous < peak.height - peakdrop) scratch.frequency[count - 1] = 0.0;
        }
        previous = peak.height;
        ++count;
    }
    return count;
}

// Moves the harmonics that are left to the front and turns their match values into probabilities.
std::size_t compactharmonics(std::size_t count, fvscratch &scratch) {
    std::size_t kept = 0;
    for (std::size_t h = 0; h < count; ++h) {
        if (!(scratch.frequency[h] > 0.0)) continue;
        scratch.frequency[kept] = scratch.frequency[h];
        scratch.match[kept] = std::pow(scratch.match[h], sharpening);
        ++kept;
    }
    return kept;
}

// Most probable boundary. That below harmonic j takes all harmonics before it for voiced and all
// from j on for unvoiced.
double findboundary(std::size_t count, fvscratch &scratch) {
    const std::vector<double> &p = scratch.match;
    std::vector<double> &probability = scratch.boundary;
    double running = 1.0;
    for (std::size_t j = count; j-- > 0;) {
        running *= 1.0 - p[j];
        probability[j] = running;
    }
    running = 1.0;
    for (std::size_t j = 1; j < count; ++j) {
        running *= p[j - 1];
        probability[j] *= running;
    }
    std::size_t j = 0;
    while (j < count && scratch.frequency[j] < lowestboundary) ++j;
    double best = 0.0;
    double boundary = lowestboundary;
    for (; j < count; ++j) {
        if (!(probability[j] > best)) continue;
        best = probability[j];
        boundary = scratch.frequency[j];
    }
    return boundary;
}

// Transform of the Hann window up to scale, W(x) = sin(x) (1/x - (1/(pi + x) + 1/(x - pi)) / 2),
// with its limits where a quotient has none. sine is sin(x) by rotation; close to the zeros of the
// denominators its rounding error would be blown up, so there it is computed afresh.
double windowkernel(double x, double sine) {
    constexpr double close = 0.01;
    const double magnitude = std::abs(x);
    if (magnitude < close || std::abs(magnitude - pi) < close) {
        if (x == 0.0) return 1.0;
        if (magnitude == pi) return 0.5;
        sine = std::sin(x);
    }
    return sine * (1.0 / x - 0.5 * (1.0 / (pi + x) + 1.0 / (x - pi)));
}

}  // namespace

int getfvoicing(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, const double *f0, double *fv, double fs) {
    double lowest = sizingf0;
    for (std::size_t k = 0; k < nframes; ++k)
        if (f0[k] >= lowestmodelled) lowest = std::min(lowest, f0[k]);
    fvscratch scratch(bandframe(lowest, fs));

    for (std::uint32_t k = 0; k < nframes; ++k) {
        fv[k] = 0.0;
        if (!(f0[k] >= lowestmodelled)) continue;
        const bandframe frame(f0[k], fs);
        loadspectrum(waveform, n, first + k * lframe, frame, scratch);
        const std::size_t harmonics = matchharmonics(frame, fs, scratch);
        fv[k] = findboundary(compactharmonics(harmonics, scratch), scratch);
    }
    return medianfilt(fv, nframes, medianlength);
}

double slm(const double *spectrum, std::uint32_t nfft, std::uint32_t lwin, std::uint32_t bin,
           std::uint32_t halfband, double fs, double f) {
    const double ratio = static_cast<double>(lwin) / nfft;
    const double line = lwin * f / fs;  // where the line is, in the kernel's own unit
    const std::uint32_t from = bin - halfband;
    const std::uint32_t to = bin + halfband;
    // The line of -f, or seen from the top of the band that of fs - f.
    const bool lower = f < fs / 4.0;
    const auto distance = [=](double u) { return pi * (u - line); };
    const auto mirrordistance = [=](double u) {
        return lower ? pi * (u + line) : pi * (u - lwin + line);
    };
    const phasor step = unitphasor(pi * ratio);
    phasor z = unitphasor(distance(from * ratio));
    phasor mirror = unitphasor(mirrordistance(from * ratio));

    double model2 = 0.0;
    double power = 0.0;
    double re = 0.0;
    double im = 0.0;
    for (std::size_t i = from; i <= to; ++i) {
        const double u = static_cast<double>(i) * ratio;
        const double m =
            windowkernel(distance(u), z.im) + windowkernel(mirrordistance(u), mirror.im);
        const double xre = spectrum[2 * i];
        const double xim = spectrum[2 * i + 1];
        model2 += m * m;
        power += xre * xre + xim * xim;
        re += xre * m;
        im += xim * m;
        z.rotate(step);
        mirror.rotate(step);
    }
    const double energies = model2 * power;
    return energies > 0.0 ? std::sqrt((re * re + im * im) / energies) : 0.0;
}

int medianfilt(double *track, std::uint32_t nframes, std::uint32_t length) {
    const std::size_t h = length / 2;
    const std::size_t window = 2 * h + 1;
    const std::size_t count = nframes;
    if (count < window) return 0;
    // Medians go to the first entry of their window while later windows still hold unsmoothed
    // values; one shift then centres them all. The last h values have no median written over them.
    const std::vector<double> ends(track, track + h);
    std::vector<double> sorted(window);
    for (std::size_t i = 0; i + window <= count; ++i) {
        copymat(sorted.data(), track + i, static_cast<std::uint32_t>(window));
        track[i] = medianelem(sorted.data(), static_cast<std::uint32_t>(window));
    }
    std::copy_backward(track, track + (count - window + 1), track + (count - window + 1 + h));
    std::copy(ends.begin(), ends.end(), track);
    return 0;
}
