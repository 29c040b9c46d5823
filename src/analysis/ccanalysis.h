/// Cepstral analysis: the frame loop, and five ways from a frame to warped cepstral coefficients.
///
/// A cepstrum of order P is P + 1 doubles; a cepstral matrix has one such row per frame. The warped
/// frequency axis is that of analysis/warping.h. Voiced frames come from the harmonics of
/// analysis/harmonicanalysis.h (methods 0, 1 and 2) or the envelopes of
/// analysis/spectralanalysis.h, unvoiced ones from the latter.
///
/// waveform2cc, ccmeminitialize and the methods throw std::bad_alloc where there is no memory for
/// the records, or for what a frame larger than they were made for needs.

#pragma once

#include <cstdint>
#include <memory>

#include "analysis/discretecepstrum.h"
#include "analysis/harmonicanalysis.h"
#include "analysis/spectralanalysis.h"
#include "analysis/warping.h"

namespace nalveo {

/// Frames of a run whose last step, the warping or the fit, is put off until eight of them can take
/// it side by side, which costs little more than one alone. The values are the same.
struct waitingframes {
    static constexpr std::size_t most = 8;

    bool together = false;  // else nothing waits

    std::size_t ncepstra = 0;         // frames whose cepstrum is to be warped
    alignedreals cepstra;             // [most x (nfft / 2 + 1)]
    alignedreals warped;              // [most x (P + 1, rounded up to whole vectors)]
    double *cepstrumrows[most] = {};  // their rows of the cepstral matrix

    rdcbatch fits;                         // frames whose discrete cepstrum is to be fitted
    double *fitrows[rdcbatch::size] = {};  // their rows
    std::uint32_t fitcentres[rdcbatch::size] = {};
};

}  // namespace nalveo

/// Scratch of the cepstral methods, made once per run.
struct ccmem {
    nalveo::hamemhandle harmonic;  // null for the methods that do without
    nalveo::namemhandle noise;
    nalveo::rdcscratch rdc;
    nalveo::warpmatrix warp;
    nalveo::waitingframes waiting;  // for waveform2cc; a method called by itself waits for nothing
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
/// \param[in,out] cc        [nframes x (P + 1)] the matrix. Frames that go by way of a log spectrum
///                          (all of methods 0, 3 and 4, of 1 and 2 the unvoiced ones) do not write
///                          coefficient P where alpha is 0; where P is 0, too, it is doubled
/// \param[in]     ccmeth    0 harmonics + interpolation + mcep, 1 harmonics + mel-rdc,
///                          2 quasi-harmonics + mel-rdc, 3 complementary windows + liftering +
///                          mcep, 4 seevoc + mcep; any other value as 0, on a quasi-harmonic record
/// \param[in]     fs        sample rate in Hz
/// \param[in]     alpha     warping parameter, between -1 and 1. With any other, frames that go by
///                          way of a log spectrum are not warped: their rows of the matrix stay,
///                          but coefficient 0 is doubled
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

/// Releases a record and all that it owns; null is allowed. Returns 0.
int ccmemdestroy(ccmem *record);

namespace nalveo {

struct ccmemrelease {
    void operator()(ccmem *record) const { ccmemdestroy(record); }
};

/// A record and its owner.
using ccmemhandle = std::unique_ptr<ccmem, ccmemrelease>;

/// A method: turns one frame into a row of the cepstral matrix.
///
/// \param[in]     x         [nsamples] waveform
/// \param[in]     nsamples  number of samples
/// \param[in]     centre    centre sample of the frame, below nsamples
/// \param[in]     nfft      transform size, a power of two, at least three periods of any f0
/// \param[in,out] buffer    [nfft + max(nfft, ccord + 1)] scratch: spectrum and cepstrum; behind
///                          them frequencies of harmonics, powers through the complementary window
///                          or the warping's scratch
/// \param[in]     ccord     cepstral order P
/// \param[out]    out       [P + 1] the row
/// \param[in,out] memory    scratch, made by ccmeminitialize for the number of this method
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
/// amplitudes on the warped axis; see analysis/discretecepstrum.h.
nalveo::ccmethod getharmrdc;

/// Method 2, quasi-harmonics + mel-rdc: the same at the frequencies that the quasi-harmonic model
/// finds.
nalveo::ccmethod getqharmrdc;

/// Method 3, complementary windows + liftering + mcep: cepstrum of the signal log spectrum up to
/// two thirds of a period.
nalveo::ccmethod getwwcmcep;

/// Method 4, seevoc + mcep: cepstrum of the peak-picking envelope.
nalveo::ccmethod getseemcep;
