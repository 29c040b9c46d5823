#include <cstdio>

#include "driver/nalveo.h"

int main(int argc, char **argv) {
    // Line by line, so that a log is up to date whatever happens to a long batch.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    return nalveomain(argc, argv);
}
