#include "analysis/harmonicanalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <memory>
#include <vector>

#include "numeric/windowing.h"
#include "testsignals.h"

namespace {

using namespace nalveo;
using record = hamemhandle;

record makeharecord(double f0min = 60) { return record(hameminitialize(testfs, testfs, f0min)); }

record makeqharecord(double f0min = 60) { return record(qhameminitialize(testfs, testfs, f0min)); }

TEST(harmonicsizes, byhand) {
    const struct {
        double fmax, f0;
        std::uint32_t k;
    } cases[] = {{16000, 100, 79}, {16000, 150, 53}, {1000, 100, 9},   {1001, 100, 10},
                 {900, 1000, 0},   {100, 100, 0},    {16000, 8000, 0}, {16000, 7999, 1},
                 {8000, 100, 79},  {16000, 0, 0}};
    for (const auto &c : cases) EXPECT_EQ(hanoharms(testfs, c.fmax, c.f0), c.k) << c.f0;
}

// A frame of noise under its window: nothing that any model fits, so all entries matter.
struct noiseframe {
    explicit noiseframe(std::uint32_t length) : n(length), h(static_cast<int>(n / 2)), window(n) {
        winhamming(window.data(), n, 1);
        y = whitenoise(n, 1.0, n);
        for (std::size_t i = 0; i < n; ++i) y[i] *= window[i];
    }
    std::uint32_t n;
    int h;
    reals window;
    reals y;
    double weight(int t) const { return window[static_cast<std::size_t>(t + h)]; }
};

// Columns: w(t) e^(i 2 pi f t / fs) for the frequencies -f(K) .. f(K), and those times t / fs.
complexes designof(const noiseframe &frame, const reals &freqs, bool slopes) {
    reals all;
    for (auto f = freqs.rbegin(); f != freqs.rend(); ++f) all.push_back(-*f);
    all.push_back(0.0);
    all.insert(all.end(), freqs.begin(), freqs.end());
    complexes e;
    for (int t = -frame.h; t <= frame.h; ++t) {
        for (const double f : all)
            e.push_back(std::polar(frame.weight(t), 2 * testpi * f * t / testfs));
        if (!slopes) continue;
        for (const double f : all)
            e.push_back(std::polar(frame.weight(t), 2 * testpi * f * t / testfs) * (t / testfs));
    }
    return e;
}

reals multiplesof(double f0, std::size_t k) {
    reals f(k);
    for (std::size_t i = 0; i < k; ++i) f[i] = f0 * static_cast<double>(i + 1);
    return f;
}

enum class model { ha, qha, sqha };

class harmonicmodel : public testing::TestWithParam<std::tuple<model, double, std::size_t>> {};

// Least squares over the whole complex design, by elimination, against what the program runs and
// against the plain form of the same.
TEST_P(harmonicmodel, agreeswithdenseleastsquares) {
    const auto [kind, f0, k] = GetParam();
    const bool slopes = kind == model::qha;
    const noiseframe frame(slopes ? qhaframesize(testfs, f0) : haframesize(testfs, f0));
    reals freqs = multiplesof(f0, k);
    if (kind == model::sqha)
        for (std::size_t i = 0; i < k; ++i) freqs[i] += 0.2 * f0 * std::sin(static_cast<double>(i));
    const std::size_t blocksize = 2 * k + 1;
    const std::size_t unknowns = slopes ? 2 * blocksize : blocksize;
    const complexes e = designof(frame, freqs, slopes);
    const complexes wanted =
        denseleastsquares(e, complexes(frame.y.begin(), frame.y.end()), frame.n, unknowns);
    const auto expectwanted = [&](const double *solution) {
        for (std::size_t i = 0; i < unknowns; ++i) {
            const std::complex<double> found(solution[2 * i], solution[2 * i + 1]);
            // Slopes are per second, some hundreds of times the amplitudes. The blocks' condition
            // (some thousands for two tones half a resolution apart) leaves ten digits.
            ASSERT_NEAR(std::abs(found - wanted[i]), 0.0, i < blocksize ? 1e-9 : 1e-6) << i;
        }
    };

    const record r = makeqharecord(f0);
    r->frame.assign(frame.y.begin(), frame.y.end());
    r->design.resize(2 * unknowns * frame.n);
    double *const design = r->design.data();
    const auto harmonics = static_cast<std::uint32_t>(k);
    const auto m = static_cast<std::uint32_t>(unknowns);
    const double *const w = frame.window.data();
    if (kind == model::ha) {
        hamatrixcreate(design, frame.n, harmonics, w, f0, testfs);
        ASSERT_EQ(hasqhalscsolve(r.get(), frame.n, m, 1), 0);
    } else if (kind == model::sqha) {
        sqhamatrixcreate(design, frame.n, harmonics, freqs.data(), w, testfs);
        ASSERT_EQ(hasqhalscsolve(r.get(), frame.n, m, 0), 0);
    } else {
        const double scale = qhamatrixcreate(design, frame.n, harmonics, w, f0, testfs);
        ASSERT_EQ(qhalscsolve(r.get(), frame.n, m, scale), 0);
    }
    expectwanted(r->solution.data());
    if (k == 0) return;  // no f0 of the program's is without harmonics

    reals solution(2 * unknowns);
    const std::size_t h = frame.n / 2;
    const double *const y = frame.y.data();
    if (kind == model::ha) {
        hascratch scratch;
        ASSERT_EQ(solveharmonics(scratch, w, y, h, k, f0, testfs, solution.data()), 0);
    } else if (kind == model::sqha) {
        sqhascratch scratch;
        ASSERT_EQ(solvesqharmonics(scratch, w, y, h, k, freqs.data(), testfs, solution.data()), 0);
    } else {
        qhascratch scratch;
        solveqharmonics(scratch, w, y, h, k, f0, testfs, solution.data());
    }
    expectwanted(solution.data());
}

INSTANTIATE_TEST_SUITE_P(
    models, harmonicmodel,
    testing::Values(std::tuple(model::ha, 400.0, 19), std::tuple(model::ha, 230.0, 5),
                    std::tuple(model::ha, 3000.0, 2), std::tuple(model::ha, 8000.0, 0),
                    std::tuple(model::qha, 400.0, 19), std::tuple(model::qha, 410.0, 4),
                    std::tuple(model::qha, 3000.0, 2), std::tuple(model::qha, 5000.0, 1),
                    std::tuple(model::qha, 8000.0, 0), std::tuple(model::sqha, 400.0, 19),
                    std::tuple(model::sqha, 333.0, 6), std::tuple(model::sqha, 5000.0, 1),
                    std::tuple(model::sqha, 8000.0, 0),
                    // Basis and frame are one column more than two vectors.
                    std::tuple(model::sqha, 510.0, 15)));

// Harmonics of known amplitude and phase around a centre, all up to fs / 2.
struct knownvoice {
    knownvoice(double f, std::uint32_t c) : f0(f), centre(c), x(4000) {
        for (std::size_t k = 1; static_cast<double>(k) * f0 < testfs / 2; ++k) {
            amps.push_back(0.1 / static_cast<double>(k) + 0.01 * static_cast<double>(k % 4));
            phases.push_back(std::remainder(1.3 * static_cast<double>(k * k), 2 * testpi));
            addtone(x, amps.back(), f0 * static_cast<double>(k), phases.back(), centre);
        }
    }
    double f0;
    std::uint32_t centre;
    reals x, amps, phases;
};

int estimate(model kind, const reals &x, std::uint32_t centre, double *amp, double *phase,
             double *freq, const record &mem, double f0) {
    const auto n = static_cast<std::uint32_t>(x.size());
    const std::uint32_t k = hanoharms(testfs, testfs, f0);
    if (kind == model::ha)
        return getharmonics(x.data(), n, centre, k, amp, phase, mem.get(), testfs, f0);
    const auto estimator = kind == model::qha ? getqharmonics : getsqharmonics;
    return estimator(x.data(), n, centre, k, amp, phase, freq, mem.get(), testfs, f0);
}

constexpr model allmodels[] = {model::ha, model::qha, model::sqha};

TEST(estimators, recoverknownharmonics) {
    const record ha = makeharecord(), qha = makeqharecord();
    for (const double f0 : {70.0, 123.4, 260.0}) {
        const knownvoice v(f0, 1800);
        const std::size_t k = v.amps.size();
        for (const model kind : allmodels) {
            reals amp(k), phase(k), freq = multiplesof(f0, k);
            ASSERT_EQ(estimate(kind, v.x, 1800, amp.data(), phase.data(), freq.data(),
                               kind == model::ha ? ha : qha, f0),
                      0);
            // The model holds exactly: what is left is rounding, times the condition.
            for (std::size_t i = 0; i < k; ++i) {
                ASSERT_NEAR(amp[i], v.amps[i], 1e-8) << i;
                ASSERT_NEAR(std::remainder(phase[i] - v.phases[i], 2 * testpi), 0.0, 1e-6) << i;
                ASSERT_NEAR(freq[i], f0 * static_cast<double>(i + 1), 1e-3) << i;
            }
        }
    }
}

TEST(estimators, keepanerroratthetopofthebandthere) {
    // The 53rd harmonic and its mirror image are 0.002 Hz apart: it cannot be told, the others can.
    const knownvoice v(7999.999 / 53, 1800);
    reals amp(53);
    ASSERT_EQ(estimate(model::ha, v.x, 1800, amp.data(), nullptr, nullptr, makeharecord(), v.f0),
              0);
    for (std::size_t i = 0; i < 52; ++i) EXPECT_NEAR(amp[i], v.amps[i], 1e-8) << i;
}

TEST(refinestep, givesthefiguresworkedoutforit) {
    reals x(4000);
    const record qha = makeqharecord();
    const auto step = [&](double f0, double fmax) {
        return qharefinepitch(x.data(), 4000, 2000, qha.get(), testfs, f0, fmax);
    };
    EXPECT_EQ(step(200, 4000), 200.0);  // silence
    // Two harmonics at 405 and 810 Hz, taken for 400: the empty harmonics pull the mean down.
    addtone(x, 1, 405, 0, 2000);
    addtone(x, 0.5, 810, 0, 2000);
    EXPECT_NEAR(step(400, 16000), 403.89, 0.005);
    std::fill(x.begin(), x.end(), 0.0);
    addtone(x, 1, 405, -testpi / 2, 2000);
    addtone(x, 0.5, 810, -testpi / 2, 2000);
    EXPECT_NEAR(step(400, 16000), 402.94, 0.005);
    EXPECT_NEAR(step(400, 900), 405, 0.2);  // below 900 Hz there are only the two
}

TEST(harmonicspectrum, isthekernelsum) {
    // None of these has a bin beyond the first of a span on a harmonic, where the running quotient
    // is mere rounding.
    for (const auto &[f0, nfft] : std::initializer_list<std::pair<double, std::uint32_t>>{
             {130.3, 1024}, {70.1, 1024}, {411.7, 512}, {2900.3, 512}}) {
        const knownvoice v(f0, 1800);
        const int k = static_cast<int>(v.amps.size());
        reals levels(1);
        for (const double a : v.amps) levels.push_back(std::log(a / 2 / std::sqrt(f0)));
        levels[0] = levels[1];
        levels.resize(levels.size() + 4, *std::min_element(levels.begin(), levels.end()));
        const record ha = makeharecord(), qha = makeqharecord();
        for (const std::uint8_t sqha : {std::uint8_t{0}, std::uint8_t{1}}) {
            reals out(nfft, 99.0);
            ASSERT_EQ(getlogspectrumfromharms(v.x.data(), 4000, v.centre, nfft, out.data(),
                                              sqha != 0 ? qha.get() : ha.get(), sqha, testfs, f0),
                      0);
            for (std::uint32_t i = 0; i < nfft; ++i) {
                const double f = std::min(i, nfft - i) * testfs / nfft;
                double wanted = 0.0;
                for (int j = -3; j <= k + 4; ++j) {  // levels are even about 0 Hz
                    const double d = f / f0 - j;
                    if (std::abs(d) >= 4) continue;
                    const double sinc = d == 0 ? 1 : std::sin(testpi * d) / (testpi * d);
                    wanted += levels[static_cast<std::size_t>(std::abs(j))] * sinc *
                              (0.5 + 0.5 * std::cos(testpi * d / 4));
                }
                // SQHA works at frequencies that are 1e-4 Hz off.
                ASSERT_NEAR(out[i], wanted, sqha != 0 ? 1e-3 : 1e-6) << i;
            }
        }
    }
}

}  // namespace
