/// Numbers in messages.

#pragma once

#include <array>
#include <charconv>
#include <string>

namespace nalveo {

/// A number in as few characters as give it back when they are read.
template <class Number>
std::string numbertext(Number number) {
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), end};
}

}  // namespace nalveo
