#include "driver/indexlist.h"

#include <cstddef>
#include <cstring>

#include "driver/paramread.h"

namespace {

bool isdecimal(char c) { return c >= '0' && c <= '9'; }

// Reads a run of digits and moves the position behind it. Numbers beyond 32 bits stay at the
// largest one, so they can neither wrap into an index nor pass for a small digit limit.
std::uint32_t readnumber(const char **position) {
    constexpr std::uint64_t largest = 0xffffffff;
    std::uint64_t number = 0;
    for (; isdecimal(**position); ++*position) {
        number = number * 10 + static_cast<std::uint64_t>(**position - '0');
        if (number > largest) number = largest;
    }
    return static_cast<std::uint32_t>(number);
}

// Position of the first of the given characters, or of the end.
const char *findany(const char *position, const char *characters) {
    return position + std::strcspn(position, characters);
}

// Characters of a list up to its end or "(" : digits and separators, each separator behind a digit,
// a digit at both ends. Returns where the scan stopped, or null.
const char *scannumbers(const char *list) {
    if (!isdecimal(*list)) return nullptr;
    const char *c = list + 1;
    for (; *c != '\0' && *c != '('; ++c) {
        const bool separator = *c == ',' || *c == '-';
        if (!isdecimal(*c) && !(separator && isdecimal(c[-1]))) return nullptr;
    }
    return isdecimal(c[-1]) ? c : nullptr;
}

}  // namespace

int strnumdiagnose(const char *list) {
    const char *const stop = scannumbers(list);
    if (stop == nullptr) return -1;
    std::uint32_t mostdigits = 0;
    if (*stop == '(') {
        const char *limit = stop + 1;
        if (!isdecimal(*limit)) return -1;
        mostdigits = readnumber(&limit);
        if (*limit != ')') return -1;
    }
    std::uint32_t previous = 0;
    for (const char *c = list; c < stop; ++c) {  // steps over the separators
        const bool first = c == list;
        const std::uint32_t number = readnumber(&c);
        if (number >= nalveo::indexlimit) return -1;
        if (!first && number <= previous) return -1;
        if (mostdigits != 0 && getdigits(number) > mostdigits) return -1;
        previous = number;
    }
    return 0;
}

std::uint32_t strnumintervstart(const char *position) { return readnumber(&position); }

std::uint32_t strnumintervend(const char *position, std::uint32_t start) {
    const char *stop = findany(position, ",(-");
    if (*stop != '-') return start;
    ++stop;
    return readnumber(&stop);
}

const char *strnumnextinterv(const char *position) {
    const char *const stop = findany(position, ",(");
    return *stop == ',' ? stop + 1 : nullptr;
}

const char *getfilename(const char *path) {
    const char *name = path;
    for (const char *c = path; *c != '\0'; ++c)
        if (*c == '/' || *c == '\\') name = c + 1;
    return name;
}

const char *getfileindex(const char *path) {
    const char *const field = findany(getfilename(path), "?0123456789");
    return *field != '\0' ? field : nullptr;
}

int replacefileindex(char *path, std::uint32_t index) {
    const char *const found = getfileindex(path);
    if (found == nullptr) return -1;
    char *const field = path + (found - path);
    const std::size_t width = std::strspn(field, "?0123456789");
    if (getdigits(index) > width) return -1;
    for (std::size_t i = width; i-- > 0; index /= 10)
        field[i] = static_cast<char>('0' + index % 10);
    return 0;
}
