#include "numeric/elementary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#include "simd/dispatch.h"
#include "simd/vectors.h"

namespace nalveo {
namespace {

constexpr double notanumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr double smallestnormal = std::numeric_limits<double>::min();

// ln 2 in two pieces; a multiple of the first by an exponent is exact.
constexpr double ln2high = 0x1.62e42fee00000p-1;
constexpr double ln2low = 1.9082149292705877e-10;

// Sum of c[0] + c[1] z + ..., by Horner's rule.
template <std::size_t n, class Real>
[[gnu::always_inline]] inline Real series(const std::array<double, n> &c, const Real &z) {
    Real sum = z * c[n - 1] + c[n - 2];
    for (std::size_t i = n - 2; i-- > 0;) sum = sum * z + c[i];
    return sum;
}

// pi / 2 in three pieces; multiples of the first two by integers below 2^20 are exact.
constexpr double halfpi1 = 0x1.921fb54400000p+0;
constexpr double halfpi2 = 0x1.0b4611a600000p-34;
constexpr double halfpi3 = 2.0222662487959506e-21;
constexpr double largestangle = 1e6;

// x = quarter pi / 2 + (angle + rest), |angle| up to pi / 4, rest below its last place.
struct reducedangle {
    double quarter;
    double angle;
    double rest;
};

[[gnu::always_inline]] inline reducedangle reduce(double x) {
    const double n = std::floor(x / halfpi1 + 0.5);
    const double a = x - n * halfpi1;
    const double b = n * halfpi2;
    const double high = a - b;
    const double low = ((a - high) - b) - n * halfpi3;
    const double angle = high + low;
    return {n, angle, (high - angle) + low};
}

// sin(r + t) = r + (r^3 (-1/3! + r^2/5! - ...) + t)
[[gnu::always_inline]] inline double sineseries(double r, double t) {
    static constexpr std::array c{
        -1.0 / 6,        1.0 / 120,        -1.0 / 5040,          1.0 / 362880,
        -1.0 / 39916800, 1.0 / 6227020800, -1.0 / 1307674368000, 1.0 / 355687428096000};
    const double z = r * r;
    return r + (r * z * series(c, z) + t);
}

// cos(r + t) = 1 - r^2/2 + (r^4 (1/4! - r^2/6! + ...) - r t), with the rounding error of the first
// difference put back.
[[gnu::always_inline]] inline double cosineseries(double r, double t) {
    static constexpr std::array c{
        1.0 / 24,        -1.0 / 720,         1.0 / 40320,         -1.0 / 3628800,
        1.0 / 479001600, -1.0 / 87178291200, 1.0 / 20922789888000};
    const double z = r * r;
    const double half = 0.5 * z;
    const double first = 1.0 - half;
    return first + (((1.0 - first) - half) + (z * z * series(c, z) - r * t));
}

// Sine of an angle that is quarters more than the reduced one.
double turnedsine(const reducedangle &reduced, std::int64_t quarters) {
    const std::int64_t quarter = (static_cast<std::int64_t>(reduced.quarter) + quarters) & 3;
    const double value = quarter % 2 == 0 ? sineseries(reduced.angle, reduced.rest)
                                          : cosineseries(reduced.angle, reduced.rest);
    return quarter < 2 ? value : -value;
}

// Both series for every angle, and blends instead of branches, so that the loop becomes vectors.
struct sinecosinekernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *__restrict angles, std::size_t n,
                                           double *__restrict sines, double *__restrict cosines) {
        for (std::size_t i = 0; i < n; ++i) {
            const bool known = std::abs(angles[i]) <= largestangle;
            const reducedangle reduced = reduce(known ? angles[i] : 0.0);
            const double s = sineseries(reduced.angle, reduced.rest);
            const double c = cosineseries(reduced.angle, reduced.rest);
            const double quarter = reduced.quarter - 4.0 * std::floor(reduced.quarter * 0.25);
            const bool even = quarter == 0.0 || quarter == 2.0;
            const double sine = even ? s : c;
            const double cosine = even ? c : s;
            const double turnedsine = quarter < 2.0 ? sine : -sine;
            const double turnedcosine = quarter == 1.0 || quarter == 2.0 ? -cosine : cosine;
            sines[i] = known ? turnedsine : notanumber;
            cosines[i] = known ? turnedcosine : notanumber;
        }
    }
};

