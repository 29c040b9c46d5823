/// What the two programs share: how they start and end, and the order of their arguments. Uses
/// paramread, and help for the line about wrong arguments.

#pragma once

#include <cstdint>

namespace nalveo {

/// Runs a program as a process: messages go out line by line, and none is lost without a word.
///
/// \param[in]     argc     number of arguments
/// \param[in,out] argv     [argc] arguments
/// \param[in]     program  nalveomain or synthmain
/// \return exit status: that of the program or, where standard output took not all of what it said,
///         -1 (255 for the shell), with a line on standard error. A standard output that is closed
///         from the start is a wish for silence
int runprogram(int argc, char **argv, int (*program)(int, char **));

/// Arguments taken apart: names of files come first, options after them.
struct arguments {
    std::int64_t nnames;     // the program's own, too
    std::uint32_t noptions;  // arguments from the first option on
    char **options;          // [noptions]; some may turn out to be none
};

/// Takes arguments apart at the first option.
arguments splitarguments(int argc, char **argv);

/// Whether there are three or four files and all options have been read; two lines say so when not.
///
/// \param[in] given  arguments, of which those options that are used have been marked as read
/// \param[in] path   path of the program, for the lines
bool checkarguments(const arguments &given, const char *path);

}  // namespace nalveo
