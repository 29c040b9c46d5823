/// The two parts of synthesised speech, which share the tracks, the fade between frames and the
/// border between harmonics and noise. Uses nothing.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace nalveo {

/// Tracks as the parts need them, frame k centred on sample k lframe.
struct partstracks {
    std::uint32_t nframes;
    std::uint32_t order;  // P
    std::uint32_t lframe;
    double fs;
    double alpha;
    const double *f0;    // [nframes] Hz, 0 where unvoiced
    const double *cc;    // [nframes x (P + 1)] plain cepstra
    const double *fv;    // [nframes] border between harmonics and noise in voiced frames, Hz;
                         // infinite for none
    const double *fade;  // [lframe] weight of the next frame, rising from 0 to 1
};

/// Share of the harmonics in the power of a voiced frame: 1 up to 150 Hz below the border, 0 from
/// 150 Hz above it. On a slope, no harmonic jumps in and out with every move of the border.
inline double harmonicshare(double frequency, double border) {
    constexpr double halfslope = 150.0;  // Hz
    return std::clamp((border - frequency) / (2.0 * halfslope) + 0.5, 0.0, 1.0);
}

/// Levels are cut here, in nepers: what cepstra can add up to must not overflow.
constexpr double highestlevel = 100.0;

/// Adds the harmonics of all voiced frames.
///
/// Between frames k and k + 1, with the running phase F (the integral of f0, which is linear from
/// frame to frame) and complex amplitudes a of the frames,
///     x(n) = Re sum over h of ((1 - g) a(h, k) + g a(h, k + 1)) e^(j h F(n)),  g = fade(n).
/// Phases are continuous because F is; amplitudes move smoothly, also from and to nothing, where
/// voicing or a harmonic begins or ends. R. J. McAulay and T. F. Quatieri, "Speech
/// analysis/synthesis based on a sinusoidal representation", IEEE Trans. ASSP 34(4), 1986, let
/// phases follow cubic polynomials instead; harmonics of one f0 have no need of them.
///
/// The angles of the amplitudes are the minimum phase of the envelope. That of single frames is
/// restless, since an error of the envelope turns phases far around it, and would make harmonics
/// rough: it is taken from cepstra that are smoothed over some 80 ms.
///
/// \param[in]     tracks    the tracks
/// \param[in]     nsamples  number of samples, at most nframes lframe
/// \param[in,out] samples   [nsamples]
/// Throws std::bad_alloc.
void addharmonics(const partstracks &tracks, std::size_t nsamples, double *samples);

/// Adds the noise of all frames: white noise through a filter per frame, which is the envelope
/// without the harmonics' share, cross-faded from frame to frame by overlap and add.
///
/// An envelope that is fitted to the logarithms of a noise spectrum lies below its density, by
/// Euler's constant in nepers of power where it is smooth: that is put back. Where it is not, it
/// follows the accidents of the spectrum, and less is missing; see unvoicedgain in the source.
///
/// \param[in]     tracks    the tracks
/// \param[in]     seed      of the noise
/// \param[in]     nsamples  number of samples, at most nframes lframe
/// \param[in,out] samples   [nsamples]
/// Throws std::bad_alloc.
void addnoise(const partstracks &tracks, std::uint64_t seed, std::size_t nsamples, double *samples);

}  // namespace nalveo
