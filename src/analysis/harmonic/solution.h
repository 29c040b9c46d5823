/// How the fits of the harmonic models leave what they have found. Uses numeric/phasor.

#pragma once

#include <cstddef>

#include "numeric/phasor.h"

namespace nalveo {

/// Writes a complex vector whose entry -j is the conjugate of entry j.
///
/// \param[out] solution  [2k + 1] complex, entries -k .. k
/// \param[in]  k         number of entries on each side of the middle
/// \param[in]  entry     function that gives entry j, 0 .. k
template <class Entry>
void storeconjugates(double *solution, std::size_t k, Entry entry) {
    for (std::size_t j = 0; j <= k; ++j) {
        const phasor z = entry(j);
        solution[2 * (k - j)] = z.re;
        solution[2 * (k - j) + 1] = -z.im;
        solution[2 * (k + j)] = z.re;
        solution[2 * (k + j) + 1] = z.im;
    }
}

}  // namespace nalveo
