#include "numeric/dftplan.h"

#include <array>
#include <bit>

#include "numeric/phasor.h"

namespace nalveo {

namespace {

std::size_t bitreversed(std::size_t i, unsigned bits) {
    std::size_t reversed = 0;
    for (unsigned b = 0; b < bits; ++b) {
        reversed = (reversed << 1) | (i & 1);
        i >>= 1;
    }
    return reversed;
}

// e^(-j 2 pi k / size), k = 0 .. size - 1, from an angle of at most pi / 4.
phasor twiddle(std::size_t k, std::size_t size) {
    if (2 * k >= size && k > 0) {
        const phasor w = twiddle(k - size / 2, size);
        return {-w.re, -w.im};
    }
    if (4 * k >= size && k > 0) {
        const phasor w = twiddle(k - size / 4, size);
        return {w.im, -w.re};
    }
    if (8 * k > size) {
        const phasor w = twiddle(size / 4 - k, size);
        return {-w.im, -w.re};
    }
    if (8 * k == size) return {sqrthalf, -sqrthalf};
    return unitphasor(-twopi * static_cast<double>(k) / static_cast<double>(size));
}

dftplan makeplan(unsigned bits) {
    dftplan p;
    const std::size_t n = std::size_t{1} << bits;
    const unsigned swapbits = n < smallestvectorised ? bits : bits - 6;
    for (std::size_t i = 0; i < std::size_t{1} << swapbits; ++i) {
        const std::size_t j = bitreversed(i, swapbits);
        if (j >= i) p.swaps.emplace_back(i, j);
    }
    p.re = p.im = p.cubere = p.cubeim = {0.0};  // begins stages of 8 or more on a cache line
    for (std::size_t size = 2; size <= n; size *= 2) {
        for (std::size_t k = 0; k < size / 2; ++k) {
            const phasor w = twiddle(k, size);
            p.re.push_back(w.re);
            p.im.push_back(w.im);
        }
        for (std::size_t k = 0; k < size / 4; ++k) {
            const phasor w = twiddle(3 * k, size);
            p.cubere.push_back(w.re);
            p.cubeim.push_back(w.im);
        }
    }
    return p;
}

template <std::size_t bits>
const dftplan &planof() {
    static const dftplan made = makeplan(static_cast<unsigned>(bits));
    return made;
}

template <std::size_t... bits>
constexpr auto planlist(std::index_sequence<bits...>) {
    return std::array{&planof<bits>...};
}

constexpr auto plans = planlist(std::make_index_sequence<31>{});  // every power of two in an int

}  // namespace

const dftplan &planfor(std::size_t n) {
    return plans[static_cast<std::size_t>(std::countr_zero(n))]();
}

}  // namespace nalveo
