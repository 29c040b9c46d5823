/// WAV files: mono, 16000 Hz, 16-bit PCM, in the canonical chunk order and nothing else.

#pragma once

#include <cstdint>

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
