/// Series of files: index lists such as "1-20,25", and the field of a file name that an index is
/// written into. Uses paramread for the digits of a number.
///
/// A list is walked in place: a position is a pointer into its text. Nothing is allocated.

#pragma once

#include <cstdint>

namespace nalveo {

/// Smallest number that an index list may not hold. Up to here indices fit an int.
constexpr std::uint32_t indexlimit = 1410065408;

}  // namespace nalveo

/// Checks an index list such as "1-20,25,30-32(4)".
///
/// Decimal numbers, separated by "," or "-", each strictly greater than the one before it and below
/// indexlimit. A closing "(d)" sets the largest number of digits of an index, 0 for no limit; what
/// follows it is ignored.
///
/// \return 0 when well formed, -1 when not
int strnumdiagnose(const char *list);

/// First number of the interval at a position of a well-formed list.
std::uint32_t strnumintervstart(const char *position);

/// Last number of the interval at a position of a well-formed list.
///
/// \param[in] position  where the interval begins
/// \param[in] start     its first number
/// \return the number after the first "-", also where others follow ("1-3-5" ends at 3); start for
///         a lone number
std::uint32_t strnumintervend(const char *position, std::uint32_t start);

/// Position of the next interval of a list, behind the next ",", or null at the end.
const char *strnumnextinterv(const char *position);

/// Last component of a path, behind the last "/" or "\".
const char *getfilename(const char *path);

/// Index field of a path: the first "?" or digit of its last component, or null.
const char *getfileindex(const char *path);

/// Writes an index into the index field of a path, in place and padded with zeros.
///
/// The field is the first run of "?" and digits in the last component. It keeps its width and, now
/// all digits, is found again by the next call.
///
/// \param[in,out] path   file name
/// \param[in]     index  number to write
/// \return 0, or -1 when the name has no such field or one that is too narrow; the name is then as
///         it was
int replacefileindex(char *path, std::uint32_t index);
