// Times the analyses of a minute of synthetic speech, in memory. The counter x_realtime is seconds
// of speech per second of computing.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/fvanalysis.h"
#include "analysis/pitchanalysis.h"
#include "numeric/windowing.h"

namespace {

using reals = std::vector<double>;

constexpr double fs = 16000.0;
constexpr double seconds = 60.0;
constexpr auto nsamples = static_cast<std::uint32_t>(seconds * fs);
constexpr std::uint32_t lframe = 80;
constexpr std::uint32_t ccord = 39;
constexpr double f0min = 60.0;
constexpr double f0max = 500.0;
constexpr double alpha = 0.42;
constexpr double twopi = 6.283185307179586;

// Phrases of 1.5 s with pauses of 0.5 s: pulses at 90 to 180 Hz, slowly rising and falling, through
// three resonances, over faint noise.
reals makespeech() {
    std::mt19937 random(1);
    std::normal_distribution<double> gauss;
    reals x(nsamples);
    double turns = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const double t = static_cast<double>(i) / fs;
        x[i] = 2e-3 * gauss(random);
        if (std::fmod(t, 2.0) > 1.5) continue;
        turns += (135.0 + 45.0 * std::sin(twopi * 0.37 * t)) / fs;
        if (turns < 1.0) continue;
        turns -= 1.0;
        x[i] += 1.0;
    }
    for (const double f : {600.0, 1300.0, 2600.0}) {
        const double radius = 0.97;
        const double a = 2.0 * radius * std::cos(twopi * f / fs);
        for (std::size_t i = 2; i < x.size(); ++i)
            x[i] = 0.3 * x[i] + a * x[i - 1] - radius * radius * x[i - 2];
    }
    double peak = 0.0;
    for (const double v : x) peak = std::max(peak, std::abs(v));
    for (double &v : x) v *= 0.7 / peak;
    return x;
}

struct material {
    reals x = makespeech();
    std::uint32_t nframes = getnumframes(nsamples, lframe, 0);
    reals f0 = reals(nframes);
    reals fv = reals(nframes);
    reals cc = reals(getccsize(nframes, ccord));

    material() {
        pitch();
        voicing();
    }
    void pitch() { getpitch(x.data(), nsamples, lframe, 0, nframes, f0.data(), fs, f0min, f0max); }
    void voicing() {
        getfvoicing(x.data(), nsamples, lframe, 0, nframes, f0.data(), fv.data(), fs);
    }
    void refine(reals &track) {
        refinepitch(x.data(), nsamples, lframe, 0, nframes, 5, track.data(), fv.data(), fs, f0min,
                    f0max);
    }
    void cepstra(std::uint8_t method) {
        waveform2cc(x.data(), nsamples, lframe, 0, nframes, f0.data(), ccord, cc.data(), method, fs,
                    alpha);
    }
};

template <class Run>
void measure(benchmark::State &state, const reals &result, Run run) {
    for (auto _ : state) {
        run();
        benchmark::DoNotOptimize(result.data());
        benchmark::ClobberMemory();
    }
    state.counters["x_realtime"] =
        benchmark::Counter(seconds, benchmark::Counter::kIsIterationInvariantRate);
}

void pitch(benchmark::State &state) {
    material m;
    measure(state, m.f0, [&] { m.pitch(); });
}
BENCHMARK(pitch)->Unit(benchmark::kMillisecond);

void voicing(benchmark::State &state) {
    material m;
    measure(state, m.fv, [&] { m.voicing(); });
}
BENCHMARK(voicing)->Unit(benchmark::kMillisecond);

void refinement(benchmark::State &state) {
    material m;
    reals track;
    measure(state, track, [&] {
        track = m.f0;
        m.refine(track);
    });
}
BENCHMARK(refinement)->Unit(benchmark::kMillisecond);

void cepstra(benchmark::State &state) {
    material m;
    measure(state, m.cc, [&] { m.cepstra(static_cast<std::uint8_t>(state.range(0))); });
}
BENCHMARK(cepstra)->ArgName("method")->DenseRange(0, 4)->Unit(benchmark::kMillisecond);

// Pitch, maximum voiced frequency and cepstra; with refinement where the second argument is 1.
void chain(benchmark::State &state) {
    material m;
    measure(state, m.cc, [&] {
        m.pitch();
        m.voicing();
        if (state.range(1) != 0) m.refine(m.f0);
        m.cepstra(static_cast<std::uint8_t>(state.range(0)));
    });
}
BENCHMARK(chain)
    ->ArgNames({"method", "refined"})
    ->ArgsProduct({{0, 1, 2, 3, 4}, {0}})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace
