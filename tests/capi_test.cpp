// The C interface: the bytes of the routines behind it, voices whose truth is known, refusals, and
// many threads.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/conditioning.h"
#include "analysis/fvanalysis.h"
#include "analysis/pitchanalysis.h"
#include "nalveo.h"
#include "synthesis/synthesis.h"
#include "testsignals.h"

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

nalveo_options defaults() {
    nalveo_options options;
    EXPECT_EQ(nalveo_default_options(&options, sizeof options), NALVEO_OK);
    return options;
}

struct tracks {
    reals f0, cc, fv;
    bool operator==(const tracks &) const = default;
};

tracks makearrays(std::size_t nsamples, const nalveo_options &options) {
    const std::size_t nframes = nalveo_frame_count(nsamples, &options);
    return {reals(nframes, nan), reals(nframes * (options.order + 1), nan), reals(nframes, nan)};
}

tracks analyse(const reals &x, const nalveo_options &options) {
    tracks t = makearrays(x.size(), options);
    EXPECT_EQ(nalveo_analyse(x.data(), x.size(), &options, t.f0.data(), t.cc.data(), t.fv.data()),
              NALVEO_OK);
    return t;
}

// A voice that glides, with unvoiced ends and 30 ms of digital silence.
reals speech() {
    const voice v{[](double t) { return t < 0.05 || t > 0.4 ? 0.0 : 110 + 100 * t; }, vowel(), 4000,
                  0.01, 0.002};
    reals x = speak(v, 8000);
    std::fill(x.begin() + 7000, x.begin() + 7480, 0.0);
    return x;
}

// The routines in the order of the program.
tracks chain(const reals &samples, const nalveo_options &o, double alpha) {
    reals x = samples;
    nalveo::noisesource noise;
    const auto n = static_cast<std::uint32_t>(x.size());
    fillzeros(x.data(), n, o.zfill, noise);
    const std::uint32_t nframes = (n - 1) / o.frame_shift + 1;
    tracks t{reals(nframes), reals(nframes * (o.order + 1)), reals(nframes)};
    getpitch(x.data(), n, o.frame_shift, 0, nframes, t.f0.data(), o.fs, o.f0_floor, o.f0_ceil);
    getfvoicing(x.data(), n, o.frame_shift, 0, nframes, t.f0.data(), t.fv.data(), o.fs);
    refinepitch(x.data(), n, o.frame_shift, 0, nframes, o.refine, t.f0.data(), t.fv.data(), o.fs,
                o.f0_floor, o.f0_ceil);
    waveform2cc(x.data(), n, o.frame_shift, 0, nframes, t.f0.data(), o.order, t.cc.data(),
                static_cast<std::uint8_t>(o.method), o.fs, alpha);
    if (o.hts_scale == 1) htsadapteradhoc(t.cc.data(), o.order, nframes);
    return t;
}

class capimethods : public testing::TestWithParam<std::uint32_t> {};

TEST_P(capimethods, givesthebytesofitsroutines) {
    const reals x = speech();
    nalveo_options options = defaults();
    options.method = GetParam();
    options.frame_shift = 80;
    const tracks plain = analyse(x, options);
    EXPECT_EQ(plain, chain(x, options, 0.42));
    EXPECT_EQ(plain, analyse(x, options)) << "noise goes on from call to call";
    EXPECT_GT(std::count_if(plain.f0.begin(), plain.f0.end(), [](double f) { return f > 0; }), 50);

    // Any output may be left out.
    EXPECT_EQ(nalveo_analyse(x.data(), x.size(), &options, nullptr, nullptr, nullptr), NALVEO_OK);
    tracks single = makearrays(x.size(), options);
    nalveo_analyse(x.data(), x.size(), &options, single.f0.data(), nullptr, nullptr);
    nalveo_analyse(x.data(), x.size(), &options, nullptr, single.cc.data(), nullptr);
    nalveo_analyse(x.data(), x.size(), &options, nullptr, nullptr, single.fv.data());
    EXPECT_EQ(single, plain);

    options.frame_shift = 200;
    options.order = 24;
    options.alpha = 0.35;
    options.refine = 2;
    options.hts_scale = 0;
    const tracks refined = analyse(x, options);
    EXPECT_EQ(refined, chain(x, options, 0.35));
    EXPECT_NE(refined.f0, (options.refine = 0, analyse(x, options).f0));
}

