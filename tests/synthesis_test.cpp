#include "synthesis/synthesis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <vector>

#include "synthesis/whitenoise.h"
#include "testsignals.h"

namespace {

using nalveo::badvalue;
using nalveo::speechtracks;
using nalveo::synthesissettings;
// Tracks with plain cepstra, held by the test.
struct tracks {
    reals f0, cc, fv;  // fv may be empty
    std::uint32_t order = 0;

    speechtracks view() const {
        return {static_cast<std::uint32_t>(f0.size()), order, f0.data(), cc.data(),
                fv.empty() ? nullptr : fv.data()};
    }
};

// Frames of one f0 and one envelope.
tracks steady(std::size_t nframes, double f0, const reals &c, double fv = 0.0) {
    tracks t{reals(nframes, f0), {}, {}, static_cast<std::uint32_t>(c.size() - 1)};
    for (std::size_t k = 0; k < nframes; ++k) t.cc.insert(t.cc.end(), c.begin(), c.end());
    if (fv > 0.0) t.fv.assign(nframes, fv);
    return t;
}

reals speech(const tracks &t, std::uint32_t lframe = 80, std::uint64_t seed = 1,
             std::size_t nsamples = 0, double alpha = 0.42) {
    const synthesissettings settings{testfs, lframe, alpha, false, seed};
    reals x(nsamples > 0 ? nsamples : nalveo::synthesislength(t.view().nframes, lframe));
    EXPECT_EQ(nalveo::findbadvalue(t.view(), testfs).where, badvalue::track::none);
    nalveo::synthesise(t.view(), settings, x.size(), x.data());
    return x;
}

double raised(double part) { return 0.5 - 0.5 * std::cos(testpi * part); }

// Sum of cosines of harmonics 1 .. top of a running phase, all of one amplitude.
double cosines(double phase, std::size_t top, double amplitude) {
    double sum = 0.0;
    for (std::size_t h = 1; h <= top; ++h) sum += std::cos(static_cast<double>(h) * phase);
    return amplitude * sum;
}

// Rounding of the phasors, 1e-16, grows with the square of the sample and with the harmonic: at
// most 400 squared times 66.
constexpr double rounding = 1e-9;

class frameshift : public testing::TestWithParam<std::uint32_t> {};

// f0 runs linearly, the phase is its integral. A harmonic of the density e^level has the amplitude
// 2 sqrt(f0) e^level; amplitudes fade as a raised cosine; the last frame holds on.
TEST_P(frameshift, phaseistheintegraloff0) {
    const double lframe = GetParam();
    tracks t;
    t.f0 = {100.0, 120.0, 119.0, 100.0};
    t.cc = {-7.0, -6.0, -6.0, -8.0};
    const reals x = speech(t, GetParam());
    double start = 0.0;
    for (std::size_t k = 0; k < 4; ++k) {
        const std::size_t next = k < 3 ? k + 1 : 3;
        const double f = t.f0[k], g = t.f0[next];
        const auto amplitude = [&](std::size_t i) {
            return 2 * std::sqrt(t.f0[i]) * std::exp(t.cc[i]);
        };
        const auto phase = [&](double n) {
            return start + 2 * testpi / testfs * (f * n + (g - f) * n * n / (2 * lframe));
        };
        // Harmonics stay below 8000 Hz on either side of their frame, too: 66 of 120 Hz, 67 of 119.
        const std::size_t top[] = {66, 66, 66, 67};
        for (std::uint32_t n = 0; n < GetParam(); ++n) {
            const double rise = raised(n / lframe);
            ASSERT_NEAR(x[k * GetParam() + n],
                        cosines(phase(n), top[k], (1 - rise) * amplitude(k)) +
                            cosines(phase(n), top[next], rise * amplitude(next)),
                        rounding)
                << k << ' ' << n;
        }
        start = phase(lframe);
    }
}

INSTANTIATE_TEST_SUITE_P(samples, frameshift, testing::Values(1, 7, 80, 401));

// One pulse per period, which is the response of the pole: a^n, and with that its sum over periods.
TEST(harmonics, havetheminimumphaseoftheenvelope) {
    constexpr double a = 0.9, f0 = 100.0;
    constexpr std::size_t period = 160;
    reals c(200, 0.0);
    for (std::size_t j = 1; j < c.size(); ++j)
        c[j] = 0.5 * std::pow(a, static_cast<double>(j)) / static_cast<double>(j);
    const reals x = speech(steady(8, f0, c), 80, 1, 0, 0.0);
    for (std::size_t n = 0; n < x.size(); ++n) {
        const auto place = static_cast<double>(n % period);
        const double pulse = std::pow(a, place) / (1 - std::pow(a, period));
        // Without the harmonics at 0 Hz and at half the sample rate.
        const double ends = 1 / (1 - a) + (n % 2 == 0 ? 1 : -1) / (1 + a);
        EXPECT_NEAR(x[n], std::sqrt(f0) * (period * pulse - ends), 1e-6) << n;  // 0.9^200
    }
}

TEST(harmonics, risefromnothingandfadetoit) {
    tracks t = steady(6, 0.0, {std::log(1e-30)});
    for (const std::size_t k : {2u, 3u}) {
        t.f0[k] = 250.0;
        t.cc[k] = std::log(0.001);
    }
    const reals x = speech(t);
    const double amplitude = 2 * std::sqrt(250.0) * 0.001;
    for (std::size_t n = 0; n < x.size(); ++n) {
        // The phase stands still while there is no voice.
        const double place = static_cast<double>(n) - 80;
        const double weight = n < 160   ? raised(std::max(place, 0.0) / 80)
                              : n < 240 ? 1.0
                                        : 1 - raised(std::min((place - 160) / 80, 1.0));
        EXPECT_NEAR(x[n], weight * cosines(2 * testpi * 250 / testfs * place, 31, amplitude), 1e-9)
            << n;
    }
}

// An octave up: the old voice fades where it is, the new one rises, and nothing sweeps the band.
TEST(harmonics, donotsweepwheref0jumps) {
    tracks t = steady(2, 100.0, {-7.0});
    t.f0[1] = 200.0;
    const reals x = speech(t);
    for (std::size_t n = 0; n < 80; ++n) {
        const double rise = raised(static_cast<double>(n) / 80);
        const double angle = 2 * testpi * 100 / testfs * static_cast<double>(n);
        const double old = (1 - rise) * cosines(angle, 79, 20 * std::exp(-7));
        const double young = rise * cosines(2 * angle, 39, 20 * std::sqrt(2.0) * std::exp(-7));
        EXPECT_NEAR(x[n], old + young, rounding);
    }
}

// Mean power of x at frequencies lowest .. highest as a density, by the direct transform of frames.
double density(const reals &x, double lowest, double highest) {
    constexpr std::size_t length = 400;
    double sum = 0.0, values = 0.0;
    for (std::size_t begin = 400; begin + length <= x.size(); begin += 2000) {
        complexes frame;
        for (std::size_t n = 0; n < length; ++n)
            frame.emplace_back(x[begin + n] * raised(2.0 * static_cast<double>(n) / length));
        const complexes spectrum = naivedft(frame);
        for (std::size_t i = 1; i < length / 2; ++i) {
            const double f = static_cast<double>(i) * testfs / length;
            if (f < lowest || f > highest) continue;
            sum += std::norm(spectrum[i]) / (0.375 * length);  // mean square of the window
            values += 1.0;
        }
    }
    return sum / values / testfs;
}

// Noise has the density of the envelope and what its fit to logarithms has lost: the more, the
// smoother it is.
TEST(noise, hasthedensityoftheenvelope) {
    const double gain = 0.2886 - 0.25 * testpi * testpi / 6 * 2 / 147;
    const reals x = speech(steady(2000, 0.0, {-6.0, 0.5}), 80, 3, 0, 0.0);  // ln A = -6 + cos omega
    for (const double f : {500.0, 2000.0, 4000.0, 6000.0, 7500.0}) {
        const double level = -6.0 + std::cos(2 * testpi * f / testfs) + gain;
        // 80 frames of some 13 independent values: 3 % in power, 0.015 nepers in amplitude.
        EXPECT_NEAR(0.5 * std::log(density(x, f - 250, f + 250)), level, 0.06) << f;
    }
}

TEST(noise, standsabovethemaximumvoicedfrequency) {
    const reals x = speech(steady(2000, 200.0, {-6.0}, 4000.0));
    reals voice(x.size());
    for (std::size_t n = 0; n < x.size(); ++n)
        voice[n] = cosines(2 * testpi * 200 / testfs * static_cast<double>(n), 20,
                           2 * std::sqrt(200.0) * std::exp(-6));
    reals rest = x;
    for (std::size_t n = 0; n < x.size(); ++n) rest[n] -= voice[n];
    const double noise = -6.0 + 0.2886;
    EXPECT_NEAR(0.5 * std::log(density(rest, 4400, 7600)), noise, 0.03);
    EXPECT_LT(0.5 * std::log(density(rest, 300, 3600)), noise - 4);
    // Both parts give way to one another over 300 Hz.
    EXPECT_GT(density(x, 3700, 4300), 0.5 * std::exp(2 * noise));
    EXPECT_LT(density(x, 3700, 4300), 2.0 * std::exp(2 * noise));
}

TEST(noise, followsitsseedalone) {
    const tracks t = steady(50, 0.0, {-5.0});
    const reals x = speech(t);
    EXPECT_EQ(x, speech(t));
    EXPECT_NE(x, speech(t, 80, 2));
    // A shorter waveform is the beginning of a longer one.
    reals part = speech(t, 80, 1, 1234);
    EXPECT_TRUE(std::equal(part.begin(), part.end(), x.begin()));
}

TEST(noise, iswhite) {
    constexpr std::size_t n = 100000;
    for (const std::uint64_t seed : {0u, 1u, 7u}) {
        double mean = 0, square = 0, beside = 0, other = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const double value = nalveo::whitenoise(seed, i);
            ASSERT_GE(value, -1.0);
            ASSERT_LT(value, 1.0);
            mean += value / n;
            square += value * value / n;
            beside += value * nalveo::whitenoise(seed, i + 1) / n;
            other += value * nalveo::whitenoise(seed + 1, i) / n;
        }
        // Standard deviations of these are 0.0018, 0.0009 and 0.0011.
        EXPECT_NEAR(mean, 0.0, 0.007);
        EXPECT_NEAR(square, 1.0 / 3, 0.004);
        EXPECT_NEAR(beside, 0.0, 0.004);
        EXPECT_NEAR(other, 0.0, 0.004);
    }
}

