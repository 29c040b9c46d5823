/// What the program says about itself and how it is called. Uses settings for the defaults,
/// indexlist and the version of nalveo.h.

#pragma once

namespace nalveo {

/// Version of the programs, as "0.99".
extern const char *const version;

}  // namespace nalveo

/// Prints that the arguments are wrong and how to get help. Returns 0.
///
/// \param[in] path  path of the program
int argcerror(const char *path);

/// Prints the help text. Returns 0.
///
/// \param[in] path  path of the program
int plothelp(const char *path);
