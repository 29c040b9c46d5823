#include "analysis/ccanalysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <utility>

#include "analysis/harmonicanalysis.h"
#include "analysis/spectralanalysis.h"
#include "numeric/cholesky.h"
#include "numeric/elementary.h"
#include "numeric/matvect.h"
#include "numeric/phasor.h"
#include "numeric/products.h"
#include "numeric/windowing.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

// The five ways, the kind of harmonic record each needs, and what it does with it.
enum class harmonicrecord { none, ha, qha };

struct methodentry {
    ccmethod *method;
    harmonicrecord record;
};

constexpr methodentry methods[] = {
    {getharmmcep, harmonicrecord::ha},  {getharmrdc, harmonicrecord::ha},
    {getqharmrdc, harmonicrecord::qha}, {getwwcmcep, harmonicrecord::none},
    {getseemcep, harmonicrecord::none},
};

methodentry findmethod(std::uint8_t ccmeth) {
    if (ccmeth < std::size(methods)) return methods[ccmeth];
    return {getharmmcep, harmonicrecord::qha};
}

// Transform size by sample rate, raised where three periods of the lowest f0 need more.
std::uint32_t transformsize(double fs, std::uint32_t noisewindow, double f0min) {
    std::uint32_t size = 512;
    for (std::uint32_t rate = 8000; fs > rate && rate <= 128000; rate *= 2) size *= 2;
    if (fs > 128000.0) size = 0;
    const std::uint32_t longest = std::max(getwinlengthnperiodsodd(3.0, f0min, fs), noisewindow);
    return std::max(size, getwinlengthceilpot2(longest));
}

// ---- discrete cepstrum ----

// What the fit of a discrete cepstrum borrows from the harmonic record: arrays for k frequencies w
// on the warped axis and order p.
struct rdcarrays {
    static constexpr std::size_t powerslength = 2 * vectorlength + 2;

    double *powers;      // [k x 18] cos(m w), m = 0 .. 7, then sin(m w), then cos(8 w), sin(8 w)
    double *cosines;     // [2p + 1 and whole vectors] sums over the frequencies of cos(m w)
    double *projection;  // [p + 1 and whole vectors] sums of level times cos(m w)
    double *normal;      // [(p + 1) x stride] normal matrix, its right-hand side in column p + 1
    std::size_t stride;

    static std::size_t size(std::size_t k, std::size_t p) {
        return k * powerslength + wholevectors(2 * p + 1) + wholevectors(p + 1) +
               (p + 1) * wholevectors(p + 2);
    }

    rdcarrays(double *data, std::size_t k, std::size_t p)
        : powers(data),
          cosines(powers + k * powerslength),
          projection(cosines + wholevectors(2 * p + 1)),
          normal(projection + wholevectors(p + 1)),
          stride(wholevectors(p + 2)) {}
};

// e^(i fwarp(omega)), but for the sign of its sine, from e^(i omega). Only that sign tells alpha
// from 1 / alpha, and the smaller of the two has a square.
phasor warpedphasor(const phasor &z, double alpha) {
    const double a = std::abs(alpha) > 1.0 ? 1.0 / alpha : alpha;
    const double re = (1.0 + a * a) * z.re - 2.0 * a;
    const double im = (1.0 - a * a) * z.im;
    const double length = std::sqrt(re * re + im * im);
    return length > 0.0 ? phasor{re / length, im / length} : phasor{1.0, 0.0};
}

// Phasors of the warped frequencies: those in Hz, or the multiples of f0 when freqs is null.
void fillpowers(const rdcarrays &mem, std::uint32_t k, const double *freqs, double f0, double fs,
                double alpha) {
    const phasor fundamental = unitphasor(twopi * f0 / fs);
    phasor harmonic = fundamental;
    for (std::size_t i = 0; i < k; ++i, harmonic.rotate(fundamental)) {
        const phasor z = freqs != nullptr ? unitphasor(freqs[i] * (twopi / fs)) : harmonic;
        const phasor step = warpedphasor(z, alpha);
        double *const powers = mem.powers + i * rdcarrays::powerslength;
        phasor power{1.0, 0.0};
        for (std::size_t m = 0; m < vectorlength; ++m, power.rotate(step)) {
            powers[m] = power.re;
            powers[vectorlength + m] = power.im;
        }
        powers[2 * vectorlength] = power.re;
        powers[2 * vectorlength + 1] = power.im;
    }
}

