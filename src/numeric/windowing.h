/// Frame geometry: the frame grid, the analysis windows, the rules that turn durations and pitch
/// periods into window lengths, and the cutting of a frame out of a signal.
///
/// Frame i of a grid is centred on sample offset + i shift. A frame of odd length L = 2h + 1
/// centred on sample c covers samples c - h .. c + h; whatever lies outside the signal counts as 0.
/// Needs numeric/aligned, elementary and phasor, and simd.

#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "numeric/aligned.h"

/// Number of frames of a grid: floor((nsamples - offset - 1) / shift) + 1.
///
/// \param[in] nsamples  number of samples of the signal, above offset
/// \param[in] shift     frame shift in samples, at least 1
/// \param[in] offset    centre of frame 0, a sample index
/// \return number of frames whose centre lies within the signal
std::uint32_t getnumanalysisframes(std::uint32_t nsamples, std::uint32_t shift,
                                   std::uint32_t offset);

/// Same as getnumanalysisframes.
std::uint32_t getnumframes(std::uint32_t nsamples, std::uint32_t shift, std::uint32_t offset);

/// Number of values in a cepstral matrix: nframes (order + 1), in 32 bits. The caller sees to it
/// that the product fits.
std::uint32_t getccsize(std::uint32_t nframes, std::uint32_t order);

namespace nalveo {

/// The part of a frame that lies inside the signal: frame positions first .. end - 1.
struct framespan {
    std::uint32_t first;  // 0 unless the frame begins before the signal
    std::uint32_t end;    // 2h + 1 unless the frame ends after the signal
};

/// Finds which positions of a frame lie inside the signal.
///
/// \param[in] nsamples  number of samples of the signal
/// \param[in] centre    centre sample of the frame, below nsamples
/// \param[in] h         half length of the frame
/// \return positions first .. end - 1; position k is sample centre - h + k
framespan getframespan(std::uint32_t nsamples, std::uint32_t centre, std::uint32_t h);

}  // namespace nalveo

/// Cuts one frame out of a signal, with zeros beyond the signal's ends, and weights it.
///
/// \param[in]  signal    [nsamples] the signal
/// \param[in]  nsamples  number of samples
/// \param[in]  centre    centre sample of the frame, below nsamples
/// \param[out] frame     [2h + 1] the frame
/// \param[in]  h         half length of the frame
/// \param[in]  window    [2h + 1] weights, or null for none
/// \return 1 when some value of the frame is not 0 (a NaN is not), 0 for a silent frame
int getwindowedsamples(const double *signal, std::uint32_t nsamples, std::uint32_t centre,
                       double *frame, std::uint32_t h, const double *window);

/// Fills a symmetric Hamming window, a - b cos(2 pi n / (L - 1)).
///
/// \param[out] window     [length] the window
/// \param[in]  length     L, at least 1; a window of one sample holds the peak value
/// \param[in]  normalise  0: a = 0.54, b = 0.46; else a = 0.8566, b = 0.7297, whose mean square is
///                        about 1
/// \return 0 always
int winhamming(double *window, std::uint32_t length, std::uint8_t normalise);

/// Fills a symmetric Hann window, a - a cos(2 pi n / (L - 1)); both ends are exactly 0.
///
/// \param[out] window     [length] the window
/// \param[in]  length     L, at least 1; a window of one sample holds the peak value
/// \param[in]  normalise  0: a = 0.5; else a = 0.8165, whose mean square is about 1
/// \return 0 always
int winhanning(double *window, std::uint32_t length, std::uint8_t normalise);

namespace nalveo {

/// Hann windows whose cosines are each made by themselves. The recurrence behind winhanning is off
/// by up to 34 units in the last place, which serves a smooth spectrum but not where a decision
/// hangs on the last bit. The pitch tracker's is one: the period of an exactly periodic signal is a
/// whole number of samples but for rounding, and its last bit decides how later window lengths and
/// numbers of harmonics are rounded. Voicing is another: the spectrum of a lone click is flat, and
/// rounding decides where its local maxima are. The two forms differ in their last bits, so neither
/// can stand in for the other.
///
/// \param[out] window  [length] the window; 0.5 - 0.5 cos(2 pi n / (L - 1)), of one sample 1
/// \param[in]  length  L, at least 1
void winhannexact(double *window, std::uint32_t length);

/// The same of peak 2, symmetric to the last bit: 1 + cos(pi i / h) for i = -h .. h, of odd length
/// 2h + 1.
void winhannaboutcentre(double *window, std::uint32_t length);

/// Windows of one kind, made once per length: a run meets few lengths, but each of them many times.
class windowcache {
   public:
    /// Fills a window: [length] values.
    using maker = void (*)(double *window, std::uint32_t length);

    explicit windowcache(maker make) : make_(make) {}

    /// The window of an odd length. It stays where it is as long as the cache lives. Throws
    /// std::bad_alloc at the first use of a length.
    const double *get(std::uint32_t length) {
        const std::size_t place = length / 2;
        if (windows_.size() <= place) windows_.resize(place + 1);
        alignedreals &window = windows_[place];
        if (window.empty()) {
            alignedreals made(length);
            make_(made.data(), length);  // may throw: a window is whole or not there
            window = std::move(made);
        }
        return window.data();
    }

   private:
    maker make_;
    std::vector<alignedreals> windows_;  // by half length
};

}  // namespace nalveo

/// Derives the complementary window: the given one times -sin(2 pi n / (L - 1)). Together the two
/// weigh a periodic signal alike wherever they fall relative to its pulses.
///
/// \param[in]  window  [length] a window
/// \param[out] result  [length] its complementary window; must not overlap the first
/// \param[in]  length  L, at least 1
/// \return 0 always
int wincomplementary(const double *window, double *result, std::uint32_t length);

/// Odd window length of a number of pitch periods: ceil(periods fs / f0), plus 1 when even.
///
/// \param[in] periods  number of periods
/// \param[in] f0       Hz, above 0
/// \param[in] fs       sample rate in Hz
/// \return odd length in samples
std::uint32_t getwinlengthnperiodsodd(double periods, double f0, double fs);

/// Odd window length of a duration: ceil(fs duration), plus 1 when even.
///
/// \param[in] duration  seconds
/// \param[in] fs        sample rate in Hz
/// \return odd length in samples
std::uint32_t getwinlengthdurodd(double duration, double fs);

/// Smallest power of two not below n; 1 for n = 0. Above 2^31 there is none in 32 bits: 0.
std::uint32_t getwinlengthceilpot2(std::uint32_t n);