TEST_P(capimethods, findsthevowel) {
    const double f0 = 113.7;
    const voice v{[=](double) { return f0; }, vowel(), 8000, 0.01};
    nalveo_options options = defaults();
    options.method = GetParam();
    options.refine = 5;
    const tracks t = analyse(speak(v, 4000), options);
    reals frequencies;
    for (double f = f0; f < 7500; f += f0 / 3) frequencies.push_back(f);
    const std::size_t count = frequencies.size();
    reals levels(t.f0.size() * count);
    nalveo_envelope(t.cc.data(), t.f0.size(), &options, frequencies.data(), count, levels.data());
    for (const std::size_t frame : {17u, 25u, 32u}) {
        EXPECT_NEAR(t.f0[frame], f0, 0.001 * f0);
        double squares = 0;
        for (std::size_t i = 0; i < count; ++i) {  // half the amplitude over the root of f0
            const double amplitude = v.level * allpolegain(v.formants, frequencies[i]);
            const double truth = std::log(amplitude / 2 / std::sqrt(f0));
            squares += std::pow(8.686 * (levels[frame * count + i] - truth), 2);
        }
        // 40 coefficients smooth the valleys between formants by some tenths of a dB; the windows
        // of method 3 are short enough to let the position of the pulses through.
        EXPECT_LT(std::sqrt(squares / static_cast<double>(count)), GetParam() == 3 ? 1.0 : 0.45);
    }
}

void expectfinite(const tracks &t) {
    for (const reals *values : {&t.f0, &t.fv, &t.cc})
        for (const double value : *values) ASSERT_TRUE(std::isfinite(value));
}

TEST_P(capimethods, livesonanysignalandsetting) {
    reals click(3000), full(3000);
    click[1500] = 1.0 - 0x1p-15;
    for (std::size_t i = 0; i < full.size(); ++i) full[i] = i / 40 % 2 == 0 ? -1.0 : 1.0 - 0x1p-15;
    const reals steady(3000, 0.25), single(1, 0.5), silence(900);
    const voice v{[](double t) { return t < 0.05 ? 0.0 : 110 + 400 * t; }, vowel(), 5000, 0.01,
                  0.001};
    const struct {
        std::uint32_t shift, order;
        double alpha, floor;
    } cases[] = {
        {80, 39, 0.42, 60}, {16, 0, 0.42, 60},    {400, 60, -0.3, 60}, {80, 60, 0.6, 40},
        {160, 1, 0.0, 60},  {400, 39, 0.42, 475}, {211, 2, -0.6, 15},  {16000, 120, 0.42, 40},
    };
    for (const reals &x :
         {click, full, steady, single, silence, whitenoise(3000, 0.2, 6), speak(v, 3200)})
        for (const auto &c : cases)
            expectfinite(analyse(x, {sizeof(nalveo_options), c.shift, 16000, c.floor, 500, c.alpha,
                                     c.order, GetParam(), c.shift > 70 ? 5u : 0u, 0, 1, 0}));
}

TEST_P(capimethods, liveswithextremes) {
    const reals x = whitenoise(900, 0.1, 1);
    // A low f0 at a high rate would have thousands of harmonics.
    for (const auto &[fs, f] : {std::pair(8000, 15.0), {8000, 3999.2}, {96000, 47990.4}}) {
        const nalveo_options o{sizeof o, 300,        1.0 * fs, 15,  0.5 * fs, NALVEO_MEL_ALPHA,
                               100,      GetParam(), 5,        160, 1,        1};
        tracks t = makearrays(x.size(), o);
        std::fill(t.f0.begin(), t.f0.end(), f);
        ASSERT_EQ(nalveo_analyse(x.data(), x.size(), &o, t.f0.data(), t.cc.data(), t.fv.data()),
                  NALVEO_OK);
        expectfinite(t);
        std::fill(t.fv.begin(), t.fv.end(), 0.0);  // no harmonics to refine with
        EXPECT_EQ(nalveo_refine_f0(x.data(), x.size(), &o, t.f0.data(), t.fv.data()), NALVEO_OK);
    }
}

