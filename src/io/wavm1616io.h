/// WAV files: mono, 16000 Hz, 16-bit PCM, in the canonical chunk order and nothing else. Needs
/// io/binaryfile and io/wholefile.

#pragma once

#include <cstdint>

namespace nalveo {

/// Sample rate of all files, Hz.
constexpr std::uint32_t wavrate = 16000;

}  // namespace nalveo

/// Reads a whole WAV file.
///
/// The file must be RIFF/WAVE with the "fmt " chunk first and the "data" chunk right after it. The
/// sizes and rates that follow from other fields (RIFF size, byte rate, block align) are not looked
/// at, further bytes of the "fmt " chunk and whatever follows the samples are skipped, and an odd
/// last byte of the data is ignored. A sample block shorter than its size says is a failure: half
/// an utterance would train a voice as if it were whole.
///
/// \param[in]  path     file name
/// \param[out] samples  on success a new array of samples, -1 <= x < 1 (the 16-bit value / 32768);
///                      the caller releases it with free
/// \return number of samples, or 0 on any failure; then *samples is as it was and nothing is held.
///         Throws std::bad_alloc when there is no memory for the samples
[[nodiscard]] std::uint32_t wavreadm1616(const char *path, double **samples);

/// Converts 16-bit samples to doubles, value / 32768. Returns 0.
///
/// Goes from the last sample down to the first, so that shorts may be the start of doubles.
///
/// \param[in]  count    number of samples
/// \param[in]  shorts   [count]
/// \param[out] doubles  [count]
int wavshort2double(std::uint32_t count, const std::int16_t *shorts, double *doubles);

namespace nalveo {

/// Most samples of a WAV file: the size of the whole, less 8, is a number of 32 bits.
constexpr std::uint32_t mostwavsamples = (0xffffffffu - 36) / 2;

/// Writes a WAV file that wavreadm1616 reads: a header of 44 bytes and the samples.
///
/// \param[in] path     file name; the file appears or is replaced as a whole, see writewhole in
///                     io/wholefile.h; null is a failure
/// \param[in] samples  [count] finite samples; 32768 times each is rounded to the nearest integer
///                     (halves up) and cut to the range of 16 bits
/// \param[in] count    number of samples, at most mostwavsamples
/// \return count, or 0 when the path is null, count is 0 (no file is made) or beyond the most, or
///         the file cannot be written; what was there before stays then. Throws std::bad_alloc when
///         there is no memory for the file's bytes; no file has been touched then
[[nodiscard]] std::uint32_t wavwritem1616(const char *path, const double *samples,
                                          std::uint32_t count);

}  // namespace nalveo
