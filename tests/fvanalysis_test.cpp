#include "analysis/fvanalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "analysis/harmonicanalysis.h"
#include "testsignals.h"

using namespace nalveo;

namespace {

using track = std::vector<double>;

track voicingof(const std::vector<double> &x, const track &f0) {
    track fv(f0.size(), -1.0);
    EXPECT_EQ(getfvoicing(x.data(), static_cast<std::uint32_t>(x.size()), 80, 0,
                          static_cast<std::uint32_t>(f0.size()), f0.data(), fv.data(), testfs),
              0);
    return fv;
}

TEST(medianfilter, byhand) {
    const struct {
        std::uint32_t length;
        track in, out;
    } cases[] = {
        {5, {9, 1, 8, 2, 7, 3, 6, 4}, {9, 1, 7, 3, 6, 4, 6, 4}},  // two values stay at each end
        {4, {9, 1, 8, 2, 7, 3}, {9, 1, 7, 3, 7, 3}},              // an even length rounds up
        {5, {9, 1, 8, 2}, {9, 1, 8, 2}},                          // too short
        {3, {5, 0, 5, 5, 0, 0}, {5, 5, 5, 5, 0, 0}},
    };
    for (const auto &c : cases) {
        track t = c.in;
        EXPECT_EQ(medianfilt(t.data(), static_cast<std::uint32_t>(t.size()), c.length), 0);
        EXPECT_EQ(t, c.out) << c.length;
    }
}

// Maximum voiced frequency of one frame of f0 = 100 Hz. Bands 1 .. clean are harmonics; each band
// above holds two tones in opposite phase, a quarter of a band off its middle, which no single line
// matches.
double boundaryof(int clean, const std::vector<double> &amps) {
    std::vector<double> x(1001);
    for (int h = 1; h <= static_cast<int>(amps.size()); ++h) {
        const double amp = amps[static_cast<std::size_t>(h - 1)];
        const double phase = h % 2 == 0 ? 0 : testpi / 2;
        addtone(x, amp, 100 * (h <= clean ? h : h - 0.25), phase, 500);
        if (h > clean) addtone(x, amp, 100 * (h + 0.25), phase + testpi, 500);
    }
    const double f0 = 100;
    double fv = -1;
    getfvoicing(x.data(), 1001, 80, 500, 1, &f0, &fv, testfs);
    return fv;
}

TEST(voicedfrequency, endswhereharmonicsend) {
    // The answer is a peak of the first band that is not harmonic. Levels are those of single
    // tones; each of a pair shows as a peak of its own height within a fraction of a dB.
    const auto levels = [](int low, double lowlevel, int high, double highlevel) {
        std::vector<double> amps(static_cast<std::size_t>(low), lowlevel);
        amps.resize(static_cast<std::size_t>(high), highlevel);
        return amps;
    };
    const auto decibels = [](double db) { return 0.02 * std::pow(10.0, db / 20); };
    const struct {
        int clean;
        std::vector<double> amps;
        double middle;  // of the band of the answer
    } cases[] = {
        {30, levels(79, 0.02, 79, 0.02), 3100},
        {70, levels(79, 0.02, 79, 0.02), 7100},
        // The first rough band is dropped when 15 dB below; the one after it is compared with it.
        {30, levels(30, 0.02, 79, decibels(-13)), 3100},
        {30, levels(30, 0.02, 79, decibels(-18)), 3200},
        // A rise of 15 dB disqualifies the rough band before it.
        {30, levels(31, decibels(-13), 79, 0.02), 3100},
        {30, levels(31, decibels(-18), 79, 0.02), 3200},
        // All rough, or harmonic only below 1 kHz: the lowest boundary allowed.
        {4, levels(79, 0.02, 79, 0.02), 1000},
        {0, levels(79, 0.02, 79, 0.02), 1000},
    };
    for (const auto &c : cases) {
        const double fv = boundaryof(c.clean, c.amps);
        EXPECT_NEAR(fv, c.middle, 52);  // half a band, and what the parabola adds at its edge
    }
}

class voicedband : public testing::TestWithParam<double> {};

TEST_P(voicedband, isfoundunderanoiseband) {
    const double band = GetParam();
    for (const double f0 : {90.0, 140.0, 230.0}) {
        const voice v{[=](double) { return f0; }, {{500, 400}}, band, 0.02, 0.01};
        track fv = voicingof(speak(v, 16000), track(200, f0));
        std::sort(fv.begin(), fv.end());
        // A harmonic's worth of noise often looks like a line, so most frames lie some harmonics
        // above the truth; those where it did not, a tenth or so, tell it.
        EXPECT_GT(fv[20], band - 1.1 * f0) << f0;
        EXPECT_LT(fv[20], band + 2.1 * f0) << f0;
        EXPECT_LT(fv[100], band + 900) << f0;
    }
}

INSTANTIATE_TEST_SUITE_P(bands, voicedband, testing::Values(2000.0, 3500.0, 5200.0));

TEST(voicedfrequency, hasavalueinsilenceandatoddpitches) {
    const std::vector<double> silence(800);
    for (const double fv : voicingof(silence, track(10, 120.0))) EXPECT_EQ(fv, 1000.0);
    const std::vector<double> noise = whitenoise(3200, 0.1, 9);
    for (const double f0 : {lowestmodelled, 35.0, 1500.0, 5000.0, 7900.0})
        for (const double fv : voicingof(noise, track(40, f0))) {
            EXPECT_GE(fv, 1000.0) << f0;
            EXPECT_LE(fv, 8000.0) << f0;
        }
    EXPECT_EQ(voicingof(noise, track(40, 0.99 * lowestmodelled)), track(40, 0.0));
    // Nor is anything sized for an f0 that no frame is analysed at.
    track mixed(40, 120.0);
    mixed[0] = mixed[1] = 1e-9;
    track wanted = mixed;
    wanted[0] = wanted[1] = 0.0;
    EXPECT_EQ(voicingof(noise, mixed), voicingof(noise, wanted));
}

}  // namespace
