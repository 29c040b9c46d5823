// Band-pass prefilter of the pitch tracker: a zero-phase FIR filter designed from a gain curve.
// Needs numeric/dft, elementary, phasor and windowing.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

#include "analysis/pitchanalysis.h"
#include "numeric/aligned.h"
#include "numeric/dft.h"
#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "numeric/windowing.h"

using namespace nalveo;

namespace {

// Amplitude responses of a gain curve on bins 0 .. nt / 2.
void samplegaincurve(const double *freqs, const double *gains, double fs, std::size_t nt,
                     double *response) {
    constexpr double decibel = 0.1151292546497023;  // ln 10 / 20, deliberately to 16 digits
    const double spacing = fs / static_cast<double>(nt);
    std::size_t segment = 0;
    for (std::size_t k = 0; k <= nt / 2; ++k) {
        // Deliberate: bin k takes the gain one bin above its own frequency.
        const double f = static_cast<double>(k + 1) * spacing;
        while (f > freqs[segment + 1]) ++segment;
        const double slope =
            (gains[segment + 1] - gains[segment]) / (freqs[segment + 1] - freqs[segment]);
        const double intercept = gains[segment] - freqs[segment] * slope;
        response[k] = exponential((slope * f + intercept) * decibel);
    }
}

// Turns a sampled response, bins 0 .. nt / 2, into that of a filter of nt / 2 + 1 taps: the impulse
// response is cut to nt / 4 taps either side of tap 0 and tapered by the halves of a Hamming
// window.
void truncateresponse(std::size_t nt, double *response) {
    const auto size = static_cast<std::int32_t>(nt);
    const std::size_t reach = nt / 4;
    std::vector<double> imag(nt / 2 + 1);
    std::vector<double> taps(nt);
    ifftreal(size, response, imag.data(), taps.data());
    const phasor step = unitphasor(pi / static_cast<double>(reach));
    phasor w{1.0, 0.0};
    for (std::size_t k = 1; k <= reach; ++k) {
        w.rotate(step);
        const double taper = 0.54 + 0.46 * w.re;
        taps[k] *= taper;
        taps[nt - k] *= taper;
    }
    std::fill(taps.begin() + static_cast<std::ptrdiff_t>(reach + 1),
              taps.end() - static_cast<std::ptrdiff_t>(reach), 0.0);
    fftreal(size, taps.data(), response, imag.data());
    // One pair of unscaled transforms is behind the response, another is to come.
    const double scale = 1.0 / static_cast<double>(nt);
    for (std::size_t k = 0; k <= nt / 2; ++k) response[k] *= scale * scale;
}

}  // namespace

double *applyfftfilter(const double *waveform, std::uint32_t n, double fs) {
    constexpr std::array<double, 6> freqs = {0.0, 45.0, 55.0, 3000.0, 5000.0, 1e6};
    constexpr std::array<double, 6> gains = {-30.0, -30.0, 0.0, 0.0, -30.0, -30.0};
    const std::uint32_t nt =
        fs == 16000.0 ? 2048
                      : getwinlengthceilpot2(static_cast<std::uint32_t>(2048.0 * fs / 16000.0));
    std::unique_ptr<double[], decltype(&std::free)> filtered(
        static_cast<double *>(std::malloc(std::max<std::size_t>(n, 1) * sizeof(double))),
        std::free);
    if (!filtered) throw std::bad_alloc();
    fftfilter(waveform, filtered.get(), n, nt, freqs.data(), gains.data(), fs);
    return filtered.release();
}

int fftfilter(const double *input, double *output, std::uint32_t n, std::uint32_t nt,
              const double *freqs, const double *gains, double fs) {
    const std::size_t half = nt / 2;
    const std::size_t reach = nt / 4;
    const std::size_t count = n;
    alignedreals response(half + 1);
    alignedreals re(half + 1);
    alignedreals im(half + 1);
    alignedreals block(nt);
    samplegaincurve(freqs, gains, fs, nt, response.data());
    truncateresponse(nt, response.data());

    // Overlap-add, nt / 2 samples at a time: a block's response reaches nt / 4 samples back into
    // the output before it, where the circular convolution has wrapped it to the end, and as many
    // into the next block.
    std::vector<double> carry(reach);
    const auto size = static_cast<std::int32_t>(nt);
    for (std::size_t s = 0; s < count; s += half) {
        const std::size_t have = std::min(half, count - s);
        std::copy(input + s, input + s + have, block.begin());
        std::fill(block.begin() + static_cast<std::ptrdiff_t>(have), block.end(), 0.0);
        fftreal(size, block.data(), re.data(), im.data());
        for (std::size_t k = 0; k <= half; ++k) {
            re[k] *= response[k];
            im[k] *= response[k];
        }
        ifftreal(size, re.data(), im.data(), block.data());
        if (s > 0)
            for (std::size_t j = 0; j < reach; ++j) output[s - reach + j] += block[nt - reach + j];
        for (std::size_t j = 0; j < std::min(reach, have); ++j) {
            output[s + j] = carry[j] + block[j];
            carry[j] = block[half + j];
        }
        for (std::size_t j = reach; j < have; ++j) output[s + j] = block[j];
    }
    return 0;
}
