/// The two small transformations around the analysis: conditioning of the input, where digital
/// silence gets faint noise, and scaling of the output for the HTS toolkit.
///
/// The noise comes from a generator that is a value. Whoever analyses owns one: the same calls on a
/// fresh one give the same noise, and two analyses at a time do not disturb each other.
/// Needs numeric/elementary.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace nalveo {

/// The sequence of the GNU C library's rand() when nobody has seeded it, whichever C library the
/// program runs with and whatever else draws from that: an additive feedback generator,
/// r(i) = r(i - 3) + r(i - 31) modulo 2^32, of which the upper 31 bits are given out.
class defaultrandom {
   public:
    defaultrandom();

    /// Next number, 0 .. 2147483647.
    std::uint32_t next();

   private:
    std::array<std::uint32_t, 31> state_;  // the last 31 values, the oldest at position_
    std::size_t position_ = 0;
};

/// State of the conditioning noise. A fresh one stands at the start of the sequence; a copy goes on
/// as the original would.
struct noisesource {
    defaultrandom random;
    bool flag = false;  // e2 waits to be given out
    double e2 = 0.0;    // second value of the pair
};

/// A run of equal samples; of length 0 where there is none.
struct samplerun {
    std::uint32_t begin = 0;
    std::uint32_t length = 0;
};

/// First run of more than `longest` equal samples among begin .. nsamples - 1.
samplerun findrun(const double *samples, std::uint32_t begin, std::uint32_t nsamples,
                  std::uint32_t longest);

}  // namespace nalveo

/// Adds faint noise to long runs of equal samples, of whatever value: digital silence would have no
/// spectrum. The noise is about 1.3 units of a 16-bit sample.
///
/// \param[in,out] waveform  [nsamples] samples, -1 <= x < 1
/// \param[in]     nsamples  number of samples
/// \param[in]     zfill     longest run that is left alone; 0 leaves all alone
/// \param[in,out] noise     where the noise comes from; one that goes on from file to file, as in a
///                          series, gives each its own
/// \return 1 when some run was filled, else 0
int fillzeros(double *waveform, std::uint32_t nsamples, std::uint32_t zfill,
              nalveo::noisesource &noise);

/// Adds level times gaussrand(noise) to every sample, in order. Returns 0.
///
/// \param[in,out] samples  [count]
/// \param[in]     count    number of samples
/// \param[in]     level    factor of the noise
/// \param[in,out] noise    where the noise comes from
int addwhitenoise(double *samples, std::uint32_t count, double level, nalveo::noisesource &noise);

/// Next value of the conditioning noise.
///
/// Values come in pairs from a uniformly distributed point (u1, u2) of the unit disc, as in the
/// polar method (Marsaglia & Bray, "A convenient method for generating normal variables", SIAM
/// Review 6(3), 1964), but this is not that method: the first value of a pair is u1 times the
/// square of the polar factor, the second is u2 as it is.
///
/// \param[in,out] noise  state of the generator
double gaussrand(nalveo::noisesource &noise);

/// Rescales a cepstral matrix to the conventions of the HTS toolkit: adds 5 to coefficient 0 and
/// doubles the others. undohtsscale of synthesis/melenvelope.h goes back. Returns 0.
///
/// \param[in,out] cc       [nframes x (ccord + 1)] cepstral matrix
/// \param[in]     ccord    cepstral order
/// \param[in]     nframes  number of frames
int htsadapteradhoc(double *cc, std::uint32_t ccord, std::uint32_t nframes);