// Adds `count` frequencies to the sums; eight multiples m of each run side by side.
template <std::size_t count, class Real8>
[[gnu::always_inline]] inline void addfrequencies(const rdcarrays &mem, const double *powers,
                                                  const double *levels, std::size_t p) {
    complexof<Real8> z[count];
    complexof<Real8> step[count];
    for (std::size_t i = 0; i < count; ++i, powers += rdcarrays::powerslength) {
        z[i] = {Real8::load(powers), Real8::load(powers + vectorlength)};
        step[i] = samephasors<Real8>({powers[2 * vectorlength], powers[2 * vectorlength + 1]});
    }
    for (std::size_t m = 0; m <= 2 * p; m += vectorlength) {
        Real8 sum = Real8::load(mem.cosines + m);
        for (std::size_t i = 0; i < count; ++i) sum += z[i].re;
        sum.store(mem.cosines + m);
        if (m <= p) {
            Real8 weighted = Real8::load(mem.projection + m);
            for (std::size_t i = 0; i < count; ++i) weighted += levels[i] * z[i].re;
            weighted.store(mem.projection + m);
        }
        for (std::size_t i = 0; i < count; ++i) z[i].rotate(step[i]);
    }
}

// Normal equations of the basis 1, 2 cos(w), .. 2 cos(p w) at the frequencies: with C(m) the sum of
// cos(m w), element (i, j) is 2 (C(i + j) + C(i - j)), half of that where i or j is 0. Only the
// upper triangle is filled; to its left there are zeros.
struct normalequationskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const rdcarrays *arrays, std::size_t k,
                                           const double *levels, std::size_t p) {
        const rdcarrays &mem = *arrays;
        for (double *d = mem.cosines; d < mem.normal + (p + 1) * mem.stride; ++d) *d = 0.0;
        std::size_t i = 0;
        for (; i + 4 <= k; i += 4)
            addfrequencies<4, Real8>(mem, mem.powers + i * rdcarrays::powerslength, levels + i, p);
        for (; i < k; ++i)
            addfrequencies<1, Real8>(mem, mem.powers + i * rdcarrays::powerslength, levels + i, p);

        const double *const c = mem.cosines;
        for (std::size_t j = 0; j <= p; ++j) mem.normal[j] = 2.0 * c[j];
        mem.normal[0] = c[0];
        mem.normal[p + 1] = mem.projection[0];
        for (i = 1; i <= p; ++i) {
            double *const row = mem.normal + i * mem.stride;
            for (std::size_t j = i; j <= p; ++j) row[j] = 2.0 * (c[j + i] + c[j - i]);
            row[i] += smoothnesspenalty * static_cast<double>(i * i);
            row[p + 1] = 2.0 * mem.projection[i];
        }
    }
};

// ---- mel cepstrum ----

// One step of the warping: d is the state of the chain of first-order all-pass sections after g
// when x comes in,
//   d(0) = alpha g(0) + x,  d(1) = alpha g(1) + (1 - alpha^2) g(0),
//   d(j) = alpha (g(j) - d(j-1)) + g(j-1),  j = 2 .. p.
void warpstep(const double *g, double x, double *d, std::uint32_t p, double alpha) {
    d[0] = alpha * g[0] + x;
    if (p > 0) d[1] = alpha * g[1] + (1.0 - alpha * alpha) * g[0];
    for (std::uint32_t j = 2; j <= p; ++j) d[j] = alpha * (g[j] - d[j - 1]) + g[j - 1];
}

