/// The synthesiser as a program: command line, reading of the tracks, level of the waveform, and
/// all messages. Uses program, paramread, ranges, help, indexlist and filenames beside it,
/// io and synthesis.

#pragma once

namespace nalveo {

/// Runs the program.
///
/// \param[in]     argc  number of arguments, the program path included
/// \param[in,out] argv  [argc] arguments; options that are read get marked
/// \return exit status: 0 after the help, and when the waveform has been written; else -1 (255 for
///         the shell)
int synthmain(int argc, char **argv);

}  // namespace nalveo
