/// Command-line options of the form --name=value.
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