// Makes sure that the warping matrix is that of these orders and alpha. Row i is the warped
// cepstrum of a single 1 at quefrency i: what a 1 in the chain has become i steps later.
void makewarpmatrix(warpmatrix &warp, std::uint32_t m, std::uint32_t p, double alpha) {
    if (warp.rows && warp.m == m && warp.p == p && warp.alpha == alpha) return;
    const std::size_t stride = wholevectors(std::size_t{p} + 1);
    warp.rows = std::make_unique<double[]>(stride * (std::size_t{m} + 1));
    warp.m = m;
    warp.p = p;
    warp.alpha = alpha;
    warp.rows[0] = 1.0;
    for (std::size_t i = 1; i <= m; ++i) {
        double *const row = warp.rows.get() + i * stride;
        warpstep(row - stride, 0.0, row, p, alpha);
    }
}

// Warps c(0) .. c(m) of a cepstrum of transform size nfft, as ccwarp does. The warping is linear:
// with the matrix of the run it is a product, which unlike the recursion need not wait for itself.
// Orders above that of the cepstrum, for which the matrix would grow large, take the recursion.
void warpcepstrum(const double *c, std::uint32_t m, std::uint32_t nfft, double *out,
                  std::uint32_t p, double *scratch, ccmem *memory, double alpha) {
    const std::uint32_t longest = nfft / 2;
    if (p > longest || alpha == 0.0 || !(alpha > -1.0 && alpha < 1.0)) {
        ccwarp(c, m, out, p, scratch, alpha);
        return;
    }
    makewarpmatrix(memory->warp, longest, p, alpha);
    const std::size_t order = std::size_t{p} + 1;
    const std::size_t columns = wholevectors(order);
    vecbymat(c, memory->warp.rows.get(), std::size_t{m} + 1, columns, scratch);
    std::copy(scratch, scratch + order, out);
}

// From a log spectrum in the first half of the buffer to a warped cepstrum. Only quefrencies up to
// m enter the warping.
void logspectrum2cc(std::uint32_t nfft, double *buffer, std::uint32_t m, std::uint32_t ccord,
                    double *out, ccmem *memory, double alpha) {
    double *const scratch = buffer + nfft;
    getrealcepstrum(nfft, buffer, memory->noise);
    // The warping works on the one-sided cepstrum, in which all but the ends stand for two.
    buffer[nfft / 2] *= 0.5;
    buffer[0] *= 0.5;
    warpcepstrum(buffer, m, nfft, out, ccord, scratch, memory, alpha);
    out[0] *= 2.0;
}

int noise2cc(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
             double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
             double alpha) {
    getnoiselogspectrum(x, nsamples, centre, nfft, buffer, memory->noise, fs);
    logspectrum2cc(nfft, buffer, nfft / 2, ccord, out, memory, alpha);
    return 0;
}

// Natural log of half the amplitudes over sqrt(f0), in place. Returns false when one has none: an
// amplitude of exactly 0 has no logarithm.
bool loglevels(double *amp, std::size_t k, double f0) {
    const double root = std::sqrt(f0);
    for (std::size_t i = 0; i < k; ++i) {
        amp[i] = logarithm(amp[i] * 0.5 / root);
        if (!std::isfinite(amp[i])) return false;
    }
    return true;
}

// Fits the discrete cepstrum to K harmonics: log levels at the given frequencies, or at the
// multiples of f0 when freqs is null, as solveleastsquares would with the basis of ccmatrixcreate
// and the smoothness penalty. Returns false when the fit fails.
bool fitcepstrum(const double *levels, std::uint32_t k, const double *freqs, std::uint32_t ccord,
                 double *out, hamem *record, double fs, double f0, double alpha) {
    // The harmonics are known and the next frame begins afresh, so the record is free to be
    // borrowed.
    const rdcarrays mem(record->data.get(), k, ccord);
    fillpowers(mem, k, freqs, f0, fs, alpha);
    runwidest<normalequationskernel>(&mem, std::size_t{k}, levels, std::size_t{ccord});
    return choleskysolve(ccord + 1, mem.normal, mem.stride, out) != 0.0;
}

