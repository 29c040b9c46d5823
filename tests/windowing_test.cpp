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

TEST(windowlength, isoddandcoverswhatitissaidto) {
    EXPECT_EQ(getwinlengthnperiodsodd(2.5, 100.0, testfs), 401u);
    EXPECT_EQ(getwinlengthnperiodsodd(3.0, 60.0, testfs), 801u);
    EXPECT_EQ(getwinlengthnperiodsodd(2.5, 399.0, testfs), 101u);  // 100.25 goes up to 101
    EXPECT_EQ(getwinlengthnperiodsodd(0.5, 60.0, testfs), 135u);   // 133.3 goes up to 134, then odd
    EXPECT_EQ(getwinlengthdurodd(0.025, testfs), 401u);
    EXPECT_EQ(getwinlengthdurodd(0.025, 11025.0), 277u);  // 275.6
    const std::uint32_t pairs[][2] = {{0, 1},     {1, 1},     {2, 2},      {3, 4},
                                      {401, 512}, {512, 512}, {513, 1024}, {1u << 31, 1u << 31}};
    for (const auto &[n, power] : pairs) EXPECT_EQ(getwinlengthceilpot2(n), power) << n;
}

TEST(windows, matchtheirfiguresbyhand) {
    std::vector<double> w(5), c(5);
    const auto expectnear = [](const std::vector<double> &a, const std::vector<double> &b) {
        for (std::size_t i = 0; i < b.size(); ++i) EXPECT_NEAR(a[i], b[i], 1e-15) << i;
    };
    winhamming(w.data(), 5, 0);
    expectnear(w, {0.08, 0.54, 1.0, 0.54, 0.08});
    wincomplementary(w.data(), c.data(), 5);  // times minus a full sine period
    expectnear(c, {0, -0.54, 0, 0.54, 0});
    winhamming(w.data(), 5, 7);
    expectnear(w, {0.1269, 0.8566, 1.5863, 0.8566, 0.1269});
    winhanning(w.data(), 5, 0);
    expectnear(w, {0, 0.5, 1, 0.5, 0});
    winhanning(w.data(), 5, 1);
    expectnear(w, {0, 0.8165, 1.633, 0.8165, 0});
}

TEST(windows, stayclosetothecosineoverlonglengths) {
    for (const std::uint32_t length : {2u, 3u, 400u, 401u, 4801u}) {
        std::vector<double> hann(length), sine(length), hamming(length);
        winhanning(hann.data(), length, 0);
        wincomplementary(hann.data(), sine.data(), length);
        winhamming(hamming.data(), length, 1);
        double power = 0.0;
        for (std::uint32_t n = 0; n < length; ++n) {
            const double angle = 2 * testpi * n / (length - 1);
            ASSERT_NEAR(hann[n], 0.5 - 0.5 * std::cos(angle), 1e-14) << length << " " << n;
            ASSERT_NEAR(sine[n], -hann[n] * std::sin(angle), 1e-14) << length << " " << n;
            power += hamming[n] * hamming[n] / length;
        }
        // The four decimals of its constants hold for long windows.
        EXPECT_TRUE(length < 4000 || std::abs(power - 1.0) < 1e-3) << power;
    }
}

TEST(windowedsamples, arezerobeyondtheends) {
    const std::vector<double> x = {1, 2, 3, 4, 5};
    const std::vector<double> w = {10, 20, 30, 40, 50, 60, 70};
    const auto frame = [&](std::uint32_t n, std::uint32_t centre, std::uint32_t h, bool weighted) {
        std::vector<double> f(2 * h + 1, -1.0);
        EXPECT_EQ(
            getwindowedsamples(x.data(), n, centre, f.data(), h, weighted ? w.data() : nullptr), 1);
        return f;
    };
    using row = std::vector<double>;
    EXPECT_EQ(frame(5, 2, 1, false), (row{2, 3, 4}));
    EXPECT_EQ(frame(5, 1, 1, false), (row{1, 2, 3}));
    EXPECT_EQ(frame(5, 3, 1, false), (row{3, 4, 5}));
    EXPECT_EQ(frame(5, 0, 1, false), (row{0, 1, 2}));
    EXPECT_EQ(frame(5, 4, 1, false), (row{4, 5, 0}));
    EXPECT_EQ(frame(5, 0, 2, false), (row{0, 0, 1, 2, 3}));
    EXPECT_EQ(frame(5, 4, 2, false), (row{3, 4, 5, 0, 0}));
    EXPECT_EQ(frame(2, 0, 3, true), (row{0, 0, 0, 40, 100, 0, 0}));  // both ends at once
}

TEST(windowedsamples, tellsilencefromsound) {
    const std::vector<double> x = {0, 0, 0, 1e-300, std::numeric_limits<double>::quiet_NaN()}, w(3);
    std::vector<double> f(3);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 1, f.data(), 1, nullptr), 0);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 2, f.data(), 1, nullptr), 1);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 2, f.data(), 1, w.data()), 0);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 4, f.data(), 1, w.data()), 1);  // a NaN is not 0
}

}  // namespace