INSTANTIATE_TEST_SUITE_P(methods, capimethods, testing::Range(0u, 5u));

TEST(capi, singlestepsgivethebytesofthewhole) {
    const reals x = speech();
    nalveo_options options = defaults();
    options.refine = 3;
    const tracks whole = analyse(x, options);
    tracks steps = makearrays(x.size(), options);
    ASSERT_EQ(nalveo_estimate_f0(x.data(), x.size(), &options, steps.f0.data()), NALVEO_OK);
    const reals raw = steps.f0;
    ASSERT_EQ(nalveo_estimate_fv(x.data(), x.size(), &options, steps.f0.data(), steps.fv.data()),
              NALVEO_OK);
    ASSERT_EQ(nalveo_refine_f0(x.data(), x.size(), &options, steps.f0.data(), steps.fv.data()),
              NALVEO_OK);
    ASSERT_EQ(nalveo_estimate_cc(x.data(), x.size(), &options, steps.f0.data(), steps.cc.data()),
              NALVEO_OK);
    EXPECT_EQ(steps, whole);

    // f0 from elsewhere goes the same way.
    options.f0_given = 1;
    tracks given = makearrays(x.size(), options);
    given.f0 = raw;
    ASSERT_EQ(nalveo_analyse(x.data(), x.size(), &options, given.f0.data(), given.cc.data(),
                             given.fv.data()),
              NALVEO_OK);
    EXPECT_EQ(given, whole);
}

TEST(capi, eightthreadsgivetheserialbytes) {
    const reals x = speech();
    std::vector<nalveo_options> options(8, defaults());
    std::vector<tracks> serial, parallel(8);
    for (std::uint32_t i = 0; i < 8; ++i) {
        options[i].method = i % 5;
        options[i].refine = i % 2;
        options[i].frame_shift = 200;
        serial.push_back(analyse(x, options[i]));
    }
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            parallel[i] = analyse(x, options[i]);
            const reals frequencies{0.0, 1000.0, 8000.0};
            reals levels(3 * parallel[i].f0.size());
            EXPECT_EQ(nalveo_envelope(parallel[i].cc.data(), parallel[i].f0.size(), &options[i],
                                      frequencies.data(), 3, levels.data()),
                      NALVEO_OK);
            EXPECT_STREQ(nalveo_error_text(NALVEO_OK), "no error");
        });
    for (std::thread &thread : threads) thread.join();
    for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(parallel[i], serial[i]) << i;
}