// Discrete cepstrum of a voiced frame. The quasi-harmonic model finds the frequencies of the
// harmonics, else they are multiples of f0. Levels and frequencies use the halves of the buffer.
// Returns false when the frame is unvoiced or cannot be modelled.
bool harmonics2cc(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
                  double *buffer, bool quasi, std::uint32_t ccord, double *out, hamem *record,
                  double fs, double f0, double alpha) {
    if (!(f0 > 0.0)) return false;
    const std::uint32_t k = hanoharms(fs, fs, f0);
    double *const freqs = buffer + nfft;
    const int failed =
        quasi ? getsqharmonics(x, nsamples, centre, k, buffer, nullptr, freqs, record, fs, f0)
              : getharmonics(x, nsamples, centre, k, buffer, nullptr, record, fs, f0);
    return failed == 0 && loglevels(buffer, k, f0) &&
           fitcepstrum(buffer, k, quasi ? freqs : nullptr, ccord, out, record, fs, f0, alpha);
}

}  // namespace

int waveform2cc(const double *x, std::uint32_t nsamples, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, const double *f0, std::uint32_t ccord, double *cc,
                std::uint8_t ccmeth, double fs, double alpha) {
    double f0min = 60.0;
    for (std::size_t i = 0; i < nframes; ++i)
        if (f0[i] >= lowestmodelled) f0min = std::min(f0min, f0[i]);
    const std::uint32_t lwin = naframesize(fs);
    const std::uint32_t nfft = transformsize(fs, lwin, f0min);
    const std::size_t row = std::size_t{ccord} + 1;

    const std::unique_ptr<ccmem, int (*)(ccmem *)> memory(
        ccmeminitialize(lwin, nfft, ccmeth, fs, f0min), ccmemdestroy);
    // The borrowed part of the record fits any sensible order many times over; a high one gets
    // more.
    if (memory->harmonic != nullptr)
        hamemreserve(memory->harmonic, rdcarrays::size(hanoharms(fs, fs, f0min), ccord));
    const auto buffer =
        std::make_unique_for_overwrite<double[]>(nfft + std::max<std::size_t>(nfft, row));
    ccmethod *const method = findmethod(ccmeth).method;
    for (std::uint32_t i = 0; i < nframes; ++i) {
        const double frequency = f0[i] >= lowestmodelled ? f0[i] : 0.0;
        method(x, nsamples, first + i * lframe, nfft, buffer.get(), ccord, cc + i * row,
               memory.get(), fs, frequency, alpha);
    }
    return 0;
}

ccmem *ccmeminitialize(std::uint32_t lwin, std::uint32_t nfft, std::uint8_t ccmeth, double fs,
                       double f0min) {
    std::unique_ptr<hamem, int (*)(hamem *)> harmonic(nullptr, hamemdestroy);
    switch (findmethod(ccmeth).record) {
        case harmonicrecord::none:
            break;
        case harmonicrecord::ha:
            harmonic.reset(hameminitialize(fs, fs, f0min));
            break;
        case harmonicrecord::qha:
            harmonic.reset(qhameminitialize(fs, fs, f0min));
            break;
    }
    std::unique_ptr<namem, int (*)(namem *)> noise(nameminitializefft(lwin, nfft), namemdestroy);
    auto record = std::make_unique<ccmem>();
    record->harmonic = harmonic.release();
    record->noise = noise.release();
    return record.release();
}

int ccmemdestroy(ccmem *record) {
    const std::unique_ptr<ccmem> owned(record);
    if (!owned) return 0;
    hamemdestroy(owned->harmonic);
    return namemdestroy(owned->noise);
}

double fwarp(double omega, double alpha) {
    return arctangent((1.0 - alpha * alpha) * sine(omega),
                      (1.0 + alpha * alpha) * cosine(omega) - 2.0 * alpha);
}

