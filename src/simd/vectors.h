/// Vectors of doubles, the same on every processor.
///
/// The same bytes come out on every processor: a vector has eight elements everywhere, whatever the
/// width of the registers that hold it, sums keep eight partial sums, and no product is fused with
/// a sum (the build says -ffp-contract=off).

#pragma once

#include <cstddef>
#include <cstring>

namespace nalveo {

/// Number of elements of a vector.
constexpr std::size_t vectorlength = 8;

/// Half a vector: one register of 256 bits. Where registers are narrower, GCC keeps it in memory,
/// which is right but slow.
using halfvector [[gnu::vector_size(vectorlength / 2 * sizeof(double))]] = double;

/// Eight doubles in two halves, with arithmetic element by element. Two, because compilers keep a
/// built-in vector in registers only where it fits one: of 512 bits, on most processors it does not
/// and every operation would go through memory.
struct real8 {
    halfvector low;
    halfvector high;

    [[gnu::always_inline]] double operator[](std::size_t i) const {
        return i < vectorlength / 2 ? low[i] : high[i - vectorlength / 2];
    }
    [[gnu::always_inline]] void set(std::size_t i, double value) {
        if (i < vectorlength / 2)
            low[i] = value;
        else
            high[i - vectorlength / 2] = value;
    }
};

/// Reads eight doubles from an address of any alignment.
[[gnu::always_inline]] inline real8 vectorload(const double *source) {
    real8 v;
    std::memcpy(&v.low, source, sizeof v.low);
    std::memcpy(&v.high, source + vectorlength / 2, sizeof v.high);
    return v;
}

/// Writes eight doubles to an address of any alignment.
[[gnu::always_inline]] inline void vectorstore(double *target, const real8 &v) {
    std::memcpy(target, &v.low, sizeof v.low);
    std::memcpy(target + vectorlength / 2, &v.high, sizeof v.high);
}

/// The same number in all elements.
[[gnu::always_inline]] inline real8 vectorof(double a) {
    return {halfvector{} + a, halfvector{} + a};
}

[[gnu::always_inline]] inline real8 operator+(const real8 &a, const real8 &b) {
    return {a.low + b.low, a.high + b.high};
}
[[gnu::always_inline]] inline real8 operator+(const real8 &a, double b) {
    return {a.low + b, a.high + b};
}
[[gnu::always_inline]] inline real8 operator+(double a, const real8 &b) {
    return {a + b.low, a + b.high};
}
[[gnu::always_inline]] inline real8 operator-(const real8 &a, const real8 &b) {
    return {a.low - b.low, a.high - b.high};
}
[[gnu::always_inline]] inline real8 operator-(const real8 &a, double b) {
    return {a.low - b, a.high - b};
}
[[gnu::always_inline]] inline real8 operator-(double a, const real8 &b) {
    return {a - b.low, a - b.high};
}
[[gnu::always_inline]] inline real8 operator*(const real8 &a, const real8 &b) {
    return {a.low * b.low, a.high * b.high};
}
[[gnu::always_inline]] inline real8 operator*(const real8 &a, double b) {
    return {a.low * b, a.high * b};
}
[[gnu::always_inline]] inline real8 operator*(double a, const real8 &b) {
    return {a * b.low, a * b.high};
}
[[gnu::always_inline]] inline real8 operator/(const real8 &a, const real8 &b) {
    return {a.low / b.low, a.high / b.high};
}
[[gnu::always_inline]] inline real8 operator/(const real8 &a, double b) {
    return {a.low / b, a.high / b};
}
[[gnu::always_inline]] inline real8 operator/(double a, const real8 &b) {
    return {a / b.low, a / b.high};
}
[[gnu::always_inline]] inline real8 operator-(const real8 &a) { return {-a.low, -a.high}; }
template <class Operand>
[[gnu::always_inline]] inline real8 &operator+=(real8 &a, const Operand &b) {
    return a = a + b;
}
template <class Operand>
[[gnu::always_inline]] inline real8 &operator-=(real8 &a, const Operand &b) {
    return a = a - b;
}

/// Truth, element by element, of a comparison.
struct vectormask {
    decltype(halfvector{} < halfvector{}) low;
    decltype(halfvector{} < halfvector{}) high;
};

[[gnu::always_inline]] inline vectormask operator<(const real8 &a, double b) {
    return {a.low < halfvector{} + b, a.high < halfvector{} + b};
}
[[gnu::always_inline]] inline vectormask operator<(const real8 &a, const real8 &b) {
    return {a.low < b.low, a.high < b.high};
}
[[gnu::always_inline]] inline vectormask operator==(const real8 &a, double b) {
    return {a.low == halfvector{} + b, a.high == halfvector{} + b};
}

/// Elements of a where the mask is true, of b elsewhere.
[[gnu::always_inline]] inline real8 select(const vectormask &mask, const real8 &a, const real8 &b) {
    return {mask.low ? a.low : b.low, mask.high ? a.high : b.high};
}

/// Smallest multiple of the vector length that is not below n.
constexpr std::size_t wholevectors(std::size_t n) {
    return (n + vectorlength - 1) / vectorlength * vectorlength;
}

/// Sum of the eight elements, always in the same order: halves, then quarters, then the last two.
[[gnu::always_inline]] inline double sumof(const real8 &v) {
    return ((v[0] + v[4]) + (v[2] + v[6])) + ((v[1] + v[5]) + (v[3] + v[7]));
}

/// Sum of n doubles, by eight partial sums.
[[gnu::always_inline]] inline double sumof(const double *x, std::size_t n) {
    real8 partial{};
    std::size_t i = 0;
    for (; i + vectorlength <= n; i += vectorlength) partial += vectorload(x + i);
    double sum = sumof(partial);
    for (; i < n; ++i) sum += x[i];
    return sum;
}

}  // namespace nalveo
