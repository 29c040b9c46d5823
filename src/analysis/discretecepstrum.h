/// Regularised discrete cepstrum on a warped frequency axis: a cepstrum fitted to the log levels of
/// harmonics by least squares, with a penalty on what is not smooth. Cappé & Moulines,
/// "Regularization techniques for discrete cepstrum estimation", IEEE SPL 3(4), 1996.
///
/// Uses analysis/warping for the axis, numeric/cholesky for the solution, numeric/matvect for the
/// penalty, numeric/phasor and simd for the sums.

#pragma once

#include <cstdint>

#include "numeric/aligned.h"

namespace nalveo {

/// Scratch of fitcepstrum. It grows to the largest fit that it has met; nothing in it lasts from
/// one fit to the next.
struct rdcscratch {
    alignedreals powers;      // [k x 18] cos(m w), m = 0 .. 7, then sin(m w), then cos, sin(8 w)
    alignedreals cosines;     // [2p + 1 and whole vectors] sums over the frequencies of cos(m w)
    alignedreals projection;  // [p + 1 and whole vectors] sums of level times cos(m w)
    alignedreals normal;      // [(p + 1) x stride] normal matrix, its right-hand side behind it
};

/// Fits a discrete cepstrum, as solveleastsquares does with the basis of ccmatrixcreate and the
/// smoothness penalty.
///
/// \param[in,out] scratch  grows when the fit needs more; throws std::bad_alloc then
/// \param[in]     levels   [k] natural log levels
/// \param[in]     k        number of frequencies
/// \param[in]     freqs    [k] frequencies in Hz, or null for the harmonics f0, 2 f0, .. k f0
/// \param[in]     p        cepstral order
/// \param[out]    out      [p + 1] the cepstrum
/// \param[in]     fs       sample rate in Hz
/// \param[in]     f0       Hz; not used with freqs
/// \param[in]     alpha    warping parameter; that of 1 / alpha, whose axis runs the other way,
///                         gives the same
/// \return 0, or -1 when the system is singular; out is then as it was
[[nodiscard]] int fitcepstrum(rdcscratch &scratch, const double *levels, std::uint32_t k,
                              const double *freqs, std::uint32_t p, double *out, double fs,
                              double f0, double alpha);

/// Fits of one order that wait to be solved eight at a time, each exactly as fitcepstrum does it.
/// Eight systems of a high order outgrow the cache, so that nothing would be gained: see highest.
struct rdcbatch {
    static constexpr std::size_t size = 8;
    static constexpr std::uint32_t highest = 63;  // order up to which it pays

    std::size_t count = 0;    // fits that wait
    alignedreals cosines;     // [(2p + 1) x 8] their sums of cos(m w), as are the next ones
    alignedreals projection;  // [(p + 1) x 8]
    alignedreals normal;      // [(p + 1) x (p + 2) x 8]
    alignedreals cepstra;     // [(p + 1) x 8]
    double determinants[size];

    /// Adds a fit to fewer than eight that wait; arguments as for fitcepstrum.
    /// Throws std::bad_alloc, and has added none then.
    void add(rdcscratch &scratch, const double *levels, std::uint32_t k, const double *freqs,
             std::uint32_t p, double fs, double f0, double alpha);

    /// Solves all that wait; then none does. Throws std::bad_alloc.
    void solve(std::uint32_t p);

    /// Takes the cepstrum of a fit that has been solved, [p + 1], by its place among the eight.
    /// Returns 0, or -1 as fitcepstrum does.
    [[nodiscard]] int take(std::size_t place, std::uint32_t p, double *out) const;
};

}  // namespace nalveo

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
