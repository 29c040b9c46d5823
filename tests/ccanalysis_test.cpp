#include "analysis/ccanalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "analysis/harmonicanalysis.h"
#include "analysis/spectralanalysis.h"
#include "numeric/matvect.h"
#include "testsignals.h"

namespace {

double series(const reals &c, double w) {
    double sum = 0.0;
    for (std::size_t m = 0; m < c.size(); ++m) sum += c[m] * std::cos(static_cast<double>(m) * w);
    return sum;
}

class warping : public testing::TestWithParam<std::tuple<std::uint32_t, double>> {};

TEST_P(warping, keepsthespectrumandonlymovesit) {
    const auto [m, alpha] = GetParam();
    reals c = whitenoise(m + 1, 1.0, m);
    constexpr std::uint32_t p = 400;
    reals out(p + 1), scratch(p + 1);
    ASSERT_EQ(ccwarp(c.data(), m, out.data(), p, scratch.data(), alpha), 0);
    // What lies beyond order p has died away geometrically: 0.6^(400 - 13 (1 + 0.6) / (1 - 0.6)).
    for (const double w : {0.0, 0.3, 1.0, 1.9, 3.0, testpi})
        EXPECT_NEAR(series(out, fwarp(w, alpha)), series(c, w), 1e-10) << w;
    // A lower order is the same without its tail.
    for (std::uint32_t order = 0; order < 3; ++order) {
        reals few(4, 9.0);
        ASSERT_EQ(ccwarp(c.data(), m, few.data(), order, scratch.data(), alpha), 0);
        for (std::uint32_t j = 0; j < 4; ++j) EXPECT_NEAR(few[j], j <= order ? out[j] : 9.0, 1e-13);
    }
}

INSTANTIATE_TEST_SUITE_P(orders, warping,
                         testing::Combine(testing::Values(0, 1, 2, 12, 13),
                                          testing::Values(-0.5, -0.1, 0.1, 0.42, 0.6)));

TEST(warping, atthelimitsofalpha) {
    const reals c = {1, 2, 3};
    reals out(5, 9.0), scratch(5);
    // Deliberate: a plain copy of the first p values, without c(m) and without out(p).
    EXPECT_EQ(ccwarp(c.data(), 2, out.data(), 4, scratch.data(), 0.0), 0);
    EXPECT_EQ(out, (reals{1, 2, 0, 0, 9}));
    EXPECT_EQ(ccwarp(c.data(), 2, out.data(), 1, scratch.data(), 0.0), 0);
    EXPECT_EQ(out, (reals{1, 2, 0, 0, 9}));
    for (const double alpha : {1.0, -1.0, 1.5, std::nan("")})
        EXPECT_EQ(ccwarp(c.data(), 2, out.data(), 4, scratch.data(), alpha), -1);
    EXPECT_EQ(out, (reals{1, 2, 0, 0, 9}));
}

// One frame, in the middle of the signal, of a track whose other frame sets the transform size.
reals rowof(const reals &x, int method, double f0, std::uint32_t ccord, double alpha,
            double other = 0) {
    const reals track = {f0, other};
    reals cc(2 * (ccord + 1), 7.0);
    EXPECT_EQ(waveform2cc(x.data(), static_cast<std::uint32_t>(x.size()), 1, 2000, 2, track.data(),
                          ccord, cc.data(), static_cast<std::uint8_t>(method), testfs, alpha),
              0);
    cc.resize(ccord + 1);
    return cc;
}

// Cepstrum of an even log spectrum by the direct sum, c(1) on; entry 0 is the mean.
reals directcepstrum(const reals &logspectrum, std::size_t count) {
    const complexes sums = naivedft(complexes(logspectrum.begin(), logspectrum.end()), 1.0);
    reals c;
    for (std::size_t i = 0; i < count; ++i)
        c.push_back(sums[i].real() / static_cast<double>(logspectrum.size()));
    return c;
}

class mcepmethods : public testing::Test {
   protected:
    reals x = speak({[](double) { return 200.0; }, vowel(), 8000, 0.02, 0}, 4000);

