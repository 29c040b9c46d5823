/// Quasi-harmonic model (QHA) of one frame, solved in real numbers.
///
/// Harmonics of one f0, each with an amplitude and a slope of it in time:
///   y(t) = w(t) sum over k = -K .. K of (a(k) + b(k) t / fs) e^(i k theta t),
/// t in samples from the frame's centre, theta = 2 pi f0 / fs, a(-k) and b(-k) the conjugates of
/// a(k) and b(k). Pantazis, Rosec & Stylianou, "On the properties of a time-varying quasi-harmonic
/// model of speech", Interspeech 2008.
///
/// Uses numeric/cholesky for the solution of the normal equations, numeric/phasor and simd for the
/// sums in them.

#pragma once

#include <cstddef>

#include "numeric/aligned.h"

namespace nalveo {

/// Scratch of solveqharmonics. It grows to the largest frame that it has met; nothing in it lasts
/// from one frame to the next.
struct qhascratch {
    alignedreals weights;    // [(h + 1) x 10] what each sample brings to each kind of sum
    alignedreals steps;      // [2 x (K + 1) and whole vectors] cosines and sines of k theta
    alignedreals sums;       // [10 x (K + 1) and whole vectors] sums of each kind, by harmonic
    alignedreals sequences;  // [3 x (4K + 1) and two vectors] c0, s1, c2 of the normal equations
    alignedreals normal;     // [(2K + 1) x stride] normal equations of the even or the odd part
    alignedreals even;       // [2K + 1] unknowns of the even part
    alignedreals odd;        // [2K + 1] unknowns of the odd part

    /// Makes room for frames of half length h with up to k harmonics. Throws std::bad_alloc.
    void reserve(std::size_t h, std::size_t k);
};

/// Fits the quasi-harmonic model to a frame by least squares.
///
/// There always is a solution: what the other unknowns explain as well, to within rounding, is left
/// out and gets 0. This happens to one part of harmonic K when it lies within some thousandths of a
/// hertz of fs / 2.
///
/// \param[in,out] scratch   grows when the frame needs more; throws std::bad_alloc then
/// \param[in]     window    [2h + 1] symmetric window w
/// \param[in]     frame     [2h + 1] windowed samples y
/// \param[in]     h         half length, at least 1
/// \param[in]     k         number of harmonics K, at least 1
/// \param[in]     f0        Hz, above 0
/// \param[in]     fs        sample rate in Hz
/// \param[out]    solution  [2 (2K + 1)] complex: a(-K) .. a(K), then b(-K) .. b(K), slopes per
///                          second
void solveqharmonics(qhascratch &scratch, const double *window, const double *frame, std::size_t h,
                     std::size_t k, double f0, double fs, double *solution);

}  // namespace nalveo
