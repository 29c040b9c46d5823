#include "driver/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>

#include "driver/help.h"
#include "driver/paramread.h"

namespace nalveo {

int runprogram(int argc, char **argv, int (*program)(int, char **)) {
    const bool silent = fcntl(STDOUT_FILENO, F_GETFD) == -1;
    // Line by line, so that a log is up to date whatever happens to a long batch. If that is not to
    // be had, lines come later.
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ));
    // What would grow beyond the user's file size limit cannot be written, which gets a message.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    const int status = program(argc, argv);
    if (silent || (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)) return status;
    static_cast<void>(
        std::fputs("Error: could not write all messages to standard output.\n", stderr));
    return -1;
}

arguments splitarguments(int argc, char **argv) {
    char **const end = argv + argc;
    char **const options = std::find_if(argv, end, [](const char *a) { return isparam(a) == 1; });
    return {options - argv, static_cast<std::uint32_t>(end - options), options};
}

bool checkarguments(const arguments &given, const char *path) {
    const bool good =
        unreadparams(given.noptions, given.options) == 0 && given.nnames >= 4 && given.nnames <= 5;
    if (!good) argcerror(path);
    return good;
}

}  // namespace nalveo
