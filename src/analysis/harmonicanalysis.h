/// Harmonic analysis: least-squares fits of harmonic models to windowed frames, and what follows
/// from them: amplitudes, phases and frequencies of harmonics, a refined f0, a log spectrum.
/// Needs the folder harmonic, numeric/windowing, elementary and phasor.
///
/// Three models, all with complex exponentials weighted by the analysis window:
///   HA    harmonics of f0. Stylianou, "Applying the harmonic plus noise model in concatenative
///         speech synthesis", IEEE TSAP 9(1), 2001;
///   QHA   harmonics of f0, each also with a slope in time, which reveals how far its frequency is
///         off. Pantazis, Rosec & Stylianou, "On the properties of a time-varying quasi-harmonic
///         model of speech", Interspeech 2008, and "Iterative estimation of sinusoidal signal
///         parameters", IEEE SPL 17(5), 461-464, 2010;
///   SQHA  exponentials at individually given frequencies, those that QHA has found.
///
/// Symbols: N odd frame length, h = (N - 1) / 2, column n belongs to time n - h samples from the
/// frame's centre; K number of harmonics; L = 2K + 1 number of exponentials, row r of which is
/// harmonic K - r, so rows run from +K to -K and row K is the constant; M number of unknowns, L for
/// HA and SQHA, 2L for QHA. Complex numbers are pairs of doubles, real part first; a complex matrix
/// is row-major.
///
/// The estimators run the fits of the folder harmonic, one file a model; hamatrixcreate ..
/// qhalscsolve are the plain form of the same, for those who want to see or to check it.
///
/// The routines that make a record, the plain solvers and the estimators throw std::bad_alloc where
/// there is no memory for a record or for what it grows by; a record stays fit for use. Any record
/// serves frames of any f0: one made for the lowest f0 of a run does not grow on the way.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "analysis/harmonic/ha.h"
#include "analysis/harmonic/qha.h"
#include "analysis/harmonic/sqha.h"
#include "numeric/aligned.h"
#include "numeric/windowing.h"

namespace nalveo {

/// Lowest f0 that is modelled, Hz. No voice is below it, and the matrices grow with the square of
/// the period: a search range or a caller's own track may reach there, and must not exhaust the
/// memory.
constexpr double lowestmodelled = 15.0;

/// Lowest f0 of the frames that are modelled, for which a run makes its scratch.
///
/// \param[in] f0       [nframes] Hz; what is below lowestmodelled does not count
/// \param[in] nframes  number of frames
/// \param[in] most     result where none is lower, Hz
double lowestvoiced(const double *f0, std::size_t nframes, double most);

}  // namespace nalveo

/// Scratch of the estimators, made for the lowest f0 of a run. A model's first frame allocates for
/// that f0; only a longer frame allocates again. Nothing in it survives from one frame to the next,
/// except that after a successful estimator call the solution stays until the next call.
struct hamem {
    std::size_t longest = 0;  // frame length N for the lowest f0
    std::size_t most = 0;     // number of harmonics K at the lowest f0

    const double *window = nullptr;    // [N] window of the current frame
    nalveo::alignedreals frame;        // [N] its windowed samples
    nalveo::alignedreals solution;     // [M] complex
    nalveo::alignedreals frequencies;  // [K] what QHA finds for SQHA, unless the caller keeps it
    nalveo::alignedreals levels;       // [K + 1] log levels of a spectrum

    nalveo::hascratch ha;  // of the fit of each model
    nalveo::qhascratch qha;
    nalveo::sqhascratch sqha;
    nalveo::windowcache windows{
        [](double *made, std::uint32_t length) { winhamming(made, length, 1); }};

    // For the plain solvers alone, which the estimators do without: empty until they are used.
    nalveo::alignedreals design;   // [M x N] complex; its user makes room for it
    nalveo::alignedreals normal;   // [M x M] normal matrix; for QHA its blocks A, B, C and a spare
    nalveo::alignedreals inverse;  // [M x M] its inverse; for QHA the four blocks of the inverse
    nalveo::alignedreals projection;  // [M] complex
};

/// Frame length of the HA model: 2.5 pitch periods, odd, in samples (fs and f0 in Hz, f0 above 0).
std::uint32_t haframesize(double fs, double f0);

/// Frame length of the QHA model: 3 pitch periods, odd.
std::uint32_t qhaframesize(double fs, double f0);

