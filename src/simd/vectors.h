/// Vectors of doubles, the same on every processor.
///
/// A vector has eight elements everywhere and knows the registers that hold it: real8<part16> is in
/// four of 128 bits (SSE2, NEON), real8<part32> in two of 256 bits (AVX2), real8<part64> in one of
/// 512 bits (AVX-512). GCC keeps a built-in vector in registers only where it fits one (clang in
/// several), so a wide one is made of parts that do. Arithmetic is element by element, sums run
/// in one order everywhere and no product is fused with a sum (the build says -ffp-contract=off):
/// whichever vector a kernel is compiled for, it gives the same bytes.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace nalveo {

/// Number of elements of a vector.
constexpr std::size_t vectorlength = 8;

/// Smallest multiple of the vector length that is not below n.
constexpr std::size_t wholevectors(std::size_t n) {
    return (n + vectorlength - 1) / vectorlength * vectorlength;
}

/// What one register holds.
using part16 [[gnu::vector_size(16)]] = double;
using part32 [[gnu::vector_size(32)]] = double;
using part64 [[gnu::vector_size(64)]] = double;

/// Bits of what one register holds, or of a single double.
using bits16 [[gnu::vector_size(16)]] = std::uint64_t;
using bits32 [[gnu::vector_size(32)]] = std::uint64_t;
using bits64 [[gnu::vector_size(64)]] = std::uint64_t;
template <class Real>
struct bitsof;
template <>
struct bitsof<double> {
    using type = std::uint64_t;
};
template <>
struct bitsof<part16> {
    using type = bits16;
};
template <>
struct bitsof<part32> {
    using type = bits32;
};
template <>
struct bitsof<part64> {
    using type = bits64;
};

