#include "analysis/spectralanalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "testsignals.h"

using namespace nalveo;

namespace {

using spectrum = int(const double *, std::uint32_t, std::uint32_t, std::uint32_t, double *, namem *,
                     double, double);
constexpr std::uint32_t nfft = 1024;

int noisespectrum(const double *x, std::uint32_t n, std::uint32_t centre, std::uint32_t size,
                  double *out, namem *mem, double fs, double) {
    return getnoiselogspectrum(x, n, centre, size, out, mem, fs);
}

reals analysed(spectrum *routine, const reals &x, std::uint32_t centre, double f0 = 0) {
    const std::unique_ptr<namem, int (*)(namem *)> mem(
        nameminitializefft(naframesize(testfs), nfft), namemdestroy);
    reals out(2 * nfft, 99.0);
    EXPECT_EQ(routine(x.data(), static_cast<std::uint32_t>(x.size()), centre, nfft, out.data(),
                      mem.get(), testfs, f0),
              0);
    out.resize(nfft);
    return out;
}

// Power spectrum of a frame of length L around a centre, by direct sums. What is taken off the
// samples inside the signal is their sum over L and, if voiced, plus the amplitude at f0.
reals directpower(const reals &x, int centre, int lwin, double f0, double (*window)(double)) {
    complexes frame(nfft);
    const int h = lwin / 2;
    const auto inside = [&](int i) { return i >= 0 && i < static_cast<int>(x.size()); };
    const auto sample = [&](int i) { return x[static_cast<std::size_t>(i)]; };
    double mean = 0.0;
    std::complex<double> line = 0.0;
    for (int i = centre - h; i <= centre + h; ++i)
        if (inside(i)) mean += sample(i) / lwin;
    for (int i = centre - h; i <= centre + h && f0 > 0; ++i)
        if (inside(i))
            line += (sample(i) - mean) / lwin * std::polar(1.0, 2 * testpi * f0 * i / testfs);
    for (int i = centre - h; i <= centre + h; ++i)
        if (inside(i))
            frame[static_cast<std::size_t>(i - centre + h)] =
                (sample(i) - mean + std::abs(line)) *
                window(2 * testpi * (i - centre + h) / (lwin - 1));
    reals power;
    for (const auto &v : naivedft(frame)) power.push_back(std::norm(v));
    return power;
}

double hamming(double angle) { return 0.8566 - 0.7297 * std::cos(angle); }
double hann(double angle) { return 0.5 - 0.5 * std::cos(angle); }
double complement(double angle) { return -hann(angle) * std::sin(angle); }

class envelopes : public testing::TestWithParam<int> {
   protected:
    reals x = speak({[](double) { return 173.0; }, vowel(), 6000, 0.05, 1e-4}, 1000);
    std::uint32_t centre = static_cast<std::uint32_t>(GetParam());
};

void expectspectrum(const reals &found, const reals &power, double scale) {
    for (std::size_t k = 1; k < nfft / 2; ++k) {
        ASSERT_NEAR(found[k], 0.5 * std::log(power[k] * scale), 1e-9) << k;
        ASSERT_EQ(found[nfft - k], found[k]);
    }
    EXPECT_EQ(found[0], found[1]);  // these two repeat their neighbours
    EXPECT_EQ(found[nfft / 2], found[nfft / 2 - 1]);
}

TEST_P(envelopes, agreewithdirectsums) {
    for (double &v : x) v += 0.01;
    expectspectrum(analysed(noisespectrum, x, centre), directpower(x, GetParam(), 401, 0, hamming),
                   1 / (401 * testfs));
    constexpr double lwin = 185;  // two periods of 92.5 samples
    reals power = directpower(x, GetParam(), 185, 173, hann);
    const reals second = directpower(x, GetParam(), 185, 173, complement);
    for (std::size_t k = 0; k < nfft; ++k) power[k] += second[k];
    expectspectrum(analysed(getsignallogspectrum, x, centre, 173), power,
                   std::pow(2 / (lwin - 1), 2) / 173);
    // The shortest window, of three samples, and none at all.
    power = directpower(x, GetParam(), 3, 12000, hann);
    expectspectrum(analysed(getsignallogspectrum, x, centre, 12000), power, 1.0 / 12000);
    EXPECT_EQ(analysed(getsignallogspectrum, x, centre, 40000), analysed(noisespectrum, x, centre));
}

// The envelope is checked by its rules: lines between knots that lie on the spectrum, each knot
// either a true peak of its search interval or one spacing on.
TEST_P(envelopes, seevocfollowsitsrules) {
    for (const double f0 : {173.0, 260.0, 88.0, 94.0, 99.0, 111.0, 124.0, 300.0}) {
        const bool voiced = f0 == 173.0 || f0 == 260.0;  // noise has peaks anywhere
        const reals frame = voiced ? x : whitenoise(1000, 0.1, 3);
        const reals found = analysed(getseevoclogspectrum, frame, centre, f0);
        const int lwin = static_cast<int>(std::ceil(3 * testfs / f0)) | 1;
        reals raw = directpower(frame, GetParam(), lwin, f0, hann);
        const double scale = std::pow(2.0 * lwin / (lwin - 1), 2);
        for (double &p : raw)
            p = 0.5 * std::log(std::max(p * scale, lwin * 1e-10) / (1.0 * lwin * lwin * f0));
        const double spacing = nfft * f0 / testfs;
        const auto a = static_cast<std::size_t>(std::ceil(spacing / 2));
        const auto b = static_cast<std::size_t>(std::lround(spacing));
        const auto c = static_cast<std::size_t>(1.5 * spacing);
        const auto highest = [&](std::size_t from, std::size_t to) {
            const auto at = [&](std::size_t i) {
                return raw.begin() + static_cast<std::ptrdiff_t>(i);
            };
            return static_cast<std::size_t>(std::max_element(at(from), at(to + 1)) - raw.begin());
        };
        std::vector<std::size_t> knots = {0};
        for (std::size_t j = 0; j + c < nfft / 2; j = knots.back()) {
            const std::size_t p = highest(j + a, j + c);
            knots.push_back(p == j + a || p == j + c ? j + b : p);
        }
        // The last interval takes its highest bin, from which on all is flat.
        if (knots.back() + a < nfft / 2) knots.push_back(highest(knots.back() + a, nfft / 2));
        for (std::size_t i = 0, k = 0; i <= nfft / 2; ++i) {
            while (k + 1 < knots.size() && knots[k + 1] <= i) ++k;
            const std::size_t from = knots[k], to = knots[std::min(k + 1, knots.size() - 1)];
            const double part = static_cast<double>(i - from) /
                                static_cast<double>(std::max<std::size_t>(to - from, 1));
            ASSERT_NEAR(found[i], std::lerp(raw[from], raw[to], part), 1e-8) << f0 << " " << i;
        }
        for (std::size_t k = 1; k < nfft / 2; ++k) ASSERT_EQ(found[nfft - k], found[k]);
    }
}

INSTANTIATE_TEST_SUITE_P(centres, envelopes, testing::Values(0, 30, 500, 940, 999));

TEST(envelopes, haveafloorinsilence) {
    const reals silence(1000);
    for (const double v : analysed(noisespectrum, silence, 500))
        EXPECT_NEAR(v, std::log(std::sqrt(1e-10 / testfs)), 1e-12);
    for (spectrum *routine : {&getsignallogspectrum, &getseevoclogspectrum})
        for (const double v : analysed(routine, silence, 500, 100)) {
            const double lwin = routine == &getsignallogspectrum ? 321 : 481;
            EXPECT_NEAR(v, 0.5 * std::log(1e-10 / lwin / 100), 1e-12);
        }
}

TEST(cepstrum, isthatofthedirectsum) {
    const std::unique_ptr<namem, int (*)(namem *)> mem(nameminitialize(13, 16), namemdestroy);
    reals levels = whitenoise(16, 1.0, 4);
    complexes mirrored(16);
    for (std::size_t k = 0; k < 16; ++k) mirrored[k] = levels[std::min(k, 16 - k)];
    EXPECT_EQ(getrealcepstrum(16, levels.data(), mem.get()), 0);
    const complexes wanted = naivedft(mirrored);
    for (std::size_t q = 0; q <= 8; ++q) EXPECT_NEAR(levels[q], wanted[q].real() / 16, 1e-15);
}

}  // namespace