/// Frame length of the SQHA model: 2.5 pitch periods, odd.
std::uint32_t sqhaframesize(double fs, double f0);

/// Number of harmonics strictly below the lower of fmax and fs / 2.
///
/// \param[in] fs    sample rate in Hz
/// \param[in] fmax  highest frequency in Hz
/// \param[in] f0    Hz
/// \return the number; 0 also for an f0 that is not above 0
std::uint32_t hanoharms(double fs, double fmax, double f0);

/// Makes a record for HA.
///
/// \param[in] fs     sample rate in Hz
/// \param[in] fmax   highest frequency that any frame will model, Hz
/// \param[in] f0min  lowest f0 of any frame, Hz, above 0
/// \return new record, to be released with hamemdestroy
hamem *hameminitialize(double fs, double fmax, double f0min);

/// Makes a record for QHA, whose frames are longer, which serves SQHA and HA as well; arguments and
/// result as for hameminitialize.
hamem *qhameminitialize(double fs, double fmax, double f0min);

/// Makes a record of either kind: type 0 for HA, anything else for QHA.
hamem *haqhameminitialize(std::uint8_t type, double fs, double fmax, double f0min);

/// Releases a record; null is allowed. Returns 0.
int hamemdestroy(hamem *record);

/// Same as hamemdestroy.
int qhamemdestroy(hamem *record);

namespace nalveo {

struct hamemrelease {
    void operator()(hamem *record) const { hamemdestroy(record); }
};

/// A record and its owner.
using hamemhandle = std::unique_ptr<hamem, hamemrelease>;

}  // namespace nalveo

/// Fills the HA design matrix, E(r, n) = w(n) exp(i 2 pi (K - r) f0 (n - h) / fs).
///
/// \param[out] e   [(2K + 1) x N] complex
/// \param[in]  n   frame length N, odd
/// \param[in]  k   number of harmonics K; of 0 there is the constant alone
/// \param[in]  w   [N] window
/// \param[in]  f0  Hz
/// \param[in]  fs  sample rate in Hz
/// \return 0 always
int hamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *w, double f0,
                   double fs);

/// Fills the QHA design matrix: the HA rows and, behind them, the same rows weighted by time,
/// E(r, n) (n - h) s / fs. The scale s gives both halves the same windowed energy.
///
/// \param[out] e   [2 (2K + 1) x N] complex
/// \param[in]  n   frame length N, odd
/// \param[in]  k   number of harmonics K; of 0 there is the constant alone
/// \param[in]  w   [N] window of the form a + b cos(pi t / h)
/// \param[in]  f0  Hz
/// \param[in]  fs  sample rate in Hz
/// \return the time scale s in 1/s, which qhalscsolve needs
double qhamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *w, double f0,
                       double fs);

/// Fills the SQHA design matrix: the HA matrix with a frequency of its own for each harmonic.
///
/// \param[out] e   [(2K + 1) x N] complex
/// \param[in]  n   frame length N, odd
/// \param[in]  k   number of harmonics K; of 0 there is the constant alone
/// \param[in]  fk  [K] frequencies in Hz, entry m for harmonic m + 1
/// \param[in]  w   [N] window
/// \param[in]  fs  sample rate in Hz
/// \return 0 always
int sqhamatrixcreate(double *e, std::uint32_t n, std::uint32_t k, const double *fk, const double *w,
                     double fs);

/// Solves the least-squares fit of the HA or SQHA model to the record's frame by inversion of the
/// normal matrix.
///
/// \param[in,out] record    frame and design in, both with room for them, solution out: entry K + k
///                          is the complex amplitude a(k) of
///                          y(t) = w(t) sum over k of a(k) exp(i 2 pi k f0 t / fs)
/// \param[in]     n         frame length N
/// \param[in]     m         number of unknowns M = 2K + 1
/// \param[in]     toeplitz  1 for exact multiples of one f0, whose normal matrix is Toeplitz;
///                          anything else for frequencies of any kind
/// \return 0, or -1 when the system is singular; the solution is then unusable
[[nodiscard]] int hasqhalscsolve(hamem *record, std::uint32_t n, std::uint32_t m,
                                 std::uint8_t toeplitz);

