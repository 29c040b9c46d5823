/// What a fuzzer needs: a property that ends the run, and a file that lives in memory.

#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the process with a message when a property does not hold.
inline void require(bool holds, const char *property) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", property);
    std::abort();
}

/// Path of a file in memory that holds these bytes; the next call replaces them.
inline const char *memoryfile(const std::string &bytes) {
    static const int file = memfd_create("fuzz", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    const auto size = static_cast<ssize_t>(bytes.size());
    require(ftruncate(file, 0) == 0 && pwrite(file, bytes.data(), bytes.size(), 0) == size,
            "a file can be made");
    return path.c_str();
}