TEST(capi, refusesoptionsoutofrange) {
    const reals x(800, 0.1);
    const struct {
        int code;
        std::function<void(nalveo_options &)> spoil;
    } cases[] = {
        {NALVEO_BAD_OPTIONS, [](auto &o) { o.size = 0; }},
        {NALVEO_BAD_OPTIONS, [](auto &o) { o.size = sizeof o + 1; }},
        {NALVEO_BAD_RATE, [](auto &o) { o.fs = 7999.9; }},
        {NALVEO_BAD_RATE, [](auto &o) { o.fs = 96000.1; }},
        {NALVEO_BAD_RATE, [](auto &o) { o.fs = nan; }},
        {NALVEO_BAD_SHIFT, [](auto &o) { o.fs = 22050; }},  // 5 ms are 110.25 samples
        {NALVEO_BAD_SHIFT, [](auto &o) { o.frame_shift = NALVEO_MOST_SHIFT + 1u; }},
        {NALVEO_BAD_F0_RANGE, [](auto &o) { o.f0_floor = 14.9; }},
        {NALVEO_BAD_F0_RANGE, [](auto &o) { o.f0_floor = nan; }},
        {NALVEO_BAD_F0_RANGE, [](auto &o) { o.f0_ceil = o.f0_floor; }},
        {NALVEO_BAD_F0_RANGE, [](auto &o) { o.f0_ceil = 8000.1; }},
        {NALVEO_BAD_F0_RANGE, [](auto &o) { o.f0_ceil = nan; }},
        {NALVEO_BAD_ORDER, [](auto &o) { o.order = 512; }},
        {NALVEO_BAD_ALPHA, [](auto &o) { o.alpha = 1.0; }},
        {NALVEO_BAD_ALPHA, [](auto &o) { o.alpha = -1.0; }},
        {NALVEO_BAD_ALPHA, [](auto &o) { o.alpha = nan; }},
        {NALVEO_BAD_METHOD, [](auto &o) { o.method = 5; }},
        {NALVEO_BAD_REFINE, [](auto &o) { o.refine = 6; }},
        {NALVEO_BAD_HTS_SCALE, [](auto &o) { o.hts_scale = 2; }},
        {NALVEO_BAD_F0_GIVEN, [](auto &o) { o.f0_given = 2; }},
    };
    for (const auto &c : cases) {
        nalveo_options options = defaults();
        c.spoil(options);
        EXPECT_EQ(nalveo_check_options(&options), c.code);
        EXPECT_EQ(nalveo_analyse(x.data(), x.size(), &options, nullptr, nullptr, nullptr), c.code);
        EXPECT_EQ(nalveo_frame_count(x.size(), &options), 0u);
        EXPECT_EQ(nalveo_frame_shift(&options), 0u);
    }
    EXPECT_EQ(nalveo_check_options(nullptr), NALVEO_NULL_POINTER);
    nalveo_options options;
    EXPECT_EQ(nalveo_default_options(nullptr, sizeof options), NALVEO_NULL_POINTER);
    EXPECT_EQ(nalveo_default_options(&options, sizeof options - 1), NALVEO_BAD_OPTIONS);
    EXPECT_EQ(nalveo_default_options(&options, sizeof options + 1), NALVEO_BAD_OPTIONS);
}

TEST(capi, refusesbadarrays) {
    const nalveo_options options = defaults();
    nalveo_options given = options;
    given.f0_given = 1;
    const reals good(800, 0.1);
    reals f0(10), fv(10), cc(400);
    const auto run = [&](const reals &x) {
        return nalveo_analyse(x.data(), x.size(), &options, f0.data(), cc.data(), fv.data());
    };
    for (const double bad : {nan, 1.0000001, -1.0000001, HUGE_VAL, 32767.0}) {
        for (const std::size_t place : {0u, 400u, 799u}) {
            reals x = good;
            x[place] = bad;
            EXPECT_EQ(run(x), NALVEO_BAD_SAMPLE) << bad << ' ' << place;
        }
        for (const double badf0 : {bad == 32767.0 ? 8000.0 : bad, 14.9, -100.0, 4.6}) {
            std::fill(f0.begin(), f0.end(), 0.0);
            f0[9] = badf0;
            const double *const x = good.data();
            EXPECT_EQ(nalveo_analyse(x, 800, &given, f0.data(), nullptr, nullptr), NALVEO_BAD_F0);
            EXPECT_EQ(nalveo_refine_f0(x, 800, &options, f0.data(), nullptr), NALVEO_BAD_F0);
            EXPECT_EQ(nalveo_estimate_fv(x, 800, &options, f0.data(), fv.data()), NALVEO_BAD_F0);
            EXPECT_EQ(nalveo_estimate_cc(x, 800, &options, f0.data(), cc.data()), NALVEO_BAD_F0);
        }
    }
    std::fill(f0.begin(), f0.end(), 100.0);
    for (const double bad : {nan, -1.0, 8000.1}) {
        std::fill(fv.begin(), fv.end(), 4000.0);
        fv[5] = bad;
        EXPECT_EQ(nalveo_refine_f0(good.data(), 800, &options, f0.data(), fv.data()),
                  NALVEO_BAD_FV);
    }
    EXPECT_EQ(nalveo_analyse(nullptr, 800, &options, nullptr, nullptr, nullptr),
              NALVEO_NULL_POINTER);
    EXPECT_EQ(nalveo_analyse(good.data(), 800, &given, nullptr, nullptr, nullptr),
              NALVEO_BAD_F0_GIVEN);
    EXPECT_EQ(nalveo_estimate_f0(good.data(), 800, &options, nullptr), NALVEO_NULL_POINTER);
    EXPECT_EQ(nalveo_analyse(good.data(), 0, &options, nullptr, nullptr, nullptr),
              NALVEO_BAD_LENGTH);
    EXPECT_EQ(nalveo_frame_count(0, &options), 0u);
    EXPECT_EQ(nalveo_frame_count(NALVEO_MOST_SAMPLES + std::size_t{1}, &options), 0u);
    nalveo_options dense = options;
    dense.frame_shift = 1;
    EXPECT_EQ(nalveo_frame_count(4294967295u / 40 + 1, &dense), 0u) << "cc would overflow";
    EXPECT_EQ(nalveo_frame_count(4294967295u / 40, &dense), 4294967295u / 40);
}

