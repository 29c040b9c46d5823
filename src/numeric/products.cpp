#include "numeric/products.h"

#include "simd/dispatch.h"
#include "simd/tile.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

// out += x^T A for `rows` rows of A. Every element is summed in ascending order of the rows.
template <class Real8, std::size_t rows>
[[gnu::always_inline]] inline void addrows(const double *x, const double *a, std::size_t n,
                                           double *out) {
    for (std::size_t j = 0; j < n; j += vectorlength) {
        Real8 sum = Real8::load(out + j);
        for (std::size_t i = 0; i < rows; ++i) sum += x[i] * Real8::load(a + i * n + j);
        sum.store(out + j);
    }
}

// Where the rows of a tile's left factor are: element (r, k) of it is at r row + k column.
struct leftfactor {
    const double *first;
    std::size_t row;
    std::size_t column;
};

// Tile of a product C = A B, whose first column in B and first element in C are given:
//
//              b +-----------+
//                |  columns  |  m rows, n apart
//                +-----------+
//   a +-------+  +-----------+
//     | rows  |  | c: sums   |  rows n apart
//     +-------+  +-----------+
//       m columns
//
// Every element is summed over the m in ascending order.
template <class Real8, std::size_t rows, std::size_t columns>
[[gnu::always_inline]] inline void producttile(leftfactor a, const double *b, double *c,
                                               std::size_t m, std::size_t n) {
    tile<Real8, rows, columns> sums;
    for (std::size_t k = 0; k < m; ++k, a.first += a.column, b += n) sums.add(a.first, a.row, b);
    sums.store(c, n);
}

// Columns of a tile whose sums, with a row of B, fit the registers: 1 or 2.
template <class Real8>
constexpr std::size_t tilecolumns = Real8::registers >= 16 ? 2 : 1;

struct gramkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *c, std::size_t m, std::size_t n,
                                           std::size_t rows, double *gram) {
        constexpr std::size_t high = tilerows<Real8>;
        constexpr std::size_t wide = tilecolumns<Real8>;
        for (std::size_t j = 0; j < n; j += wide * vectorlength)
            for (std::size_t i = 0; i < rows && i < j + wide * vectorlength; i += high)
                producttile<Real8, high, wide>({c + i, 1, n}, c + j, gram + i * n + j, m, n);
    }
};

struct vecbymatkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *x, const double *a, std::size_t m,
                                           std::size_t n, double *out) {
        for (std::size_t j = 0; j < n; ++j) out[j] = 0.0;
        std::size_t i = 0;
        for (; i + 8 <= m; i += 8) addrows<Real8, 8>(x + i, a + i * n, n, out);
        for (; i < m; ++i) addrows<Real8, 1>(x + i, a + i * n, n, out);
    }
};

struct rowsbymatkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *x, std::size_t count, const double *a,
                                           std::size_t m, std::size_t n, double *out) {
        constexpr std::size_t high = tilerows<Real8>;
        constexpr std::size_t wide = tilecolumns<Real8>;
        std::size_t f = 0;
        for (; f + high <= count; f += high) {
            std::size_t j = 0;
            for (; j + wide * vectorlength <= n; j += wide * vectorlength)
                producttile<Real8, high, wide>({x + f * m, m, 1}, a + j, out + f * n + j, m, n);
            if (j < n) producttile<Real8, high, 1>({x + f * m, m, 1}, a + j, out + f * n + j, m, n);
        }
        for (; f < count; ++f) vecbymatkernel::run<Real8>(x + f * m, a, m, n, out + f * n);
    }
};

}  // namespace

void vecbymat(const double *x, const double *a, std::size_t m, std::size_t n, double *out) {
    runwidest<vecbymatkernel>(x, a, m, n, out);
}

void rowsbymat(const double *x, std::size_t count, const double *a, std::size_t m, std::size_t n,
               double *out) {
    runwidest<rowsbymatkernel>(x, count, a, m, n, out);
}

void grammatrix(const double *c, std::size_t m, std::size_t n, std::size_t rows, double *gram) {
    runwidest<gramkernel>(c, m, n, rows, gram);
}

}  // namespace nalveo
