/** Speech analysis of sample buffers: f0, mel-warped cepstra and maximum voiced frequency.
 *
 * The same analysis as that of the program nalveo16, to the byte, for any sample rate from 8000 to
 * 96000 Hz. Plain C99. Nothing is printed, nothing of a call is kept, and no call disturbs
 * another: any number of threads may call at a time, without a lock, as long as they do not write
 * to the same arrays. The same input gives the same bytes.
 *
 *     nalveo_options options;
 *     nalveo_default_options(&options, sizeof options);
 *     size_t nframes = nalveo_frame_count(nsamples, &options);
 *     ... arrays f0 [nframes], cc [nframes x (options.order + 1)], fv [nframes] ...
 *     int code = nalveo_analyse(samples, nsamples, &options, f0, cc, fv);
 *     if (code != NALVEO_OK) fprintf(stderr, "%s\n", nalveo_error_text(code));
 *
 * Conventions of all functions:
 *   samples   from -1 to 1, as 16-bit samples divided by 32768; never written to
 *   frames    frame k is centred on sample k frame_shift; see nalveo_frame_count
 *   f0        Hz, one value per frame, 0 where unvoiced
 *   fv        maximum voiced frequency, Hz, one value per frame, 0 where unvoiced: a
 *             harmonics-plus-noise vocoder has harmonics below it and noise above
 *   cc        mel-warped cepstra, a row of order + 1 values per frame; see nalveo_envelope
 *   result    NALVEO_OK, or the code of an error, and then what the output arrays hold is not
 *             defined. All arguments are checked before the analysis begins. NALVEO_NO_MEMORY can
 *             come from every function that computes
 */

#ifndef NALVEO_H
#define NALVEO_H

#include <stddef.h>
#include <stdint.h>

/** Version of this header; that of the library is nalveo_version(). */
#define NALVEO_VERSION "0.99"

