#include "driver/paramread.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace nalveo;

namespace {

bool isdecimal(char c) { return c >= '0' && c <= '9'; }

// ASCII only, whatever the locale: bytes above 127 match themselves alone.
char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

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

template <class Value, class Get>
int searchparam(std::uint32_t count, char **list, const char *name, Value *value, Get get) {
    for (std::uint32_t i = 0; i < count; ++i)
        if (get(list[i], name, value) == 0) return 0;
    return -1;
}

// Conversions as "%d" and "%lf" do them. A number that no int holds, which "%d" leaves undefined,
// is no number: it would come out as another one without a word.
bool convert(const char *text, int *value) {
    char *end = nullptr;
    errno = 0;
    const long wide = std::strtol(text, &end, 10);
    if (end == text || errno == ERANGE || wide < INT_MIN || wide > INT_MAX) return false;
    *value = static_cast<int>(wide);
    return true;
}

bool convert(const char *text, double *value) {
    double converted = 0.0;
    // strtod would take the 0 of "0x", which this refuses.
    // NOLINTNEXTLINE(cert-err34-c)
    if (std::sscanf(text, "%lf", &converted) != 1) return false;
    *value = converted;
    return true;
}

template <class Value>
int getparam(char *argument, const char *name, Value *value) {
    const char *const text = paramnamematch(argument, name);
    if (text == nullptr || !convert(text, value)) return -1;
    return markparamasread(argument);
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

int isparam(const char *argument) { return argument[0] == '-' && argument[1] == '-' ? 1 : 0; }

char *paramnamematch(char *argument, const char *name) {
    if (isparam(argument) == 0) return nullptr;
    char *const field = argument + 2;
    char *const equals = std::strchr(field, '=');
    if (equals == nullptr || equals == field || equals[1] == '\0') return nullptr;
    for (const char *c = field; c != equals; ++c, ++name)
        if (lowered(*c) != lowered(*name)) return nullptr;
    return *name == '\0' ? equals + 1 : nullptr;
}

int markparamasread(char *argument) {
    argument[0] = ' ';
    return 0;
}

int paramalreadyread(const char *argument) { return argument[0] == ' ' ? 1 : 0; }

int getintparam(char *argument, const char *name, int *value) {
    return getparam(argument, name, value);
}

int getdoubleparam(char *argument, const char *name, double *value) {
    return getparam(argument, name, value);
}

char *getstringparam(char *argument, const char *name) {
    char *const text = paramnamematch(argument, name);
    if (text != nullptr) markparamasread(argument);
    return text;
}

int searchintparam(std::uint32_t count, char **list, const char *name, int *value) {
    return searchparam(count, list, name, value, getintparam);
}

int searchdoubleparam(std::uint32_t count, char **list, const char *name, double *value) {
    return searchparam(count, list, name, value, getdoubleparam);
}

char *searchstringparam(std::uint32_t count, char **list, const char *name) {
    for (std::uint32_t i = 0; i < count; ++i)
        if (char *const text = getstringparam(list[i], name)) return text;
    return nullptr;
}

int unreadparams(std::uint32_t count, char *const *list) {
    for (std::uint32_t i = 0; i < count; ++i)
        if (paramalreadyread(list[i]) == 0) return 1;
    return 0;
}

std::uint32_t getdigits(std::uint32_t n) {
    std::uint32_t digits = 1;
    for (; n > 9; n /= 10) ++digits;
    return digits;
}

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
        if (number >= indexlimit) return -1;
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
