/// Tables of the Fourier transforms of numeric/dft.h, by size. Needs
/// numeric/aligned, numeric/phasor and simd.

#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "numeric/aligned.h"
#include "simd/vectors.h"

namespace nalveo {

/// Below this size a transform is too small for the kernel, which handles squares of 8 x 8 values.
constexpr std::size_t smallestvectorised = vectorlength * vectorlength;

/// What a transform needs to know about its size. Made at the first use of a size and constant from
/// then on, so that a frame costs no trigonometric call and no bit reversal.
struct dftplan {
    // Bit-reversed pairs i <= j: of values for a small transform, else of the squares that the
    // first pass of the kernel exchanges.
    std::vector<std::pair<std::size_t, std::size_t>> swaps;
    // Twiddles of all stages, one after the other: the stage that joins blocks of `half` values has
    // `half` of them, w^k = e^(-j pi k / half), and begins at `half`.
    alignedreals re;
    alignedreals im;
    // The cubes w^3k of the first half of each stage's twiddles, which begin at half / 2.
    alignedreals cubere;
    alignedreals cubeim;
};

/// The tables of a size, a power of two from 1 to 2^30. Throws std::bad_alloc at its first use when
/// there is no memory for them.
const dftplan &planfor(std::size_t n);

}  // namespace nalveo
