#include "analysis/spectralanalysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "numeric/dft.h"
#include "numeric/rotation.h"
#include "numeric/windowing.h"

namespace {

constexpr double powerfloor = 1.0000000000000002e-10;  // per window sample; the square of 1e-5
constexpr std::uint32_t shortestwindow = 3;  // a period's window needs a middle and two ends

// Where a frame of a signal is, and what is to be taken off its samples.
struct offsetframe {
    framespan span;         // positions that lie inside the signal
    const double *samples;  // sample at position span.first
    double offset;

    double at(std::size_t i) const { return samples[i - span.first] - offset; }
};

// Finds a frame and its mean. Deliberate: the sum is divided by the full length of the window also
// where the signal's ends cut it short.
offsetframe meanframe(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                      std::uint32_t lwin) {
    const std::uint32_t h = lwin / 2;
    offsetframe frame{getframespan(nsamples, centre, h), nullptr, 0.0};
    frame.samples = x + (std::size_t{centre} + frame.span.first - h);
    double sum = 0.0;
    for (std::size_t i = frame.span.first; i < frame.span.end; ++i)
        sum += frame.samples[i - frame.span.first];
    frame.offset = sum / lwin;
    return frame;
}

// Finds a frame of a voiced signal. Deliberate: what is taken off is not the mean but the mean less
// the amplitude of the component at f0, so that the bin at 0 Hz carries energy in proportion to the
// fundamental and the envelope does not fall off below it.
offsetframe fundamentalframe(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                             std::uint32_t lwin, double f0, double fs) {
    offsetframe frame = meanframe(x, nsamples, centre, lwin);
    const phasor step = unitphasor(twopi * f0 / fs);
    phasor z{1.0, 0.0};
    double re = 0.0;
    double im = 0.0;
    for (std::size_t i = frame.span.first; i < frame.span.end; ++i) {
        re += frame.at(i) * z.re;
        im += frame.at(i) * z.im;
        z.rotate(step);
    }
    re /= lwin;
    im /= lwin;
    frame.offset -= std::sqrt(re * re + im * im);
    return frame;
}

// Windowed frame from position 0 on, zeros beyond the signal and behind the window, transformed.
void transformframe(const offsetframe &frame, const double *window, std::uint32_t nfft, double *re,
                    double *im) {
    std::fill(re, re + frame.span.first, 0.0);
    for (std::size_t i = frame.span.first; i < frame.span.end; ++i) re[i] = frame.at(i) * window[i];
    std::fill(re + frame.span.end, re + nfft, 0.0);
    std::fill(im, im + nfft, 0.0);
    fftr(static_cast<std::int32_t>(nfft), re, im);
}

// Plain Hann window scaled for the number of its samples that are not 0.
void periodicwindow(double *window, std::uint32_t lwin) {
    winhanning(window, lwin, 0);
    const double scale = 2.0 * lwin / (lwin - 1);
    for (std::size_t i = 0; i < lwin; ++i) window[i] *= scale;
}

// Second half of the spectrum from the first.
void mirror(double *spectrum, std::size_t nfft) {
    for (std::size_t k = 1; k < nfft / 2; ++k) spectrum[nfft - k] = spectrum[k];
}

// The bins at 0 Hz and fs / 2 take the values of their neighbours.
void replaceends(double *spectrum, std::size_t nfft) {
    spectrum[0] = spectrum[1];
    spectrum[nfft / 2] = spectrum[nfft / 2 - 1];
}

// Straight line from one bin to another, without the last.
void drawline(double *spectrum, std::size_t from, std::size_t to) {
    const double start = spectrum[from];
    const double rise = spectrum[to] - start;
    const auto length = static_cast<double>(to - from);
    for (std::size_t i = from; i < to; ++i)
        spectrum[i] = start + static_cast<double>(i - from) * rise / length;
}

// Replaces a log spectrum, bins 0 .. last, by the lines between its harmonic peaks, one peak per
// search interval of about `spacing` bins. Only bins behind the search are overwritten.
void peakenvelope(double *spectrum, std::size_t last, double spacing) {
    const auto a = static_cast<std::size_t>(std::ceil(spacing / 2.0));
    // At least a bin, or a spacing below half a bin would never get to the end.
    const auto b = std::max<std::size_t>(1, static_cast<std::size_t>(std::floor(spacing + 0.5)));
    const auto c = static_cast<std::size_t>(std::floor(1.5 * spacing));
    for (std::size_t j = 0; j < last;) {
        if (j + a >= last) {
            std::fill(spectrum + j, spectrum + last + 1, spectrum[j]);
            return;
        }
        const double *const from = spectrum + j + a;
        if (j + c >= last) {  // the last interval is cut off by fs / 2; any maximum serves
            const auto p = static_cast<std::size_t>(
                std::max_element(from, static_cast<const double *>(spectrum + last + 1)) -
                spectrum);
            drawline(spectrum, j, p);
            std::fill(spectrum + p, spectrum + last + 1, spectrum[p]);
            return;
        }
        std::size_t p = j + b;
        if (c > a) {
            const auto highest = static_cast<std::size_t>(
                std::max_element(from, static_cast<const double *>(spectrum + j + c + 1)) -
                spectrum);
            // A maximum at an end of the interval is a slope, not a peak.
            if (highest != j + a && highest != j + c) p = highest;
        }
        drawline(spectrum, j, p);
        j = p;
    }
}

}  // namespace

