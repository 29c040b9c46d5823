// Times single kernels at the sizes that the analysis has at 16 kHz.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/fvanalysis.h"
#include "analysis/harmonicanalysis.h"
#include "analysis/pitchanalysis.h"
#include "analysis/spectralanalysis.h"
#include "numeric/aligned.h"
#include "numeric/dft.h"
#include "numeric/matvect.h"
#include "numeric/windowing.h"

using namespace nalveo;

namespace {

using reals = std::vector<double>;

constexpr double fs = 16000.0;
constexpr std::uint32_t nfft = 1024;
constexpr std::uint32_t nsamples = 4000;
constexpr std::uint32_t centre = 2000;

reals noise(std::size_t n) {
    std::mt19937 random(1);
    reals x(n);
    for (double &v : x) v = std::uniform_real_distribution(-0.1, 0.1)(random);
    return x;
}

// A sawtooth of some pitch in faint noise.
reals voiced(double f0) {
    reals x = noise(nsamples);
    for (std::size_t i = 0; i < x.size(); ++i) {
        double turns;
        x[i] = 0.01 * x[i] + 0.2 * std::modf(static_cast<double>(i) * f0 / fs, &turns);
    }
    return x;
}

// Symmetric Toeplitz and positive definite, as the normal matrices of the harmonic models are.
reals normalmatrix(std::size_t n) {
    reals a(n * n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j)
            a[i * n + j] = std::pow(0.6, std::abs(static_cast<double>(i) - static_cast<double>(j)));
    return a;
}

void keep(double *result) {
    benchmark::DoNotOptimize(result);
    benchmark::ClobberMemory();
}

void fft(benchmark::State &state) {
    const auto n = static_cast<std::int32_t>(state.range(0));
    const reals x = noise(static_cast<std::size_t>(n));
    reals re(x.size()), im(x.size());
    for (auto _ : state) {
        re = x;
        fftr(n, re.data(), im.data());
        keep(re.data());
    }
}
BENCHMARK(fft)->Arg(1024)->Arg(2048);

void realfft(benchmark::State &state) {
    const auto n = static_cast<std::int32_t>(state.range(0));
    const auto size = static_cast<std::size_t>(n);
    const reals signal = noise(size);
    alignedreals x(signal.begin(), signal.end()), re(size / 2 + 1), im(size / 2 + 1);
    for (auto _ : state) {
        fftreal(n, x.data(), re.data(), im.data());
        ifftreal(n, re.data(), im.data(), x.data());
        for (double &v : x) v /= n;
        keep(x.data());
    }
}
BENCHMARK(realfft)->Arg(1024)->Arg(2048);

void autocorrelationframe(benchmark::State &state) {
    const reals x = noise(2048);
    reals work(2048);
    for (auto _ : state) {
        work = x;
        autocorrelation(1024, work.data());
        keep(work.data());
    }
}
BENCHMARK(autocorrelationframe);

void toeplitz(benchmark::State &state) {
    const auto n = static_cast<std::uint32_t>(state.range(0));
    const reals a = normalmatrix(n);
    reals inverse(a.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(toeplitzsiminv(n, a.data(), inverse.data()));
        keep(inverse.data());
    }
}
BENCHMARK(toeplitz)->Arg(53)->Arg(79)->Arg(159)->Arg(267);

void cholesky(benchmark::State &state) {
    const auto n = static_cast<std::uint32_t>(state.range(0));
    const reals a = normalmatrix(n);
    reals work(a.size()), inverse(a.size());
    for (auto _ : state) {
        work = a;
        benchmark::DoNotOptimize(choleskyinvdet(n, work.data(), inverse.data(), 0));
        keep(inverse.data());
    }
}
BENCHMARK(cholesky)->Arg(40)->Arg(159);

void gauss(benchmark::State &state) {
    const auto n = static_cast<std::uint32_t>(state.range(0));
    const reals a = normalmatrix(n);
    reals work(a.size()), inverse(a.size());
    for (auto _ : state) {
        work = a;
        benchmark::DoNotOptimize(simgaussinv(n, work.data(), inverse.data()));
        keep(inverse.data());
    }
}
BENCHMARK(gauss)->Arg(159);

void leastsquares(benchmark::State &state) {
    const reals a = noise(79 * 40), b = noise(79);
    reals x(40), work(40 * 81);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            solveleastsquares(a.data(), b.data(), x.data(), 79, 40, 1, work.data(), 1));
        keep(x.data());
    }
}
BENCHMARK(leastsquares);

