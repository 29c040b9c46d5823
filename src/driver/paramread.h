/// Command-line options of the form --name=value, index lists, and index fields of file names.
///
/// The reader works on the caller's argument strings and allocates nothing. A consumed argument is
/// marked by a blank over its first character: it no longer begins with "--", so it cannot match
/// again, and what is left unmarked at the end is what nobody understood.

#pragma once

#include <cstdint>

/// 1 when an argument begins with "--", else 0.
int isparam(const char *argument);

/// Matches an argument against an option name, ignoring the case of ASCII letters.
///
/// \param[in] argument  "--name=value"; the name and the value must not be empty
/// \param[in] name      the wanted name, which must match as a whole
/// \return the value, inside the argument, or null
char *paramnamematch(char *argument, const char *name);

/// Marks an argument as read. Returns 0.
int markparamasread(char *argument);

/// 1 when an argument is marked as read or begins with a blank of its own, else 0.
int paramalreadyread(const char *argument);

/// Reads an option from one argument as an int, by a "%d" conversion: leading white space and
/// whatever follows the number are ignored. A number beyond an int is none.
///
/// \param[in,out] argument  marked as read on success
/// \param[in]     name      option name
/// \param[out]    value     the number; untouched on failure
/// \return 0, or -1 when the name does not match or no number stands there
int getintparam(char *argument, const char *name, int *value);

/// Reads an option from one argument as a double, by a "%lf" conversion; otherwise as getintparam.
int getdoubleparam(char *argument, const char *name, double *value);

/// Reads an option from one argument as a string and marks the argument.
///
/// \return the value, inside the argument, or null when the name does not match
char *getstringparam(char *argument, const char *name);

/// Searches a list for the first argument that gives an option's value as an int.
///
/// \param[in]     count  number of arguments
/// \param[in,out] list   [count] arguments; the one that is used gets marked
/// \param[in]     name   option name
/// \param[out]    value  the number; untouched when there is none
/// \return 0 when found, -1 when not: the caller then installs its default
int searchintparam(std::uint32_t count, char **list, const char *name, int *value);

/// Searches for a double; otherwise as searchintparam.
int searchdoubleparam(std::uint32_t count, char **list, const char *name, double *value);

/// Searches a list for the first argument of a name.
///
/// \return its value, inside the argument (now marked), or null
char *searchstringparam(std::uint32_t count, char **list, const char *name);

/// 1 when some argument of a list is not marked as read, else 0.
int unreadparams(std::uint32_t count, char *const *list);

/// Number of decimal digits of n; 1 for 0.
std::uint32_t getdigits(std::uint32_t n);

namespace nalveo {

/// Smallest number that an index list may not hold. Up to here indices fit an int as well as the
/// running powers of ten by which digits are counted.
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
