#include "analysis/harmonic/logspectrum.h"

#include <algorithm>
#include <cmath>

#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

// One harmonic of the interpolation and the bins within reach of its kernel. Bins below 0 are
// folded back onto their mirror images, but for those below -fs / 2, which have none.
struct harmonicspan {
    double level;
    double frequency;
    std::int64_t from;
    std::int64_t to;  // not above fs / 2; below `from`: no bins
};

harmonicspan spanof(std::size_t j, double level, double f0, double spacing, std::int64_t nyquist) {
    const double fj = static_cast<double>(j) * f0;
    const auto last = static_cast<std::int64_t>(std::ceil((fj + 4.0 * f0) / spacing)) - 1;
    harmonicspan span{level, fj, 0, std::min(nyquist, last)};
    // Of the first harmonics the kernel reaches below 0 Hz. The folded bins and those from 0 on are
    // one span.
    if (j >= 4)
        span.from = static_cast<std::int64_t>(std::floor((fj - 4.0 * f0) / spacing)) + 1;
    else if (j >= 1)
        span.from = 1 - static_cast<std::int64_t>(std::ceil((4.0 * f0 - fj) / spacing));
    return span;
}

// The kernels of eight harmonics, side by side along their bins,
//   W(d) = sin(alpha) / alpha (1 + cos(beta)) / 2,  alpha = pi d / f0,  beta = pi d / (4 f0),
// with d the distance from the harmonic in Hz. The angles start from the trigonometric functions at
// the first bin and go on by rotation, alpha itself by addition.
//
// Deliberate: the quotient is taken as it stands wherever alpha is not exactly 0. On a bin that
// falls on the harmonic (f0 on the bin grid, 500 Hz for one), alpha and the rotated sine are both
// mere rounding residue, and their quotient can be far from the 1 that the kernel has there; that
// bin then carries a wrong share of this harmonic's level.
struct harmonickernels {
    double f0;
    double spacing;
    double alphastep;
    phasor sincstep;
    phasor taperstep;
    // One entry per harmonic.
    double level[vectorlength] = {};
    double alpha[vectorlength] = {};
    double sincre[vectorlength] = {};
    double sincim[vectorlength] = {};
    double taperre[vectorlength] = {};
    double taperim[vectorlength] = {};

    harmonickernels(double f, double binspacing)
        : f0(f),
          spacing(binspacing),
          alphastep(pi * spacing / f0),
          sincstep(unitphasor(alphastep)),
          taperstep(unitphasor(pi * spacing / (4.0 * f0))) {}

    // Sets up the kernels of up to eight harmonics at the first bins of their spans.
    void start(const harmonicspan *spans, std::size_t count) {
        double angles[2 * vectorlength] = {};  // alpha of all, then beta of all
        double sines[2 * vectorlength];
        double cosines[2 * vectorlength];
        for (std::size_t lane = 0; lane < count; ++lane) {
            const double d =
                static_cast<double>(spans[lane].from) * spacing - spans[lane].frequency;
            level[lane] = spans[lane].level;
            angles[lane] = pi * d / f0;
            angles[vectorlength + lane] = pi * d / (4.0 * f0);
        }
        sinesandcosines(angles, 2 * vectorlength, sines, cosines);
        std::copy_n(angles, vectorlength, alpha);
        std::copy_n(cosines, vectorlength, sincre);
        std::copy_n(sines, vectorlength, sincim);
        std::copy_n(cosines + vectorlength, vectorlength, taperre);
        std::copy_n(sines + vectorlength, vectorlength, taperim);
    }
};

// Levels times kernels on the next `count` bins, eight harmonics to a row.
struct kernelrowskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(harmonickernels *kernels, std::int64_t count,
                                           double *rows) {
        const complexof<Real8> sincstep = samephasors<Real8>(kernels->sincstep);
        const complexof<Real8> taperstep = samephasors<Real8>(kernels->taperstep);
        const Real8 level = Real8::load(kernels->level);
        Real8 alpha = Real8::load(kernels->alpha);
        complexof<Real8> sinc{Real8::load(kernels->sincre), Real8::load(kernels->sincim)};
        complexof<Real8> taper{Real8::load(kernels->taperre), Real8::load(kernels->taperim)};
        for (std::int64_t i = 0; i < count; ++i, rows += vectorlength) {
            const Real8 taperedsinc = sinc.im / alpha * (1.0 + taper.re) / 2.0;
            (level * select(alpha == 0.0, Real8::all(1.0), taperedsinc)).store(rows);
            alpha += kernels->alphastep;
            sinc.rotate(sincstep);
            taper.rotate(taperstep);
        }
        alpha.store(kernels->alpha);
        sinc.re.store(kernels->sincre);
        sinc.im.store(kernels->sincim);
        taper.re.store(kernels->taperre);
        taper.im.store(kernels->taperim);
    }
};

// Adds the shares of up to eight harmonics to the bins, one harmonic after the other. Spans of
// more bins than there is room for, as those of high voices, come in pieces.
void addharmonics(harmonickernels &kernels, const harmonicspan *spans, std::size_t count,
                  std::int64_t nyquist, double *out) {
    constexpr std::int64_t rowsatonce = 256;
    double rows[rowsatonce * vectorlength];
    std::int64_t longest = 0;
    kernels.start(spans, count);
    for (std::size_t lane = 0; lane < count; ++lane)
        longest = std::max(longest, spans[lane].to - spans[lane].from + 1);
    for (std::int64_t done = 0; done < longest; done += rowsatonce) {
        const std::int64_t nrows = std::min(rowsatonce, longest - done);
        runwidest<kernelrowskernel>(&kernels, nrows, rows);
        for (std::size_t lane = 0; lane < count; ++lane) {
            const std::int64_t from = spans[lane].from + done;
            const std::int64_t end = std::min(from + nrows, spans[lane].to + 1);
            const double *share = rows + lane;
            for (std::int64_t i = from; i < end; ++i, share += vectorlength)
                if (i >= -nyquist) out[i < 0 ? -i : i] += *share;
        }
    }
}

}  // namespace

bool loglevels(double *levels, std::size_t n) {
    logarithms(levels, n);
    return std::all_of(levels, levels + n, [](double level) { return std::isfinite(level); });
}

void interpolatelevels(const double *levels, std::size_t k, double f0, double spacing,
                       std::int64_t nyquist, double *out) {
    harmonickernels kernels(f0, spacing);
    std::fill(out, out + nyquist + 1, 0.0);
    double floorlevel = levels[1];
    const std::size_t count = k + 5;  // from 0 Hz to four beyond the last
    for (std::size_t first = 0; first < count; first += vectorlength) {
        harmonicspan spans[vectorlength];
        const std::size_t lanes = std::min(vectorlength, count - first);
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            const std::size_t j = first + lane;
            if (j <= k) floorlevel = std::min(floorlevel, levels[j]);
            spans[lane] = spanof(j, j <= k ? levels[j] : floorlevel, f0, spacing, nyquist);
        }
        addharmonics(kernels, spans, lanes, nyquist, out);
    }
}

}  // namespace nalveo
