/// Track files: headerless sequences of 32-bit IEEE floats, little-endian, value k at byte 4k. The
/// program holds tracks as doubles and converts on the way in and out.

#pragma once

#include <cstdint>

/// Writes a track file.
///
/// \param[in]     path    file name, created or truncated; null is a failure
/// \param[in,out] values  [count] the track. Unless copy is 1 it is converted in place: afterwards
///                        its first 4 count bytes hold the floats and the doubles are gone
/// \param[in]     count   number of values
/// \param[in]     copy    exactly 1 converts into a buffer of its own and leaves the track intact
/// \return count, or 0 when the path is null, count is 0 (no file is made), the file cannot be
///         created or not everything reached the disk; what did is removed then
[[nodiscard]] std::uint32_t fdoublewrite(const char *path, double *values, std::uint32_t count,
                                         std::int8_t copy);

/// Reads a whole track file. Up to three bytes after the last whole value are ignored.
///
/// \param[in]  path    file name; null is a failure
/// \param[out] values  on success a new array of the values; the caller releases it with free
/// \return number of values, or 0 when there is none to be had; then *values is as it was and
///         nothing is held. Throws std::bad_alloc when there is no memory for the track
[[nodiscard]] std::uint32_t fdoubleread(const char *path, double **values);
