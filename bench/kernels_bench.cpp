// Times single kernels at the sizes that the analysis has at 16 kHz.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "analysis/autocorrelation.h"
#include "analysis/ccanalysis.h"
#include "analysis/harmonicanalysis.h"
#include "analysis/pitchanalysis.h"
#include "analysis/spectralanalysis.h"
#include "analysis/spectrallines.h"
#include "analysis/warping.h"
#include "numeric/aligned.h"
#include "numeric/cholesky.h"
#include "numeric/dft.h"
#include "numeric/elementary.h"
#include "numeric/products.h"
#include "numeric/toeplitz.h"
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
        fftreal(n, x.data(), re.data(), im.data());
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

// The harmonic model of k harmonics.
void toeplitz(benchmark::State &state) {
    const auto k = static_cast<std::uint32_t>(state.range(0));
    reals t(2 * std::size_t{k} + 1, 1.0);
    for (std::size_t i = 1; i < t.size(); ++i) t[i] = 0.6 * t[i - 1];
    const reals right(std::size_t{k} + 1, 1.0);
    reals re, im, work(toeplitzworkspace(k));
    for (auto _ : state) {
        re = im = right;
        benchmark::DoNotOptimize(toeplitzsolve(k, t.data(), re.data(), im.data(), work.data()));
        keep(re.data());
    }
}
BENCHMARK(toeplitz)->Arg(26)->Arg(39)->Arg(79)->Arg(133);

// The discrete cepstrum of order 39 and the models of 39 and 79 harmonics.
void cholesky(benchmark::State &state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const std::size_t stride = n / 8 * 8 + 8;
    const reals matrix = normalmatrix(n);
    reals a(n * stride, 1.0), work, x(n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) a[i * stride + j] = matrix[i * n + j];
    for (auto _ : state) {
        work = a;
        benchmark::DoNotOptimize(
            choleskysolve(static_cast<std::uint32_t>(n), work.data(), stride, x.data()));
        keep(x.data());
    }
}
BENCHMARK(cholesky)->Arg(40)->Arg(79)->Arg(159);

// Eight of them at a time.
void choleskyofeight(benchmark::State &state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const reals matrix = normalmatrix(n);
    alignedreals a(n * (n + 1) * 8, 1.0), work, x(n * 8), determinants(8);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j)
            for (std::size_t s = 0; s < 8; ++s) a[((n + 1) * i + j) * 8 + s] = matrix[i * n + j];
    for (auto _ : state) {
        work = a;
        choleskysolveeight(static_cast<std::uint32_t>(n), work.data(), x.data(),
                           determinants.data());
        keep(x.data());
    }
}
BENCHMARK(choleskyofeight)->Arg(40);

// Normal equations of 39 columns over half a frame.
void gram(benchmark::State &state) {
    constexpr std::size_t rows = 168, columns = 48;
    const reals c = noise(rows * columns);
    reals normal(columns * columns);
    for (auto _ : state) {
        grammatrix(c.data(), rows, columns, 40, normal.data());
        keep(normal.data());
    }
}
BENCHMARK(gram);

// Warping by the matrix of the run, of one frame and of several.
void warpmatrixproduct(benchmark::State &state) {
    const auto frames = static_cast<std::size_t>(state.range(0));
    constexpr std::size_t quefrencies = 513, columns = 40;
    const reals x = noise(frames * quefrencies), a = noise(quefrencies * columns);
    reals out(frames * columns);
    for (auto _ : state) {
        if (frames == 1)
            vecbymat(x.data(), a.data(), quefrencies, columns, out.data());
        else
            rowsbymat(x.data(), frames, a.data(), quefrencies, columns, out.data());
        keep(out.data());
    }
}
BENCHMARK(warpmatrixproduct)->Arg(1)->Arg(4)->Arg(8);

void logarithmsofaspectrum(benchmark::State &state) {
    reals x = noise(513);
    for (double &v : x) v = v * v;
    reals work;
    for (auto _ : state) {
        work = x;
        logarithms(work.data(), work.size());
        keep(work.data());
    }
}
BENCHMARK(logarithmsofaspectrum);

void warpingsofeightframes(benchmark::State &state) {
    const reals c = noise(8 * 513);
    reals out(8 * 40);
    warpmatrix warp;
    for (auto _ : state) {
        warpcepstra(warp, c.data(), 8, 512, out.data(), 39, 0.42);
        keep(out.data());
    }
}
BENCHMARK(warpingsofeightframes);

// All lines of a frame of 120 Hz.
void linematch(benchmark::State &state) {
    const reals re = noise(2 * 2048), im = noise(2 * 2048);
    const linegrid grid{401, 2048, 7, fs};
    linebatch lines;
    for (int h = 1; (h + 0.5) * 120.0 < fs / 2; ++h)
        lines.add(grid, static_cast<std::uint32_t>(h * 120.0 * 2048 / fs), h * 120.0);
    for (auto _ : state) {
        matchlines(re.data(), im.data(), grid, lines);
        keep(lines.match2.data());
    }
}
BENCHMARK(linematch);

void frameautocorrelation(benchmark::State &state) {
    autocorrelator correlator(1024, 1024);
    const reals x = noise(801);
    std::copy(x.begin(), x.end(), correlator.frame());
    for (auto _ : state) {
        benchmark::DoNotOptimize(correlator.run());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(frameautocorrelation);

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
