/// Pitch analysis: the band-pass prefilter, the autocorrelation tracker with its path search, the
/// removal of stray voiced islands, quasi-harmonic refinement, and the log form of a track.
///
/// A track holds one f0 per frame in Hz; exactly 0 marks an unvoiced frame. Frame k is centred on
/// sample first + k lframe. The sources behind this header are prefilter, pitchtracker (with
/// autocorrelation and pitchpath), pitchrefinement and, for finished tracks, pitchanalysis; they
/// need numeric and, to refine, analysis/harmonicanalysis.
///
/// Throws std::bad_alloc when memory runs out; elimislands and the conversions between Hz and
/// logarithms allocate nothing.

#pragma once

#include <cstdint>

/// Estimates f0 on the frame grid: autocorrelation candidates and the cheapest path through them.
///
/// P. Boersma, "Accurate short-term analysis of the fundamental frequency and the
/// harmonics-to-noise ratio of a sampled sound", Proc. Inst. Phonetic Sciences (Amsterdam) 17,
/// 97-110, 1993, except that the transform is the next power of two above the window, so that long
/// lags wrap around; that at most four voiced candidates compete in a frame; that the octave cost
/// only chooses among them; and that short voiced runs away from the rest of the track are cleared.
///
/// \param[in]  waveform  [n] samples, -1 <= x < 1
/// \param[in]  n         number of samples, at least 1
/// \param[in]  lframe    frame shift in samples, at least 1
/// \param[in]  first     centre of frame 0, a sample index below n
/// \param[in]  nframes   number of frames, all centred within the signal; see getnumframes
/// \param[out] f0        [nframes] f0 in Hz, 0 where unvoiced; every entry is written
/// \param[in]  fs        sample rate in Hz
/// \param[in]  f0min     lowest f0 searched, Hz; 0 or below (or NaN) stands for 60
/// \param[in]  f0max     highest f0 searched, Hz; f0min or below (or NaN) stands for 500. Where
///                       that is below f0min, too, every frame comes out unvoiced
/// \return 0 always; when memory runs out the track is not written
int getpitch(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
             std::uint32_t nframes, double *f0, double fs, double f0min, double f0max);

/// Replaces complex data by its circular autocorrelation: forward transform, power, inverse
/// transform. Unscaled; users take ratios to lag 0.
///
/// \param[in]     n  number of complex values, a power of two; 0 or below does nothing
/// \param[in,out] x  [2 n] interleaved; afterwards the real parts hold lags 0 .. n - 1
/// \return 0, or -1 when n is above 0 and not a power of two; then x is as it was
int autocorrelation(std::int32_t n, double *x);

/// Clears short voiced runs (islands, up to 50 ms and a frame) that lie outside the f0 range of the
/// long ones and jump by a factor above 1.7 from a voiced neighbour.
///
/// \param[in]     nframes  number of frames
/// \param[in,out] f0       [nframes] track in Hz, 0 = unvoiced
/// \param[in]     lframe   frame shift in samples, at least 1
/// \param[in]     fs       sample rate in Hz
/// \return 0 always
int elimislands(std::uint32_t nframes, double *f0, std::uint32_t lframe, double fs);

/// Band-limits a waveform for pitch tracking: flat from 55 to 3000 Hz, 30 dB down below 45 Hz and
/// above 5000 Hz, zero phase.
///
/// \param[in] waveform  [n] samples
/// \param[in] n         number of samples
/// \param[in] fs        sample rate in Hz
/// \return new array of n filtered samples; the caller releases it with free
double *applyfftfilter(const double *waveform, std::uint32_t n, double fs);

/// Zero-phase FIR filter of nt / 2 + 1 taps, designed from a gain curve by frequency sampling and
/// applied by overlap-add block convolution.
///
/// \param[in]  input   [n] samples
/// \param[out] output  [n] filtered samples; must not overlap the input
/// \param[in]  n       number of samples
/// \param[in]  nt      transform length, a power of two, at least 4
/// \param[in]  freqs   breakpoints of the gain curve, Hz, increasing; the last one must lie above
///                     fs (nt / 2 + 1) / nt
/// \param[in]  gains   gain in dB at each breakpoint; linear in dB over Hz in between
/// \param[in]  fs      sample rate in Hz
/// \return 0 always
int fftfilter(const double *input, double *output, std::uint32_t n, std::uint32_t nt,
              const double *freqs, const double *gains, double fs);

/// Refines f0 frame by frame with the quasi-harmonic model; see qharefinepitch.
///
/// An estimate is taken while it stays within f0min .. f0max and within 20 % of the value before
/// it, all limits included, until it changes by less than 0.1 %. A rejected one, or one that is not
/// a number, ends the frame with the last accepted value. Voicing never changes. Frames below
/// lowestmodelled stay as they are, and none is taken there.
///
/// \param[in]     waveform    [n] samples
/// \param[in]     n           number of samples
/// \param[in]     lframe      frame shift in samples
/// \param[in]     first       centre of frame 0
/// \param[in]     nframes     number of frames
/// \param[in]     iterations  most iterations per frame; 0 does nothing
/// \param[in,out] f0          [nframes] track in Hz, 0 = unvoiced
/// \param[in]     fv          [nframes] maximum voiced frequency in Hz, which bounds the model, or
///                            null for 4500 Hz everywhere
/// \param[in]     fs          sample rate in Hz
/// \param[in]     f0min       lowest f0 accepted, Hz. Unlike that of getpitch it is taken as it is:
///                            0 or below is no bound, which leaves lowestmodelled
/// \param[in]     f0max       highest f0 accepted, Hz. It, too, is taken as it is: with one below
///                            f0min no estimate is accepted, and the track stays
/// \return 0 always
int refinepitch(const double *waveform, std::uint32_t n, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, std::uint32_t iterations, double *f0, const double *fv,
                double fs, double f0min, double f0max);

namespace nalveo {

/// What stands for unvoiced in a track of natural logarithms, as does anything below.
constexpr double unvoicedlogf0 = -1e10;

}  // namespace nalveo

/// Turns a track from Hz to natural logarithms, in place: unvoicedlogf0 for everything not above 0.
/// Returns 0.
int f02logf0(std::uint32_t nframes, double *track);

/// Turns a track from natural logarithms to Hz, in place: 0 for everything not above
/// unvoicedlogf0. Returns 0.
int logf02f0(std::uint32_t nframes, double *track);
