// The whole chain in process, on voices whose truth is known.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/fvanalysis.h"
#include "analysis/pitchanalysis.h"
#include "numeric/windowing.h"
#include "testsignals.h"

namespace {

using reals = std::vector<double>;

struct settings {
    std::uint32_t lframe = 80;
    std::uint32_t ccord = 39;
    double alpha = 0.42;
    double f0min = 60;
    std::uint8_t method = 1;
    std::uint32_t refinements = 0;
};

struct tracks {
    reals f0, fv, cc;
};

tracks analyse(const reals &x, const settings &s) {
    const auto n = static_cast<std::uint32_t>(x.size());
    const std::uint32_t nframes = getnumframes(n, s.lframe, 0);
    tracks t{reals(nframes), reals(nframes), reals(getccsize(nframes, s.ccord))};
    getpitch(x.data(), n, s.lframe, 0, nframes, t.f0.data(), testfs, s.f0min, 500);
    getfvoicing(x.data(), n, s.lframe, 0, nframes, t.f0.data(), t.fv.data(), testfs);
    refinepitch(x.data(), n, s.lframe, 0, nframes, s.refinements, t.f0.data(), t.fv.data(), testfs,
                s.f0min, 500);
    waveform2cc(x.data(), n, s.lframe, 0, nframes, t.f0.data(), s.ccord, t.cc.data(), s.method,
                testfs, s.alpha);
    return t;
}

// Natural log of amplitude of a row's envelope at f Hz.
double envelopeat(const reals &cc, std::size_t frame, const settings &s, double f) {
    const double w = fwarp(2 * testpi * f / testfs, s.alpha);
    const double *const c = cc.data() + frame * (s.ccord + 1);
    double sum = c[0];
    for (std::uint32_t j = 1; j <= s.ccord; ++j) sum += 2 * c[j] * std::cos(j * w);
    return sum;
}

class everymethod : public testing::TestWithParam<int> {
   protected:
    settings s{.method = static_cast<std::uint8_t>(GetParam())};
};

TEST_P(everymethod, findsthevowel) {
    const double f0 = 113.7;
    const voice v{[=](double) { return f0; }, vowel(), 8000, 0.05};
    s.refinements = 5;
    const tracks t = analyse(speak(v, 4000), s);
    for (const std::size_t frame : {17u, 25u, 32u}) {
        EXPECT_NEAR(t.f0[frame], f0, 0.001 * f0);
        const auto found = [&](double f) { return envelopeat(t.cc, frame, s, f); };
        const auto truth = [&](double f) {  // half the amplitude over the root of f0
            return std::log(v.level * allpolegain(v.formants, f) / 2 / std::sqrt(f0));
        };
        double squares = 0;
        int count = 0;
        for (double f = f0; f < 7500; f += f0 / 3, ++count)
            squares += std::pow(8.686 * (found(f) - truth(f)), 2);
        // 40 coefficients smooth the valleys between formants by some tenths of a dB; the windows
        // of method 3 are short enough to let the position of the pulses through.
        EXPECT_LT(std::sqrt(squares / count), GetParam() == 3 ? 1.0 : 0.45) << frame;
    }
}

TEST_P(everymethod, livesonanysignalandsetting) {
    reals click(3000), full(3000);
    click[1500] = 1.0 - 0x1p-15;
    for (std::size_t i = 0; i < full.size(); ++i) full[i] = i / 40 % 2 == 0 ? -1.0 : 1.0 - 0x1p-15;
    const reals steady(3000, 0.25), single(1, 0.5), silence(900);
    const voice v{[](double t) { return t < 0.05 ? 0.0 : 110 + 400 * t; }, vowel(), 5000, 0.05,
                  0.003};
    const settings cases[] = {
        {80, 39, 0.42, 60}, {16, 0, 0.42, 60},    {400, 60, -0.3, 60}, {80, 60, 0.6, 40},
        {160, 1, 0.0, 60},  {400, 39, 0.42, 475}, {211, 2, -0.6, 0},   {16000, 120, 0.42, 40},
    };
    for (const reals &x :
         {click, full, steady, single, silence, whitenoise(3000, 0.3, 6), speak(v, 3200)})
        for (settings c : cases) {
            c.method = s.method;
            c.refinements = c.lframe > 70 ? 5 : 0;
            const tracks t = analyse(x, c);
            for (const reals *values : {&t.f0, &t.fv, &t.cc})
                for (const double value : *values) ASSERT_TRUE(std::isfinite(value)) << c.lframe;
        }
}

INSTANTIATE_TEST_SUITE_P(methods, everymethod, testing::Range(0, 5));

}  // namespace
