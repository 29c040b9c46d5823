#include "analysis/spectrallines.h"

#include <algorithm>
#include <array>
#include <limits>

#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

constexpr double lowest = -std::numeric_limits<double>::infinity();

// Values x[first[lane] + offset], one per band or line.
template <class Real8, class Index>
[[gnu::always_inline]] inline Real8 gathered(const double *x, const Index *first,
                                             std::size_t offset) {
    return Real8::filled([=](std::size_t lane) { return x[first[lane] + offset]; });
}

// Two powers further apart than relativemargin times one of them plus absolutemargin have
// logarithms in the same order: those of logarithms() are right to a unit in the last place, here
// some 1e-13.
constexpr double relativemargin = 1e-12;
constexpr double absolutemargin = 1e-290;

// Keeps the powers of local maxima among bins 1 .. last - 1 and puts the lowest number elsewhere.
// Returns whether all bins are clearly above or below their higher neighbour.
struct maximakernel {
    template <class Real8>
    [[gnu::always_inline]] static bool run(const double *power, std::size_t last, double *peaks) {
        const Real8 farthest = Real8::all(std::numeric_limits<double>::max());
        Real8 closest = farthest;
        for (std::size_t i = 1; i < last; i += vectorlength) {
            const Real8 before = Real8::load(power + i - 1);
            const Real8 middle = Real8::load(power + i);
            const Real8 after = Real8::load(power + i + 1);
            const Real8 neighbour = select(before < after, after, before);
            select(neighbour < middle, middle, Real8::all(lowest)).store(peaks + i);
            const Real8 above = middle - neighbour;
            const Real8 below = neighbour - middle;
            const Real8 distance = select(above < below, below, above);
            Real8 spare = distance - (middle * relativemargin + absolutemargin);
            if (i + vectorlength > last) {
                const auto bins = static_cast<double>(last - i);
                spare = select(Real8::count() < bins, spare, farthest);
            }
            closest = select(spare < closest, spare, closest);
        }
        double least = closest[0];
        for (std::size_t lane = 1; lane < vectorlength; ++lane)
            least = std::min(least, closest[lane]);
        return least > 0.0;
    }
};

// Finds the highest maximum of every band, eight bands side by side, bin after bin. The edges are
// padded with empty bands. Returns whether all are clearly above the other maxima of their bands.
struct highestkernel {
    template <class Real8>
    [[gnu::always_inline]] static bool run(const double *maxima, const std::uint32_t *edges,
                                           std::size_t bands, std::uint32_t *peaks) {
        bool clear = true;
        for (std::size_t h = 0; h < bands; h += vectorlength)
            clear &= search<Real8>(maxima, edges + h, peaks + h);
        return clear;
    }

    template <class Real8>
    [[gnu::always_inline]] static bool search(const double *maxima, const std::uint32_t *edges,
                                              std::uint32_t *peaks) {
        double widths[vectorlength];
        std::uint32_t narrowest = edges[1] - edges[0];
        std::uint32_t widest = narrowest;
        for (std::size_t lane = 0; lane < vectorlength; ++lane) {
            const std::uint32_t bins = edges[lane + 1] - edges[lane];
            widths[lane] = bins;
            narrowest = std::min(narrowest, bins);
            widest = std::max(widest, bins);
        }
        const Real8 width = Real8::load(widths);
        Real8 best = Real8::all(lowest);
        Real8 second = best;
        Real8 where = Real8::all(-1.0);
        for (std::uint32_t k = 0; k < widest; ++k) {
            const Real8 offset = Real8::all(k);
            Real8 level = gathered<Real8>(maxima, edges, k);
            if (k >= narrowest) level = select(offset < width, level, Real8::all(lowest));
            const auto higher = best < level;
            const Real8 lower = select(higher, best, level);
            second = select(second < lower, lower, second);
            best = select(higher, level, best);
            where = select(higher, offset, where);
        }
        bool clear = true;
        for (std::size_t lane = 0; lane < vectorlength; ++lane) {
            const double offset = where[lane];
            peaks[lane] = offset < 0.0 ? 0 : edges[lane] + static_cast<std::uint32_t>(offset);
            const double margin = best[lane] * relativemargin + absolutemargin;
            clear &= offset < 0.0 || best[lane] - second[lane] > margin;
        }
        return clear;
    }
};