// Arc tangents of i / 8, each as a double and what that leaves.
constexpr std::array<std::array<double, 2>, 9> eighths{
    {{0.0, 0.0},
     {0.12435499454676144, -3.1253241424539383e-18},
     {0.24497866312686414, 1.0698755618734451e-17},
     {0.35877067027057225, -2.4623815582638635e-17},
     {0.4636476090008061, 2.2698777452961687e-17},
     {0.5585993153435624, -5.4556305485916264e-18},
     {0.6435011087932844, 1.5834785051444286e-17},
     {0.7188299996216245, -2.1478388444456983e-17},
     {0.7853981633974483, 3.061616997868383e-17}}};

// Adds two doubles and their small rests.
double addpairs(double high1, double low1, double high2, double low2) {
    const double sum = high1 + high2;
    return sum + ((high2 - (sum - high1)) + (low1 + low2));
}

// ---- single numbers and parts of vectors alike ----

// Natural logarithm by blends and no branches. Of a positive number x = 2^k m with
// sqrt(1/2) <= m < sqrt(2), f = m - 1, s = f / (2 + f):
//   ln m = 2 artanh(s) = f - (f^2/2 - s (f^2/2 + r)), r = 2 s^2 (1/3 + s^2/5 + s^4/7 + ...).
struct logarithmof {
    template <class Real>
    [[gnu::always_inline]] static Real of(const Real &x) {
        constexpr std::array c{2.0 / 3,  2.0 / 5,  2.0 / 7,  2.0 / 9,  2.0 / 11, 2.0 / 13,
                               2.0 / 15, 2.0 / 17, 2.0 / 19, 2.0 / 21, 2.0 / 23};
        constexpr std::uint64_t roothalf = 0x3fe6a09e667f3bcd;  // bits of sqrt(1/2)
        constexpr std::uint64_t one = 0x3ff0000000000000;
        constexpr std::uint64_t twoto52 = 0x4330000000000000;
        constexpr std::uint64_t fraction = 0x000fffffffffffff;
        const Real zero{};
        const auto subnormal = x < zero + smallestnormal;
        const Real normal = subnormal ? x * 0x1p54 : x;
        const auto bits =
            __builtin_bit_cast(typename bitsof<Real>::type, normal) + (one - roothalf);
        // An integer below 2^52 that is written into the fraction of 2^52 becomes a double there.
        const Real biased = __builtin_bit_cast(Real, bits >> 52 | twoto52) - 0x1p52;
        const Real k = biased - (subnormal ? zero + (1023.0 + 54.0) : zero + 1023.0);
        const Real m = __builtin_bit_cast(Real, (bits & fraction) + roothalf);
        const Real f = m - 1.0;
        const Real s = f / (2.0 + f);
        const Real z = s * s;
        const Real rest = z * series(c, z);
        const Real half = 0.5 * f * f;
        const Real value = k * ln2high - ((half - (s * (half + rest) + k * ln2low)) - f);
        // Each blend has values of its own. If two shared one, GCC would join their conditions and
        // take the vector element by element.
        const Real toolarge = x == zero + infinite ? zero + infinite : zero + notanumber;
        const Real toosmall = x == zero ? zero - infinite : zero + notanumber;
        const Real belowinfinity = x < zero + infinite ? value : toolarge;
        return zero < x ? belowinfinity : toosmall;
    }
};

// value 2^exponent
template <class Real>
struct scaled {
    Real value;
    Real exponent;
};

// Largest integer not above t, |t| below 2^51.
template <class Real>
[[gnu::always_inline]] inline Real floorof(const Real &t) {
    constexpr double integers = 0x1.8p52;  // next to it a unit is the last bit
    const Real zero{};
    const Real nearest = (t + integers) - integers;
    return nearest - (t < nearest ? zero + 1.0 : zero);
}

// x = k ln 2 + r, |r| <= ln(2) / 2; e^r = 1 + (r + (r^2/2! + r^3/3! + ...)).
template <class Real>
[[gnu::always_inline]] inline scaled<Real> reducedexponential(const Real &x) {
    constexpr std::array c{1.0 / 2,       1.0 / 6,        1.0 / 24,        1.0 / 120,
                           1.0 / 720,     1.0 / 5040,     1.0 / 40320,     1.0 / 362880,
                           1.0 / 3628800, 1.0 / 39916800, 1.0 / 479001600, 1.0 / 6227020800};
    constexpr double log2e = 1.4426950408889634;
    const Real k = floorof<Real>(x * log2e + 0.5);
    const Real high = x - k * ln2high;
    const Real low = k * ln2low;
    const Real r = high - low;
    const Real rest = (high - r) - low;
    return {1.0 + (r + (r * r * series(c, r) + rest)), k};
}