std::uint32_t naframesize(double fs) { return getwinlengthdurodd(0.025, fs); }

namem *nameminitialize(std::uint32_t lwin, std::uint32_t nfft) {
    auto record = std::make_unique<namem>();
    record->lwin = lwin;
    record->data = std::make_unique_for_overwrite<double[]>(lwin + 3 * std::size_t{nfft});
    record->window = record->data.get();
    record->imag = record->window + lwin;
    record->periodic = record->imag + nfft;
    winhamming(record->window, lwin, 1);
    return record.release();
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
    const double *const im = record->imag;
    transformframe(meanframe(x, nsamples, centre, lwin), record->window, nfft, spectrum,
                   record->imag);
    const double lowest = lwin * powerfloor;
    const double scale = lwin * fs;
    for (std::size_t k = 1; k < nfft / 2; ++k) {
        double power = spectrum[k] * spectrum[k] + im[k] * im[k];
        if (power < lowest) power = lowest;
        spectrum[k] = std::log(std::sqrt(power / scale));
    }
    replaceends(spectrum, nfft);
    mirror(spectrum, nfft);
    return 0;
}

int getsignallogspectrum(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                         std::uint32_t nfft, double *buffer, namem *record, double fs, double f0) {
    const std::uint32_t lwin = f0 == 0.0 ? 0 : getwinlengthnperiodsodd(2.0, f0, fs);
    if (lwin < shortestwindow)
        return getnoiselogspectrum(x, nsamples, centre, nfft, buffer, record, fs);
    double *const first = buffer;
    double *const second = buffer + nfft;
    double *const im = record->imag;
    double *const window = record->periodic;
    double *const complement = window + lwin;
    periodicwindow(window, lwin);
    wincomplementary(window, complement, lwin);

    const offsetframe frame = fundamentalframe(x, nsamples, centre, lwin, f0, fs);
    transformframe(frame, window, nfft, first, im);
    for (std::size_t k = 0; k <= nfft / 2; ++k) first[k] = first[k] * first[k] + im[k] * im[k];
    transformframe(frame, complement, nfft, second, im);
    const double lowest = lwin * powerfloor;
    const double scale = lwin * lwin * f0;
    for (std::size_t k = 1; k < nfft / 2; ++k) {
        const double power = second[k] * second[k] + im[k] * im[k] + first[k];
        first[k] = 0.5 * std::log(std::max(power, lowest) / scale);
    }
    replaceends(first, nfft);
    mirror(first, nfft);
    return 0;
}

int getseevoclogspectrum(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                         std::uint32_t nfft, double *spectrum, namem *record, double fs,
                         double f0) {
    const std::uint32_t lwin = f0 == 0.0 ? 0 : getwinlengthnperiodsodd(3.0, f0, fs);
    if (lwin < shortestwindow)
        return getnoiselogspectrum(x, nsamples, centre, nfft, spectrum, record, fs);
    const double *const im = record->imag;
    periodicwindow(record->periodic, lwin);
    transformframe(fundamentalframe(x, nsamples, centre, lwin, f0, fs), record->periodic, nfft,
                   spectrum, record->imag);
    const double lowest = lwin * powerfloor;
    const double scale = lwin * lwin * f0;
    for (std::size_t k = 0; k <= nfft / 2; ++k) {
        const double power = spectrum[k] * spectrum[k] + im[k] * im[k];
        spectrum[k] = 0.5 * std::log((power > lowest ? power : lowest) / scale);
    }
    // A spacing beyond the grid is as good as one of all of it.
    peakenvelope(spectrum, nfft / 2, std::min(nfft * f0 / fs, static_cast<double>(nfft)));
    mirror(spectrum, nfft);
    return 0;
}
