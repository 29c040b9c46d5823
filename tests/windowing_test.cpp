#include "numeric/windowing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "testsignals.h"

namespace {

TEST(framegrid, countsframeswhosecentreisinside) {
    const struct {
        std::uint32_t nsamples, shift, offset, frames;
    } cases[] = {{1, 80, 0, 1},       {80, 80, 0, 1},      {81, 80, 0, 2},
                 {16000, 80, 0, 200}, {16001, 80, 0, 201}, {100, 80, 19, 2},
                 {100, 80, 20, 1},    {7, 1, 0, 7},        {4294967295u, 1, 0, 4294967295u}};
    for (const auto &c : cases) {
        EXPECT_EQ(getnumframes(c.nsamples, c.shift, c.offset), c.frames) << c.nsamples;
        EXPECT_EQ(getnumanalysisframes(c.nsamples, c.shift, c.offset), c.frames) << c.nsamples;
    }
    EXPECT_EQ(getccsize(200, 39), 8000u);
}

TEST(windowedsamples, arezerobeyondbothends) {
    const std::vector<double> x = {1, 2}, w = {10, 20, 30, 40, 50, 60, 70};
    std::vector<double> f(7, -1.0);
    EXPECT_EQ(getwindowedsamples(x.data(), 2, 0, f.data(), 3, w.data()), 1);
    EXPECT_EQ(f, (std::vector<double>{0, 0, 0, 40, 100, 0, 0}));
}

TEST(windowedsamples, tellsilencefromsound) {
    const std::vector<double> x = {0, 0, 0, 1e-300, std::numeric_limits<double>::quiet_NaN()}, w(3);
    std::vector<double> f(3);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 1, f.data(), 1, nullptr), 0);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 2, f.data(), 1, nullptr), 1);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 2, f.data(), 1, w.data()), 0);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 4, f.data(), 1, w.data()), 1);  // a NaN is not 0
}

TEST(windowlengths, areoddandroundedup) {
    EXPECT_EQ(getwinlengthnperiodsodd(2.5, 100, 16000), 401u);
    EXPECT_EQ(getwinlengthnperiodsodd(1, 1, 401), 401u);  // an odd one stays
    EXPECT_EQ(getwinlengthnperiodsodd(1, 1, 401.5), 403u);
    EXPECT_EQ(getwinlengthnperiodsodd(3, 1e-9, 16000), 4294967295u);
    EXPECT_EQ(getwinlengthdurodd(0.025, 16000), 401u);
    EXPECT_EQ(getwinlengthdurodd(1, 399), 399u);
    EXPECT_EQ(getwinlengthdurodd(1, 398.5), 399u);
    EXPECT_EQ(getwinlengthdurodd(0, 16000), 1u);
    const std::uint32_t powers[][2] = {{0, 1}, {1, 1}, {2, 2}, {401, 512}, {512, 512}};
    for (const auto &[n, power] : powers) EXPECT_EQ(getwinlengthceilpot2(n), power) << n;
}

TEST(windows, byhand) {
    const std::vector<double> hamming = {0.08, 0.54, 1.0, 0.54, 0.08}, hann = {0, 0.5, 1, 0.5, 0};
    std::vector<double> w(5), complement(5);
    winhamming(w.data(), 5, 0);
    for (std::size_t i = 0; i < 5; ++i) EXPECT_NEAR(w[i], hamming[i], 1e-15);
    winhamming(w.data(), 5, 1);
    EXPECT_NEAR(w[0], 0.8566 - 0.7297, 1e-15);
    EXPECT_NEAR(w[2], 0.8566 + 0.7297, 1e-15);
    winhanning(w.data(), 5, 1);
    EXPECT_NEAR(w[1], 0.8165, 1e-15);
    winhanning(w.data(), 5, 0);
    for (std::size_t i = 0; i < 5; ++i) EXPECT_NEAR(w[i], hann[i], 1e-15);
    wincomplementary(w.data(), complement.data(), 5);
    EXPECT_NEAR(complement[1], -0.5, 1e-15);
    EXPECT_NEAR(complement[2], 0.0, 1e-15);
    EXPECT_NEAR(complement[3], 0.5, 1e-15);
    winhanning(w.data(), 1, 0);  // a window of one sample is its peak, whose sine is 0
    wincomplementary(w.data(), complement.data(), 1);
    EXPECT_EQ(w[0], 1.0);
    EXPECT_EQ(complement[0], 0.0);
}

}  // namespace