// Exponentials up to here are normal numbers, and so are those of the negative arguments.
constexpr double largestplain = 700.0;

struct plainexponentialof {
    template <class Real>
    [[gnu::always_inline]] static Real of(const Real &x) {
        const scaled<Real> e = reducedexponential(x);
        // The exponent as an integer in the lowest bits of a double, then in its place.
        const Real shifted = e.exponent + (0x1.8p52 + 1023.0);
        const auto bits = __builtin_bit_cast(typename bitsof<Real>::type, shifted) << 52;
        return e.value * __builtin_bit_cast(Real, bits);
    }
};

// Replaces values by a function of theirs; what does not fill a vector shares one with ones.
template <class Function>
struct mapkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(double *values, std::size_t n) {
        std::size_t i = 0;
        for (; i + vectorlength <= n; i += vectorlength)
            mapped<Function>(Real8::load(values + i)).store(values + i);
        if (i == n) return;
        double last[vectorlength];
        for (std::size_t k = 0; k < vectorlength; ++k) last[k] = i + k < n ? values[i + k] : 1.0;
        mapped<Function>(Real8::load(last)).store(last);
        for (std::size_t k = 0; i + k < n; ++k) values[i + k] = last[k];
    }
};

}  // namespace

double sine(double x) {
    if (!(std::abs(x) <= largestangle)) return notanumber;
    return turnedsine(reduce(x), 0);
}

double cosine(double x) {
    if (!(std::abs(x) <= largestangle)) return notanumber;
    return turnedsine(reduce(x), 1);
}

void sinesandcosines(const double *angles, std::size_t n, double *sines, double *cosines) {
    runwidest<sinecosinekernel>(angles, n, sines, cosines);
}

double arctangent(double y, double x) {
    const double a = std::abs(x);
    const double b = std::abs(y);
    if (!(a < infinite && b < infinite)) return notanumber;
    const double larger = a > b ? a : b;
    const double smaller = a > b ? b : a;
    // atan t = atan c + atan u, c the nearest eighth to t, u = (t - c) / (1 + c t), |u| <= 1/16;
    // atan u = u - u^3/3 + u^5/5 - ...
    static constexpr std::array c{-1.0 / 3, 1.0 / 5, -1.0 / 7, 1.0 / 9, -1.0 / 11, 1.0 / 13};
    const double t = larger > 0.0 ? smaller / larger : 0.0;
    const auto i = static_cast<std::size_t>(std::floor(t * 8.0 + 0.5));
    const double eighth = static_cast<double>(i) / 8.0;
    const double u = i == 0 ? t : (smaller - eighth * larger) / (larger + eighth * smaller);
    const double z = u * u;
    double high = eighths[i][0];
    double low = eighths[i][1] + u * z * series(c, z);
    if (i == 0) {
        high = u;
    } else {
        const double sum = high + u;
        low += u - (sum - high);
        high = sum;
    }
    constexpr double halfpihigh = 1.5707963267948966;
    constexpr double halfpilow = 6.123233995736766e-17;
    double angle = high + low;
    if (b > a) {
        angle = std::signbit(x) ? addpairs(halfpihigh, halfpilow, high, low)
                                : addpairs(halfpihigh, halfpilow, -high, -low);
    } else if (std::signbit(x)) {
        angle = addpairs(2.0 * halfpihigh, 2.0 * halfpilow, -high, -low);
    }
    return std::copysign(angle, y);
}

double exponential(double x) {
    if (!(x < 710.0)) return x != x ? x : infinite;
    if (x < -746.0) return 0.0;
    const scaled<double> e = reducedexponential(x);
    return std::ldexp(e.value, static_cast<int>(e.exponent));
}

void exponentials(double *values, std::size_t n) {
    if (std::all_of(values, values + n, [](double x) { return std::abs(x) <= largestplain; }))
        runwidest<mapkernel<plainexponentialof>>(values, n);
    else
        for (std::size_t i = 0; i < n; ++i) values[i] = exponential(values[i]);
}

double logarithm(double x) { return logarithmof::of(x); }

void logarithms(double *values, std::size_t n) { runwidest<mapkernel<logarithmof>>(values, n); }

double power(double x, double p) { return exponential(p * logarithm(x)); }

void powers(double *values, std::size_t n, double p) {
    logarithms(values, n);
    for (std::size_t i = 0; i < n; ++i) values[i] *= p;
    exponentials(values, n);
}

}  // namespace nalveo
