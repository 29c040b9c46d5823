/// Tiles of a matrix that stay in registers while many products are added to them. Uses
/// vectors.

#pragma once

#include <cstddef>
#include <utility>

#include "simd/vectors.h"

namespace nalveo {

/// Rows of a tile that the registers have room for: 2 or 4.
template <class Real8>
constexpr std::size_t tilerows = Real8::registers >= 8 ? 4 : 2;

/// A tile of `rows` rows and `columns` vectors. There is no loop over its vectors: compilers would
/// keep what a loop goes through in memory.
template <class Real8, std::size_t rows, std::size_t columns>
class tile {
   public:
    /// Takes a tile out of a matrix whose rows are `stride` doubles apart.
    [[gnu::always_inline]] void load(const double *a, std::size_t stride) {
        load(a, stride, everyone());
    }

    /// Puts it back.
    [[gnu::always_inline]] void store(double *a, std::size_t stride) const {
        store(a, stride, everyone());
    }

    /// Adds the product of a column, whose elements are `step` doubles apart, and a row.
    [[gnu::always_inline]] void add(const double *column, std::size_t step, const double *row) {
        add(column, step, vectorsof(row), everyone());
    }

    /// Takes such a product off.
    [[gnu::always_inline]] void subtract(const double *column, std::size_t step,
                                         const double *row) {
        subtract(column, step, vectorsof(row), everyone());
    }

    /// Takes the product of a column and a row off where each vector is one element of eight
    /// matrices side by side.
    [[gnu::always_inline]] void subtracteight(const double *column, const double *row) {
        subtracteight(column, vectorsof(row), everyone());
    }

   private:
    using everyone = std::make_index_sequence<rows * columns>;  // vectors, row by row

    struct rowvectors {
        Real8 v[columns];
    };

    template <std::size_t... c>
    [[gnu::always_inline]] static rowvectors vectorsof(const double *row,
                                                       std::index_sequence<c...>) {
        return {{Real8::load(row + c * vectorlength)...}};
    }
    [[gnu::always_inline]] static rowvectors vectorsof(const double *row) {
        return vectorsof(row, std::make_index_sequence<columns>());
    }

    template <std::size_t... i>
    [[gnu::always_inline]] void load(const double *a, std::size_t stride,
                                     std::index_sequence<i...>) {
        ((vectors_[i] = Real8::load(a + i / columns * stride + i % columns * vectorlength)), ...);
    }
    template <std::size_t... i>
    [[gnu::always_inline]] void store(double *a, std::size_t stride,
                                      std::index_sequence<i...>) const {
        (vectors_[i].store(a + i / columns * stride + i % columns * vectorlength), ...);
    }
    template <std::size_t... i>
    [[gnu::always_inline]] void add(const double *column, std::size_t step, const rowvectors &row,
                                    std::index_sequence<i...>) {
        ((vectors_[i] += column[i / columns * step] * row.v[i % columns]), ...);
    }
    template <std::size_t... i>
    [[gnu::always_inline]] void subtract(const double *column, std::size_t step,
                                         const rowvectors &row, std::index_sequence<i...>) {
        ((vectors_[i] -= column[i / columns * step] * row.v[i % columns]), ...);
    }
    template <std::size_t... i>
    [[gnu::always_inline]] void subtracteight(const double *column, const rowvectors &row,
                                              std::index_sequence<i...>) {
        ((vectors_[i] -= Real8::load(column + i / columns * vectorlength) * row.v[i % columns]),
         ...);
    }

    Real8 vectors_[rows * columns] = {};
};

}  // namespace nalveo
