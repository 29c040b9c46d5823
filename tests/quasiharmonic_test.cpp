#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <initializer_list>
#include <utility>
#include <vector>

#include "analysis/harmonic/qha.h"
#include "analysis/harmonicanalysis.h"
#include "extended.h"
#include "numeric/windowing.h"
#include "testsignals.h"

namespace {

// A frame of harmonics with noise, and the fit of the quasi-harmonic model to it in three ways:
// amplitudes of the harmonics 1 .. K, then their slopes.
struct quasiframe {
    explicit quasiframe(double f)
        : f0(f),
          n(qhaframesize(testfs, f)),
          k(hanoharms(testfs, testfs, f)),
          h(n / 2),
          window(n),
          y(whitenoise(n, 0.001, n)) {
        winhamming(window.data(), n, 1);
        for (std::size_t i = 1; i <= k; ++i)  // by one in a thousand off the model
            addtone(y, 0.1 / static_cast<double>(i), f0 * 1.001 * static_cast<double>(i),
                    static_cast<double>(i * i), static_cast<double>(h));
        for (std::size_t i = 0; i < n; ++i) y[i] *= window[i];
    }

    complexes harmonicsof(const double *solution) const {
        complexes x;
        for (std::size_t block = 0; block < 2; ++block)
            for (std::size_t i = 1; i <= k; ++i) {
                const double *const entry = solution + 2 * (block * (2 * k + 1) + k + i);
                x.emplace_back(entry[0], entry[1]);
            }
        return x;
    }

    complexes fast() const {
        nalveo::qhascratch scratch;
        reals solution(4 * (2 * k + 1));
        nalveo::solveqharmonics(scratch, window.data(), y.data(), h, k, f0, testfs,
                                solution.data());
        return harmonicsof(solution.data());
    }

    // Cosines and time-weighted sines fit the even part of the frame, the others the odd part.
    complexes extended() const {
        const long double theta = 2 * std::acos(-1.0L) * f0 / testfs;
        extendedreals parts[2];
        for (const bool odd : {false, true}) {
            std::vector<extendedreals> columns;
            extendedreals part;
            for (std::size_t i = 0; i <= 2 * k; ++i) {
                extendedreals column;
                for (std::size_t t = 0; t <= h; ++t) {
                    const auto time = static_cast<long double>(t);
                    const bool sines = i > k;
                    const auto angle = theta * time * static_cast<long double>(sines ? i - k : i);
                    const long double slope = sines == odd ? 1 : time / testfs;
                    column.push_back((t == 0 ? std::sqrt(0.5L) : 1) * window[h + t] * slope *
                                     (sines ? std::sin(angle) : std::cos(angle)));
                }
                columns.push_back(column);
            }
            for (std::size_t t = 0; t <= h; ++t) {
                const long double mirror = y[h - t];
                part.push_back((t == 0 ? std::sqrt(0.5L) : 1) *
                               (y[h + t] + (odd ? -mirror : mirror)) / 2);
            }
            parts[odd ? 1 : 0] = extendedleastsquares(columns, part);
        }
        complexes x;
        for (const bool slopes : {false, true})
            for (std::size_t i = 1; i <= k; ++i)
                x.emplace_back(0.5 * static_cast<double>(parts[slopes ? 1 : 0][i]),
                               -0.5 * static_cast<double>(parts[slopes ? 0 : 1][k + i]));
        return x;
    }

    // Largest error among the first `count` harmonics, relative to the strongest.
    double error(const complexes &x, const complexes &truth, std::size_t count) const {
        double worst = 0.0;
        for (const std::size_t block : {std::size_t{0}, k}) {
            double apart = 0.0, strongest = 0.0;
            for (std::size_t i = block; i < block + count; ++i) {
                apart = std::max(apart, std::abs(x[i] - truth[i]));
                strongest = std::max(strongest, std::abs(truth[i]));
            }
            worst = std::max(worst, apart / strongest);
        }
        return worst;
    }

    double f0;
    std::uint32_t n;
    std::size_t k, h;
    reals window, y;
};

TEST(quasiharmonics, arerightwherethefitiswellconditioned) {
    for (const double f0 : {71.3, 123.4, 260.0, 411.0, 3000.0, 5000.0}) {
        const quasiframe frame(f0);
        EXPECT_LT(frame.error(frame.fast(), frame.extended(), frame.k), 1e-10) << f0;
    }
}

TEST(quasiharmonics, arerightclosetohalftherate) {
    // Sine K differs from a multiple of the time-weighted cosine K by the square of the distance of
    // harmonic K from fs / 2, as a part of f0, and rounding is weighed against the square of that.
    for (const std::uint32_t k : {20u, 53u})
        for (const double part : {0.01, 0.003, 0.001}) {
            const quasiframe frame(testfs / 2 / (k + part));
            ASSERT_EQ(frame.k, k);
            EXPECT_LT(frame.error(frame.fast(), frame.extended(), k), 1e-15 / std::pow(part, 4))
                << k << " " << part;
        }
}

TEST(quasiharmonics, leaveoutwhatcannotbetold) {
    // Harmonic K is so close to fs / 2 that its sine cannot be told from its time-weighted cosine.
    // The others come out all the same, as they do 0.5 Hz further away.
    for (const std::uint32_t k : {20u, 53u}) {
        const complexes wanted = quasiframe((testfs / 2 - 0.5) / k).extended();
        for (const double gap : {1e-4, 1e-6, 1e-8}) {
            const quasiframe frame((testfs / 2 - gap) / k);
            ASSERT_EQ(frame.k, k);
            EXPECT_LT(frame.error(frame.fast(), wanted, k - 1), 0.2) << k << " " << gap;
        }
    }
}

TEST(quasiharmonics, moveuptohalfthewaytotheirneighbours) {
    // A slope in quadrature with its harmonic is what a shift of frequency looks like at first
    // order. These are the model's own terms, so the fit gives the shifts back as they went in.
    constexpr double f0 = 150.0;
    constexpr std::uint32_t k = 40;
    reals shifts(k);
    for (const auto &[j, part] : {std::pair(3u, 0.4), {7u, 0.6}, {11u, -0.45}, {15u, -0.9}})
        shifts[j - 1] = part * f0;
    reals x(qhaframesize(testfs, f0)), freq(k);
    const auto n = static_cast<std::uint32_t>(x.size());
    for (std::uint32_t i = 0; i < n; ++i)
        for (std::uint32_t j = 1; j <= k; ++j) {
            const double t = 2 * testpi * (i - n / 2.0 + 0.5) / testfs;
            x[i] += (std::cos(j * f0 * t + j) - shifts[j - 1] * t * std::sin(j * f0 * t + j)) / j;
        }
    hamem *const mem = qhameminitialize(testfs, testfs, f0);
    EXPECT_EQ(getqharmonics(x.data(), n, n / 2, k, nullptr, nullptr, freq.data(), mem, testfs, f0),
              0);
    hamemdestroy(mem);
    for (std::uint32_t j = 1; j <= k; ++j) {
        const double shift = std::abs(shifts[j - 1]) < f0 / 2 ? shifts[j - 1] : 0.0;
        EXPECT_NEAR(freq[j - 1], j * f0 + shift, 1e-6) << j;
    }
}

}  // namespace