TEST(capi, envelopeisthesumofcosines) {
    nalveo_options options = defaults();
    options.order = 2;
    options.alpha = 0.3;
    const reals cc{5.5, 0.4, -0.2, 4.0, -0.1, 0.3};
    const reals frequencies{0.0, 700.0, 4000.0, 8000.0};
    reals hts(8), plain(8);
    ASSERT_EQ(nalveo_envelope(cc.data(), 2, &options, frequencies.data(), 4, hts.data()),
              NALVEO_OK);
    options.hts_scale = 0;
    ASSERT_EQ(nalveo_envelope(cc.data(), 2, &options, frequencies.data(), 4, plain.data()),
              NALVEO_OK);
    for (std::size_t k = 0; k < 2; ++k)
        for (std::size_t i = 0; i < 4; ++i) {
            const double omega = 2 * testpi * frequencies[i] / 16000;
            const double w = std::atan2(0.91 * std::sin(omega), 1.09 * std::cos(omega) - 0.6);
            const double *const c = cc.data() + 3 * k;
            EXPECT_NEAR(plain[4 * k + i], c[0] + 2 * (c[1] * std::cos(w) + c[2] * std::cos(2 * w)),
                        1e-12);
            EXPECT_NEAR(hts[4 * k + i], c[0] - 5 + c[1] * std::cos(w) + c[2] * std::cos(2 * w),
                        1e-12);
        }
    for (const double bad : {nan, -1.0, 8001.0})
        EXPECT_EQ(nalveo_envelope(cc.data(), 2, &options, &bad, 1, hts.data()),
                  NALVEO_BAD_FREQUENCY);
    const reals infinite{0.0, HUGE_VAL, 0.0};
    EXPECT_EQ(nalveo_envelope(infinite.data(), 1, &options, frequencies.data(), 4, hts.data()),
              NALVEO_BAD_CEPSTRUM);
    EXPECT_EQ(nalveo_envelope(nullptr, 1, &options, frequencies.data(), 4, hts.data()),
              NALVEO_NULL_POINTER);
}

