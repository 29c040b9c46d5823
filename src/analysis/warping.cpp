#include "analysis/warping.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "numeric/products.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

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
    if (!warp.rows.empty() && warp.m == m && warp.p == p && warp.alpha == alpha) return;
    const std::size_t stride = wholevectors(std::size_t{p} + 1);
    warp.rows.assign(stride * (std::size_t{m} + 1), 0.0);
    warp.m = m;
    warp.p = p;
    warp.alpha = alpha;
    warp.rows[0] = 1.0;
    for (std::size_t i = 1; i <= m; ++i) {
        double *const row = warp.rows.data() + i * stride;
        warpstep(row - stride, 0.0, row, p, alpha);
    }
}

}  // namespace

double nalveo::melalpha(double fs) {
    constexpr std::size_t npoints = 32;
    // Frequencies in the middle of equal steps of mel. The mel scale runs over [0, 1] up to fs / 2.
    std::array<double, npoints> omega;
    std::array<double, npoints> mel;
    const double highest = logarithm(1.0 + fs / 2000.0);
    for (std::size_t i = 0; i < npoints; ++i) {
        mel[i] = (static_cast<double>(i) + 0.5) / npoints;
        omega[i] = twopi * 1000.0 * (exponential(mel[i] * highest) - 1.0) / fs;
    }
    const auto distance = [&](int hundredths) {
        double sum = 0.0;
        for (std::size_t i = 0; i < npoints; ++i) {
            const double d = fwarp(omega[i], 0.01 * hundredths) - pi * mel[i];
            sum += d * d;
        }
        return sum;
    };
    // The distance falls up to its only minimum and rises from there.
    int low = 0;
    int high = 99;
    while (low < high) {
        const int middle = (low + high) / 2;
        if (distance(middle) <= distance(middle + 1))
            high = middle;
        else
            low = middle + 1;
    }
    return low / 100.0;
}

bool nalveo::warpsbymatrix(std::uint32_t longest, std::uint32_t p, double alpha) {
    // Deliberate: where the matrix would grow large, for orders above that of the cepstrum, the
    // recursion serves.
    return p <= longest && alpha != 0.0 && alpha > -1.0 && alpha < 1.0;
}

void nalveo::warpcepstrum(warpmatrix &warp, const double *c, std::uint32_t m, std::uint32_t longest,
                          double *out, std::uint32_t p, double *scratch, double alpha) {
    if (!warpsbymatrix(longest, p, alpha)) {
        ccwarp(c, m, out, p, scratch, alpha);
        return;
    }
    makewarpmatrix(warp, longest, p, alpha);
    const std::size_t order = std::size_t{p} + 1;
    vecbymat(c, warp.rows.data(), std::size_t{m} + 1, wholevectors(order), scratch);
    std::copy(scratch, scratch + order, out);
}

void nalveo::warpcepstra(warpmatrix &warp, const double *c, std::size_t count,
                         std::uint32_t longest, double *out, std::uint32_t p, double alpha) {
    makewarpmatrix(warp, longest, p, alpha);
    rowsbymat(c, count, warp.rows.data(), std::size_t{longest} + 1,
              wholevectors(std::size_t{p} + 1), out);
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
