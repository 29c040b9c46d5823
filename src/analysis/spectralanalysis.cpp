#include "analysis/spectralanalysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <vector>

#include "numeric/dft.h"
#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "numeric/windowing.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

constexpr double powerfloor = 1.0000000000000002e-10;  // per window sample; the square of 1e-5
constexpr std::uint32_t shortestwindow = 3;  // a period's window needs a middle and two ends

// Where a frame of a signal is, and what is to be taken off its samples.
struct offsetframe {
    framespan span;         // positions that lie inside the signal
    const double *samples;  // sample at position span.first
    double offset;

    std::size_t size() const { return span.end - span.first; }
};

struct sumkernel {
    template <class Real8>
    [[gnu::always_inline]] static double run(const double *x, std::size_t n) {
        return sumof<Real8>(x, n);
    }
};

// Finds a frame and its mean. Deliberate: the sum is divided by the full length of the window also
// where the signal's ends cut it short.
offsetframe meanframe(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                      std::uint32_t lwin) {
    const std::uint32_t h = lwin / 2;
    offsetframe frame{getframespan(nsamples, centre, h), nullptr, 0.0};
    frame.samples = x + (std::size_t{centre} + frame.span.first - h);
    frame.offset = runwidest<sumkernel>(frame.samples, frame.size()) / lwin;
    return frame;
}

// Correlates a frame with e^(j omega i), i = 0, 1, .. from its first sample. Eight phasors, for as
// many samples in a row, turn by eight samples at a time.
struct correlatekernel {
    template <class Real8>
    [[gnu::always_inline]] static phasor run(const offsetframe *frame, phasor step) {
        complexof<Real8> z = powersof<Real8>(step);
        phasor eighth{z.re[vectorlength - 1], z.im[vectorlength - 1]};
        eighth.rotate(step);
        const auto turn = samephasors<Real8>(eighth);
        Real8 sumre{}, sumim{};
        const std::size_t n = frame->size();
        std::size_t i = 0;
        for (; i + vectorlength <= n; i += vectorlength, z.rotate(turn)) {
            const Real8 x = Real8::load(frame->samples + i) - frame->offset;
            sumre += x * z.re;
            sumim += x * z.im;
        }
        phasor sum{sumof(sumre), sumof(sumim)};
        for (std::size_t lane = 0; i < n; ++i, ++lane) {
            const double x = frame->samples[i] - frame->offset;
            sum.re += x * z.re[lane];
            sum.im += x * z.im[lane];
        }
        return sum;
    }
};

// Finds a frame of a voiced signal. Deliberate: what is taken off is not the mean but the mean less
// the amplitude of the component at f0, so that the bin at 0 Hz carries energy in proportion to the
// fundamental and the envelope does not fall off below it.
offsetframe fundamentalframe(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                             std::uint32_t lwin, double f0, double fs) {
    offsetframe frame = meanframe(x, nsamples, centre, lwin);
    phasor sum = runwidest<correlatekernel>(&frame, unitphasor(twopi * f0 / fs));
    sum.re /= lwin;
    sum.im /= lwin;
    frame.offset -= std::sqrt(sum.re * sum.re + sum.im * sum.im);
    return frame;
}

// A plain loop: the compiler turns it into vectors of the width at hand.
struct windowkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const offsetframe *frame, const double *window,
                                           double *windowed) {
        for (std::size_t i = 0; i < frame->size(); ++i)
            windowed[i] = (frame->samples[i] - frame->offset) * window[i];
    }
};

// Power spectrum, bins 0 .. nfft / 2, of a windowed frame with zeros beyond the signal and behind
// the window.
void transformframe(const offsetframe &frame, const double *window, std::uint32_t nfft,
                    namem &record, double *power) {
    const std::size_t first = frame.span.first;
    double *const windowed = record.frame.data();
    std::fill(windowed, windowed + first, 0.0);
    runwidest<windowkernel>(&frame, window + first, windowed + first);
    std::fill(windowed + frame.span.end, windowed + nfft, 0.0);
    double *const re = record.real.data();
    double *const im = record.imag.data();
    fftreal(static_cast<std::int32_t>(nfft), windowed, re, im);
    powerspectrum(nfft / 2 + std::size_t{1}, re, im, power);
}

