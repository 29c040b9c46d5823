/// Track files: headerless sequences of 32-bit IEEE floats, little-endian, value k at byte 4k. The
/// program holds tracks as doubles and converts on the way in and out. Needs
/// io/binaryfile and io/wholefile.

#pragma once

#include <cstdint>

#include "io/binaryfile.h"

/// Writes a track file.
///
/// \param[in]     path    file name; the file appears or is replaced as a whole, see writewhole in
///                        io/wholefile.h; null is a failure
/// \param[in,out] values  [count] the track. Unless copy is 1 it is converted in place: afterwards
///                        its first 4 count bytes hold the floats and the doubles are gone
/// \param[in]     count   number of values
/// \param[in]     copy    exactly 1 converts into a buffer of its own and leaves the track intact
/// \return count, or 0 when the path is null, count is 0 (no file is made), the file cannot be
///         created or not everything could be written; what was there before stays then, except in
///         the cases of writing in place named there. Throws std::bad_alloc when there is no
///         memory for the copy or for replacing the file; no file has changed then
[[nodiscard]] std::uint32_t fdoublewrite(const char *path, double *values, std::uint32_t count,
                                         std::int8_t copy);

/// Reads a whole track file. Up to three bytes after the last whole value are ignored.
///
/// \param[in]  path    file name; null is a failure
/// \param[out] values  on success a new array of the values; the caller releases it with free
/// \return number of values, or 0 when there is none to be had; then *values is as it was and
///         nothing is held. Throws std::bad_alloc when there is no memory for the track
[[nodiscard]] std::uint32_t fdoubleread(const char *path, double **values);

namespace nalveo {

/// Why a track has no values.
enum class trackstate {
    good,       // it has
    missing,    // there is no such file
    empty,      // it holds no whole value
    unreadable  // it is there, but is a folder or a pipe, may not be read, or fails to be
};

/// Reads a whole track file as fdoubleread does, and says why when there is nothing to be had.
///
/// \param[in]  path    file name
/// \param[out] values  on success a new array of the values, else untouched
/// \param[out] count   on success number of values, else untouched
/// \return good for success. Throws std::bad_alloc when there is no memory for the track
[[nodiscard]] trackstate readtrack(const char *path, readerarray *values, std::uint32_t *count);

}  // namespace nalveo
