#include "numeric/products.h"

#include <gtest/gtest.h>

#include <vector>

#include "testsignals.h"

namespace {

// Sum of x(i) y(i) over n elements that are apart by strides, in ascending order.
double inorder(const double *x, std::size_t xstride, const double *y, std::size_t ystride,
               std::size_t n) {
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i) sum += x[i * xstride] * y[i * ystride];
    return sum;
}

class products : public testing::TestWithParam<std::size_t> {};

TEST_P(products, ofrowsandamatrixsuminorder) {
    const std::size_t m = GetParam();
    for (const std::size_t n : {8u, 16u, 40u}) {
        for (const std::size_t count : {1u, 3u, 4u, 9u}) {
            const reals x = whitenoise(count * m, 1.0, 1), a = whitenoise(m * n, 1.0, 2);
            reals together(count * n), single(n);
            nalveo::rowsbymat(x.data(), count, a.data(), m, n, together.data());
            for (std::size_t f = 0; f < count; ++f) {
                nalveo::vecbymat(x.data() + f * m, a.data(), m, n, single.data());
                for (std::size_t j = 0; j < n; ++j) {
                    ASSERT_EQ(single[j], inorder(x.data() + f * m, 1, a.data() + j, n, m));
                    ASSERT_EQ(together[f * n + j], single[j]) << f;
                }
            }
        }
    }
}

TEST_P(products, ofcolumnssuminorder) {
    const std::size_t m = GetParam();
    for (const std::size_t n : {16u, 48u}) {
        const std::size_t rows = n - 4;
        const reals c = whitenoise(m * n, 1.0, 3);
        reals gram(rows * n);
        nalveo::grammatrix(c.data(), m, n, rows, gram.data());
        for (std::size_t i = 0; i < rows; ++i)
            for (std::size_t j = i; j < n; ++j)
                ASSERT_EQ(gram[i * n + j], inorder(c.data() + i, n, c.data() + j, n, m)) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(sums, products, testing::Values(1, 7, 8, 21));

}  // namespace
