/// Cepstral analysis: the frame loop, five ways from a frame to warped cepstral coefficients, and
/// the warping itself.
///
/// A cepstrum of order P is P + 1 doubles; a cepstral matrix has one such row per frame. The warped
/// frequency axis is that of a first-order all-pass section with parameter alpha (0.42 comes close
/// to the mel scale at 16 kHz).

#pragma once

#include <cstdint>
#include <memory>

struct hamem;
struct namem;

/// The warping of cepstra of order m to order p, a fixed linear map, as a matrix: row i is the
/// warped image of quefrency i.
struct warpmatrix {
    std::uint32_t m;
    std::uint32_t p;
    double alpha;
    std::unique_ptr<double[]> rows;  // [(m + 1) x (p + 1, rounded up to whole vectors)]
};

/// Scratch of the cepstral methods. It owns both records.
struct ccmem {
    hamem *harmonic;  // null for the methods that do without
    namem *noise;
    warpmatrix warp;  // made at first use
};

/// Fills the cepstral matrix of a waveform.
///
/// \param[in]     x         [nsamples] waveform, -1 <= x < 1
/// \param[in]     nsamples  number of samples, at least 1
/// \param[in]     lframe    frame shift in samples
/// \param[in]     first     centre of frame 0, a sample index below nsamples
/// \param[in]     nframes   number of frames, all centred within the signal
/// \param[in]     f0        [nframes] f0 in Hz, 0 where unvoiced. A frame below lowestmodelled is
///                          treated as unvoiced
/// \param[in]     ccord     cepstral order P
/// \param[in,out] cc        [nframes x (P + 1)] the matrix. With alpha 0, the warped methods leave
///                          coefficient P as it was
/// \param[in]     ccmeth    0 harmonics + interpolation + mcep, 1 harmonics + mel-rdc,
///                          2 quasi-harmonics + mel-rdc, 3 complementary windows + liftering +
///                          mcep, 4 seevoc + mcep; any other value as 0, on a quasi-harmonic record
/// \param[in]     fs        sample rate in Hz
/// \param[in]     alpha     warping parameter, between -1 and 1
/// \return 0 always
int waveform2cc(const double *x, std::uint32_t nsamples, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, const double *f0, std::uint32_t ccord, double *cc,
                std::uint8_t ccmeth, double fs, double alpha);

/// Makes the records that a method needs.
///
/// \param[in] lwin    length of the noise window in samples, odd
/// \param[in] nfft    transform size
/// \param[in] ccmeth  method number as above
/// \param[in] fs      sample rate in Hz
/// \param[in] f0min   lowest f0 of any frame, Hz
/// \return new record, to be released with ccmemdestroy
ccmem *ccmeminitialize(std::uint32_t lwin, std::uint32_t nfft, std::uint8_t ccmeth, double fs,
                       double f0min);

/// Releases a record and the two it owns; null is allowed. Returns 0.
int ccmemdestroy(ccmem *record);

/// Warped angular frequency, atan2((1 - alpha^2) sin omega, (1 + alpha^2) cos omega - 2 alpha).
///
/// \param[in] omega  angular frequency, radians per sample
/// \param[in] alpha  warping parameter; above 0 it stretches the low frequencies
/// \return warped angular frequency; 0 and pi stay where they are
double fwarp(double omega, double alpha);

/// Warps a cepstrum by the frequency transformation recursion.
///
/// Oppenheim & Johnson, "Discrete representation of signals", Proc. IEEE 60(6), 681-691, 1972.
///
/// \param[in]  c        [m + 1] cepstrum on the linear frequency axis
/// \param[in]  m        its order
/// \param[out] out      [p + 1] cepstrum on the warped axis; must not overlap c. With alpha 0 only
///                      entries 0 .. p - 1 are written: c(i) for i < m, 0 from there on
/// \param[in]  p        order wanted
/// \param[out] scratch  [p + 1]
/// \param[in]  alpha    warping parameter
/// \return 0, or -1 when alpha is not between -1 and 1; nothing is written then
int ccwarp(const double *c, std::uint32_t m, double *out, std::uint32_t p, double *scratch,
           double alpha);

/// Fills the basis of a discrete cepstrum on the warped axis: row k times a cepstrum gives the log
/// amplitude of the envelope at frequency k.
///
/// \param[in]  p      cepstral order
/// \param[in]  k      number of frequencies
/// \param[in]  freqs  [k] frequencies in Hz, or null for the harmonics f0, 2 f0, .. k f0
/// \param[out] c      [k x (p + 1)] cosine terms: 1, then 2 cos(j w)
/// \param[out] s      [k x (p + 1)] sine terms: -0, then -2 sin(j w); may be null
/// \param[in]  f0     Hz; not used with freqs
/// \param[in]  fs     sample rate in Hz
/// \param[in]  alpha  warping parameter
/// \return 0, or -1 when neither matrix is given. The cosine matrix is needed for anything to
///         happen
int ccmatrixcreate(std::uint32_t p, std::uint32_t k, const double *freqs, double *c, double *s,
                   double f0, double fs, double alpha);

namespace nalveo {

/// A method: turns one frame into a row of the cepstral matrix.
///
/// \param[in]     x         [nsamples] waveform
/// \param[in]     nsamples  number of samples
/// \param[in]     centre    centre sample of the frame, below nsamples
/// \param[in]     nfft      transform size, a power of two, at least three periods of any f0
/// \param[in,out] buffer    [nfft + max(nfft, ccord + 1)] scratch: spectrum and cepstrum, then the
///                          imaginary part and the warping's scratch
/// \param[in]     ccord     cepstral order P
/// \param[out]    out       [P + 1] the row
/// \param[in,out] memory    scratch; a harmonic record must have room for the basis, see
///                          ccanalysis.cpp
/// \param[in]     fs        sample rate in Hz
/// \param[in]     f0        f0 of the frame in Hz, 0 when unvoiced
/// \param[in]     alpha     warping parameter
/// \return 0 always: a frame whose harmonic analysis fails takes the noise log spectrum
using ccmethod = int(const double *x, std::uint32_t nsamples, std::uint32_t centre,
                     std::uint32_t nfft, double *buffer, std::uint32_t ccord, double *out,
                     ccmem *memory, double fs, double f0, double alpha);

}  // namespace nalveo

/// Method 0, harmonics + interpolation + mcep: cepstrum of the interpolated harmonic log spectrum.
nalveo::ccmethod getharmmcep;

/// Method 1, harmonics + mel-rdc: regularised discrete cepstrum fitted to the harmonic log
/// amplitudes on the warped axis. Cappé & Moulines, "Regularization techniques for discrete
/// cepstrum estimation", IEEE SPL 3(4), 1996.
nalveo::ccmethod getharmrdc;

/// Method 2, quasi-harmonics + mel-rdc: the same at the frequencies that the quasi-harmonic model
/// finds.
nalveo::ccmethod getqharmrdc;

/// Method 3, complementary windows + liftering + mcep: cepstrum of the signal log spectrum up to
/// two thirds of a period.
nalveo::ccmethod getwwcmcep;

/// Method 4, seevoc + mcep: cepstrum of the peak-picking envelope.
nalveo::ccmethod getseemcep;
