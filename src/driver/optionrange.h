/// The check that all options share. Uses numbertext.

#pragma once

#include <cstdio>
#include <string>

#include "driver/numbertext.h"

namespace nalveo {

/// Says in a line that an option's value is not allowed, when it is not; returns whether it is.
template <class Number>
bool checkoption(bool allowed, const char *name, Number value, const std::string &range) {
    if (!allowed)
        std::printf("Error: %s is %s, but must be %s.\n", name, numbertext(value).c_str(),
                    range.c_str());
    return allowed;
}

}  // namespace nalveo
