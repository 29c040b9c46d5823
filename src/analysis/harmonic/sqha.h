/// Simplified quasi-harmonic model (SQHA) of one frame, solved in real numbers.
///
/// Exponentials at individually given frequencies under the window,
///   y(t) = w(t) sum over k = -K .. K of a(k) e^(i omega(k) t),
/// t in samples from the frame's centre, omega(0) = 0, and a(-k), omega(-k) the conjugate and the
/// negative of a(k), omega(k). Pantazis, Rosec & Stylianou, "Iterative estimation of sinusoidal
/// signal parameters", IEEE SPL 17(5), 461-464, 2010.
///
/// Uses numeric/products and numeric/cholesky for the normal equations, numeric/phasor and simd for
/// what is in them.

#pragma once

#include <cstddef>

#include "numeric/aligned.h"

namespace nalveo {

/// Scratch of solvesqharmonics. It grows to the largest frame that it has met; nothing in it lasts
/// from one frame to the next.
struct sqhascratch {
    alignedreals cosines;  // [(h + 1) x stride] basis of the even part, then that part itself
    alignedreals sines;    // [(h + 1) x stride] basis of the odd part, then that part itself
    alignedreals normal;   // [rows x stride] normal equations of one part
    alignedreals stepcos;  // [stride] cos(omega), by column
    alignedreals stepsin;  // [stride] sin(omega)
    alignedreals even;     // [K + 1] unknowns of the even part
    alignedreals odd;      // [K] unknowns of the odd part

    /// Makes room for frames of half length h with up to k harmonics. Throws std::bad_alloc.
    void reserve(std::size_t h, std::size_t k);
};

/// Fits the simplified quasi-harmonic model to a frame by least squares.
///
/// \param[in,out] scratch   grows when the frame needs more; throws std::bad_alloc then
/// \param[in]     window    [2h + 1] symmetric window w
/// \param[in]     frame     [2h + 1] windowed samples y
/// \param[in]     h         half length
/// \param[in]     k         number of harmonics K, at least 1
/// \param[in]     fk        [K] frequencies in Hz, entry m for harmonic m + 1
/// \param[in]     fs        sample rate in Hz
/// \param[out]    solution  [2K + 1] complex: a(-K) .. a(K)
/// \return 0, or -1 when the system is singular; the solution is then as it was
[[nodiscard]] int solvesqharmonics(sqhascratch &scratch, const double *window, const double *frame,
                                   std::size_t h, std::size_t k, const double *fk, double fs,
                                   double *solution);

}  // namespace nalveo