    using routine = int(const double *, std::uint32_t, std::uint32_t, std::uint32_t, double *,
                        namem *, double, double);
    reals logspectrum(std::uint32_t nfft, double f0, routine *get) {
        const std::unique_ptr<namem, int (*)(namem *)> mem(nameminitialize(401, nfft),
                                                           namemdestroy);
        reals out(2 * nfft);
        get(x.data(), 4000, 2000, nfft, out.data(), mem.get(), testfs, f0);
        out.resize(nfft);
        return out;
    }
    reals harmonicspectrum() {
        const nalveo::hamemhandle mem(hameminitialize(testfs, testfs, 60));
        reals out(1024);
        getlogspectrumfromharms(x.data(), 4000, 2000, 1024, out.data(), mem.get(), 0, testfs, 200);
        return out;
    }
    void expectrow(const reals &row, const reals &cepstrum, std::size_t lifter) {
        // Unwarped, the row is the cepstrum itself: all but entry 0 stand for two. A bound cuts it.
        for (std::size_t i = 0; i + 1 < row.size(); ++i)
            ASSERT_NEAR(row[i], i < lifter ? cepstrum[i] : 0.0, 1e-10) << i;
        EXPECT_EQ(row.back(), 7.0);  // deliberate: alpha 0 leaves the last one alone
    }
};

TEST_F(mcepmethods, aretransformsoftheirenvelopes) {
    const auto cepstrumof = [&](routine *get, double f0, std::uint32_t nfft = 1024) {
        return directcepstrum(logspectrum(nfft, f0, get), 100);
    };
    for (const int method : {0, 5, 255})
        expectrow(rowof(x, method, 200, 100, 0), directcepstrum(harmonicspectrum(), 100), 100);
    // Method 3 takes quefrencies up to floor(16000 / 300) = 53 samples.
    expectrow(rowof(x, 3, 200, 100, 0), cepstrumof(getsignallogspectrum, 200), 53);
    expectrow(rowof(x, 4, 200, 100, 0), cepstrumof(getseevoclogspectrum, 200), 100);
    // An unvoiced frame, which a seevoc spectrum with f0 0 is, is the same under every method; a
    // voiced value below 48 Hz anywhere doubles the transform for all.
    for (const int method : {0, 1, 2, 3, 4, 9}) {
        expectrow(rowof(x, method, 0, 100, 0), cepstrumof(getseevoclogspectrum, 0), 100);
        expectrow(rowof(x, method, 0, 100, 0, 40), cepstrumof(getseevoclogspectrum, 0, 2048), 100);
    }
}

TEST_F(mcepmethods, warpasccwarpdoes) {
    const nalveo::ccmemhandle mem(ccmeminitialize(401, 1024, 4, testfs, 60));
    reals c = directcepstrum(logspectrum(1024, 200, getseevoclogspectrum), 513);
    c[0] /= 2;
    c[512] /= 2;
    // One record for all: its matrix must follow; an order above the cepstrum's does without.
    for (const auto &[p, alpha] : {std::pair(39u, 0.42), std::pair(39u, -0.3), std::pair(22u, -0.3),
                                   std::pair(1200u, 0.42)}) {
        reals buffer(1024 + 1201), row(p + 1), wanted(p + 1), scratch(p + 1);
        getseemcep(x.data(), 4000, 2000, 1024, buffer.data(), p, row.data(), mem.get(), testfs, 200,
                   alpha);
        ASSERT_EQ(ccwarp(c.data(), 512, wanted.data(), p, scratch.data(), alpha), 0);
        wanted[0] *= 2;
        for (std::size_t i = 0; i <= p; ++i) ASSERT_NEAR(row[i], wanted[i], 1e-11) << i;
    }
}

// Warped frequencies of harmonics, from 0 to pi.
reals warpedaxis(const reals &freqs, double alpha) {
    reals w;
    for (const double f : freqs) w.push_back(fwarp(2 * testpi * f / testfs, alpha));
    return w;
}

TEST(ccmatrix, holdscosinesandsinesofthewarpedfrequencies) {
    const reals freqs = {10, 440.5, 3999, 7999};
    for (const double alpha : {0.0, 0.42, -0.7, 2.5})
        for (const bool harmonics : {false, true}) {
            constexpr std::uint32_t p = 30, k = 4;
            const reals w = warpedaxis(harmonics ? reals{1100, 2200, 3300, 4400} : freqs, alpha);
            reals c(k * (p + 1), 9.0), s(k * (p + 1), 9.0);
            ASSERT_EQ(ccmatrixcreate(p, k, harmonics ? nullptr : freqs.data(), c.data(), s.data(),
                                     1100, testfs, alpha),
                      0);
            for (std::size_t i = 0; i < k; ++i)
                for (std::size_t j = 0; j <= p; ++j) {
                    const double angle = static_cast<double>(j) * w[i], twice = j == 0 ? 1.0 : 2.0;
                    EXPECT_NEAR(c[i * (p + 1) + j], twice * std::cos(angle), 1e-12);
                    EXPECT_NEAR(s[i * (p + 1) + j], -2.0 * std::sin(angle), 1e-12);
                }
        }
    double one = 9.0;
    EXPECT_EQ(ccmatrixcreate(0, 1, freqs.data(), &one, nullptr, 0, testfs, 0.42), 0);
    EXPECT_EQ(one, 1.0);
    EXPECT_EQ(ccmatrixcreate(0, 1, freqs.data(), nullptr, nullptr, 0, testfs, 0.42), -1);
}

TEST(fitcepstrum, agreeswiththeplainleastsquares) {
    nalveo::rdcscratch scratch;
    for (const auto &[k, p] : {std::pair(1u, 0u), std::pair(31u, 39u), std::pair(79u, 39u),
                               std::pair(133u, 24u), std::pair(20u, 100u)})
        for (const double alpha : {0.42, 0.0, -0.3, 2.5})
            for (const bool harmonics : {false, true}) {
                const double f0 = testfs / 2 / (k + 0.7);
                reals freqs(k), levels = whitenoise(k, 2.0, k), basis(k * (p + 1)), x(p + 1),
                                wanted(p + 1);
                const reals shifts = whitenoise(k, 0.1, p);
                for (std::size_t i = 0; i < k; ++i)
                    freqs[i] = f0 * (static_cast<double>(i + 1) + std::clamp(shifts[i], -0.4, 0.4));
                const double *const given = harmonics ? nullptr : freqs.data();
                ccmatrixcreate(p, k, given, basis.data(), nullptr, f0, testfs, alpha);
                ASSERT_EQ(solveleastsquares(basis.data(), levels.data(), wanted.data(), k, p + 1, 1,
                                            nullptr, 1),
                          0);
                ASSERT_EQ(nalveo::fitcepstrum(scratch, levels.data(), k, given, p, x.data(), testfs,
                                              f0, alpha),
                          0);
                for (std::size_t j = 0; j <= p; ++j) ASSERT_NEAR(x[j], wanted[j], 1e-10) << j;
            }
}

TEST(rdcmethods, fitthelevelsoftheirharmonics) {
    reals x(4000);
    for (int k = 1; k < 50; ++k)
        addtone(x, 0.05 * allpolegain(vowel(), 160.0 * k), 160.0 * k + 3 * std::sin(k), 1.1 * k * k,
                2000);
    const nalveo::hamemhandle mem(qhameminitialize(testfs, testfs, 60));
    constexpr std::uint32_t k = 49, p = 24;
    // Outside -1 .. 1 there is a warped axis as well, for these methods alone.
    for (const auto &[method, alpha] :
         {std::pair(1, 0.42), std::pair(1, -2.5), std::pair(2, 0.42)}) {
        reals amp(k), freq(k), basis(k * (p + 1)), wanted(p + 1);
        if (method == 1)
            getharmonics(x.data(), 4000, 2000, k, amp.data(), nullptr, mem.get(), testfs, 160);
        else
            getsqharmonics(x.data(), 4000, 2000, k, amp.data(), nullptr, freq.data(), mem.get(),
                           testfs, 160);
        for (double &a : amp) a = std::log(a / 2 / std::sqrt(160.0));
        ccmatrixcreate(p, k, method == 1 ? nullptr : freq.data(), basis.data(), nullptr, 160,
                       testfs, alpha);
        ASSERT_EQ(
            solveleastsquares(basis.data(), amp.data(), wanted.data(), k, p + 1, 1, nullptr, 1), 0);
        const reals row = rowof(x, method, 160, p, alpha);
        for (std::size_t j = 0; j <= p; ++j) EXPECT_NEAR(row[j], wanted[j], 1e-9) << j;
    }
}

TEST(rdcmethods, takeframesbelowthelowestf0oftheirrecord) {
    // With room for one harmonic, and then 133 of them at an order of 39.
    const reals x = whitenoise(4000, 0.1, 5);
    for (const auto &[method, routine] : {std::pair(1, &getharmrdc), std::pair(2, &getqharmrdc)}) {
        const nalveo::ccmemhandle mem(
            ccmeminitialize(401, 1024, static_cast<std::uint8_t>(method), testfs, 7000));
        reals buffer(2048), row(40);
        EXPECT_EQ(routine(x.data(), 4000, 2000, 1024, buffer.data(), 39, row.data(), mem.get(),
                          testfs, 60, 0.42),
                  0);
        EXPECT_EQ(row, rowof(x, method, 60, 39, 0.42));
    }
}

TEST(waveform2cc, givesframessidebysidewhateachgivesbyitself) {
    nalveo::ccmethod *const methods[] = {getharmmcep, getharmrdc, getqharmrdc, getwwcmcep,
                                         getseemcep};
    reals x = speak({[](double t) { return 150 + 200 * t; }, vowel(), 8000, 0.02, 0}, 6000);
    std::fill(x.begin() + 2000, x.begin() + 3500, 0.0);  // takes silence for noise, too
    constexpr std::uint32_t nframes = 50, shift = 110;
    reals f0(nframes);
    for (std::uint32_t i = 0; i < nframes; ++i)
        if (i % 7 != 3) f0[i] = 150 + 200 * i * shift / testfs;
    for (std::uint8_t method = 0; method < 5; ++method)
        // An order too high to go side by side, and a cepstrum that is not warped.
        for (const auto &[p, alpha] : {std::pair(39u, 0.42), std::pair(2u, -0.3),
                                       std::pair(80u, 0.42), std::pair(5u, 0.0)}) {
            reals cc(nframes * (p + 1), 7.0), wanted(nframes * (p + 1), 7.0), buffer(2048);
            waveform2cc(x.data(), 6000, shift, 0, nframes, f0.data(), p, cc.data(), method, testfs,
                        alpha);
            const nalveo::ccmemhandle mem(ccmeminitialize(401, 1024, method, testfs, 60));
            for (std::uint32_t i = 0; i < nframes; ++i)
                methods[method](x.data(), 6000, i * shift, 1024, buffer.data(), p,
                                &wanted[i * (p + 1)], mem.get(), testfs, f0[i], alpha);
            EXPECT_EQ(cc, wanted) << int{method} << " " << p;
        }
}

TEST(mcepmethod, withneitherorderalphanor) {
    // Deliberate: with alpha 0 nothing is written at order 0, and what is there is doubled.
    EXPECT_EQ(rowof(whitenoise(4000, 0.1, 6), 4, 0, 0, 0), reals{14});
}

TEST_F(mcepmethods, takesilencefornoise) {
    x.assign(4000, 0.0);
    for (const int method : {0, 1, 2})
        EXPECT_EQ(rowof(x, method, 150, 20, 0.42), rowof(x, method, 0, 20, 0.42));
}

}  // namespace