TEST(synthesis, attheedges) {
    // A single frame, voiced and not; f0 at its limits; one frame of voice whose maximum voiced
    // frequency the median of the analysis has made 0.
    for (const double f0 : {0.0, 14.0, 100.0, 7999.0}) {
        const reals x = speech(steady(1, f0, {-5.0}));
        EXPECT_TRUE(std::all_of(x.begin(), x.end(), [](double v) { return std::isfinite(v); }));
        EXPECT_GT(*std::max_element(x.begin(), x.end()), 1e-4) << f0;
    }
    tracks lost = steady(30, 200.0, {-6.0}, 1000.0), zero = lost;
    std::fill(zero.fv.begin(), zero.fv.end(), 0.0);
    EXPECT_EQ(speech(zero), speech(lost));
    // Unbelievable levels are cut, not infinite.
    const reals loud = speech(steady(3, 100.0, reals(8, nalveo::largestcoefficient), 4000.0));
    EXPECT_TRUE(std::all_of(loud.begin(), loud.end(), [](double v) { return std::isfinite(v); }));
    const reals silent = speech(steady(3, 100.0, {-nalveo::largestcoefficient}, 4000.0));
    EXPECT_LT(*std::max_element(silent.begin(), silent.end()), 1e-30);
}

TEST(synthesis, findswhatcannotbemade) {
    using where = badvalue::track;
    const tracks good = steady(4, 100.0, {-6.0, 0.1}, 4000.0);
    const auto expectbad = [&](reals tracks::*track, std::size_t at, double value, where place,
                               std::uint32_t frame) {
        tracks t = good;
        (t.*track)[at] = value;
        const badvalue bad = nalveo::findbadvalue(t.view(), testfs);
        EXPECT_EQ(bad.where, place) << value;
        EXPECT_EQ(bad.frame, frame) << value;
        EXPECT_TRUE(bad.value == value || value != value) << value;
    };
    const double nan = std::nan(""), infinite = std::numeric_limits<double>::infinity();
    for (const double f0 : {nan, infinite, -1.0, 1.0, 13.9, 8000.0})
        expectbad(&tracks::f0, 2, f0, where::f0, 2);
    for (const double c : {nan, infinite, -infinite, 100.1, -100.1})
        expectbad(&tracks::cc, 7, c, where::cc, 3);
    for (const double fv : {nan, infinite, -1.0, 8000.1})
        expectbad(&tracks::fv, 1, fv, where::fv, 1);
    EXPECT_EQ(nalveo::findbadvalue(good.view(), testfs).where, where::none);
}

}  // namespace