// Transform of the Hann window at t units from its middle, scaled to W(0) = 1,
//   W(t) = sin(pi t) / (pi t (1 - t^2)),
// for |t| <= 7/4 as a polynomial in t^2, which knows nothing of the 0 / 0 at t = 0 and +-1: the
// Chebyshev expansion of order 11, right to 4e-16.
constexpr double seriesreach = 1.75;
constexpr std::array lineseries{
    1.0,
    -0.6449340668482219,
    0.166808358435055,
    -0.023943465686515952,
    0.0022043821293050527,
    -0.0001416989021615525,
    6.729885201519654e-06,
    -2.459829932212943e-07,
    7.135102573180187e-09,
    -1.679278571681688e-10,
    3.198189337376301e-12,
    -4.188975503289449e-14,
};

template <class Real8>
[[gnu::always_inline]] inline Real8 nearbyline(const Real8 &t) {
    const Real8 t2 = t * t;
    Real8 w = t2 * lineseries[lineseries.size() - 1] + lineseries[lineseries.size() - 2];
    for (std::size_t k = lineseries.size() - 2; k-- > 0;) w = w * t2 + lineseries[k];
    return w;
}

// t less the nearest even number, which has the same sine.
template <class Real8>
[[gnu::always_inline]] inline Real8 reduced(const Real8 &t) {
    constexpr double integers = 6755399441055744.0;  // 1.5 2^52: next to it a unit is the last bit
    return t - 2.0 * ((t * 0.5 + integers) - integers);
}

// sin(pi t) / pi
template <class Real8>
[[gnu::always_inline]] inline Real8 sineof(const Real8 &t) {
    const Real8 d = reduced(t);
    return nearbyline(d) * d * (1.0 - d * d);
}

// W(t) at any distance, accurate also close to t = 0 and +-1, where sine and denominator vanish
// together.
template <class Real8>
[[gnu::always_inline]] inline Real8 anyline(const Real8 &t) {
    const Real8 denominator = t * (1.0 - t * t);
    const auto pole = denominator == 0.0;
    return select(pole, nearbyline(t), sineof(t) / select(pole, Real8::all(1.0), denominator));
}

// Squared correlations of eight lines with the bins around them, bin after bin. In the quick form
// the line itself is within reach of the series, and the mirror image so far off that its sine, a
// phasor that turns from bin to bin, can be divided as it is.
template <bool quick, class Real8>
[[gnu::always_inline]] inline Real8 matched(const double *re, const double *im,
                                            const linegrid &grid, phasor step,
                                            const linebatch &lines, std::size_t line) {
    const double unit = static_cast<double>(grid.lwin) / grid.nfft;  // from bin to bin
    const std::size_t *const first = lines.first.data() + line;
    const auto start =
        Real8::filled([=](std::size_t lane) { return static_cast<double>(first[lane]) * unit; });
    const Real8 start1 = start - Real8::load(lines.position.data() + line);
    const Real8 start2 = start - Real8::load(lines.mirror.data() + line);
    complexof<Real8> turning = {sineof(start2 + 0.5), sineof(start2)};
    const auto turn = complexof<Real8>{Real8::all(step.re), Real8::all(step.im)};
    Real8 model2{}, power{}, sumre{}, sumim{};
    for (std::size_t k = 0; k <= 2 * std::size_t{grid.halfband}; ++k) {
        const double along = static_cast<double>(k) * unit;
        const Real8 t = start1 + along;
        const Real8 u = start2 + along;
        Real8 model;
        if constexpr (quick) {
            model = nearbyline(t) + turning.im / (u * (1.0 - u * u));
            turning.rotate(turn);
        } else {
            model = anyline(t) + anyline(u);
        }
        const Real8 xre = gathered<Real8>(re, first, k);
        const Real8 xim = gathered<Real8>(im, first, k);
        model2 += model * model;
        power += xre * xre + xim * xim;
        sumre += xre * model;
        sumim += xim * model;
    }
    const Real8 energies = model2 * power;
    const auto empty = energies == 0.0;
    return select(empty, Real8{},
                  (sumre * sumre + sumim * sumim) / select(empty, Real8::all(1.0), energies));
}

