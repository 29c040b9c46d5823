#include "analysis/fvanalysis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include "analysis/harmonicanalysis.h"
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
    alignedreals signal;  // [nfft]
    alignedreals re;      // [nfft + 1] the upper half of the bins only as far as used, and
    alignedreals im;      //   a vector more, so that one may begin at any bin
    alignedreals power;   // [nfft / 2 + 1]
    std::vector<double> frequency;  // one per harmonic, Hz; 0 = dropped
    std::vector<double> match;      // one per harmonic; becomes its voicing probability
    std::vector<double> boundary;   // one per harmonic: probability that voicing ends below it

    explicit fvscratch(const bandframe &largest)
        : signal(largest.nfft),
          re(std::size_t{largest.nfft} + 1 + vectorlength),
          im(re.size()),
          power(largest.nfft / 2 + 1),
          frequency(largest.nfft / 2),
          match(largest.nfft / 2),
          boundary(largest.nfft / 2),
          windows(largest.a + 1) {}

    // Hann window of half length a, peak 2: cos(pi i / a) + 1, i = -a .. a. Made at the first use
    // of its length and kept for the run, each cosine by itself: a frame that holds a lone click
    // has a flat spectrum, and the last bit of the window decides where its local maxima are.
    const double *windowof(std::uint32_t a) {
        std::vector<double> &window = windows[a];
        if (window.empty()) {
            window.assign(2 * std::size_t{a} + 1, 2.0);
            for (std::size_t i = 1; i <= a; ++i) {
                window[a + i] = cosine(pi * static_cast<double>(i) / a) + 1.0;
                window[a - i] = window[a + i];
            }
        }
        return window.data();
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
// throughout, transformed; then its power.
void loadspectrum(const double *x, std::uint32_t n, std::uint32_t centre, const bandframe &frame,
                  fvscratch &scratch) {
    const double *const window = scratch.windowof(frame.a);
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

// Whether ln p > ln q in doubles. Powers that differ by less than some ulps can have one logarithm,
// powers further apart cannot.
bool islouder(double p, double q) {
    return p > q && (p > q * (1.0 + 1e-12) || logarithm(p) > logarithm(q));
}

// Highest local maximum of the log power spectrum among bins from .. to - 1, the first of equal
// ones; without any, the bin nearest to the harmonic itself.
spectralpeak findpeak(const alignedreals &power, std::uint32_t from, std::uint32_t to,
                      double harmonic, double spacing) {
    std::uint32_t bin = 0;
    for (std::uint32_t i = from; i < to; ++i)
        if (islouder(power[i], power[i - 1]) && islouder(power[i], power[i + 1]) &&
            (bin == 0 || islouder(power[i], power[bin])))
            bin = i;
    if (bin == 0) {
        const auto nearest = static_cast<std::uint32_t>(std::floor(harmonic / spacing + 0.5));
        return {nearest, logarithm(power[nearest]), nearest * spacing};
    }
    parabola p;
    parabfitpoints(&p, logarithm(power[bin - 1]), logarithm(power[bin]), logarithm(power[bin + 1]));
    return {bin, parabexty(&p), (bin + parabextx(&p)) * spacing};
}

// A spectral line on bins i at u = i ratio: the Hann window's transform W(t) at the distance
// t = u - position from the line and from its mirror image.
struct spectralline {
    double ratio;
    double position;
    double mirror;

    // lwin and f / fs in the units that turn frequencies into distances: lwin f / fs. The mirror
    // image is at -f or, seen from the top of the band, at fs - f.
    spectralline(std::uint32_t lwin, std::uint32_t nfft, double f, double fs)
        : ratio(static_cast<double>(lwin) / nfft),
          position(lwin * f / fs),
          mirror(f < fs / 4.0 ? -position : lwin - position) {}
};

// Sums over the bins of a line: of the squared model, of the power, and of the spectrum's parts
// times the model.
struct linesums {
    double model2;
    double power;
    double re;
    double im;
};

// Power series of W(t) = sin(pi t) / (pi t (1 - t^2)) in t^2: the terms of the sine's, divided by
// 1 - t^2, are its partial sums, which are the negative rests, as the whole is sin(pi) = 0. For
// |t| <= 1 it is exact to rounding.
constexpr std::size_t nterms = 14;
constexpr std::array<double, nterms> makelineseries() {
    constexpr int last = 24;
    std::array<double, nterms> c{};
    double rest = 0.0;
    for (int k = last; k > 0; --k) {
        double term = k % 2 == 0 ? -1.0 : 1.0;
        for (int i = 1; i <= k; ++i) term *= pi * pi / (2 * i * (2 * i + 1));
        rest += term;
        if (k <= static_cast<int>(nterms)) c[static_cast<std::size_t>(k - 1)] = rest;
    }
    return c;
}
constexpr std::array<double, nterms> lineseries = makelineseries();

// W(t) up to scale, W(0) = 1, as a quotient. With d = t less the nearest even number the sines of t
// and d are equal, so that W(t) = W(d) d (1 - d^2) / (t (1 - t^2)). No accuracy is lost where the
// sine is 0, which is where the quotient is 0 / 0, t = 0 and +-1, or close.
template <class Real8>
struct quotient {
    Real8 numerator;
    Real8 denominator;
};

template <class Real8>
[[gnu::always_inline]] inline quotient<Real8> linevalue(const Real8 &t) {
    constexpr double integers = 6755399441055744.0;  // 1.5 2^52: next to it a unit is the last bit
    const Real8 d = t - 2.0 * ((t * 0.5 + integers) - integers);
    const Real8 d2 = d * d;
    Real8 w = d2 * lineseries[nterms - 1] + lineseries[nterms - 2];
    for (std::size_t k = nterms - 2; k-- > 0;) w = w * d2 + lineseries[k];
    const Real8 denominator = t * (1.0 - t * t);
    const auto pole = denominator == 0.0;
    return {select(pole, w, w * d * (1.0 - d2)), select(pole, Real8::all(1.0), denominator)};
}

// Bin `lane` of a vector is at stride lane; the split layout is read to the end of the vector.
template <class Real8, std::size_t stride>
[[gnu::always_inline]] inline Real8 loadbins(const double *x, std::size_t count) {
    if constexpr (stride == 1) {
        return Real8::load(x);
    } else {
        Real8 v{};
        for (std::size_t lane = 0; lane < std::min(count, vectorlength); ++lane)
            v.set(lane, x[stride * lane]);
        return v;
    }
}

template <std::size_t stride>
struct linekernel {
    template <class Real8>
    [[gnu::always_inline]] static linesums run(const double *re, const double *im,
                                               const spectralline *line, std::size_t from,
                                               std::size_t count) {
        const Real8 lanes = Real8::count();
        Real8 model2{}, power{}, sumre{}, sumim{};
        for (std::size_t k = 0; k < count; k += vectorlength) {
            const Real8 u = (lanes + static_cast<double>(from + k)) * line->ratio;
            const quotient<Real8> direct = linevalue(u - line->position);
            const quotient<Real8> mirror = linevalue(u - line->mirror);
            const Real8 both =
                (direct.numerator * mirror.denominator + mirror.numerator * direct.denominator) /
                (direct.denominator * mirror.denominator);
            const auto inside = lanes < static_cast<double>(count - k);
            const Real8 m = select(inside, both, Real8{});
            const Real8 xre =
                select(inside, loadbins<Real8, stride>(re + stride * k, count - k), Real8{});
            const Real8 xim =
                select(inside, loadbins<Real8, stride>(im + stride * k, count - k), Real8{});
            model2 += m * m;
            power += xre * xre + xim * xim;
            sumre += xre * m;
            sumim += xim * m;
        }
        return {sumof(model2), sumof(power), sumof(sumre), sumof(sumim)};
    }
};

// Correlation of a line with bins from .. from + count - 1 of a spectrum; re and im point to the
// first of them.
template <std::size_t stride>
double matchline(const double *re, const double *im, const spectralline &line, std::size_t from,
                 std::size_t count) {
    const linesums sums = runwidest<linekernel<stride>>(re, im, &line, from, count);
    const double energies = sums.model2 * sums.power;
    return energies > 0.0 ? std::sqrt((sums.re * sums.re + sums.im * sums.im) / energies) : 0.0;
}

// Frequencies and match values of the harmonics, in order. Returns how many bands there are.
std::size_t matchharmonics(const bandframe &frame, double fs, fvscratch &scratch) {
    double previous = -std::numeric_limits<double>::max();
    std::size_t count = 0;
    auto bin = static_cast<std::uint32_t>(
        std::min(std::ceil(0.5 * frame.f0 / frame.spacing), static_cast<double>(frame.nfft)));
    for (std::uint32_t h = 1; (h + 0.5) * frame.f0 < fs / 2.0; ++h) {
        const double edge = (h + 0.5) * frame.f0;
        const auto to = static_cast<std::uint32_t>(std::ceil(edge / frame.spacing));
        const spectralpeak peak =
            findpeak(scratch.power, bin, to, edge - 0.5 * frame.f0, frame.spacing);
        bin = to;
        // A peak 15 dB below its predecessor is no harmonic of the same voice. One 15 dB above
        // shows that the predecessor was none. Either way the next is compared with this one.
        scratch.frequency[count] = 0.0;
        if (previous - peakdrop <= peak.height) {
            scratch.frequency[count] = peak.frequency;
            const std::size_t from = peak.bin - frame.halfband;
            scratch.match[count] =
                matchline<1>(scratch.re.data() + from, scratch.im.data() + from,
                             spectralline(frame.lwin, frame.nfft, peak.frequency, fs), from,
                             2 * std::size_t{frame.halfband} + 1);
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
        scratch.match[kept] = power(scratch.match[h], sharpening);
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
    const std::size_t from = bin - halfband;
    return matchline<2>(spectrum + 2 * from, spectrum + 2 * from + 1,
                        spectralline(lwin, nfft, f, fs), from, 2 * std::size_t{halfband} + 1);
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
