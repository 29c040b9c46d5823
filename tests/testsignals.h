/// Signals whose truth is known, and the slow direct forms that fast routines are checked against.
///
/// Signals are at testfs. Everything is deterministic: noise comes from a generator of our own, so
/// that a test sees the same samples on every machine.

#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

constexpr double testfs = 16000.0;  // Hz
constexpr double testpi = 3.141592653589793;

using reals = std::vector<double>;
using complexes = std::vector<std::complex<double>>;

/// Pseudo-random numbers (SplitMix64).
class testrandom {
   public:
    explicit testrandom(std::uint64_t seed) : state_(seed) {}
    double uniform();  ///< evenly spread, -1 <= u < 1

   private:
    std::uint64_t state_;
};

/// n samples of white noise of a standard deviation; each is a sum of uniform numbers.
std::vector<double> whitenoise(std::size_t n, double deviation, std::uint64_t seed);

/// Adds amp cos(2 pi f t / fs + phase), t in samples from sample `origin`.
void addtone(std::vector<double> &x, double amp, double f, double phase, double origin = 0.0);

/// Adds cosines at the multiples of f0, one per amplitude, all of phase 0 at sample `origin`.
void addharmonics(std::vector<double> &x, double f0, const std::vector<double> &amps,
                  double origin = 0.0);

/// A resonance, both in Hz.
struct formant {
    double frequency;
    double bandwidth;
};

/// Amplitude response at f Hz of the all-pole filter with these resonances; 1 at 0 Hz.
double allpolegain(const std::vector<formant> &formants, double f);

/// A voice of known f0, formants and voiced band.
struct voice {
    std::function<double(double)> f0;  // Hz at a time in seconds; 0 = silent there
    std::vector<formant> formants;
    double band = testfs / 2;  // harmonics up to here, Hz
    double level = 0.02;       // amplitude of harmonics where the envelope is 1
    double breath = 0.0;       // standard deviation of noise above the band, before the high-pass
};

/// n samples of a voice: harmonic k has amplitude level * allpolegain(k f0) and phase k times that
/// of the fundamental. The noise is cut off below the band by a windowed-sinc filter.
std::vector<double> speak(const voice &v, std::size_t n, std::uint64_t seed = 1);

/// An open vowel: five formants.
std::vector<formant> vowel();

/// Direct sums X[k] = sum over n of x[n] e^(sign j 2 pi k n / N).
complexes naivedft(const complexes &x, double sign = -1.0);

/// Solves A X = B by Gaussian elimination with pivoting; A is n x n, B and the result n x k.
template <class Value>
std::vector<Value> densesolve(std::vector<Value> a, std::vector<Value> b, std::size_t n,
                              std::size_t k = 1) {
    for (std::size_t i = 0; i < n; ++i) {
        std::size_t pivot = i;
        for (std::size_t r = i + 1; r < n; ++r)
            if (std::abs(a[r * n + i]) > std::abs(a[pivot * n + i])) pivot = r;
        for (std::size_t c = 0; c < n; ++c) std::swap(a[i * n + c], a[pivot * n + c]);
        for (std::size_t c = 0; c < k; ++c) std::swap(b[i * k + c], b[pivot * k + c]);
        for (std::size_t r = 0; r < n; ++r) {
            if (r == i) continue;
            const Value f = a[r * n + i] / a[i * n + i];
            for (std::size_t c = i; c < n; ++c) a[r * n + c] -= f * a[i * n + c];
            for (std::size_t c = 0; c < k; ++c) b[r * k + c] -= f * b[i * k + c];
        }
    }
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < k; ++c) b[i * k + c] /= a[i * n + i];
    return b;
}

/// Solves the normal equations E^H E x = E^H y of y = E x; E is rows x cols.
complexes denseleastsquares(const complexes &e, const complexes &y, std::size_t rows,
                            std::size_t cols);
