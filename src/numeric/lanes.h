/// Phasors that run side by side, one in each element (lane) of a vector.

#pragma once

#include <cstddef>

#include "numeric/rotation.h"
#include "simd/vectors.h"

namespace nalveo {

/// Eight points of the complex plane.
struct phasorlanes {
    real8 re;
    real8 im;

    /// Turns every phasor by its own step: the complex products of the two.
    [[gnu::always_inline]] void rotate(const phasorlanes &step) {
        const real8 turned = re * step.re - im * step.im;
        im = im * step.re + re * step.im;
        re = turned;
    }
};

/// The same phasor in every lane.
[[gnu::always_inline]] inline phasorlanes samephasors(const phasor &z) {
    return {vectorof(z.re), vectorof(z.im)};
}

/// Phasors 1, z, z^2, .. z^7, each the one before it turned by z.
[[gnu::always_inline]] inline phasorlanes powersof(const phasor &z) {
    phasorlanes powers;
    double re = 1.0;
    double im = 0.0;
    for (std::size_t n = 0; n < vectorlength; ++n) {
        powers.re.set(n, re);
        powers.im.set(n, im);
        const double turned = re * z.re - im * z.im;
        im = im * z.re + re * z.im;
        re = turned;
    }
    return powers;
}

}  // namespace nalveo
