#include "io/binaryfile.h"

#include <algorithm>
#include <new>

namespace nalveo {

readerarray readvalues(std::FILE *file, std::size_t valuesize, std::uint32_t *count) {
    const std::size_t wanted = *count;
    std::size_t room = std::min<std::size_t>(wanted, std::size_t{1} << 16);
    readerarray values(static_cast<double *>(std::malloc(room * sizeof(double))));
    std::size_t have = 0;
    for (;;) {
        if (!values) throw std::bad_alloc();
        unsigned char *const bytes = reinterpret_cast<unsigned char *>(values.get());
        have += std::fread(bytes + have * valuesize, valuesize, room - have, file);
        if (have < room || have == wanted) break;
        room = std::min(wanted, 2 * room);
        auto *const grown =
            static_cast<double *>(std::realloc(values.get(), room * sizeof(double)));
        if (grown == nullptr) throw std::bad_alloc();
        static_cast<void>(values.release());  // realloc has taken the old block over
        values.reset(grown);
    }
    *count = static_cast<std::uint32_t>(have);
    return values;
}

}  // namespace nalveo
