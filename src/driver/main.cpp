#include <csignal>
#include <cstdio>

#include "driver/nalveo.h"

int main(int argc, char **argv) {
    // Line by line, so that a log is up to date whatever happens to a long batch. If that is not to
    // be had, lines come later.
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ));
    // What would grow beyond the user's file size limit cannot be written; the run goes on.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    return nalveo::nalveomain(argc, argv);
}
