#include "numeric/windowing.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

// Calls use(n, cos(n step), sin(n step)) for n = 0 .. (length - 1) / 2 with step = 2 pi / (length -
// 1): the first half of a period spread over a symmetric window. The rotation adds a small
// correction to the previous phasor instead of multiplying by one that is close to 1,
//   z(n + 1) = z(n) - (1 - e^(i step)) z(n),  1 - cos(step) = 2 sin^2(step / 2),
// which keeps the error small: up to 34 units in the last place of a phasor have been measured.
template <class Use>
void halfperiod(std::uint32_t length, Use use) {
    const double step = twopi / (length - 1);
    const double half = sine(0.5 * step);
    const double versine = 2.0 * half * half;
    const double turn = sine(step);
    double c = 1.0;
    double s = 0.0;
    for (std::uint32_t n = 0; n <= (length - 1) / 2; ++n) {
        use(n, c, s);
        const double turned = c - (versine * c + turn * s);
        s -= versine * s - turn * c;
        c = turned;
    }
}

void fillraisedcosine(double *window, std::uint32_t length, double a, double b) {
    if (length < 2) {  // no room for a period: the one sample there is takes the peak
        if (length == 1) window[0] = a + b;
        return;
    }
    halfperiod(length, [=](std::uint32_t n, double c, double) {
        window[n] = a - b * c;
        window[length - 1 - n] = window[n];
    });
}

// Products of two arrays. Returns whether any of them is not 0.
struct productkernel {
    template <class Real8>
    [[gnu::always_inline]] static bool run(const double *a, const double *b, std::size_t n,
                                           double *products) {
        Real8 ones{};
        std::size_t i = 0;
        for (; i + vectorlength <= n; i += vectorlength) {
            const Real8 product = Real8::load(a + i) * Real8::load(b + i);
            product.store(products + i);
            ones = select(product == 0.0, ones, Real8::all(1.0));
        }
        bool audible = sumof(ones) != 0.0;
        for (; i < n; ++i) {
            products[i] = a[i] * b[i];
            audible |= products[i] != 0.0;
        }
        return audible;
    }
};

// Makes a length odd by setting its lowest bit. Lengths that no signal has are kept within 32 bits.
std::uint32_t oddlength(double samples) {
    constexpr double longest = 4294967294.0;
    if (!(samples > 0.0)) return 1;
    return static_cast<std::uint32_t>(std::min(std::ceil(samples), longest)) | 1u;
}

}  // namespace

std::uint32_t getnumanalysisframes(std::uint32_t nsamples, std::uint32_t shift,
                                   std::uint32_t offset) {
    const double span = nsamples - offset - 1;
    return static_cast<std::uint32_t>(span / shift) + 1;
}

std::uint32_t getnumframes(std::uint32_t nsamples, std::uint32_t shift, std::uint32_t offset) {
    return getnumanalysisframes(nsamples, shift, offset);
}

std::uint32_t getccsize(std::uint32_t nframes, std::uint32_t order) {
    return nframes * (order + 1);
}

namespace nalveo {

framespan getframespan(std::uint32_t nsamples, std::uint32_t centre, std::uint32_t h) {
    const std::uint32_t length = 2 * h + 1;
    const std::uint32_t after = nsamples - 1 - centre;  // samples that follow the centre
    return {centre < h ? h - centre : 0, h > after ? length - (h - after) : length};
}

}  // namespace nalveo

int getwindowedsamples(const double *signal, std::uint32_t nsamples, std::uint32_t centre,
                       double *frame, std::uint32_t h, const double *window) {
    const framespan span = getframespan(nsamples, centre, h);
    const std::size_t length = 2 * std::size_t{h} + 1;
    std::fill(frame, frame + span.first, 0.0);
    std::fill(frame + span.end, frame + length, 0.0);
    // first counts the positions before sample 0, so centre + first is never below h.
    const double *const samples = signal + (std::size_t{centre} + span.first - h);
    const std::size_t count = span.end - span.first;
    if (window != nullptr)
        return runwidest<productkernel>(samples, window + span.first, count, frame + span.first);
    std::copy_n(samples, count, frame + span.first);
    return std::any_of(samples, samples + count, [](double x) { return x != 0.0; });
}

int winhamming(double *window, std::uint32_t length, std::uint8_t normalise) {
    if (normalise != 0)
        fillraisedcosine(window, length, 0.8566, 0.7297);
    else
        fillraisedcosine(window, length, 0.54, 0.46);
    return 0;
}

int winhanning(double *window, std::uint32_t length, std::uint8_t normalise) {
    const double a = normalise != 0 ? 0.8165 : 0.5;
    fillraisedcosine(window, length, a, a);
    return 0;
}

void nalveo::winhannexact(double *window, std::uint32_t length) {
    window[0] = 1.0;
    if (length < 2) return;
    const double step = twopi / (length - 1);
    for (std::uint32_t n = 0; n < length; ++n) window[n] = 0.5 - 0.5 * cosine(step * n);
}

void nalveo::winhannaboutcentre(double *window, std::uint32_t length) {
    const std::size_t h = length / 2;
    window[h] = 2.0;
    for (std::size_t i = 1; i <= h; ++i) {
        window[h + i] = cosine(pi * static_cast<double>(i) / static_cast<double>(h)) + 1.0;
        window[h - i] = window[h + i];
    }
}

int wincomplementary(const double *window, double *result, std::uint32_t length) {
    if (length < 2) {  // the sine of the middle, which is all there is, is 0
        if (length == 1) result[0] = 0.0;
        return 0;
    }
    halfperiod(length, [=](std::uint32_t n, double, double s) {
        result[length - 1 - n] = window[length - 1 - n] * s;
        result[n] = window[n] * -s;
    });
    return 0;
}

std::uint32_t getwinlengthnperiodsodd(double periods, double f0, double fs) {
    return oddlength(periods * fs / f0);
}

std::uint32_t getwinlengthdurodd(double duration, double fs) { return oddlength(fs * duration); }

std::uint32_t getwinlengthceilpot2(std::uint32_t n) {
    std::uint32_t size = 1;
    while (size < n && size != 0) size *= 2;
    return size;
}
