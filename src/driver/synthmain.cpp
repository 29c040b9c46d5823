#include <csignal>
#include <cstdio>

#include "driver/synth.h"

int main(int argc, char **argv) {
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ));  // messages line by line
    // What would grow beyond the user's file size limit cannot be written, which gets a message.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    return nalveo::synthmain(argc, argv);
}
