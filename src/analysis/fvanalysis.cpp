#include "analysis/fvanalysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include "analysis/defaults.h"
#include "analysis/harmonicanalysis.h"
#include "analysis/spectrallines.h"
#include "numeric/aligned.h"
#include "numeric/dft.h"
#include "numeric/elementary.h"
#include "numeric/matvect.h"
#include "numeric/phasor.h"
#include "numeric/polynom.h"
#include "numeric/windowing.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

constexpr double peakdrop = 3.4538776394910693;  // 15 dB in natural-log power, 1.5 ln 10
constexpr double sharpening = 8.31295041412083;  // ln 0.5 / ln 0.92: a match of 0.92 is even odds
constexpr double lowestboundary = 1000.0;        // Hz
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

    // Upper edge of the band of harmonic h, Hz, and the bin nearest to the harmonic itself.
    double edgeabove(std::size_t h) const { return (static_cast<double>(h) + 0.5) * f0; }
    std::uint32_t nearestbin(std::size_t h) const {
        const double harmonic = edgeabove(h) - 0.5 * f0;
        return static_cast<std::uint32_t>(std::floor(harmonic / spacing + 0.5));
    }
};

// Scratch of one call, sized for the lowest f0.
struct fvscratch {
    alignedreals signal;  // [nfft]
    alignedreals re;      // [nfft + 1] the upper half of the bins only as far as used
    alignedreals im;
    alignedreals power;             // [nfft / 2 + 1] and a vector more
    alignedreals logpower;          // the same; filled where the search for peaks needs it
    peakbands bands;                // one per harmonic
    std::vector<double> levels;     // three per harmonic: log powers around its peak
    linebatch lines;                // of the harmonics that are kept
    std::vector<double> frequency;  // one per harmonic kept, Hz
    std::vector<double> voicing;    // one each: probability that it is voiced
    std::vector<double> boundary;   // one each: probability that voicing ends below it
    windowcache windows{winhannaboutcentre};

    explicit fvscratch(const bandframe &largest)
        : signal(largest.nfft),
          re(std::size_t{largest.nfft} + 1),
          im(re.size()),
          power(largest.nfft / 2 + 1 + vectorlength),
          logpower(power.size()) {}
};

// Hann-windowed frame with its centre at time 0, so that a sinusoid's line has one phase
// throughout, transformed; then its power.
void loadspectrum(const double *x, std::uint32_t n, std::uint32_t centre, const bandframe &frame,
                  fvscratch &scratch) {
    const double *const window = scratch.windows.get(frame.lwin);
    const framespan span = getframespan(n, centre, frame.a);
    const std::size_t a = frame.a;
    const std::size_t half = frame.nfft / 2;
    double *const signal = scratch.signal.data();
    std::fill(signal, signal + frame.nfft, 0.0);
    for (std::size_t k = span.first; k < a; ++k)
        signal[frame.nfft - a + k] = x[centre + k - a] * window[k];
    for (std::size_t k = a; k < span.end; ++k) signal[k - a] = x[centre + k - a] * window[k];

    double *const re = scratch.re.data();
    double *const im = scratch.im.data();
    fftreal(static_cast<std::int32_t>(frame.nfft), signal, re, im);
    powerspectrum(half + 1, re, im, scratch.power.data());
    // The line of a harmonic close to fs / 2 reaches beyond.
    for (std::size_t i = 1; i <= frame.halfband; ++i) {
        re[half + i] = re[half - i];
        im[half + i] = -im[half - i];
    }
}

struct spectralpeak {
    std::uint32_t bin;
    double height;
    double frequency;
};

// Harmonics are the highest peaks of the log spectrum. The powers have the same peaks, unless two
// differ by so little that their logarithms may be equal or in another order, as in the flat
// spectrum of a click. Then the logarithms decide.
void findharmonicpeaks(std::size_t half, fvscratch &scratch) {
    if (findpeaks(scratch.power.data(), half, scratch.bands)) return;
    double *const logpower = scratch.logpower.data();
    std::copy_n(scratch.power.data(), half + 1, logpower);
    logarithms(logpower, half + 1);
    findpeaks(logpower, half, scratch.bands);
}

// Log powers around the peak of every harmonic, the only ones that are needed.
void takelevels(const bandframe &frame, fvscratch &scratch) {
    const peakbands &bands = scratch.bands;
    scratch.levels.resize(3 * bands.count);
    for (std::size_t h = 0; h < bands.count; ++h) {
        const std::size_t bin = bands.peaks[h] != 0 ? bands.peaks[h] : frame.nearestbin(h + 1);
        std::copy_n(scratch.power.data() + bin - 1, 3, scratch.levels.data() + 3 * h);
    }
    logarithms(scratch.levels.data(), scratch.levels.size());
}