int ccwarp(const double *c, std::uint32_t m, double *out, std::uint32_t p, double *scratch,
           double alpha) {
    if (!(alpha > -1.0 && alpha < 1.0)) return -1;
    if (alpha == 0.0) {
        // Deliberate: unlike the recursion, the plain copy goes up to entry p - 1 and takes nothing
        // from c(m) on.
        for (std::uint32_t i = 0; i < p; ++i) out[i] = i < m ? c[i] : 0.0;
        return 0;
    }
    // The coefficients pass from c(m) down to c(0) through the chain. The states before and after a
    // step swap, so no step copies.
    double *g = out;
    double *d = scratch;
    std::fill(out, out + p + 1, 0.0);
    for (std::uint32_t i = m + 1; i-- > 0;) {
        warpstep(g, c[i], d, p, alpha);
        std::swap(g, d);
    }
    if (g != out) std::copy(g, g + p + 1, out);
    return 0;
}

int ccmatrixcreate(std::uint32_t p, std::uint32_t k, const double *freqs, double *c, double *s,
                   double f0, double fs, double alpha) {
    if (c == nullptr && s == nullptr) return -1;
    if (c == nullptr) return 0;
    const double scale = freqs != nullptr ? twopi / fs : twopi * f0 / fs;
    const std::size_t columns = std::size_t{p} + 1;
    for (std::size_t row = 0; row < k; ++row) {
        const double position = freqs != nullptr ? freqs[row] : static_cast<double>(row + 1);
        const phasor step = unitphasor(fwarp(position * scale, alpha));
        double *const cosines = c + row * columns;
        double *const sines = s != nullptr ? s + row * columns : nullptr;
        cosines[0] = 1.0;
        if (sines != nullptr) sines[0] = -0.0;
        phasor z{1.0, 0.0};
        for (std::size_t j = 1; j <= p; ++j) {
            z.rotate(step);
            cosines[j] = 2.0 * z.re;
            if (sines != nullptr) sines[j] = -2.0 * z.im;
        }
    }
    return 0;
}

int getharmmcep(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
                double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
                double f0, double alpha) {
    if (f0 == 0.0 || getlogspectrumfromharms(x, nsamples, centre, nfft, buffer, memory->harmonic, 0,
                                             fs, f0) != 0)
        return noise2cc(x, nsamples, centre, nfft, buffer, ccord, out, memory, fs, alpha);
    logspectrum2cc(nfft, buffer, nfft / 2, ccord, out, memory, alpha);
    return 0;
}

int getharmrdc(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
               double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
               double f0, double alpha) {
    if (harmonics2cc(x, nsamples, centre, nfft, buffer, false, ccord, out, memory->harmonic, fs, f0,
                     alpha))
        return 0;
    return noise2cc(x, nsamples, centre, nfft, buffer, ccord, out, memory, fs, alpha);
}

int getqharmrdc(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
                double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
                double f0, double alpha) {
    if (harmonics2cc(x, nsamples, centre, nfft, buffer, true, ccord, out, memory->harmonic, fs, f0,
                     alpha))
        return 0;
    return noise2cc(x, nsamples, centre, nfft, buffer, ccord, out, memory, fs, alpha);
}

int getwwcmcep(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
               double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
               double f0, double alpha) {
    getsignallogspectrum(x, nsamples, centre, nfft, buffer, memory->noise, fs, f0);
    std::uint32_t m = nfft / 2;
    // Of a voiced frame, quefrencies beyond two thirds of a period would bring the pitch in.
    if (f0 > 0.0) m = static_cast<std::uint32_t>(std::min<double>(m, std::floor(fs / (1.5 * f0))));
    logspectrum2cc(nfft, buffer, m, ccord, out, memory, alpha);
    return 0;
}

int getseemcep(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
               double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
               double f0, double alpha) {
    getseevoclogspectrum(x, nsamples, centre, nfft, buffer, memory->noise, fs, f0);
    logspectrum2cc(nfft, buffer, nfft / 2, ccord, out, memory, alpha);
    return 0;
}
