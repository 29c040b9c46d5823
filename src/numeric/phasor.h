/// Points of the complex plane and rotating phasors: cosine and sine of an arithmetic sequence of
/// angles without calling the trigonometric functions for every term. One form for single numbers
/// and for vectors of eight. Needs numeric/elementary and simd.

#pragma once

#include <cstddef>

#include "numeric/elementary.h"
#include "simd/vectors.h"

namespace nalveo {

constexpr double pi = 3.141592653589793;
constexpr double twopi = 6.283185307179586;
constexpr double sqrthalf = 0.7071067811865476;

/// Complex number re + i im, or eight of them.
template <class Real>
struct complexof {
    Real re;
    Real im;

    /// Turns by the angle of step, a point of the unit circle: the complex product of the two.
    [[gnu::always_inline]] void rotate(const complexof &step) { *this = *this * step; }

    [[gnu::always_inline]] friend complexof operator+(const complexof &a, const complexof &b) {
        return {a.re + b.re, a.im + b.im};
    }
    [[gnu::always_inline]] friend complexof operator-(const complexof &a, const complexof &b) {
        return {a.re - b.re, a.im - b.im};
    }
    [[gnu::always_inline]] friend complexof operator*(const complexof &a, const complexof &b) {
        return {a.re * b.re - a.im * b.im, a.im * b.re + a.re * b.im};
    }
};

/// A single one; on the unit circle it stands for an angle.
using phasor = complexof<double>;

/// Unit phasor of an angle in radians: (cos angle, sin angle).
inline phasor unitphasor(double angle) { return {cosine(angle), sine(angle)}; }

/// Eight times the same phasor.
template <class Real8>
[[gnu::always_inline]] inline complexof<Real8> samephasors(const phasor &z) {
    return {Real8::all(z.re), Real8::all(z.im)};
}

/// Phasors 1, z, z^2, .. z^7, each the one before it turned by z.
template <class Real8>
[[gnu::always_inline]] inline complexof<Real8> powersof(const phasor &z) {
    complexof<Real8> powers{};
    phasor power{1.0, 0.0};
    for (std::size_t n = 0; n < vectorlength; ++n, power.rotate(z)) {
        powers.re.set(n, power.re);
        powers.im.set(n, power.im);
    }
    return powers;
}

}  // namespace nalveo
