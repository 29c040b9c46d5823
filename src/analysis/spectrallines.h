/// Spectral lines: the highest peak in each of a row of frequency bands, and how well the spectrum
/// around a peak agrees with the line that a stationary sinusoid shows through the Hann window.
///
/// Bands and lines go eight at a time, one per element of a vector. Needs numeric/aligned,
/// numeric/phasor and simd. What grows here throws std::bad_alloc where memory runs out.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "numeric/aligned.h"

namespace nalveo {

/// Bands in a row to be searched for peaks.
struct peakbands {
    std::size_t count = 0;
    std::vector<std::uint32_t> edges;  // band h has bins edges[h] .. edges[h + 1] - 1
    std::vector<std::uint32_t> peaks;  // result: bin of each band's peak, 0 = it has none
    alignedreals maxima;               // scratch

    /// Begins a new row at a bin above 0.
    void begin(std::uint32_t edge);

    /// Adds a band up to, not including, a bin not below its beginning.
    void add(std::uint32_t edge);
};

/// Finds the highest local maximum of a spectrum in every band, the first of equal ones. A local
/// maximum is strictly above both neighbours.
///
/// \param[in]     power  [last + 1 + vectorlength] powers of bins 0 .. last, or anything else that
///                       has maxima; what is behind them is read without effect
/// \param[in]     last   last bin, at or above the last of the edges
/// \param[in,out] bands  the bands; peaks[h] gets the result of band h
/// \return whether the logarithms of the powers, as numeric/elementary makes them, have the same
///         peaks for sure. Powers next to each other or of a band's highest maxima that differ by
///         rounding alone may have logarithms in another order, or equal ones.
bool findpeaks(const double *power, std::size_t last, peakbands &bands);

/// What the lines of one frame have in common.
struct linegrid {
    std::uint32_t lwin;      // window length in samples
    std::uint32_t nfft;      // transform size
    std::uint32_t halfband;  // bins to look at on either side of a peak
    double fs;               // sample rate in Hz
};

/// Lines to be matched, entry k of every array being line k.
struct linebatch {
    std::size_t count = 0;              // of lines; the arrays are padded to whole vectors
    std::vector<std::size_t> first;     // lowest bin to look at
    std::vector<double> position;       // of the line, in window lengths: lwin f / fs
    std::vector<double> mirror;         // of its mirror image
    std::vector<std::uint8_t> regular;  // whether the quick form serves
    std::vector<double> match2;         // result: square of the match, 0 .. 1

    void clear() { count = 0; }

    /// Adds a line of f Hz around a bin, at least grid.halfband.
    void add(const linegrid &grid, std::uint32_t bin, double f);
};

/// Matches lines with a spectrum: the squares of the correlations, which are 1 for a perfect
/// stationary sinusoid and 0 for an empty band.
///
/// \param[in]     re     real parts of the spectrum of the zero-phase windowed frame, up to
///                       grid.halfband bins above the highest of the lines
/// \param[in]     im     its imaginary parts
/// \param[in]     grid   what the lines have in common, as when they were added
/// \param[in,out] lines  the lines; match2[k] gets the result of line k
void matchlines(const double *re, const double *im, const linegrid &grid, linebatch &lines);

}  // namespace nalveo
