/// The analyser as a program: its arguments, the chain that makes a recording's three tracks, the
/// batch over a series of files. Uses program, settings, ranges, help, filenames and indexlist
/// beside it, and the readers, writers and analyses below.

#pragma once

namespace nalveo {

/// Runs the program.
///
/// \param[in]     argc  number of arguments, the program path included
/// \param[in,out] argv  [argc] arguments; options that are read get marked, and with an index list
///                      the index fields of the file names are rewritten in place
/// \return exit status: 0 after the help and after a batch, whatever was wrong with single files;
///         -1 (255 for the shell) after an argument error, and when some file needed more memory
///         than there is or two of its names stood for one file
int nalveomain(int argc, char **argv);

}  // namespace nalveo
