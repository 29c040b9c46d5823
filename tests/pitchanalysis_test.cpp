#include "analysis/pitchanalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

#include "analysis/autocorrelation.h"
#include "analysis/harmonicanalysis.h"
#include "testsignals.h"

using namespace nalveo;

namespace {

using track = std::vector<double>;

track bandlimited(const std::vector<double> &x) {
    const std::unique_ptr<double, decltype(&std::free)> y(
        applyfftfilter(x.data(), static_cast<std::uint32_t>(x.size()), testfs), std::free);
    return {y.get(), y.get() + x.size()};
}

track pitchof(const std::vector<double> &x, std::uint32_t lframe, double f0min, double f0max) {
    const auto n = static_cast<std::uint32_t>(x.size());
    track f0((n - 1) / lframe + 1, -1.0);
    EXPECT_EQ(getpitch(x.data(), n, lframe, 0, static_cast<std::uint32_t>(f0.size()), f0.data(),
                       testfs, f0min, f0max),
              0);
    return f0;
}

// Value i of a sequence that is 0 beyond its ends.
double at(const track &x, int i) {
    return i < 0 || i >= static_cast<int>(x.size()) ? 0.0 : x[static_cast<std::size_t>(i)];
}

// ---- prefilter ----

TEST(fftfilter, agreeswithitsdirectform) {
    constexpr int nt = 32, reach = nt / 4;
    // Linear in dB from 0 Hz to 4 kHz, flat from there on.
    const double freqs[] = {0, 4000, 1e6}, gains[] = {-12, 6, 6};
    track taps;  // inverse transform of the mirrored response, tapered
    for (int t = -reach; t <= reach; ++t) {
        double sum = 0.0;
        for (int k = 1 - nt / 2; k <= nt / 2; ++k) {
            const double f = (std::abs(k) + 1) * 500.0;  // one bin up, deliberately
            const double decibels = f < 4000 ? -12 + 18 * f / 4000 : 6;
            sum += std::pow(10.0, decibels / 20) * std::cos(2 * testpi * k * t / nt) / nt;
        }
        taps.push_back(sum * (0.54 + 0.46 * std::cos(testpi * t / reach)));
    }
    for (const std::uint32_t n : {1u, 8u, 9u, 16u, 17u, 25u, 100u}) {
        const track x = whitenoise(n, 1.0, n);
        track y(n + 1, 77.0);
        fftfilter(x.data(), y.data(), n, nt, freqs, gains, testfs);
        for (int i = 0; i < static_cast<int>(n); ++i) {
            double wanted = 0.0;
            for (int t = -reach; t <= reach; ++t) wanted += at(taps, t + reach) * at(x, i - t);
            ASSERT_NEAR(at(y, i), wanted, 1e-13) << n << " " << i;
        }
        EXPECT_EQ(y[n], 77.0);
    }
}

TEST(prefilter, hasthepitchtrackersband) {
    // The curve, where a window of 1025 taps (main lobe 60 Hz wide) does not bend it.
    const double points[][2] = {{150, 0},    {1000, 0},   {2900, 0},
                                {4000, -15}, {5100, -30}, {7500, -30}};
    for (const auto &[f, decibels] : points) {
        std::vector<double> x(8000);
        addtone(x, 0.1, f, 0.3);
        const track y = bandlimited(x);
        double in = 0.0, out = 0.0;
        for (std::size_t i = 2000; i < 6000; ++i) {
            in += x[i] * x[i];
            out += y[i] * y[i];
        }
        // One bin (8 Hz) of the ramp is 0.12 dB.
        EXPECT_NEAR(10 * std::log10(out / in), decibels, 0.3) << f;
    }
}

// ---- tracker ----

// The tracker in its plainest form: direct sums for autocorrelations, the best four candidates by a
// sort, and every path through all frames tried out.
struct candidate {
    double freq, strength, rank;
};

// Circular autocorrelation over the next power of two, lag 0 being 1.
track circular(const track &w, int longest) {
    const int length = static_cast<int>(w.size());
    int nfft = 1;
    while (nfft < length) nfft *= 2;
    track r;
    for (int lag = 0; lag <= longest; ++lag) {
        double sum = 0.0;
        for (int i = 0; i < length; ++i) sum += at(w, i) * at(w, (i + lag) % nfft);
        r.push_back(lag == 0 ? sum : sum / r[0]);
    }
    r[0] = 1.0;
    return r;
}

TEST(autocorrelation, iscircular) {
    track pairs;
    for (const int n : {2, 8, 256, 1024, 64}) {
        const auto size = static_cast<std::size_t>(n);
        const track x = whitenoise(size, 1.0, size), wanted = circular(x, n - 1);
        pairs.clear();
        for (const double v : x) pairs.insert(pairs.end(), {v, 0.0});
        EXPECT_EQ(autocorrelation(n, pairs.data()), 0);
        autocorrelator fast(size, size + 3);
        std::copy(x.begin(), x.end(), fast.frame());
        for (int turn = 0; turn < 2; ++turn) {  // a frame stays as it is
            const double *const lags = fast.run();
            for (std::size_t lag = 0; lag < size; ++lag) {
                EXPECT_NEAR(pairs[2 * lag] / pairs[0], wanted[lag], 1e-14) << lag;
                EXPECT_NEAR(lags[lag] / pairs[0], wanted[lag], 1e-14) << lag;
            }
            for (std::size_t lag = size; lag < size + 3; ++lag) EXPECT_EQ(lags[lag], 0.0);
        }
    }
    const track kept = pairs;
    for (const int n : {-64, 0, 63}) EXPECT_EQ(autocorrelation(n, pairs.data()), n == 63 ? -1 : 0);
    EXPECT_EQ(pairs, kept);
}

std::vector<candidate> bestcandidates(const track &r, int from, int to, double f0min) {
    std::vector<candidate> list;
    for (int lag = from; lag <= to; ++lag) {
        const double before = at(r, lag - 1), middle = at(r, lag), after = at(r, lag + 1);
        if (!(middle > 0.225 && middle > before && middle > after)) continue;
        double shift = 0.5 * (before - after) / (before - 2 * middle + after);
        if ((lag == from && shift < 0) || (lag == to && shift > 0)) shift = 0;
        double height = middle - 0.25 * (before - after) * shift;
        if (height > 1) height = 1 / height;
        const double freq = testfs / (lag + shift);
        list.push_back({freq, height, height - 0.01 * std::log2(f0min / freq)});
    }
    std::sort(list.begin(), list.end(),
              [](const candidate &a, const candidate &b) { return a.rank > b.rank; });
    if (list.size() > 4) list.resize(4);
    return list;
}

track cheapestpath(const std::vector<std::vector<candidate>> &frames, double perten) {
    track path, best;
    double bestcost = std::numeric_limits<double>::max();
    const auto extend = [&](const auto &self, std::size_t k, double cost) -> void {
        if (k == frames.size()) {
            if (cost < bestcost) best = path;
            bestcost = std::min(bestcost, cost);
            return;
        }
        const double last = k == 0 ? -1 : path[k - 1];
        for (const candidate &c : frames[k]) {
            double jump = 0.0;
            if (k > 0 && (last == 0) != (c.freq == 0)) jump = 0.14 * perten;
            if (last > 0 && c.freq > 0) jump = 0.35 * perten * std::abs(std::log2(c.freq / last));
            path.resize(k);
            path.push_back(c.freq);
            self(self, k + 1, cost - c.strength + jump);
        }
    };
    extend(extend, 0, 0.0);
    return best;
}

track exhaustivetrack(const track &x, int lframe, double f0min, double f0max) {
    const int h = (static_cast<int>(std::ceil(3 * testfs / f0min)) | 1) / 2;
    const int m = static_cast<int>(std::ceil(0.5 * testfs / f0min)) | 1;
    const int from = static_cast<int>(std::ceil(testfs / f0max));
    const int to = static_cast<int>(testfs / f0min);
    double loudest = 0.0;
    for (const double v : x) loudest = std::max(loudest, std::abs(v));
    track window;
    for (int i = 0; i <= 2 * h; ++i) window.push_back(0.5 - 0.5 * std::cos(testpi * i / h));
    const track expected = circular(window, to + 1);
    std::vector<std::vector<candidate>> frames;
    for (int c = 0; c < static_cast<int>(x.size()); c += lframe) {
        double mean = 0.0, peak = 0.0;
        for (int i = -h; i <= h; ++i)
            if (std::abs(i) <= 2 * m) mean += at(x, c + i) / (4 * m + 1);
        track w;
        for (int i = -h; i <= h; ++i) {
            const double d = at(x, c + i) - mean;
            if (std::abs(i) <= m) peak = std::max(peak, std::abs(d));
            w.push_back(at(window, i + h) * d);
        }
        track r = circular(w, to + 1);
        for (std::size_t lag = 0; lag < r.size(); ++lag)
            r[lag] = std::max(0.0, r[lag] / expected[lag]);
        const double quiet = std::min(1.0, peak / loudest) / (0.03 / 1.45);
        frames.push_back(bestcandidates(r, from, to, f0min));
        frames.back().push_back({0.0, 0.45 + std::max(0.0, 2 - quiet), 0.0});
    }
    return cheapestpath(frames, 160.0 / lframe);
}

TEST(pitchtracker, findsthecheapestofallpaths) {
    int voiced = 0, unvoiced = 0;
    std::vector<std::uint64_t> seeds = {1001, 1829, 2803};  // rare: the octave cost decides
    for (std::uint64_t seed = 1; seed <= 80; ++seed) seeds.push_back(seed);
    for (const std::uint64_t seed : seeds) {
        // Harmonics of a fifth of f0 that come and go, in noise, steady or from faint to loud:
        // which of them is the pitch is in doubt everywhere.
        testrandom random(seed);
        const double f0 = 60 * std::exp2(2 + random.uniform());
        const std::uint32_t lframe = seed % 3 == 0 ? 40 : seed % 3 == 1 ? 80 : 320;
        track x = whitenoise(lframe * 5, 0.01 * std::pow(random.uniform(), 2), seed);
        const auto n = static_cast<double>(x.size());
        for (int k = 1; k <= 10; ++k) {
            const double start = 0.04 * std::pow(random.uniform(), 3);
            const double rise = 0.04 * std::pow(random.uniform(), 3) / n;
            for (std::size_t i = 0; i < x.size(); ++i)
                x[i] += (start + rise * static_cast<double>(i)) *
                        std::cos(2 * testpi * k * f0 / 5 / testfs * static_cast<double>(i) + k);
        }
        for (std::size_t i = 0; i < x.size() && seed % 4 == 0; ++i)
            x[i] *= 0.03 + std::pow(static_cast<double>(i) / n, seed % 7);
        const track found = pitchof(x, lframe, 55, 500), filtered = bandlimited(x);
        track wanted = exhaustivetrack(filtered, static_cast<int>(lframe), 55, 500);
        elimislands(static_cast<std::uint32_t>(wanted.size()), wanted.data(), lframe, testfs);
        ASSERT_EQ(found.size(), wanted.size());
        for (std::size_t k = 0; k < found.size(); ++k) {
            ++(wanted[k] > 0 ? voiced : unvoiced);
            // Both are exact but for the rounding of the transforms, which the vertex enlarges.
            EXPECT_NEAR(found[k], wanted[k], 1e-6) << seed << " " << k;
        }
    }
    EXPECT_GT(voiced, 50);
    EXPECT_GT(unvoiced, 20);
}

TEST(pitchtruth, staysattheedgesofitsrange) {
    // A vertex beyond the shortest or longest lag is taken at that lag itself.
    track high(4800), low(4800);
    addharmonics(high, 402, {0.1, 0.1, 0.1});
    addharmonics(low, 79.9, {0.1, 0.1, 0.1});
    EXPECT_EQ(pitchof(high, 80, 300, 400)[30], 400.0);
    EXPECT_NEAR(pitchof(low, 80, 80, 150)[30], 80.0, 1e-12);
}

// ---- islands ----

TEST(islands, byhand) {
    // At 400 samples per frame an island has up to floor(800 / 400) + 1 = 3 frames.
    const struct {
        const char *what;
        track in, out;
    } cases[] = {
        {"one frame more than an island sets the range",
         {100, 110, 120, 130, 0, 250, 0, 100, 0},
         {100, 110, 120, 130, 0, 0, 0, 100, 0}},
        {"a frame within the range saves its island, bounds included",
         {100, 110, 120, 130, 0, 300, 130, 300, 0, 90, 100, 0, 99, 131},
         {100, 110, 120, 130, 0, 300, 130, 300, 0, 90, 100, 0, 0, 0}},
        {"a jump of exactly 1.7 is none, however far; both ratios count",
         {100, 100, 100,   100, 0,   170, 0,   0,     0, 100, 100, 100,
          100, 0,   170.5, 0,   100, 0,   160, 168.5, 0, 99,  100},
         {100, 100, 100, 100, 0,   170, 0, 0, 0, 100, 100, 100,
          100, 0,   0,   0,   100, 0,   0, 0, 0, 99,  100}},
        {"jumps down count as jumps up; first and last frames are compared",
         {100, 100, 100, 100, 0, 58.7, 140, 160, 0, 120, 0, 100, 100},
         {100, 100, 100, 100, 0, 0, 0, 0, 0, 120, 0, 100, 100}},
        {"without a run longer than an island all stay",
         {150, 0, 300, 0, 90},
         {150, 0, 300, 0, 90}},
        {"with nothing before, the left ratio starts by keeping",
         {150, 0, 100, 100, 100, 100},
         {150, 0, 100, 100, 100, 100}},
        {"with nothing after, the right ratio starts by clearing",
         {100, 100, 100, 100, 0, 150, 0},
         {100, 100, 100, 100, 0, 0, 0}},
        {"a right ratio left behind by an earlier island keeps the last one",
         {150, 0, 90, 100, 100, 100, 0, 155, 0},
         {150, 0, 90, 100, 100, 100, 0, 155, 0}},
        {"an island cleared earlier is nobody's neighbour",
         {100, 100, 100, 100, 0, 300, 0, 240, 0, 100, 100, 100, 100},
         {100, 100, 100, 100, 0, 0, 0, 0, 0, 100, 100, 100, 100}},
        {"the next island is a neighbour on the right",
         {100, 100, 100, 100, 0, 160, 0, 300, 0, 300},
         {100, 100, 100, 100, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto &c : cases) {
        track f0 = c.in;
        EXPECT_EQ(elimislands(static_cast<std::uint32_t>(f0.size()), f0.data(), 400, testfs), 0);
        EXPECT_EQ(f0, c.out) << c.what;
    }
}

// ---- refinement ----

constexpr double noband = -1;

class refinement : public testing::Test {
   protected:
    track x = track(4000);
    std::unique_ptr<hamem, int (*)(hamem *)> mem{qhameminitialize(testfs, 8000, 60), qhamemdestroy};

    double step(double f0, double band) {
        return qharefinepitch(x.data(), 4000, 2000, mem.get(), testfs, f0, band);
    }
    // One voiced frame at sample 2000, between unvoiced ones.
    double refined(double f0, std::uint32_t iterations, double band = noband, double f0min = 60,
                   double f0max = 500) {
        track f = {0, f0, 0};
        const track bands = {0, band, 0};
        refinepitch(x.data(), 4000, 1000, 1000, 3, iterations, f.data(),
                    band == noband ? nullptr : bands.data(), testfs, f0min, f0max);
        EXPECT_EQ(f[0] + f[2], 0.0);
        return f[1];
    }
};

TEST_F(refinement, convergesonthetruef0) {
    addharmonics(x, 123.4, track(30, 0.02), 100);
    EXPECT_EQ(refined(120, 0), 120.0);
    EXPECT_EQ(refined(120, 1), step(120, 4500));  // 4500 Hz without a band
    EXPECT_NEAR(refined(120, 5), 123.4, 0.1);
    // Once a step is below 0.1 %, it is the last.
    const double close = step(123.41, 4500);
    ASSERT_LT(std::abs(close / 123.41 - 1), 0.001);
    ASSERT_NE(step(close, 4500), close);
    EXPECT_EQ(refined(123.41, 5), close);
    // One between 0.1 and 0.2 % is followed by another.
    const double small = step(123.22, 4500);
    ASSERT_GT(small / 123.22 - 1, 0.0011);
    ASSERT_LT(small / 123.22 - 1, 0.0019);
    ASSERT_NE(step(small, 4500), small);
    EXPECT_EQ(refined(123.22, 2), step(small, 4500));
    EXPECT_EQ(refined(120, 2, 1000), step(step(120, 1000), 1000));
    EXPECT_EQ(refined(120, 3, 0), 120.0);
}

TEST_F(refinement, keepswithinitslimits) {
    addharmonics(x, 123.4, track(30, 0.02), 100);
    const double up = step(120, 4500), down = step(127, 4500);
    EXPECT_EQ(refined(120, 1, noband, 60, up), up);
    EXPECT_EQ(refined(120, 1, noband, 60, std::nextafter(up, 0)), 120.0);
    EXPECT_EQ(refined(127, 1, noband, down, 500), down);
    EXPECT_EQ(refined(127, 1, noband, std::nextafter(down, 500), 500), 127.0);
    // Limits are taken as they are: none of 0 for f0min, all refused by one of 0 for f0max.
    EXPECT_EQ(refined(127, 1, noband, 0, 500), down);
    EXPECT_EQ(refined(127, 5, noband, 60, 0), 127.0);
    // A single component a quarter off: the step is above 20 %, at 15 % it is taken.
    std::fill(x.begin(), x.end(), 0.0);
    addtone(x, 0.1, 260, 0.0, 2000);
    ASSERT_GT(step(200, 300), 240);
    EXPECT_EQ(refined(200, 1, 300), 200.0);
    int close = 0;
    for (double f0 = 200; f0 <= 235; f0 += 0.25) {
        const double f = step(f0, 300);
        const double change = std::abs(f - f0) / f0;
        EXPECT_EQ(refined(f0, 1, 300), change > 0.2 ? f0 : f) << f0;
        if (std::abs(change - 0.2) < 0.01) ++close;
    }
    EXPECT_GT(close, 2);
    ASSERT_GT(step(235, 300), 235 * 1.05);
    ASSERT_LT(step(235, 300), 282);
}

TEST_F(refinement, isnotsizedforwhatitleavesalone) {
    addharmonics(x, 123.4, track(30, 0.02), 100);
    track f = {1e-9, 120, 0.5 * lowestmodelled};
    refinepitch(x.data(), 4000, 1000, 1000, 3, 1, f.data(), nullptr, testfs, 60, 500);
    EXPECT_EQ(f, (track{1e-9, step(120, 4500), 0.5 * lowestmodelled}));
}

}  // namespace