#ifdef __cplusplus
extern "C" {
#endif
#ifdef __GNUC__
#pragma GCC visibility push(default)
#endif

/** Results. Numbers never change their meaning; later versions may add some. */
enum nalveo_result {
    NALVEO_OK = 0,
    NALVEO_NO_MEMORY,     /**< less memory than the analysis needs */
    NALVEO_INTERNAL,      /**< an error of the library's own */
    NALVEO_NULL_POINTER,  /**< an array that is needed is missing */
    NALVEO_BAD_OPTIONS,   /**< options not filled, or by a later version of this header */
    NALVEO_BAD_RATE,      /**< fs not from 8000 to 96000 Hz */
    NALVEO_BAD_SHIFT,     /**< frame_shift beyond NALVEO_MOST_SHIFT, or 5 ms not whole */
    NALVEO_BAD_F0_RANGE,  /**< f0_floor and f0_ceil no search range */
    NALVEO_BAD_ORDER,     /**< order beyond NALVEO_HIGHEST_ORDER */
    NALVEO_BAD_ALPHA,     /**< alpha not above -1 and below 1 */
    NALVEO_BAD_METHOD,    /**< no such method */
    NALVEO_BAD_REFINE,    /**< refine beyond NALVEO_MOST_REFINE */
    NALVEO_BAD_HTS_SCALE, /**< hts_scale not 0 or 1 */
    NALVEO_BAD_F0_GIVEN,  /**< f0_given not 0 or 1, or 1 without f0 */
    NALVEO_BAD_LENGTH,    /**< no samples, or too many for 32-bit sizes of the results */
    NALVEO_BAD_SAMPLE,    /**< a sample not from -1 to 1 (NaN, infinite, integers unscaled) */
    NALVEO_BAD_F0,        /**< a given f0 neither 0 nor from 15 Hz, for synthesis 14 Hz, to below
                             fs / 2 */
    NALVEO_BAD_FV,        /**< a given maximum voiced frequency not from 0 to fs / 2 */
    NALVEO_BAD_CEPSTRUM,  /**< a cepstral coefficient that is not finite, or not -100 .. 100 where
                             speech is to be synthesised */
    NALVEO_BAD_FREQUENCY  /**< a frequency not from 0 to fs / 2 */
};

/** From the samples to a cepstrum, for voiced frames; see the chapter on methods. */
enum nalveo_method {
    NALVEO_HARMONIC = 0,     /**< least-squares harmonics, interpolated, warped */
    NALVEO_RDC = 1,          /**< least-squares harmonics, regularised discrete cepstrum */
    NALVEO_QUASI_RDC = 2,    /**< the same at measured frequencies; takes ten times as long */
    NALVEO_PITCH_WINDOW = 3, /**< two-period frame, complementary windows, liftered, warped */
    NALVEO_SEEVOC = 4        /**< one spectral peak per harmonic, joined by lines, warped */
};

/** Value of alpha that stands for nalveo_mel_alpha(fs). */
#define NALVEO_MEL_ALPHA 2.0

#define NALVEO_HIGHEST_ORDER 511
#define NALVEO_MOST_REFINE 5
#define NALVEO_MOST_SHIFT 1000000000
#define NALVEO_MOST_SYNTHESIS_SHIFT 1048576
#define NALVEO_MOST_SAMPLES 2147483647

/** Settings. Fill it with nalveo_default_options, then change members. Later versions may add
 * members at the end; `size` tells them apart. */
typedef struct nalveo_options {
    uint32_t size;        /**< bytes of this struct, set by nalveo_default_options */
    uint32_t frame_shift; /**< samples; 0, the default: 5 ms, which fs must make a whole number */
    double fs;            /**< sample rate, Hz, 8000 .. 96000; default 16000 */
    double f0_floor;      /**< lowest f0 searched, Hz, from 15; default 60 */
    double f0_ceil;       /**< highest f0 searched, Hz, above f0_floor, to fs / 2; default 500 */
    double alpha;         /**< warping, above -1, below 1; default NALVEO_MEL_ALPHA */
    uint32_t order;       /**< of the cepstrum, 0 .. NALVEO_HIGHEST_ORDER; default 39 */
    uint32_t method;      /**< an nalveo_method; default NALVEO_RDC */
    uint32_t refine;      /**< most iterations of f0 refinement, 0 .. NALVEO_MOST_REFINE;
                                default 0 */
    uint32_t zfill;       /**< runs of more equal samples than this get faint noise, 1.3 / 32768:
                                digital silence has no spectrum; 0: none; default 160 */
    uint32_t hts_scale;   /**< 1, the default: cepstra scaled for HTS; 0: plain */
    uint32_t f0_given;    /**< 1: f0 is read instead of estimated; default 0 */
} nalveo_options;

/** Version of the library, as "0.99". */
const char *nalveo_version(void);

/** What a result means and what to do, in one line of English without a full stop; never null. */
const char *nalveo_error_text(int code);

/** Fills in the defaults, those of the program at 16000 Hz.
 *
 * @param[out] options  the settings
 * @param[in]  size     sizeof options, which tells the library which version of the struct it is
 * @return NALVEO_OK, NALVEO_NULL_POINTER, or NALVEO_BAD_OPTIONS for a size that no version has
 */
int nalveo_default_options(nalveo_options *options, size_t size);

/** Checks settings by themselves: NALVEO_OK, or the code of the first one out of range. */
int nalveo_check_options(const nalveo_options *options);

/** Warping parameter that comes closest to the mel scale at a sample rate: 0.42 at 16000 Hz.
 *
 * The multiple of 0.01 with the least mean square distance between the warped axis and the mel
 * scale ln(1 + f / 1000 Hz) (Fant, Speech Sounds and Features, 1973), each from 0 at 0 Hz to 1 at
 * fs / 2, over equal steps of mel.
 *
 * @param[in] fs  sample rate, Hz, 8000 .. 96000
 * @return alpha; 0.32 at 8000, 0.47 at 22050, 0.48 at 24000, 0.57 at 44100, 0.58 at 48000 Hz; NaN
 *         for a rate out of range
 */
double nalveo_mel_alpha(double fs);

/** Frame shift in samples: frame_shift or, where that is 0, the samples of 5 ms; 0 when the options
 * are not valid. */
uint32_t nalveo_frame_shift(const nalveo_options *options);

/** Number of frames: floor((nsamples - 1) / shift) + 1.
 *
 * @return 0 when the options are not valid, there are no samples, or more than the library takes
 */
size_t nalveo_frame_count(size_t nsamples, const nalveo_options *options);

/** Analyses a buffer: f0, then the maximum voiced frequency, then refinement of f0, then cepstra.
 *
 * @param[in]     samples   [nsamples]
 * @param[in]     nsamples  number of samples, at least 1
 * @param[in]     options   settings
 * @param[in,out] f0        [nframes], or null when not wanted. With f0_given it is read and, after
 *                          refinement, holds the refined values
 * @param[out]    cc        [nframes x (order + 1)], or null when not wanted
 * @param[out]    fv        [nframes], or null when not wanted: refinement then models harmonics up
 *                          to 4500 Hz in every frame instead of up to fv
 */
int nalveo_analyse(const double *samples, size_t nsamples, const nalveo_options *options,
                   double *f0, double *cc, double *fv);

/** Estimates f0 by autocorrelation; the first step of nalveo_analyse.
 *
 * @param[out] f0  [nframes]
 */
int nalveo_estimate_f0(const double *samples, size_t nsamples, const nalveo_options *options,
                       double *f0);

/** Refines f0 by the quasi-harmonic model, in at most options->refine iterations per frame.
 *
 * @param[in,out] f0  [nframes]; unvoiced frames stay so, and refined values stay within f0_floor
 *                    and f0_ceil
 * @param[in]     fv  [nframes] maximum voiced frequency, up to where harmonics are modelled, or
 *                    null for 4500 Hz
 */
int nalveo_refine_f0(const double *samples, size_t nsamples, const nalveo_options *options,
                     double *f0, const double *fv);

/** Estimates the maximum voiced frequency.
 *
 * @param[in]  f0  [nframes]
 * @param[out] fv  [nframes]
 */
int nalveo_estimate_fv(const double *samples, size_t nsamples, const nalveo_options *options,
                       const double *f0, double *fv);

/** Computes cepstra by options->method.
 *
 * @param[in]  f0  [nframes]
 * @param[out] cc  [nframes x (order + 1)]
 */
int nalveo_estimate_cc(const double *samples, size_t nsamples, const nalveo_options *options,
                       const double *f0, double *cc);

/** Turns f0 into its natural logarithm, as in the program's files: -1e10 where unvoiced.
 *
 * @param[in]  f0       [nframes] Hz; whatever is not above 0 counts as unvoiced
 * @param[in]  nframes  number of frames
 * @param[out] logf0    [nframes]; may be the same array
 */
int nalveo_f0_to_log(const double *f0, size_t nframes, double *logf0);

/** Turns the logarithm of f0 into f0: 0 for -1e10 and below. Arrays as for nalveo_f0_to_log. */
int nalveo_log_to_f0(const double *logf0, size_t nframes, double *f0);

/** Evaluates the envelopes of cepstra: natural logarithms of an amplitude density.
 *
 *     level(f) = c(0) + 2 sum over j of c(j) cos(j w),  j = 1 .. order,
 *     w = atan2((1 - alpha^2) sin omega, (1 + alpha^2) cos omega - 2 alpha),  omega = 2 pi f / fs
 *
 * of plain cepstra; with hts_scale, c(0) is 5 more and c(1) .. c(order) are twice that. A harmonic
 * of amplitude a shows as ln(a / (2 sqrt(f0))), white noise of standard deviation s as
 * ln(s / sqrt(fs)).
 *
 * @param[in]  cc            [nframes x (order + 1)]
 * @param[in]  nframes       number of frames
 * @param[in]  options       fs, alpha, order and hts_scale are used
 * @param[in]  frequencies   [nfrequencies] Hz, from 0 to fs / 2
 * @param[in]  nfrequencies  number of frequencies
 * @param[out] levels        [nframes x nfrequencies]; finite unless coefficients are so large that
 *                           their sum overflows
 */
int nalveo_envelope(const double *cc, size_t nframes, const nalveo_options *options,
                    const double *frequencies, size_t nfrequencies, double *levels);

/** Synthesises speech from tracks: harmonics up to the maximum voiced frequency, noise above it and
 * where unvoiced. The level is that of the analysed signal, whatever comes out: samples may lie
 * beyond -1 .. 1.
 *
 * The same tracks, options and seed give the same bytes, and fewer samples are the beginning of
 * more.
 *
 * @param[in]  f0        [nframes] Hz, 0 where unvoiced, else from 14 to below fs / 2
 * @param[in]  cc        [nframes x (order + 1)], each from -100 to 100
 * @param[in]  fv        [nframes], or null for harmonics up to fs / 2. Where a voiced frame has 0,
 *                       1000 Hz is taken, the least that is estimated
 * @param[in]  nframes   number of frames, at least 1
 * @param[in]  options   fs, frame_shift (at most NALVEO_MOST_SYNTHESIS_SHIFT), alpha, order and
 *                       hts_scale are used
 * @param[in]  seed      of the noise
 * @param[out] samples   [nsamples]
 * @param[in]  nsamples  number of samples, 1 .. nframes shift
 */
int nalveo_synthesise(const double *f0, const double *cc, const double *fv, size_t nframes,
                      const nalveo_options *options, uint64_t seed, double *samples,
                      size_t nsamples);

#ifdef __GNUC__
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif

#endif