// More frequencies than are evaluated at a time give what each gives alone, and settings that say
// nothing of cepstra are not looked at.
TEST(capi, envelopeofmanyfrequencies) {
    nalveo_options options = defaults();
    options.order = 2;
    options.fs = 22050.0;  // 5 ms are no whole number of samples
    options.f0_floor = nan;
    options.method = options.refine = options.f0_given = 99;
    const reals cc{5.5, 0.4, -0.2, 4.0, -0.1, 0.3};
    constexpr std::size_t count = 2500;
    reals frequencies(count), levels(2 * count), alone(2);
    for (std::size_t i = 0; i < count; ++i) frequencies[i] = 4.0 * static_cast<double>(i);
    ASSERT_EQ(nalveo_envelope(cc.data(), 2, &options, frequencies.data(), count, levels.data()),
              NALVEO_OK);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(nalveo_envelope(cc.data(), 2, &options, &frequencies[i], 1, alone.data()),
                  NALVEO_OK);
        ASSERT_EQ(levels[i], alone[0]) << i;
        ASSERT_EQ(levels[count + i], alone[1]) << i;
    }
    options.hts_scale = 2;
    EXPECT_EQ(nalveo_envelope(cc.data(), 2, &options, frequencies.data(), 1, alone.data()),
              NALVEO_BAD_HTS_SCALE);
}

TEST(capi, synthesisesfromwhatitanalyses) {
    const reals x = speech();
    const nalveo_options options = defaults();
    const tracks t = analyse(x, options);
    const std::size_t nframes = t.f0.size();
    reals y(x.size());
    const auto make = [&](const tracks &from, const nalveo_options &with, std::size_t n,
                          std::size_t nsamples) {
        return nalveo_synthesise(from.f0.data(), from.cc.data(), from.fv.data(), n, &with, 7,
                                 y.data(), nsamples);
    };
    ASSERT_EQ(make(t, options, nframes, y.size()), NALVEO_OK);
    reals direct(y.size());
    nalveo::synthesise(
        {static_cast<std::uint32_t>(nframes), 39, t.f0.data(), t.cc.data(), t.fv.data()},
        {16000.0, 80, 0.42, true, 7}, direct.size(), direct.data());
    EXPECT_EQ(y, direct);

    // Plain cepstra say the same.
    nalveo_options plain = options;
    plain.hts_scale = 0;
    ASSERT_EQ(make(analyse(x, plain), plain, nframes, y.size()), NALVEO_OK);
    for (std::size_t i = 0; i < y.size(); ++i) ASSERT_NEAR(y[i], direct[i], 1e-12);

    EXPECT_EQ(make(t, options, nframes, 0), NALVEO_BAD_LENGTH);
    EXPECT_EQ(make(t, options, 0, 80), NALVEO_BAD_LENGTH);
    EXPECT_EQ(make(t, options, 10, 801), NALVEO_BAD_LENGTH);
    nalveo_options wide = options;
    wide.frame_shift = NALVEO_MOST_SYNTHESIS_SHIFT + 1;
    EXPECT_EQ(make(t, wide, nframes, 80), NALVEO_BAD_SHIFT);
    for (const auto &[track, code] :
         {std::pair(&tracks::f0, NALVEO_BAD_F0), std::pair(&tracks::cc, NALVEO_BAD_CEPSTRUM),
          std::pair(&tracks::fv, NALVEO_BAD_FV)}) {
        tracks bad = t;
        (bad.*track)[2] = nan;
        EXPECT_EQ(make(bad, options, nframes, 80), code);
    }
    EXPECT_EQ(nalveo_synthesise(t.f0.data(), nullptr, nullptr, nframes, &options, 1, y.data(), 80),
              NALVEO_NULL_POINTER);
}