// Plain Hann window, scaled for the number of its samples that are not 0.
void scaledhann(double *window, std::uint32_t lwin) {
    winhanning(window, lwin, 0);
    const double scale = 2.0 * lwin / (lwin - 1);
    for (std::size_t i = 0; i < lwin; ++i) window[i] *= scale;
}

void scaledcomplement(double *window, std::uint32_t lwin) {
    std::vector<double> hann(lwin);
    scaledhann(hann.data(), lwin);
    wincomplementary(hann.data(), window, lwin);
}

// Second half of the spectrum from the first.
void mirror(double *spectrum, std::size_t nfft) {
    for (std::size_t k = 1; k < nfft / 2; ++k) spectrum[nfft - k] = spectrum[k];
}

// Log spectrum of powers that have a floor and a scale.
struct logpower {
    const double *power;
    double lowest;
    double scale;

    double at(std::size_t k) const {
        return 0.5 * logarithm((power[k] > lowest ? power[k] : lowest) / scale);
    }
    // Whether bin i is above bin j. Powers that differ by less than some ulps can have one
    // logarithm, powers further apart cannot.
    bool above(std::size_t i, std::size_t j) const {
        const double p = std::max(power[i], lowest);
        const double q = std::max(power[j], lowest);
        return p > q && (p > q * (1.0 + 1e-12) || at(i) > at(j));
    }
    // Highest bin of from .. to, the first of equal ones.
    std::size_t highest(std::size_t from, std::size_t to) const {
        std::size_t p = from;
        for (std::size_t k = from + 1; k <= to; ++k)
            if (above(k, p)) p = k;
        return p;
    }
};

// A plain loop for the compiler to turn into vectors, as above.
struct ratiokernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const logpower *spectrum, std::size_t n, double *ratio) {
        for (std::size_t k = 0; k < n; ++k) {
            const double power = spectrum->power[k];
            ratio[k] = (power > spectrum->lowest ? power : spectrum->lowest) / spectrum->scale;
        }
    }
};

// Fills bins 0 .. nfft / 2; those at 0 Hz and fs / 2 take the values of their neighbours.
void fillspectrum(const logpower &from, std::size_t nfft, double *spectrum) {
    const std::size_t half = nfft / 2;
    runwidest<ratiokernel>(&from, half, spectrum);
    logarithms(spectrum, half);
    for (std::size_t k = 1; k < half; ++k) spectrum[k] *= 0.5;
    spectrum[0] = spectrum[1];
    spectrum[half] = spectrum[half - 1];
}

// Draws a straight line from one bin to another, without the last.
void drawline(double *spectrum, std::size_t from, double start, std::size_t to, double end) {
    const double rise = end - start;
    const auto length = static_cast<double>(to - from);
    for (std::size_t i = from; i < to; ++i)
        spectrum[i] = start + static_cast<double>(i - from) * rise / length;
}

// Draws the lines between the harmonic peaks of a log spectrum, bins 0 .. last, one peak per search
// interval of about `spacing` bins. Logarithms are taken of the peaks alone.
void peakenvelope(const logpower &spectrum, std::size_t last, double spacing, double *envelope) {
    const auto a = static_cast<std::size_t>(std::ceil(spacing / 2.0));
    // At least a bin, or a spacing below half a bin would never get to the end.
    const auto b = std::max<std::size_t>(1, static_cast<std::size_t>(std::floor(spacing + 0.5)));
    const auto c = static_cast<std::size_t>(std::floor(1.5 * spacing));
    double level = spectrum.at(0);
    for (std::size_t j = 0; j < last;) {
        if (j + a >= last) {
            std::fill(envelope + j, envelope + last + 1, level);
            return;
        }
        std::size_t p = j + b;
        if (j + c >= last) {  // the last interval is cut off by fs / 2; any maximum serves
            p = spectrum.highest(j + a, last);
        } else if (c > a) {
            const std::size_t highest = spectrum.highest(j + a, j + c);
            // A maximum at an end of the interval is a slope, not a peak.
            if (highest != j + a && highest != j + c) p = highest;
        }
        const double next = spectrum.at(p);
        drawline(envelope, j, level, p, next);
        level = next;
        if (j + c >= last) {
            std::fill(envelope + p, envelope + last + 1, level);
            return;
        }
        j = p;
    }
    envelope[last] = level;
}

}  // namespace