/// Solves the least-squares fit of the QHA model to the record's frame, by block inversion.
///
/// \param[in,out] record  frame and design in, solution out: the amplitudes as above and,
///                        from entry M / 2 on, the slopes b(k) of the terms
///                        (a(k) + b(k) t) exp(i 2 pi k f0 t), t in seconds
/// \param[in]     n       frame length N
/// \param[in]     m       number of unknowns M = 2 (2K + 1)
/// \param[in]     s       the time scale that qhamatrixcreate has returned
/// \return 0, or -1 when the system is singular; the solution is then unusable
[[nodiscard]] int qhalscsolve(hamem *record, std::uint32_t n, std::uint32_t m, double s);

/// Estimates the harmonics of one frame with the HA model over 2.5 periods.
///
/// A harmonic A cos(2 pi k f0 t / fs + phi), t in samples from the centre, gives amplitude A and
/// phase phi.
///
/// \param[in]     x       [len] waveform
/// \param[in]     len     number of samples
/// \param[in]     centre  centre sample of the frame, below len
/// \param[in]     k       number of harmonics K, usually hanoharms(fs, fmax, f0)
/// \param[out]    amp     [K] linear amplitudes in the waveform's unit, entry k - 1 for harmonic k;
///                        may be null
/// \param[out]    phase   [K] phases in radians at the centre sample, -pi .. pi; may be null
/// \param[in,out] record  any record
/// \param[in]     fs      sample rate in Hz
/// \param[in]     f0      Hz
/// \return 0, or -1 when f0 or K is 0, the frame is silent or the system singular; the outputs are
///         then as they were
int getharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                 double *amp, double *phase, hamem *record, double fs, double f0);

/// Estimates the harmonics of one frame with the QHA model over 3 periods.
///
/// \param[out]    freq    [K] frequencies in Hz, k f0 plus the mismatch found; a mismatch of half a
///                        harmonic spacing or more is discarded. May be null
/// \param[in,out] record  any record; a QHA record does not grow on the way
/// Everything else is as for getharmonics.
int getqharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                  double *amp, double *phase, double *freq, hamem *record, double fs, double f0);

/// Estimates the harmonics of one frame with the SQHA model over 2.5 periods, at the frequencies
/// that the QHA model finds first.
///
/// \param[out]    freq    [K] those frequencies in Hz, also when the second fit fails; may be null
/// \param[in,out] record  any record; a QHA record does not grow on the way
/// Everything else is as for getharmonics.
int getsqharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                   double *amp, double *phase, double *freq, hamem *record, double fs, double f0);

/// One step of f0 refinement: fits the QHA model and averages the f0 that each harmonic suggests,
/// weighted by the square root of its amplitude.
///
/// \param[in]     x       [len] waveform
/// \param[in]     len     number of samples
/// \param[in]     centre  centre sample of the frame, below len
/// \param[in,out] record  any record; a QHA record does not grow on the way
/// \param[in]     fs      sample rate in Hz
/// \param[in]     f0      current f0 in Hz
/// \param[in]     fmax    maximum voiced frequency of the frame in Hz: harmonics below it take part
/// \return the new f0 in Hz; f0 itself when it is 0 or the frame cannot be modelled; not a number
///         when some amplitude is exactly 0
double qharefinepitch(const double *x, std::uint32_t len, std::uint32_t centre, hamem *record,
                      double fs, double f0, double fmax);

/// Log spectrum of one voiced frame, interpolated between the log amplitudes of its harmonics.
///
/// The interpolating kernel is a sinc with zeros at the harmonic spacing under a raised cosine that
/// ends four spacings away. Below 0 Hz the log amplitudes are mirrored; from the last harmonic on,
/// four more carry the lowest level of the frame up to and past fs / 2.
///
/// \param[in]     x       [len] waveform
/// \param[in]     len     number of samples
/// \param[in]     centre  centre sample of the frame, below len
/// \param[in]     nfft    transform size, even
/// \param[out]    out     [nfft] natural log of amplitude at bin k fs / nfft, mirrored about fs / 2
/// \param[in,out] record  any record
/// \param[in]     sqha    0 for the HA estimator, anything else for SQHA
/// \param[in]     fs      sample rate in Hz
/// \param[in]     f0      Hz, not 0
/// \return 0, or -1 when the estimator fails or an amplitude of exactly 0 has no logarithm; out is
///         then as it was
int getlogspectrumfromharms(const double *x, std::uint32_t len, std::uint32_t centre,
                            std::uint32_t nfft, double *out, hamem *record, std::uint8_t sqha,
                            double fs, double f0);
