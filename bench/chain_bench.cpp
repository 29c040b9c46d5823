// Times the analyses of a whole recording, in memory: single stages, and the chains that the
// program runs. Prints CPU seconds per second of audio, the least of the repetitions, beside what
// the code aims at.
//
//   chain_bench [FILE.wav] [--benchmark_repetitions=5] [--benchmark_filter=REGEX]
//
// Without a file it takes 20 s of synthetic speech. The aims are for real speech, about half of
// it voiced, on one core of a server processor of 2026.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/conditioning.h"
#include "analysis/fvanalysis.h"
#include "analysis/pitchanalysis.h"
#include "io/wavm1616io.h"
#include "numeric/windowing.h"

namespace {

using reals = std::vector<double>;

constexpr double fs = 16000.0;
constexpr std::uint32_t lframe = 80;
constexpr std::uint32_t ccord = 39;
constexpr std::uint32_t zfill = 160;
constexpr double f0min = 60.0;
constexpr double f0max = 500.0;
constexpr double alpha = 0.42;
constexpr double twopi = 6.283185307179586;

// Phrases of 1.5 s with pauses of 0.5 s: pulses at 90 to 180 Hz, slowly rising and falling, through
// three resonances, over faint noise.
reals synthesise() {
    std::mt19937 random(1);
    std::normal_distribution<double> gauss;
    reals x(static_cast<std::size_t>(20.0 * fs));
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

// The samples of a file; none when it cannot be read.
reals readspeech(const char *path) {
    double *samples = nullptr;
    const std::uint32_t n = wavreadm1616(path, &samples);
    const std::unique_ptr<double, void (*)(void *)> owner(samples, std::free);
    return reals(samples, samples + n);
}

// A recording with room for all that is computed from it.
struct material {
    reals x;
    std::uint32_t nsamples = static_cast<std::uint32_t>(x.size());
    std::uint32_t nframes = getnumframes(nsamples, lframe, 0);
    reals f0 = reals(nframes);
    reals fv = reals(nframes);
    reals cc = reals(getccsize(nframes, ccord));

    explicit material(reals samples) : x(std::move(samples)) {
        nalveo::noisesource noise;
        fillzeros(x.data(), nsamples, zfill, noise);
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
    void cepstra(const reals &track, std::uint8_t method) {
        waveform2cc(x.data(), nsamples, lframe, 0, nframes, track.data(), ccord, cc.data(), method,
                    fs, alpha);
    }
};

// Every row's benchmark works on the one recording that `speech` points to. An aim of 0 is none.
void add(const std::string &name, const material *speech, double aim,
         const std::function<void()> &work) {
    const double seconds = speech->nsamples / fs;
    benchmark::RegisterBenchmark(name.c_str(), [seconds, aim, work](benchmark::State &state) {
        for (auto _ : state) {
            work();
            benchmark::ClobberMemory();
        }
        state.counters["seconds"] = seconds;
        state.counters["aim"] = aim;
    })->Unit(benchmark::kMillisecond);
}

void addstages(material *speech) {
    add("pitch", speech, 0.0012, [speech] { speech->pitch(); });
    add("maximum voiced frequency", speech, 0.0025, [speech] { speech->voicing(); });
    add("refinement, 5 iterations", speech, 0.0, [speech] {
        reals track = speech->f0;
        speech->refine(track);
    });
    for (std::uint8_t method = 0; method <= 4; ++method)
        add("cepstra, method " + std::to_string(method), speech, 0.0,
            [speech, method] { speech->cepstra(speech->f0, method); });
}

// What a run of the program computes: without the maximum voiced frequency, with it, and with the
// refinement that it limits.
void addchains(material *speech) {
    add("method 1, three files", speech, 0.0065, [speech] {
        speech->pitch();
        speech->cepstra(speech->f0, 1);
    });
    constexpr double aims[] = {0.0090, 0.0090, 0.12, 0.0075, 0.0075};
    for (std::uint8_t method = 0; method <= 4; ++method)
        add("method " + std::to_string(method) + ", four files", speech, aims[method],
            [speech, method] {
                speech->pitch();
                speech->voicing();
                speech->cepstra(speech->f0, method);
            });
    add("method 1, four files, f0acc=5", speech, 0.040, [speech] {
        speech->pitch();
        speech->voicing();
        reals track = speech->f0;
        speech->refine(track);
        speech->cepstra(track, 1);
    });
}

// A row per kind of work, with the least CPU time of its repetitions.
class table : public benchmark::BenchmarkReporter {
   public:
    bool ReportContext(const Context &context) override {
        PrintBasicContext(&GetErrorStream(), context);
        std::printf("%-32s %10s %10s %10s %10s\n", "CPU seconds per second of audio", "measured",
                    "aim", "of the aim", "real time");
        return true;
    }
    void ReportRuns(const std::vector<Run> &runs) override {
        double least = HUGE_VAL;
        double aim = 0.0;
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const double iterations = static_cast<double>(run.iterations);
            least =
                std::min(least, run.cpu_accumulated_time / iterations / run.counters.at("seconds"));
            aim = run.counters.at("aim");
        }
        if (least == HUGE_VAL) return;  // a call with nothing but means and deviations
        std::printf("%-32s %10.5f", runs.front().run_name.function_name.c_str(), least);
        if (aim > 0.0)
            std::printf(" %10.4f %9.2fx", aim, least / aim);
        else
            std::printf(" %10s %10s", "", "");
        std::printf(" %9.1fx\n", 1.0 / least);
        std::fflush(stdout);
    }
};

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    reals samples;
    if (argc <= 2) samples = argc == 2 ? readspeech(argv[1]) : synthesise();
    if (samples.empty()) {
        std::puts("Error: usage: chain_bench [FILE.wav] [--benchmark_...], mono, 16 kHz, 16 bits");
        return 1;
    }
    material speech(std::move(samples));
    addstages(&speech);
    addchains(&speech);
    table rows;
    benchmark::RunSpecifiedBenchmarks(&rows);
    return 0;
}