std::uint32_t naframesize(double fs) { return getwinlengthdurodd(0.025, fs); }

namem::namem(std::uint32_t windowlength, std::uint32_t nfft)
    : lwin(windowlength),
      window(windowlength),
      frame(nfft),
      real(nfft / 2 + 1),
      imag(nfft / 2 + 1),
      power(nfft / 2 + 1),
      hann(scaledhann),
      complement(scaledcomplement) {
    winhamming(window.data(), lwin, 1);
}

namem *nameminitialize(std::uint32_t lwin, std::uint32_t nfft) {
    return std::make_unique<namem>(lwin, nfft).release();
}

namem *nameminitializefft(std::uint32_t lwin, std::uint32_t nfft) {
    return nameminitialize(lwin, nfft);
}

int namemdestroy(namem *record) {
    const std::unique_ptr<namem> owned(record);
    return 0;
}

int getnoiselogspectrum(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                        std::uint32_t nfft, double *spectrum, namem *record, double fs) {
    const std::uint32_t lwin = record->lwin;
    transformframe(meanframe(x, nsamples, centre, lwin), record->window.data(), nfft, *record,
                   record->power.data());
    fillspectrum({record->power.data(), lwin * powerfloor, lwin * fs}, nfft, spectrum);
    mirror(spectrum, nfft);
    return 0;
}

int getsignallogspectrum(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                         std::uint32_t nfft, double *buffer, namem *record, double fs, double f0) {
    const std::uint32_t lwin = f0 == 0.0 ? 0 : getwinlengthnperiodsodd(2.0, f0, fs);
    if (lwin < shortestwindow)
        return getnoiselogspectrum(x, nsamples, centre, nfft, buffer, record, fs);
    const offsetframe frame = fundamentalframe(x, nsamples, centre, lwin, f0, fs);
    double *const second = buffer + nfft;
    transformframe(frame, record->hann.get(lwin), nfft, *record, record->power.data());
    transformframe(frame, record->complement.get(lwin), nfft, *record, second);
    for (std::size_t k = 1; k < nfft / 2; ++k) record->power[k] += second[k];
    fillspectrum({record->power.data(), lwin * powerfloor, lwin * lwin * f0}, nfft, buffer);
    mirror(buffer, nfft);
    return 0;
}

int getseevoclogspectrum(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                         std::uint32_t nfft, double *spectrum, namem *record, double fs,
                         double f0) {
    const std::uint32_t lwin = f0 == 0.0 ? 0 : getwinlengthnperiodsodd(3.0, f0, fs);
    if (lwin < shortestwindow)
        return getnoiselogspectrum(x, nsamples, centre, nfft, spectrum, record, fs);
    transformframe(fundamentalframe(x, nsamples, centre, lwin, f0, fs), record->hann.get(lwin),
                   nfft, *record, record->power.data());
    // A spacing beyond the grid is as good as one of all of it.
    peakenvelope({record->power.data(), lwin * powerfloor, lwin * lwin * f0}, nfft / 2,
                 std::min(nfft * f0 / fs, static_cast<double>(nfft)), spectrum);
    mirror(spectrum, nfft);
    return 0;
}

namespace nalveo {

int getrealcepstrum(std::uint32_t nfft, double *spectrum, namem *record) {
    const std::size_t half = nfft / 2;
    const double scale = 1.0 / nfft;
    for (std::size_t k = 0; k <= half; ++k) record->real[k] = spectrum[k] * scale;
    std::fill(record->imag.begin(), record->imag.end(), 0.0);
    ifftreal(static_cast<std::int32_t>(nfft), record->real.data(), record->imag.data(),
             record->frame.data());
    std::copy_n(record->frame.begin(), half + 1, spectrum);
    return 0;
}

}  // namespace nalveo
