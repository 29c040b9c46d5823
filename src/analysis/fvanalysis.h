/// Maximum voiced frequency: up to where the spectrum of a voiced frame is harmonic. Above it, a
/// vocoder synthesises noise. Needs analysis/spectrallines for peaks and line matches,
/// harmonicanalysis for the lowest f0, numeric (dft, elementary, matvect, phasor, polynom,
/// windowing) and simd.
///
/// Throws std::bad_alloc when memory runs out.

#pragma once

#include <cstdint>

/// Estimates the maximum voiced frequency on the frame grid.
///
/// Per voiced frame, one spectral peak per harmonic band is matched against the shape of a pure
/// sinusoid (slm). The match values become voicing probabilities, and the boundary between a voiced
/// lower and an unvoiced upper band goes where their joint probability is highest. A running median
/// over 5 frames has the last word: a lone unvoiced frame can end above 0, a lone voiced one at 0.
///
/// \param[in]  waveform  [n] samples
/// \param[in]  n         number of samples, at least 1
/// \param[in]  lframe    frame shift in samples
/// \param[in]  first     centre of frame 0, a sample index below n
/// \param[in]  nframes   number of frames, all centred within the signal
/// \param[in]  f0        [nframes] f0 in Hz, 0 where unvoiced; below lowestmodelled counts as that
/// \param[out] fv        [nframes] maximum voiced frequency in Hz: 0 where unvoiced, else 1000 or
///                       the frequency of a harmonic peak not below it. A frame of zeros that is
///                       marked voiced matches no sinusoid; it gets 1000, or its second harmonic
///                       where that is at or above 1000 Hz
/// \param[in]  fs        sample rate in Hz
/// \return 0 always
int getfvoicing(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, const double *f0, double *fv, double fs);

/// Spectral line match: correlation between a spectrum around a peak and the line that a stationary
/// sinusoid of that frequency would show through the Hann window.
///
/// \param[in] spectrum  [2 nfft] interleaved spectrum of the zero-phase windowed frame
/// \param[in] nfft      transform size
/// \param[in] lwin      window length in samples
/// \param[in] bin       bin of the peak, at least halfband
/// \param[in] halfband  bins to look at on either side
/// \param[in] fs        sample rate in Hz
/// \param[in] f         frequency of the peak in Hz
/// \return match, 0 .. 1; 1 for a perfect stationary sinusoid, 0 for an empty band
double slm(const double *spectrum, std::uint32_t nfft, std::uint32_t lwin, std::uint32_t bin,
           std::uint32_t halfband, double fs, double f);

/// Running median, in place. Values at either end that lack neighbours stay as they are, and so
/// does a track that is shorter than the median.
///
/// \param[in,out] track    [nframes]
/// \param[in]     nframes  number of values
/// \param[in]     length   length of the median; an even one is rounded up
/// \return 0 always
int medianfilt(double *track, std::uint32_t nframes, std::uint32_t length);