void warp(benchmark::State &state) {
    const reals c = noise(513);
    reals out(40), scratch(40);
    for (auto _ : state) {
        ccwarp(c.data(), 512, out.data(), 39, scratch.data(), 0.42);
        keep(out.data());
    }
}
BENCHMARK(warp);

void linematch(benchmark::State &state) {
    const reals spectrum = noise(2 * 2048);
    for (auto _ : state)
        benchmark::DoNotOptimize(slm(spectrum.data(), 2048, 481, 130, 6, fs, 1012.0));
}
BENCHMARK(linematch);

// The estimators, by f0 in Hz.
using record = std::unique_ptr<hamem, int (*)(hamem *)>;

void harmonics(benchmark::State &state) {
    const auto f0 = static_cast<double>(state.range(0));
    const reals x = voiced(f0);
    const record mem(hameminitialize(fs, fs, 60), hamemdestroy);
    reals amp(300);
    for (auto _ : state) {
        getharmonics(x.data(), nsamples, centre, hanoharms(fs, fs, f0), amp.data(), nullptr,
                     mem.get(), fs, f0);
        keep(amp.data());
    }
}
BENCHMARK(harmonics)->Arg(60)->Arg(100)->Arg(200);

template <auto estimator>
void quasiharmonics(benchmark::State &state) {
    const auto f0 = static_cast<double>(state.range(0));
    const reals x = voiced(f0);
    const record mem(qhameminitialize(fs, fs, 60), qhamemdestroy);
    reals amp(300), freq(300);
    for (auto _ : state) {
        estimator(x.data(), nsamples, centre, hanoharms(fs, fs, f0), amp.data(), nullptr,
                  freq.data(), mem.get(), fs, f0);
        keep(amp.data());
    }
}
BENCHMARK(quasiharmonics<getqharmonics>)->Arg(60)->Arg(100)->Arg(200);
BENCHMARK(quasiharmonics<getsqharmonics>)->Arg(60)->Arg(100)->Arg(200);

void harmonicspectrum(benchmark::State &state) {
    const auto f0 = static_cast<double>(state.range(0));
    const reals x = voiced(f0);
    const record mem(hameminitialize(fs, fs, 60), hamemdestroy);
    reals out(nfft);
    for (auto _ : state) {
        getlogspectrumfromharms(x.data(), nsamples, centre, nfft, out.data(), mem.get(), 0, fs, f0);
        keep(out.data());
    }
}
BENCHMARK(harmonicspectrum)->Arg(100)->Arg(200);

// The envelopes, by f0 in Hz; 0 gives the noise spectrum.
template <auto envelope>
void spectrum(benchmark::State &state) {
    const auto f0 = static_cast<double>(state.range(0));
    const reals x = voiced(120);
    const std::unique_ptr<namem, int (*)(namem *)> mem(nameminitializefft(naframesize(fs), nfft),
                                                       namemdestroy);
    reals out(2 * nfft);
    for (auto _ : state) {
        envelope(x.data(), nsamples, centre, nfft, out.data(), mem.get(), fs, f0);
        keep(out.data());
    }
}
BENCHMARK(spectrum<getsignallogspectrum>)->Arg(0)->Arg(120);
BENCHMARK(spectrum<getseevoclogspectrum>)->Arg(120);

}  // namespace
