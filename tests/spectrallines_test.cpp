#include "analysis/spectrallines.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "analysis/fvanalysis.h"
#include "simd/vectors.h"
#include "testsignals.h"

using namespace nalveo;

namespace {

TEST(spectralpeaks, arethoseofaplainsearch) {
    testrandom random(7);
    std::size_t found = 0, none = 0;
    for (int turn = 0; turn < 200; ++turn) {
        // Few levels, so that many are equal; some bins are empty.
        constexpr std::size_t last = 300;
        std::vector<double> level(last + 1 + vectorlength, 1e9);
        for (std::size_t i = 0; i <= last; ++i) level[i] = std::floor(4 * random.uniform());
        for (std::size_t i = 0; i <= last; ++i)
            if (random.uniform() > 0.8) level[i] = -std::numeric_limits<double>::infinity();
        peakbands bands;
        bands.begin(1 + static_cast<std::uint32_t>(turn % 7));
        while (turn % 9 > 0) {
            const double width = (turn % 5 + 1) * 2.5 * (1.2 + random.uniform());
            const auto edge = bands.edges.back() + static_cast<std::uint32_t>(width);
            if (edge > last) break;
            bands.add(edge);
        }
        findpeaks(level.data(), last, bands);
        for (std::size_t h = 0; h < bands.count; ++h) {
            std::uint32_t wanted = 0;
            for (std::uint32_t i = bands.edges[h]; i < bands.edges[h + 1]; ++i)
                if (level[i] > level[i - 1] && level[i] > level[i + 1] &&
                    (wanted == 0 || level[i] > level[wanted]))
                    wanted = i;
            ASSERT_EQ(bands.peaks[h], wanted) << turn << " " << h;
            ++(wanted == 0 ? none : found);
        }
    }
    EXPECT_GT(found, 1000);
    EXPECT_GT(none, 100);
}

TEST(spectralpeaks, tellwhereroundingoflogarithmsmaydecide) {
    // Powers with maxima in bins 2, 4 and 6, of which one bin gets another value.
    const auto clearwith = [](std::size_t bin, double value, double scale = 1.0) {
        std::vector<double> power = {1, 2, 4, 3, 5, 2, 7, 1, 0};
        const std::size_t last = power.size() - 1;
        power[bin] = value;
        for (double &p : power) p *= scale;
        power.resize(last + 1 + vectorlength);
        peakbands bands;
        bands.begin(1);
        for (const std::uint32_t edge : {3u, 7u}) bands.add(edge);
        return findpeaks(power.data(), last, bands);
    };
    EXPECT_TRUE(clearwith(1, 2.0));
    EXPECT_FALSE(clearwith(1, 2.0, 1e-300));
    EXPECT_FALSE(clearwith(1, 4.0 * (1.0 - 1e-15)));  // beside the maximum
    EXPECT_FALSE(clearwith(4, 7.0 * (1.0 + 1e-15)));  // another maximum in the band
    EXPECT_TRUE(clearwith(2, 7.0 * (1.0 + 1e-15)));   // in another band
}

// Transform of the Hann window, by its formula, which at its poles has the limits 1 and 1/2.
long double hannline(long double t) {
    constexpr long double pi = 3.141592653589793238462643L;
    if (t == 0 || std::abs(t) == 1) return t == 0 ? 1.0L : 0.5L;
    return std::sin(pi * t) / (pi * t * (1 - t * t));
}

class spectrallines : public testing::TestWithParam<std::uint32_t> {};

TEST_P(spectrallines, arematchedasbytheirdefinition) {
    // Lines all over the spectrum, more than a vector of them, some of which are not at their bin.
    const linegrid grid{GetParam(), 4096, 11, testfs};
    const std::vector<double> re = whitenoise(2100, 1.0, 5), im = whitenoise(2100, 1.0, 6);
    std::vector<double> pairs;
    for (std::size_t i = 0; i < re.size(); ++i) pairs.insert(pairs.end(), {re[i], im[i]});
    linebatch lines;
    std::vector<std::pair<std::uint32_t, double>> wanted;
    for (std::uint32_t bin = 11; bin<2048; bin += bin> 2030 ? 1 : 11 + bin % 17) {
        double f = bin * testfs / 4096;
        if (bin % 3 == 0) f += 0.499 * testfs / 4096;
        if (bin % 5 == 0) f -= 40.0;
        wanted.emplace_back(bin, f);
        lines.add(grid, bin, f);
    }
    matchlines(re.data(), im.data(), grid, lines);
    ASSERT_GT(lines.count, 100);
    for (std::size_t k = 0; k < lines.count; ++k) {
        const auto [bin, f] = wanted[k];
        long double mm = 0, xx = 0, sumre = 0, sumim = 0;
        for (std::size_t i = bin - 11; i <= bin + 11; ++i) {
            const long double width = grid.lwin;
            const long double u = static_cast<long double>(i) * width / 4096;
            const long double v = width * f / testfs;
            const long double m = hannline(u - v) + hannline(f < 4000 ? u + v : u - width + v);
            mm += m * m;
            xx += re[i] * re[i] + im[i] * im[i];
            sumre += re[i] * m;
            sumim += im[i] * m;
        }
        const auto truth = static_cast<double>((sumre * sumre + sumim * sumim) / mm / xx);
        EXPECT_NEAR(lines.match2[k], truth, 1e-13) << bin << " " << f;
        const double alone = slm(pairs.data(), 4096, GetParam(), bin, 11, testfs, f);
        EXPECT_NEAR(alone * alone, truth, 1e-13) << bin << " " << f;
    }
    EXPECT_EQ(slm(std::vector<double>(4096).data(), 4096, 61, 20, 5, testfs, 1250), 0.0);
}

// A window of 90 Hz and one under which bins lie on the poles of lines and mirror images.
INSTANTIATE_TEST_SUITE_P(windows, spectrallines, testing::Values(535, 512));

}  // namespace