namespace vectordetail {

// Operators take a double directly, here and in real8. Were it made a vector first, by a function
// that is inlined later, GCC would fill that element by element.

// Two parts, or two pairs of parts, side by side; also of truth values, as comparisons give them.
template <class Half>
struct twice {
    Half low;
    Half high;
};

template <class Storage>
concept paired = requires(Storage s) {
    s.low;
};

template <class Half>
[[gnu::always_inline]] inline twice<Half> operator+(const twice<Half> &a, const twice<Half> &b) {
    return {a.low + b.low, a.high + b.high};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator+(const twice<Half> &a, double b) {
    return {a.low + b, a.high + b};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator+(double a, const twice<Half> &b) {
    return {a + b.low, a + b.high};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator-(const twice<Half> &a, const twice<Half> &b) {
    return {a.low - b.low, a.high - b.high};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator-(const twice<Half> &a, double b) {
    return {a.low - b, a.high - b};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator-(double a, const twice<Half> &b) {
    return {a - b.low, a - b.high};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator*(const twice<Half> &a, const twice<Half> &b) {
    return {a.low * b.low, a.high * b.high};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator*(const twice<Half> &a, double b) {
    return {a.low * b, a.high * b};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator*(double a, const twice<Half> &b) {
    return {a * b.low, a * b.high};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator/(const twice<Half> &a, const twice<Half> &b) {
    return {a.low / b.low, a.high / b.high};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator/(const twice<Half> &a, double b) {
    return {a.low / b, a.high / b};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator/(double a, const twice<Half> &b) {
    return {a / b.low, a / b.high};
}
template <class Half>
[[gnu::always_inline]] inline twice<Half> operator-(const twice<Half> &a) {
    return {-a.low, -a.high};
}
template <class Half>
[[gnu::always_inline]] inline auto operator<(const twice<Half> &a, const twice<Half> &b) {
    return twice<decltype(a.low < b.low)>{a.low < b.low, a.high < b.high};
}
template <class Half>
[[gnu::always_inline]] inline auto operator==(const twice<Half> &a, const twice<Half> &b) {
    return twice<decltype(a.low == b.low)>{a.low == b.low, a.high == b.high};
}

template <class Storage>
[[gnu::always_inline]] inline Storage load(const double *source) {
    Storage s;
    if constexpr (paired<Storage>) {
        using half = decltype(s.low);
        s.low = load<half>(source);
        s.high = load<half>(source + sizeof(half) / sizeof(double));
    } else {
        std::memcpy(&s, source, sizeof s);
    }
    return s;
}

template <class Storage>
[[gnu::always_inline]] inline void store(double *target, const Storage &s) {
    if constexpr (paired<Storage>) {
        store(target, s.low);
        store(target + sizeof s.low / sizeof(double), s.high);
    } else {
        std::memcpy(target, &s, sizeof s);
    }
}

template <class Storage>
[[gnu::always_inline]] inline double element(const Storage &s, std::size_t i) {
    if constexpr (paired<Storage>) {
        constexpr std::size_t half = sizeof s.low / sizeof(double);
        return i < half ? element(s.low, i) : element(s.high, i - half);
    } else {
        return s[i];
    }
}

template <class Storage>
[[gnu::always_inline]] inline void setelement(Storage &s, std::size_t i, double a) {
    if constexpr (paired<Storage>) {
        constexpr std::size_t half = sizeof s.low / sizeof(double);
        i < half ? setelement(s.low, i, a) : setelement(s.high, i - half, a);
    } else {
        s[i] = a;
    }
}

// Elements of(first), of(first + 1), ..
template <class Part, class Function, std::size_t... i>
[[gnu::always_inline]] inline Part filled(Function of, std::size_t first,
                                          std::index_sequence<i...>) {
    return Part{of(first + i)...};
}

template <class Storage, class Function>
[[gnu::always_inline]] inline Storage filled(Function of, std::size_t first) {
    if constexpr (paired<Storage>) {
        using half = decltype(Storage::low);
        return {filled<half>(of, first), filled<half>(of, first + sizeof(half) / sizeof(double))};
    } else {
        return filled<Storage>(of, first,
                               std::make_index_sequence<sizeof(Storage) / sizeof(double)>());
    }
}

template <class Mask, class Storage>
[[gnu::always_inline]] inline Storage select(const Mask &mask, const Storage &a, const Storage &b) {
    if constexpr (paired<Storage>)
        return {select(mask.low, a.low, b.low), select(mask.high, a.high, b.high)};
    else
        return mask ? a : b;
}

template <class Function, class Storage>
[[gnu::always_inline]] inline Storage mapped(const Storage &s) {
    if constexpr (paired<Storage>)
        return {mapped<Function>(s.low), mapped<Function>(s.high)};
    else
        return Function::of(s);
}

// One part whose elements are elements from(i) of a and b in a row.
template <class Part, class From, std::size_t... i>
[[gnu::always_inline]] inline Part shuffled(const Part &a, const Part &b, From,
                                            std::index_sequence<i...>) {
    return __builtin_shufflevector(a, b, static_cast<int>(From{}(i))...);
}

template <class Part, class From>
[[gnu::always_inline]] inline Part shuffled(const Part &a, const Part &b, From from) {
    return shuffled(a, b, from, std::make_index_sequence<sizeof(Part) / sizeof(double)>());
}

template <class Storage>
[[gnu::always_inline]] inline Storage reversed(const Storage &s) {
    if constexpr (paired<Storage>) {
        return {reversed(s.high), reversed(s.low)};
    } else {
        constexpr std::size_t length = sizeof s / sizeof(double);
        return shuffled(s, s, [](std::size_t i) { return length - 1 - i; });
    }
}

// Elements first, first + 2, .. of a and b in a row; first is 0 or 1.
template <std::size_t first, class Storage>
[[gnu::always_inline]] inline Storage everysecond(const Storage &a, const Storage &b) {
    if constexpr (paired<Storage>)
        return {everysecond<first>(a.low, a.high), everysecond<first>(b.low, b.high)};
    else
        return shuffled(a, b, [](std::size_t i) { return first + 2 * i; });
}

// The elements of a and b in turn, of which this is the first or the second half.
template <std::size_t half, class Storage>
[[gnu::always_inline]] inline Storage inturn(const Storage &a, const Storage &b) {
    if constexpr (paired<Storage>) {
        const auto &from = [](const Storage &s) { return half == 0 ? s.low : s.high; };
        return {inturn<0>(from(a), from(b)), inturn<1>(from(a), from(b))};
    } else {
        constexpr std::size_t length = sizeof a / sizeof(double);
        return shuffled(a, b,
                        [](std::size_t i) { return half * length / 2 + i / 2 + (i % 2) * length; });
    }
}

// Of two rows of blocks `distance` elements wide, the second block of every pair in a changes
// places with the first one of the same pair in b.
template <std::size_t distance, class Storage>
[[gnu::always_inline]] inline void exchange(Storage &a, Storage &b) {
    constexpr std::size_t length = sizeof a / sizeof(double);
    if constexpr (!paired<Storage>) {
        const Storage old = a;
        a = shuffled(old, b,
                     [](std::size_t i) { return (i & distance) == 0 ? i : length + i - distance; });
        b = shuffled(old, b,
                     [](std::size_t i) { return (i & distance) == 0 ? i + distance : length + i; });
    } else if constexpr (distance == length / 2) {
        std::swap(a.high, b.low);
    } else {
        exchange<distance>(a.low, b.low);
        exchange<distance>(a.high, b.high);
    }
}

template <class Part>
struct storageof;
template <>
struct storageof<part16> {
    using type = twice<twice<part16>>;
};
template <>
struct storageof<part32> {
    using type = twice<part32>;
};
template <>
struct storageof<part64> {
    using type = part64;
};

}  // namespace vectordetail

/// Eight doubles in registers of one part each.
template <class Part>
struct real8 {
    using storage = typename vectordetail::storageof<Part>::type;
    storage values;

    /// Number of vectors that 16 registers hold together, of AVX-512 all 32: kernels take the
    /// number of sums that they run side by side from it. aarch64 has 32 registers, too, but
    /// compilers compute products ahead of the sums there and fill half of them.
    static constexpr std::size_t registers =
        (sizeof(Part) == sizeof(part64) ? 32 : 16) * sizeof(Part) / sizeof(part64);

    /// Reads eight doubles from an address of any alignment.
    [[gnu::always_inline]] static real8 load(const double *source) {
        return {vectordetail::load<storage>(source)};
    }

    /// The same number in all elements; 0 where it is -0.
    [[gnu::always_inline]] static real8 all(double a) { return real8{} + a; }

    /// The numbers of(0), of(1), .. of(7).
    template <class Function>
    [[gnu::always_inline]] static real8 filled(Function of) {
        return {vectordetail::filled<storage>(of, 0)};
    }

    /// The numbers 0, 1, .. 7.
    [[gnu::always_inline]] static real8 count() {
        constexpr double numbers[] = {0.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0};
        return load(numbers);
    }

    /// Writes the eight elements to an address of any alignment.
    [[gnu::always_inline]] void store(double *target) const { vectordetail::store(target, values); }

    [[gnu::always_inline]] double operator[](std::size_t i) const {
        return vectordetail::element(values, i);
    }
    [[gnu::always_inline]] void set(std::size_t i, double a) {
        vectordetail::setelement(values, i, a);
    }

    [[gnu::always_inline]] friend real8 operator+(const real8 &a, const real8 &b) {
        return {a.values + b.values};
    }
    [[gnu::always_inline]] friend real8 operator-(const real8 &a, const real8 &b) {
        return {a.values - b.values};
    }
    [[gnu::always_inline]] friend real8 operator*(const real8 &a, const real8 &b) {
        return {a.values * b.values};
    }
    [[gnu::always_inline]] friend real8 operator/(const real8 &a, const real8 &b) {
        return {a.values / b.values};
    }
    [[gnu::always_inline]] friend real8 operator+(const real8 &a, double b) {
        return {a.values + b};
    }
    [[gnu::always_inline]] friend real8 operator-(const real8 &a, double b) {
        return {a.values - b};
    }
    [[gnu::always_inline]] friend real8 operator*(const real8 &a, double b) {
        return {a.values * b};
    }
    [[gnu::always_inline]] friend real8 operator/(const real8 &a, double b) {
        return {a.values / b};
    }
    [[gnu::always_inline]] friend real8 operator+(double a, const real8 &b) {
        return {a + b.values};
    }
    [[gnu::always_inline]] friend real8 operator-(double a, const real8 &b) {
        return {a - b.values};
    }
    [[gnu::always_inline]] friend real8 operator*(double a, const real8 &b) {
        return {a * b.values};
    }
    [[gnu::always_inline]] friend real8 operator/(double a, const real8 &b) {
        return {a / b.values};
    }
    [[gnu::always_inline]] friend real8 operator-(const real8 &a) { return {-a.values}; }
    [[gnu::always_inline]] real8 &operator+=(const real8 &b) { return *this = *this + b; }
    [[gnu::always_inline]] real8 &operator+=(double b) { return *this = *this + b; }
    [[gnu::always_inline]] real8 &operator-=(const real8 &b) { return *this = *this - b; }

    /// Comparisons, element by element, for select.
    [[gnu::always_inline]] friend auto operator<(const real8 &a, const real8 &b) {
        return a.values < b.values;
    }
    [[gnu::always_inline]] friend auto operator<(const real8 &a, double b) { return a < all(b); }
    [[gnu::always_inline]] friend auto operator==(const real8 &a, double b) {
        return a.values == all(b).values;
    }
};

/// Elements of a where a comparison was true, of b elsewhere.
template <class Mask, class Part>
[[gnu::always_inline]] inline real8<Part> select(const Mask &mask, const real8<Part> &a,
                                                 const real8<Part> &b) {
    return {vectordetail::select(mask, a.values, b.values)};
}

/// A function of every element, given as a struct with a static function template `of` that takes a
/// part to a part.
template <class Function, class Part>
[[gnu::always_inline]] inline real8<Part> mapped(const real8<Part> &v) {
    return {vectordetail::mapped<Function>(v.values)};
}

/// Sum of the eight elements, always in the same order: halves, then quarters, then the last two.
template <class Part>
[[gnu::always_inline]] inline double sumof(const real8<Part> &v) {
    return ((v[0] + v[4]) + (v[2] + v[6])) + ((v[1] + v[5]) + (v[3] + v[7]));
}

/// Sum of n doubles, by eight partial sums.
template <class Real8>
[[gnu::always_inline]] inline double sumof(const double *x, std::size_t n) {
    Real8 partial{};
    std::size_t i = 0;
    for (; i + vectorlength <= n; i += vectorlength) partial += Real8::load(x + i);
    double sum = sumof(partial);
    for (; i < n; ++i) sum += x[i];
    return sum;
}

/// The elements in reverse order.
template <class Part>
[[gnu::always_inline]] inline real8<Part> reversed(const real8<Part> &v) {
    return {vectordetail::reversed(v.values)};
}

/// Elements 0, 2, 4, .. of two vectors in a row, and elements 1, 3, 5, ..
template <class Part>
[[gnu::always_inline]] inline std::pair<real8<Part>, real8<Part>> deinterleaved(
    const real8<Part> &a, const real8<Part> &b) {
    return {{vectordetail::everysecond<0>(a.values, b.values)},
            {vectordetail::everysecond<1>(a.values, b.values)}};
}

/// The elements of two vectors in turn.
template <class Part>
[[gnu::always_inline]] inline std::pair<real8<Part>, real8<Part>> interleaved(
    const real8<Part> &a, const real8<Part> &b) {
    return {{vectordetail::inturn<0>(a.values, b.values)},
            {vectordetail::inturn<1>(a.values, b.values)}};
}

/// Exchanges rows and columns of 8 x 8 numbers: halves, quarters and single elements across the
/// diagonal.
template <class Part>
[[gnu::always_inline]] inline void transpose(real8<Part> (&rows)[vectorlength]) {
    for (std::size_t i = 0; i < 4; ++i)
        vectordetail::exchange<4>(rows[i].values, rows[i + 4].values);
    for (std::size_t half = 0; half < 8; half += 4)
        for (std::size_t i = half; i < half + 2; ++i)
            vectordetail::exchange<2>(rows[i].values, rows[i + 2].values);
    for (std::size_t i = 0; i < 8; i += 2)
        vectordetail::exchange<1>(rows[i].values, rows[i + 1].values);
}

}  // namespace nalveo
