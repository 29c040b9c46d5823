#include "testsignals.h"

#include <algorithm>
#include <cmath>
#include <utility>

double testrandom::uniform() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15u);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    z ^= z >> 31;
    return static_cast<double>(z >> 11) * 0x1p-52 - 1.0;
}

std::vector<double> whitenoise(std::size_t n, double deviation, std::uint64_t seed) {
    testrandom random(seed);
    std::vector<double> x(n);
    for (double &v : x)
        for (int i = 0; i < 12; ++i) v += deviation / 2 * random.uniform();  // of variance 1/3 each
    return x;
}

void addtone(std::vector<double> &x, double amp, double f, double phase, double origin) {
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] += amp * std::cos(2 * testpi * f * (static_cast<double>(i) - origin) / testfs + phase);
}

void addharmonics(std::vector<double> &x, double f0, const std::vector<double> &amps,
                  double origin) {
    for (std::size_t k = 0; k < amps.size(); ++k)
        addtone(x, amps[k], static_cast<double>(k + 1) * f0, 0.0, origin);
}

double allpolegain(const std::vector<formant> &formants, double f) {
    const std::complex<double> z = std::polar(1.0, -2 * testpi * f / testfs);
    std::complex<double> gain = 1.0;
    for (const formant &r : formants) {
        const double radius = std::exp(-testpi * r.bandwidth / testfs);
        const std::complex<double> pole = std::polar(radius, 2 * testpi * r.frequency / testfs);
        gain *= std::norm(1.0 - pole) / ((1.0 - pole * z) * (1.0 - std::conj(pole) * z));
    }
    return std::abs(gain);
}

std::vector<double> speak(const voice &v, std::size_t n, std::uint64_t seed) {
    std::vector<double> x(n);
    std::vector<double> amps;
    double phase = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        const double f0 = v.f0(static_cast<double>(i) / testfs);
        if (f0 <= 0.0) continue;
        const auto count = static_cast<std::size_t>(std::min(v.band, testfs / 2 - 1) / f0);
        if (amps.size() != count || i % 32 == 0) {
            amps.clear();
            for (std::size_t k = 1; k <= count; ++k)
                amps.push_back(v.level * allpolegain(v.formants, static_cast<double>(k) * f0));
        }
        // cos((k + 1) phase) = 2 cos(phase) cos(k phase) - cos((k - 1) phase)
        double before = 1.0;
        double now = std::cos(phase);
        const double twice = 2 * now;
        for (const double amp : amps) {
            x[i] += amp * now;
            before = std::exchange(now, twice * now - before);
        }
        phase = std::remainder(phase + 2 * testpi * f0 / testfs, 2 * testpi);
    }
    if (v.breath == 0.0) return x;
    constexpr int reach = 128;
    const double cut = 2 * v.band / testfs;
    const std::vector<double> noise = whitenoise(n + 2 * reach, v.breath, seed);
    for (int t = -reach; t <= reach; ++t) {
        const double lowpass = t == 0 ? cut : std::sin(testpi * cut * t) / (testpi * t);
        const double tap = ((t == 0) - lowpass) * (0.5 + 0.5 * std::cos(testpi * t / (reach + 1)));
        for (std::size_t i = 0; i < n; ++i)
            x[i] += tap * noise[i + static_cast<std::size_t>(reach + t)];
    }
    return x;
}

std::vector<formant> vowel() {
    return {{700, 130}, {1220, 140}, {2600, 200}, {3500, 300}, {4600, 400}};
}

complexes naivedft(const complexes &x, double sign) {
    const std::size_t n = x.size();
    complexes turns(n);
    for (std::size_t i = 0; i < n; ++i)
        turns[i] =
            std::polar(1.0, sign * 2 * testpi * static_cast<double>(i) / static_cast<double>(n));
    complexes sums(n);
    for (std::size_t k = 0; k < n; ++k)
        for (std::size_t i = 0; i < n; ++i) sums[k] += x[i] * turns[k * i % n];
    return sums;
}

complexes denseleastsquares(const complexes &e, const complexes &y, std::size_t rows,
                            std::size_t cols) {
    complexes normal(cols * cols);
    complexes right(cols);
    for (std::size_t r = 0; r < rows; ++r)
        for (std::size_t i = 0; i < cols; ++i) {
            const std::complex<double> conjugate = std::conj(e[r * cols + i]);
            right[i] += conjugate * y[r];
            for (std::size_t j = 0; j < cols; ++j)
                normal[i * cols + j] += conjugate * e[r * cols + j];
        }
    return densesolve(normal, right, cols);
}
