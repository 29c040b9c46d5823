#include "driver/paramread.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// ASCII only, whatever the locale: bytes above 127 match themselves alone.
char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

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
