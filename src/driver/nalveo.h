/// The analyser as a program: command line, batch loop, per-file chain and all its messages, with
/// the two small transformations around the analysis: conditioning of the input, scaling of the
/// output.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Runs the program.
///
/// \param[in]     argc  number of arguments, the program path included
/// \param[in,out] argv  [argc] arguments; options that are read get marked, and with an index list
///                      the index fields of the file names are rewritten in place
/// \return exit status: 0 after the help and after a batch, whatever was wrong with single files;
///         -1 (255 for the shell) after an argument error, and when some file needed more memory
///         than there is
int nalveomain(int argc, char **argv);

/// Prints that the arguments are wrong and how to get help. Returns 0.
///
/// \param[in] path  path of the program
int argcerror(const char *path);

/// Prints the help text. Returns 0.
///
/// \param[in] path  path of the program
int plothelp(const char *path);

/// Adds faint noise to long runs of equal samples, of whatever value: digital silence would have no
/// spectrum. The noise is about 1.3 units of a 16-bit sample.
///
/// \param[in,out] waveform  [nsamples] samples, -1 <= x < 1
/// \param[in]     nsamples  number of samples
/// \param[in]     zfill     longest run that is left alone; 0 leaves all alone
/// \return 1 when some run was filled, else 0
int fillzeros(double *waveform, std::uint32_t nsamples, std::uint32_t zfill);

/// Adds level times gaussrand() to every sample, in order. Returns 0.
///
/// \param[in,out] samples  [count]
/// \param[in]     count    number of samples
/// \param[in]     level    factor of the noise
int addwhitenoise(double *samples, std::uint32_t count, double level);

/// Next value of the conditioning noise. The generator is the only state that outlives a file: in a
/// batch, the noise of one file continues that of the one before.
///
/// Values come in pairs from a uniformly distributed point (u1, u2) of the unit disc, as in the
/// polar method (Marsaglia & Bray, "A convenient method for generating normal variables", SIAM
/// Review 6(3), 1964), but this is not that method: the first value of a pair is u1 times the
/// square of the polar factor, the second is u2 as it is.
double gaussrand();

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

/// Rescales a cepstral matrix to the conventions of the HTS toolkit: adds 5 to coefficient 0 and
/// doubles the others. Returns 0.
///
/// \param[in,out] cc       [nframes x (ccord + 1)] cepstral matrix
/// \param[in]     ccord    cepstral order
/// \param[in]     nframes  number of frames
int htsadapteradhoc(double *cc, std::uint32_t ccord, std::uint32_t nframes);