// A vowel with a glide and a border at 3 kHz, silence around it: analysed, made, analysed again.
TEST(capi, hearswhatithasmadeasitwas) {
    constexpr std::size_t n = 24000;
    const voice v{[](double t) { return t > 0.2 && t < 1.3 ? 110.0 + 40.0 * t : 0.0; }, vowel(),
                  3000, 0.01, 0.0007};
    reals x = speak(v, n);
    const reals hiss = whitenoise(n, 0.0001, 9);
    for (std::size_t i = 0; i < n; ++i) x[i] += hiss[i];
    const nalveo_options options = defaults();
    const tracks first = analyse(x, options);
    nalveo_synthesise(first.f0.data(), first.cc.data(), first.fv.data(), first.f0.size(), &options,
                      1, x.data(), n);
    const tracks second = analyse(x, options);
    double other = 0, voiced = 0, noises = 0, cents = 0, level = 0, noise = 0, border = 0;
    for (std::size_t k = 0; k < first.f0.size(); ++k) {
        const double difference = second.cc[k * 40] - first.cc[k * 40];
        if ((first.f0[k] > 0) != (second.f0[k] > 0)) {
            ++other;
        } else if (first.f0[k] > 0) {
            ++voiced;
            cents += std::pow(1200 * std::log2(second.f0[k] / first.f0[k]), 2);
            level += difference;
            border += second.fv[k] - first.fv[k];
        } else {
            ++noises;
            noise += difference;
        }
    }
    EXPECT_LE(other, 4);
    ASSERT_GT(voiced, 200);
    EXPECT_LT(std::sqrt(cents / voiced), 10.0);
    EXPECT_NEAR(border / voiced, 0.0, 300.0);
    EXPECT_NEAR(level / voiced, 0.0, 0.035);  // 0.3 dB
    EXPECT_NEAR(noise / noises, 0.0, 0.1);
}

TEST(capi, melalphaisclosest) {
    EXPECT_EQ(nalveo_mel_alpha(16000), 0.42);
    // By its definition, on a dense grid.
    for (const double fs : {8000.0, 11025.0, 22050.0, 24000.0, 44100.0, 48000.0, 96000.0}) {
        double best = HUGE_VAL;
        int closest = 0;
        for (int hundredths = 0; hundredths < 100; ++hundredths) {
            const double a = hundredths / 100.0;
            double sum = 0;
            for (int i = 0; i <= 2000; ++i) {
                const double mel = i / 2000.0;
                const double w = 2000 * testpi * (std::pow(1 + fs / 2000, mel) - 1) / fs;
                const double warped =
                    std::atan2((1 - a * a) * std::sin(w), (1 + a * a) * std::cos(w) - 2 * a);
                sum += std::pow(warped / testpi - mel, 2);
            }
            if (sum < best) {
                best = sum;
                closest = hundredths;
            }
        }
        EXPECT_EQ(nalveo_mel_alpha(fs), closest / 100.0) << fs;
    }
    for (const double bad : {7999.0, 96001.0, nan}) EXPECT_TRUE(std::isnan(nalveo_mel_alpha(bad)));
}

TEST(capi, convertslogf0) {
    const reals f0{100.0, 0.0, -3.0, 440.0};
    reals logf0(4), back(4);
    ASSERT_EQ(nalveo_f0_to_log(f0.data(), 4, logf0.data()), NALVEO_OK);
    EXPECT_NEAR(logf0[0], std::log(100.0), 1e-15);
    EXPECT_EQ(logf0[1], -1e10);
    EXPECT_EQ(logf0[2], -1e10);
    ASSERT_EQ(nalveo_log_to_f0(logf0.data(), 4, back.data()), NALVEO_OK);
    EXPECT_NEAR(back[3], 440.0, 1e-12);
    EXPECT_EQ(back[1], 0.0);
    EXPECT_EQ(nalveo_f0_to_log(nullptr, 4, back.data()), NALVEO_NULL_POINTER);
    EXPECT_EQ(nalveo_f0_to_log(nullptr, 0, nullptr), NALVEO_OK);
}

TEST(capi, everyerrorhasatextofitsown) {
    std::set<std::string> texts;
    for (int code = NALVEO_OK; code <= NALVEO_BAD_FREQUENCY; ++code) {
        const std::string text = nalveo_error_text(code);
        EXPECT_NE(text, nalveo_error_text(-1)) << code;
        texts.insert(text);
    }
    EXPECT_EQ(texts.size(), NALVEO_BAD_FREQUENCY + 1u);
    EXPECT_STREQ(nalveo_version(), NALVEO_VERSION);
}

}  // namespace
