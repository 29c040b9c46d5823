/// Spectral envelopes on the log-spectrum grid that all cepstral methods share: nfft doubles, bin k
/// at k fs / nfft, natural logarithm of amplitude, and bin nfft - k equal to bin k, so that the
/// array is the whole symmetric spectrum of a real signal. Needs numeric/dft, elementary, phasor,
/// and windowing, and simd.
///
/// nameminitialize throws std::bad_alloc where there is no memory for a record, the spectra where
/// there is none for what they keep: a transform's tables, made at its first use, and the windows
/// of voiced frames, made at the first use of a length. A record stays fit for use.

#pragma once

#include <cstdint>
#include <memory>

#include "numeric/aligned.h"
#include "numeric/windowing.h"

/// Scratch of the envelope routines, made once per run.
struct namem {
    std::uint32_t lwin;           // length L of the noise window in samples, odd
    nalveo::alignedreals window;  // [L] Hamming window of mean square 1

    nalveo::alignedreals frame;  // [nfft] windowed frame
    nalveo::alignedreals real;   // [nfft / 2 + 1] its transform
    nalveo::alignedreals imag;   // [nfft / 2 + 1]
    nalveo::alignedreals power;  // [nfft / 2 + 1] power spectrum

    // Windows of pitch-synchronous frames: Hann windows scaled for the number of their samples that
    // are not 0, and the complements of these.
    nalveo::windowcache hann;
    nalveo::windowcache complement;

    namem(std::uint32_t windowlength, std::uint32_t nfft);
};

/// Length of the noise window: 25 ms, odd, in samples (401 at 16 kHz).
std::uint32_t naframesize(double fs);

/// Makes a record and its window.
///
/// \param[in] lwin  length of the noise window in samples, odd, at most nfft; see naframesize
/// \param[in] nfft  transform size
/// \return new record, to be released with namemdestroy
namem *nameminitialize(std::uint32_t lwin, std::uint32_t nfft);

/// Same as nameminitialize; for users that transform by FFT.
namem *nameminitializefft(std::uint32_t lwin, std::uint32_t nfft);

/// Releases a record; null is allowed. Returns 0.
int namemdestroy(namem *record);

namespace nalveo {

struct namemrelease {
    void operator()(namem *record) const { namemdestroy(record); }
};

/// A record and its owner.
using namemhandle = std::unique_ptr<namem, namemrelease>;

}  // namespace nalveo

/// Log spectrum of one frame under the fixed noise window, which takes no notice of any period. The
/// bins at 0 Hz and fs / 2 repeat their neighbours.
///
/// \param[in]     x         [nsamples] waveform
/// \param[in]     nsamples  number of samples
/// \param[in]     centre    centre sample of the frame, below nsamples
/// \param[in]     nfft      transform size, a power of two, at least 4 and at least the record's L
/// \param[out]    spectrum  [nfft] log spectrum
/// \param[in,out] record    scratch
/// \param[in]     fs        sample rate in Hz
/// \return 0 always
int getnoiselogspectrum(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                        std::uint32_t nfft, double *spectrum, namem *record, double fs);

/// Log spectrum of one voiced frame under a pair of complementary windows, two periods long. Their
/// powers are added, so that it does not matter where the pulses fall.
///
/// \param[in]     x         [nsamples] waveform
/// \param[in]     nsamples  number of samples
/// \param[in]     centre    centre sample of the frame, below nsamples
/// \param[in]     nfft      transform size, a power of two, at least two periods long
/// \param[out]    buffer    [2 nfft] log spectrum in the first half; the second half is scratch
/// \param[in,out] record    scratch
/// \param[in]     fs        sample rate in Hz
/// \param[in]     f0        Hz; 0, or one whose two periods are shorter than three samples, gives
///                          the noise log spectrum
/// \return 0 always
int getsignallogspectrum(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                         std::uint32_t nfft, double *buffer, namem *record, double fs, double f0);

/// Log spectrum of one voiced frame by peak picking: straight lines between the peaks of the
/// harmonics under a window three periods long.
///
/// D. B. Paul, "The spectral envelope estimation vocoder", IEEE Trans. ASSP 29, 786-794, 1981.
///
/// \param[out]    spectrum  [nfft] log spectrum; nfft at least three periods long
/// Everything else is as for getsignallogspectrum.
int getseevoclogspectrum(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                         std::uint32_t nfft, double *spectrum, namem *record, double fs, double f0);

namespace nalveo {

/// Turns a log spectrum into its real cepstrum, in place.
///
/// \param[in]     nfft      transform size, that of the record
/// \param[in,out] spectrum  [nfft] log spectrum, of which bins 0 .. nfft / 2 are read; afterwards
///                          entry q, 0 .. nfft / 2, is the cepstrum at quefrency q
/// \param[in,out] record    scratch
/// \return 0 always
int getrealcepstrum(std::uint32_t nfft, double *spectrum, namem *record);

}  // namespace nalveo
