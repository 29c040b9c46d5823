/// Synthesis: tracks of f0, envelope and maximum voiced frequency become a waveform again, by
/// harmonics plus noise.
///
/// The model is that of Y. Stylianou, "Applying the harmonic plus noise model in concatenative
/// speech synthesis", IEEE Trans. Speech Audio Process. 9(1), 2001: in voiced frames, harmonics up
/// to the maximum voiced frequency and shaped noise above; noise alone elsewhere. What is our own
/// is written beside the parts, in parts.h. Needs numeric.

#pragma once

#include <cstddef>
#include <cstdint>

namespace nalveo {

/// Tracks of a file, frame after frame; frame k is centred on sample k lframe.
struct speechtracks {
    std::uint32_t nframes;  // at least 1
    std::uint32_t order;    // P, of the cepstra
    const double *f0;       // [nframes] Hz, 0 where unvoiced, else lowestsynthesised .. fs / 2
    const double *cc;       // [nframes x (P + 1)] mel-warped cepstra
    const double *fv;       // [nframes] maximum voiced frequency, Hz, 0 .. fs / 2; null: fs / 2
};

struct synthesissettings {
    double fs;             // Hz
    std::uint32_t lframe;  // frame shift in samples, 1 .. longestshift
    double alpha;          // warping parameter of the cepstra, above -1 and below 1
    bool htsscale;         // the cepstra are scaled for HTS
    std::uint64_t seed;    // of the noise
};

constexpr double lowestsynthesised = 14.0;       // Hz; lower voices would have too many harmonics
constexpr double largestcoefficient = 100.0;     // no signal has such cepstra, but e^x stays finite
constexpr std::uint32_t longestshift = 1 << 20;  // samples; bounds the transforms of the noise

/// A value of a track that nothing can be made of.
struct badvalue {
    enum class track { none, f0, cc, fv } where = track::none;
    std::uint32_t frame = 0;
    double value = 0.0;
};

/// Looks for values out of the ranges above: not finite, or an f0, a maximum voiced frequency or a
/// coefficient out of range.
///
/// \return the first one of the first track that has any; `none` when all can be synthesised
badvalue findbadvalue(const speechtracks &tracks, double fs);

/// Most samples that tracks have something for: nframes lframe.
inline std::uint64_t synthesislength(std::uint32_t nframes, std::uint32_t lframe) {
    return std::uint64_t{nframes} * lframe;
}

/// Makes the waveform of tracks in which findbadvalue finds nothing.
///
/// The level is that of the analysed signal, whatever that gives: samples may lie beyond -1 .. 1.
/// The same tracks, settings and seed give the same bytes on every machine, and a shorter waveform
/// is the beginning of a longer one.
///
/// \param[in]  tracks    the tracks
/// \param[in]  settings  see there
/// \param[in]  nsamples  number of samples, 1 .. synthesislength
/// \param[out] samples   [nsamples] the waveform
/// Throws std::bad_alloc.
void synthesise(const speechtracks &tracks, const synthesissettings &settings, std::size_t nsamples,
                double *samples);

}  // namespace nalveo