struct matchkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *re, const double *im, const linegrid *grid,
                                           phasor step, linebatch *lines) {
        for (std::size_t line = 0; line < lines->count; line += vectorlength) {
            const std::uint8_t *const regular = lines->regular.data() + line;
            const bool quick =
                std::all_of(regular, regular + vectorlength, [](std::uint8_t r) { return r != 0; });
            const Real8 match2 = quick ? matched<true, Real8>(re, im, *grid, step, *lines, line)
                                       : matched<false, Real8>(re, im, *grid, step, *lines, line);
            match2.store(lines->match2.data() + line);
        }
    }
};

}  // namespace

void peakbands::begin(std::uint32_t edge) {
    count = 0;
    edges.assign(1, edge);
}

void peakbands::add(std::uint32_t edge) {
    edges.push_back(edge);
    ++count;
}

bool findpeaks(const double *power, std::size_t last, peakbands &bands) {
    const std::size_t padded = wholevectors(bands.count);
    bands.edges.resize(padded + 1, bands.edges.back());
    bands.peaks.resize(padded);
    // Narrow bands are searched as far as the widest one beside them.
    bands.maxima.resize(std::max(bands.maxima.size(), 2 * last + vectorlength));
    const bool maximaclear = runwidest<maximakernel>(power, last, bands.maxima.data());
    const bool highestclear = runwidest<highestkernel>(
        static_cast<const double *>(bands.maxima.data()),
        static_cast<const std::uint32_t *>(bands.edges.data()), bands.count, bands.peaks.data());
    bands.edges.resize(bands.count + 1);
    return maximaclear && highestclear;
}

void linebatch::add(const linegrid &grid, std::uint32_t bin, double f) {
    if (count == first.size()) {
        const std::size_t size = count + vectorlength;
        position.resize(size);
        mirror.resize(size);
        regular.resize(size);
        match2.resize(size);
        first.resize(size);  // the last, since it tells how much room there is
    }
    // The mirror image is at -f or, seen from the top of the band, at fs - f.
    const double unit = static_cast<double>(grid.lwin) / grid.nfft;
    const double below = static_cast<double>(bin - grid.halfband) * unit;
    const double above = static_cast<double>(bin + grid.halfband) * unit;
    first[count] = bin - grid.halfband;
    position[count] = grid.lwin * f / grid.fs;
    mirror[count] = f < grid.fs / 4.0 ? -position[count] : grid.lwin - position[count];
    constexpr double distant = 2.0;
    regular[count] = below - position[count] >= -seriesreach &&
                     above - position[count] <= seriesreach &&
                     (below - mirror[count] >= distant || above - mirror[count] <= -distant);
    ++count;
}

void matchlines(const double *re, const double *im, const linegrid &grid, linebatch &lines) {
    if (lines.count == 0) return;
    // The last vector is filled up with its own first line.
    const std::size_t start = (lines.count - 1) / vectorlength * vectorlength;
    for (std::size_t k = lines.count; k < start + vectorlength; ++k) {
        lines.first[k] = lines.first[start];
        lines.position[k] = lines.position[start];
        lines.mirror[k] = lines.mirror[start];
        lines.regular[k] = lines.regular[start];
    }
    const phasor step = unitphasor(pi * grid.lwin / grid.nfft);
    runwidest<matchkernel>(re, im, &grid, step, &lines);
}

}  // namespace nalveo
