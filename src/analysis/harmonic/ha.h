/// Harmonic model (HA) of one frame, solved without a design matrix.
///
/// Harmonics of one f0 under the window,
///   y(t) = w(t) sum over k = -K .. K of a(k) e^(i k theta t),  theta = 2 pi f0 / fs,
/// t in samples from the frame's centre, a(-k) the conjugate of a(k). Stylianou, "Applying the
/// harmonic plus noise model in concatenative speech synthesis", IEEE TSAP 9(1), 2001. The normal
/// matrix is Toeplitz.
///
/// Uses numeric/toeplitz (toeplitzsolve) for the solution, numeric/phasor and simd for the sums.

#pragma once

#include <cstddef>

#include "numeric/aligned.h"

namespace nalveo {

/// Scratch of solveharmonics. It grows to the largest frame that it has met; nothing in it lasts
/// from one frame to the next.
struct hascratch {
    alignedreals even;      // [h + 1] w(t) (y(t) + y(-t)), at t = 0 half of it
    alignedreals odd;       // [h + 1] w(t) (y(t) - y(-t))
    alignedreals topcos;    // [h + 1] w(t)^2 cos(K theta t), at t = 0 half of it
    alignedreals topsin;    // [h + 1] w(t)^2 sin(K theta t)
    alignedreals re;        // [K + 1] sums of even(t) cos(k theta t)
    alignedreals im;        // [K + 1] sums of odd(t) sin(k theta t)
    alignedreals coscos;    // [K + 1] sums of topcos(t) cos(k theta t)
    alignedreals sinsin;    // [K + 1] sums of topsin(t) sin(k theta t)
    alignedreals normal;    // [2K + 1] first row of the normal matrix
    alignedreals levinson;  // for toeplitzsolve

    /// Makes room for frames of half length h with up to k harmonics. Throws std::bad_alloc.
    void reserve(std::size_t h, std::size_t k);
};

/// Fits the harmonic model to a frame by least squares.
///
/// \param[in,out] scratch   grows when the frame needs more; throws std::bad_alloc then
/// \param[in]     window    [2h + 1] symmetric window w
/// \param[in]     frame     [2h + 1] windowed samples y
/// \param[in]     h         half length
/// \param[in]     k         number of harmonics K, at least 1
/// \param[in]     f0        Hz, above 0
/// \param[in]     fs        sample rate in Hz
/// \param[out]    solution  [2K + 1] complex: a(-K) .. a(K)
/// \return 0, or -1 when the system is singular (a reflection coefficient is exactly +1); the
///         solution is then as it was
[[nodiscard]] int solveharmonics(hascratch &scratch, const double *window, const double *frame,
                                 std::size_t h, std::size_t k, double f0, double fs,
                                 double *solution);

}  // namespace nalveo
