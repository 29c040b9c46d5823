/// Rotating phasors: cosine and sine of an arithmetic sequence of angles without calling the
/// trigonometric functions for every term.

#pragma once

#include "numeric/elementary.h"

namespace nalveo {

constexpr double pi = 3.141592653589793;
constexpr double twopi = 6.283185307179586;

/// Point of the complex plane, re + i im; on the unit circle it stands for an angle.
struct phasor {
    double re;
    double im;

    /// Turns this phasor by the angle of step: the complex product of the two.
    void rotate(const phasor &step) {
        const double turned = re * step.re - im * step.im;
        im = im * step.re + re * step.im;
        re = turned;
    }
};

/// Unit phasor of an angle in radians: (cos angle, sin angle).
inline phasor unitphasor(double angle) { return {cosine(angle), sine(angle)}; }

}  // namespace nalveo
