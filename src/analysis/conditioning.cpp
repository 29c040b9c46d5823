#include "analysis/conditioning.h"

#include <cmath>

#include "numeric/elementary.h"

namespace nalveo {

defaultrandom::defaultrandom() {
    // Seed 1, spread over the state by r(i) = 16807 r(i - 1) modulo 2^31 - 1.
    std::uint64_t r = 1;
    for (std::uint32_t &value : state_) {
        value = static_cast<std::uint32_t>(r);
        r = 16807 * r % 2147483647;
    }
    position_ = 3;                         // the first three values count as the latest ones
    for (int i = 0; i < 310; ++i) next();  // until the seed has worked through
}

std::uint32_t defaultrandom::next() {
    const std::size_t lag = state_.size() - 3;  // three values back, with the oldest at position_
    std::uint32_t &value = state_[position_];
    value += state_[(position_ + lag) % state_.size()];
    position_ = (position_ + 1) % state_.size();
    return value >> 1;
}

samplerun findrun(const double *samples, std::uint32_t begin, std::uint32_t nsamples,
                  std::uint32_t longest) {
    for (std::uint32_t end; begin < nsamples; begin = end) {
        end = begin + 1;
        while (end < nsamples && samples[end] == samples[begin]) ++end;
        if (end - begin > longest) return {begin, end - begin};
    }
    return {};
}

}  // namespace nalveo

int fillzeros(double *waveform, std::uint32_t nsamples, std::uint32_t zfill,
              nalveo::noisesource &noise) {
    constexpr double level = 1.3 / 32768.0;
    if (zfill == 0) return 0;
    int filled = 0;
    std::uint32_t begin = 0;
    for (;;) {
        const nalveo::samplerun run = nalveo::findrun(waveform, begin, nsamples, zfill);
        if (run.length == 0) return filled;
        addwhitenoise(waveform + run.begin, run.length, level, noise);
        begin = run.begin + run.length;
        filled = 1;
    }
}

int addwhitenoise(double *samples, std::uint32_t count, double level, nalveo::noisesource &noise) {
    for (std::size_t i = 0; i < count; ++i) samples[i] += level * gaussrand(noise);
    return 0;
}

double gaussrand(nalveo::noisesource &noise) {
    if (noise.flag) {
        noise.flag = false;
        return noise.e2;
    }
    constexpr double largest = 2147483647.0;
    double u1;
    double s;
    do {
        u1 = 2.0 * noise.random.next() / largest - 1.0;
        noise.e2 = 2.0 * noise.random.next() / largest - 1.0;
        s = u1 * u1 + noise.e2 * noise.e2;
    } while (s >= 1.0);
    const double f = std::sqrt(-2.0 * nalveo::logarithm(s) / s);
    noise.flag = true;
    return u1 * f * f;
}

int htsadapteradhoc(double *cc, std::uint32_t ccord, std::uint32_t nframes) {
    for (std::size_t f = 0; f < nframes; ++f) {
        double *const row = cc + f * (std::size_t{ccord} + 1);
        row[0] += 5.0;
        for (std::size_t j = 1; j <= ccord; ++j) row[j] *= 2.0;
    }
    return 0;
}