// Peak of harmonic h: the vertex at the bin that was found or, without one, the bin nearest to the
// harmonic itself.
spectralpeak peakof(std::size_t h, const bandframe &frame, const fvscratch &scratch) {
    const std::uint32_t bin = scratch.bands.peaks[h - 1];
    const double *const levels = scratch.levels.data() + 3 * (h - 1);
    if (bin == 0) {
        const std::uint32_t nearest = frame.nearestbin(h);
        return {nearest, levels[1], nearest * frame.spacing};
    }
    parabola p;
    parabfit(levels, &p);
    return {bin, parabexty(&p), (bin + parabextx(&p)) * frame.spacing};
}

// Finds the harmonics that are worth a look, in order: their frequencies and lines.
void findharmonics(const bandframe &frame, const linegrid &grid, fvscratch &scratch) {
    peakbands &bands = scratch.bands;
    // An f0 beyond the spectrum has a first band beyond it, and none that is searched.
    bands.begin(static_cast<std::uint32_t>(
        std::min(std::ceil(0.5 * frame.f0 / frame.spacing), 1.0 * frame.nfft)));
    for (std::size_t h = 1; frame.edgeabove(h) < grid.fs / 2.0; ++h)
        bands.add(static_cast<std::uint32_t>(std::ceil(frame.edgeabove(h) / frame.spacing)));
    findharmonicpeaks(frame.nfft / 2, scratch);
    takelevels(frame, scratch);

    scratch.frequency.clear();
    scratch.lines.clear();
    const auto keep = [&](const spectralpeak &peak) {
        scratch.lines.add(grid, peak.bin, peak.frequency);
        scratch.frequency.push_back(peak.frequency);
    };
    // A peak 15 dB below its predecessor is no harmonic of the same voice. One 15 dB above shows
    // that the predecessor was none. Either way the next is compared with this one.
    constexpr double none = -std::numeric_limits<double>::max();
    spectralpeak previous{0, none, 0.0};
    bool pending = false;  // whether the predecessor is a harmonic as far as can be seen
    for (std::size_t h = 1; h <= bands.count; ++h) {
        const spectralpeak peak = peakof(h, frame, scratch);
        if (pending && !(previous.height < peak.height - peakdrop)) keep(previous);
        pending = previous.height - peakdrop <= peak.height;
        previous = peak;
    }
    if (pending) keep(previous);
}

// Turns the matches of the lines into probabilities that their harmonics are voiced.
void ratevoicing(const linegrid &grid, fvscratch &scratch) {
    matchlines(scratch.re.data(), scratch.im.data(), grid, scratch.lines);
    const auto &matches = scratch.lines.match2;
    scratch.voicing.assign(matches.begin(),
                           matches.begin() + static_cast<std::ptrdiff_t>(scratch.lines.count));
    powers(scratch.voicing.data(), scratch.voicing.size(), 0.5 * sharpening);
}

// Most probable boundary. That below harmonic j takes all harmonics before it for voiced and all
// from j on for unvoiced.
double findboundary(fvscratch &scratch) {
    const std::vector<double> &p = scratch.voicing;
    const std::size_t count = p.size();
    std::vector<double> &probability = scratch.boundary;
    probability.resize(count);
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

}  // namespace

int getfvoicing(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, const double *f0, double *fv, double fs) {
    fvscratch scratch(bandframe(lowestvoiced(f0, nframes, defaultf0min), fs));

    for (std::uint32_t k = 0; k < nframes; ++k) {
        fv[k] = 0.0;
        if (!(f0[k] >= lowestmodelled)) continue;
        const bandframe frame(f0[k], fs);
        const linegrid grid{frame.lwin, frame.nfft, frame.halfband, fs};
        loadspectrum(waveform, n, first + k * lframe, frame, scratch);
        findharmonics(frame, grid, scratch);
        ratevoicing(grid, scratch);
        fv[k] = findboundary(scratch);
    }
    return medianfilt(fv, nframes, medianlength);
}

double slm(const double *spectrum, std::uint32_t nfft, std::uint32_t lwin, std::uint32_t bin,
           std::uint32_t halfband, double fs, double f) {
    const linegrid grid{lwin, nfft, halfband, fs};
    linebatch line;
    line.add(grid, bin, f);
    std::vector<double> re(std::size_t{bin} + halfband + 1);
    std::vector<double> im(re.size());
    for (std::size_t i = bin - halfband; i < re.size(); ++i) {
        re[i] = spectrum[2 * i];
        im[i] = spectrum[2 * i + 1];
    }
    matchlines(re.data(), im.data(), grid, line);
    return std::sqrt(line.match2[0]);
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
