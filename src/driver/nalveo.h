/// The analyser as a program: command line, batch loop, per-file chain and all its messages.

#pragma once

namespace nalveo {

/// Runs the program.
///
/// \param[in]     argc  number of arguments, the program path included
/// \param[in,out] argv  [argc] arguments; options that are read get marked, and with an index list
///                      the index fields of the file names are rewritten in place
/// \return exit status: 0 after the help and after a batch, whatever was wrong with single files;
///         -1 (255 for the shell) after an argument error, and when some file needed more memory
///         than there is
int nalveomain(int argc, char **argv);

}  // namespace nalveo

/// Prints that the arguments are wrong and how to get help. Returns 0.
///
/// \param[in] path  path of the program
int argcerror(const char *path);

/// Prints the help text. Returns 0.
///
/// \param[in] path  path of the program
int plothelp(const char *path);
