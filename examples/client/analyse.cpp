// Analyses a buffer of samples with the routines of the library: here a second of a voice that is
// made up, so that the printed values can be held against what went in.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/fvanalysis.h"
#include "analysis/pitchanalysis.h"
#include "numeric/windowing.h"

namespace {

constexpr double fs = 16000.0;  // Hz
constexpr double pi = std::numbers::pi;
constexpr double voicef0 = 123.0;      // Hz
constexpr double harmonicsend = 4000;  // Hz; above it there is only noise

// Amplitude of the harmonic at a frequency in Hz: -6 dB per octave above 500 Hz.
double amplitude(double f) { return 0.1 / (1.0 + f / 500.0); }

std::vector<double> makevoice(std::uint32_t nsamples) {
    std::vector<double> x(nsamples);
    std::uint32_t seed = 1;
    for (std::uint32_t n = 0; n < nsamples; ++n) {
        seed = seed * 1664525u + 1013904223u;
        x[n] = 0.02 * (seed / 4294967296.0 - 0.5);
        for (double f = voicef0; f < harmonicsend; f += voicef0)
            x[n] += amplitude(f) * std::cos(2.0 * pi * f * n / fs + f);
    }
    return x;
}

// Natural logarithm of the envelope's amplitude density at a frequency in Hz.
double envelope(const double *cc, std::uint32_t order, double f, double alpha) {
    const double warped = fwarp(2.0 * pi * f / fs, alpha);
    double sum = cc[0];
    for (std::uint32_t j = 1; j <= order; ++j) sum += 2.0 * cc[j] * std::cos(j * warped);
    return sum;
}

}  // namespace

int main() {
    constexpr std::uint32_t nsamples = 16000, lframe = 80, order = 39;
    constexpr double f0min = 60.0, f0max = 500.0, alpha = 0.42;
    constexpr std::uint8_t method = 1;
    const std::vector<double> x = makevoice(nsamples);

    const std::uint32_t nframes = getnumframes(nsamples, lframe, 0);
    std::vector<double> f0(nframes), fv(nframes), cc(getccsize(nframes, order));
    getpitch(x.data(), nsamples, lframe, 0, nframes, f0.data(), fs, f0min, f0max);
    getfvoicing(x.data(), nsamples, lframe, 0, nframes, f0.data(), fv.data(), fs);
    refinepitch(x.data(), nsamples, lframe, 0, nframes, 5, f0.data(), fv.data(), fs, f0min, f0max);
    waveform2cc(x.data(), nsamples, lframe, 0, nframes, f0.data(), order, cc.data(), method, fs,
                alpha);

    const std::uint32_t middle = nframes / 2;
    const double *row = cc.data() + std::size_t{middle} * (order + 1);
    std::printf("frames  %u\n", nframes);
    std::printf("f0      %.2f Hz, made with %.2f Hz\n", f0[middle], voicef0);
    std::printf("voiced  up to %.0f Hz, made with harmonics below %.0f Hz\n", fv[middle],
                harmonicsend);
    // The envelope is a density: half a harmonic's amplitude over the root of f0.
    for (const double harmonic : {5.0, 10.0, 20.0}) {
        const double f = harmonic * voicef0;
        const double made = std::log(amplitude(f) / 2.0 / std::sqrt(voicef0));
        std::printf("at %4.0f Hz the envelope is %.1f dB, made with %.1f dB\n", f,
                    8.685889638 * envelope(row, order, f, alpha), 8.685889638 * made);
    }
    return 0;
}
