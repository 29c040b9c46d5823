#include "numeric/matvect.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "testsignals.h"

namespace {

using reals = std::vector<double>;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// C = A B, A n x m, B m x c.
reals product(const reals &a, const reals &b, std::size_t n, std::size_t m, std::size_t c) {
    reals p(n * c);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < c; ++j)
            for (std::size_t k = 0; k < m; ++k) p[i * c + j] += a[i * m + k] * b[k * c + j];
    return p;
}

reals transposed(const reals &a, std::size_t rows, std::size_t cols) {
    reals t(a.size());
    for (std::size_t i = 0; i < rows * cols; ++i) t[i % cols * rows + i / cols] = a[i];
    return t;
}

reals identity(std::size_t n) {
    reals a(n * n);
    for (std::size_t i = 0; i < n; ++i) a[i * (n + 1)] = 1.0;
    return a;
}

// Toeplitz with first row t and first column sign t.
reals toeplitz(const reals &t, double sign = 1.0) {
    const std::size_t n = t.size();
    reals a(n * n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) a[i * n + j] = j >= i ? t[j - i] : sign * t[i - j];
    return a;
}

void expectclose(const reals &a, const reals &b, double tolerance) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], tolerance) << i;
}

TEST(matrixcopies, byhand) {
    reals a(5, 9.0);
    initializemat(a.data(), 4, 2.5);
    EXPECT_EQ(a, (reals{2.5, 2.5, 2.5, 2.5, 9}));
    initializedmat(a.data(), 2, 3.0);
    EXPECT_EQ(a, (reals{3, 0, 0, 3, 9}));
    const reals b = {1, 2, 3, 4, 5, 6}, poison(6, nan);
    for (const double scale : {1.0, -1.0, 0.5, 0.0}) {
        const double *const source = scale == 0 ? poison.data() : b.data();  // not read then
        reals sum = {10, 20, 30}, copy(6), turned(6);
        addmat(sum.data(), source, 2, scale);
        EXPECT_EQ(sum, (reals{10 + scale, 20 + 2 * scale, 30}));
        copymatwtr(copy.data(), source, 2, 3, 0, scale);
        copymatwtr(turned.data(), source, 3, 2, 1, scale);  // a 2 x 3 matrix, turned
        for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(copy[i], scale * b[i]);
        EXPECT_EQ(turned, transposed(copy, 2, 3));
    }
}

class products : public testing::TestWithParam<std::uint32_t> {};

TEST_P(products, halfofthemisenough) {
    const std::uint32_t n = GetParam();
    const double tolerance = 1e-13 * n;
    const reals a = whitenoise(std::size_t{n} * (n + 3), 1.0, n), at = transposed(a, n, n + 3);
    reals c(std::size_t{n} * n);
    simprodmat(a.data(), at.data(), c.data(), n, n + 3, 1);
    expectclose(c, product(a, at, n, n + 3, n), tolerance);
    // Toeplitz: symmetric s, t and antisymmetric k. Products with k are antisymmetric about the
    // centre; k^3 is antisymmetric.
    const reals s = toeplitz(whitenoise(n, 1.0, 3)), t = toeplitz(whitenoise(n, 1.0, 4));
    reals row = whitenoise(n, 1.0, 5);
    row[0] = 0.0;
    const reals k = toeplitz(row, -1.0), k2 = product(k, k, n, n, n);
    simprodmat(k2.data(), k.data(), c.data(), n, n, -1);
    expectclose(c, product(k2, k, n, n, n), tolerance * n);
    simpmprodmat(s.data(), t.data(), c.data(), n, n, 1);
    expectclose(c, product(s, t, n, n, n), tolerance);
    simpmprodmat(s.data(), k.data(), c.data(), n, n, -1);
    expectclose(c, product(s, k, n, n, n), tolerance);
}

INSTANTIATE_TEST_SUITE_P(orders, products, testing::Values(1, 2, 3, 4, 9, 53));

TEST(products, negatethecentreinantisymmetricmode) {
    const reals a = {1, 2, 3, 4, 5, 6, 7, 8, 9}, one = identity(3);
    reals c(9);
    simpmprodmat(a.data(), one.data(), c.data(), 3, 3, -1);
    EXPECT_EQ(c, (reals{1, 2, 3, 4, -5, -4, -3, -2, -1}));
}

TEST(orderstatistics, byhand) {
    for (const std::uint32_t k : {0u, 2u, 4u, 5u, 9u}) {
        reals up = {5, 1, 4, 2, 3}, down = up;
        sortelems(up.data(), 5, k, 0);
        sortelems(down.data(), 5, k, -1);
        for (std::uint32_t i = 0; i <= std::min(k, 4u); ++i) {
            EXPECT_EQ(up[i], 1.0 + i) << k;
            EXPECT_EQ(down[i], 5.0 - i) << k;
        }
    }
    reals even = {3, 1, 2, 4}, odd = {9, 1, 5}, single = {6};
    EXPECT_EQ(medianelem(even.data(), 4), 3.0);  // the upper of the two
    EXPECT_EQ(medianelem(odd.data(), 3), 5.0);
    EXPECT_EQ(medianelem(single.data(), 1), 6.0);
}

class inverses : public testing::TestWithParam<std::uint32_t> {};

TEST_P(inverses, cholesky) {
    const std::uint32_t n = GetParam();
    reals a = whitenoise(std::size_t{n} * n, 1.0, 6);
    a = product(a, transposed(a, n, n), n, n, n);
    for (std::size_t i = 0; i < n; ++i) a[i * (n + 1)] += 0.5;
    const reals wanted = densesolve(a, identity(n), n, n);
    // Each diagonal element of an inverse is a ratio of minors, so the determinant is the product
    // of 1 / (last element of the inverse) over the leading submatrices.
    double determinant = 1.0;
    for (std::size_t m = 1; m <= n && n <= 7; ++m) {
        reals leading;
        for (std::size_t i = 0; i < m * m; ++i) leading.push_back(a[i / m * n + i % m]);
        determinant /= densesolve(leading, identity(m), m, m).back();
    }
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < i; ++j) a[i * n + j] = nan;  // not to be read
    const double corner = a[0];
    reals inverse(a.size());
    for (const std::int16_t keepinput : {std::int16_t{1}, std::int16_t{2}}) {
        EXPECT_EQ(a[0], corner);
        const double found = choleskyinvdet(n, a.data(), inverse.data(), keepinput);
        if (n <= 7) {
            EXPECT_NEAR(found / determinant, 1.0, 1e-11);
        }
        expectclose(inverse, wanted, 1e-11);  // the condition is about 8 n: 13 digits are left
    }
    EXPECT_NEAR(a[0], n == 1 ? corner : 1.0 / std::sqrt(corner), 1e-13);  // the factor's inverse
}

TEST_P(inverses, toeplitz) {
    const std::uint32_t n = GetParam();
    for (const double diagonal : {2.0 * n, -1.3}) {  // positive definite, then indefinite
        reals t = whitenoise(n, 1.0, 7);
        t[0] = diagonal;
        const reals a = toeplitz(t), wanted = densesolve(a, identity(n), n, n);
        reals inverse(a.size());
        ASSERT_EQ(toeplitzsiminv(n, a.data(), inverse.data()), 0);
        // The recursion passes through leading minors, which an indefinite matrix may have small.
        expectclose(inverse, wanted, diagonal > 0 ? 1e-13 : 1e-6);
    }
}

TEST_P(inverses, gauss) {
    const std::uint32_t n = GetParam();
    const reals r = whitenoise(std::size_t{n} * n, 0.5, 8), rt = transposed(r, n, n);
    reals a = r;
    for (std::size_t i = 0; i < a.size(); ++i) a[i] += rt[i];
    if (n > 2) a[0] = a[1] = a[n] = 0.0;  // row 0 must be exchanged, and not with row 1
    const reals wanted = densesolve(a, identity(n), n, n);
    reals inverse(a.size());
    ASSERT_EQ(simgaussinv(n, a.data(), inverse.data()), 0);
    expectclose(inverse, wanted, 1e-7);  // no pivoting for size: digits are lost
}

INSTANTIATE_TEST_SUITE_P(orders, inverses, testing::Values(1, 2, 3, 4, 7, 53, 120));

TEST(inverses, failwheretheyshould) {
    double out[9];
    reals none = {0}, negative = {1, 2, 2, 1}, zero = {1, 1, 1, 1}, minus = {1, -1, -1, 1},
          column = {1, 2, 3, 2, 4,
                    6, 3, 6, 5};  // after one step column 1 is 0 from the diagonal on
    EXPECT_EQ(choleskyinvdet(0, none.data(), out, 1), 0.0);
    EXPECT_EQ(choleskyinvdet(1, none.data(), out, 1), 0.0);
    EXPECT_EQ(choleskyinvdet(2, negative.data(), out, 1), 0.0);
    EXPECT_EQ(choleskyinvdet(2, zero.data(), out, 0), 0.0);
    EXPECT_EQ(zero, reals(4, 1.0));
    EXPECT_EQ(toeplitzsiminv(0, none.data(), out), -1);
    EXPECT_EQ(toeplitzsiminv(1, none.data(), out), -1);
    EXPECT_EQ(toeplitzsiminv(2, zero.data(), out), -1);
    EXPECT_EQ(toeplitzsiminv(3, toeplitz({1, 0, 1}).data(), out), -1);
    EXPECT_EQ(toeplitzsiminv(3, toeplitz({1, 1, 0}).data(), out), -1);
    // Deliberate: a reflection coefficient of -1, as singular as +1, is let through.
    EXPECT_EQ(toeplitzsiminv(3, toeplitz({1, -1, 0}).data(), out), 0);
    EXPECT_EQ(toeplitzsiminv(2, minus.data(), out), 0);
    EXPECT_FALSE(std::isfinite(out[0]));
    EXPECT_EQ(simgaussinv(0, none.data(), out), -1);
    EXPECT_EQ(simgaussinv(1, none.data(), out), -1);
    EXPECT_EQ(simgaussinv(3, column.data(), out), -1);
}

TEST(leastsquares, agreeswiththenormalequations) {
    constexpr std::uint32_t m = 30, n = 12, k = 2;
    const reals a = whitenoise(m * n, 0.5, 9), b = whitenoise(m * k, 0.5, 10);
    for (const std::int16_t regularise : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}}) {
        reals g = product(transposed(a, m, n), a, n, m, n), work((k + 2 * n) * n);
        for (std::size_t i = 0; i < n && regularise == 1; ++i)
            g[i * n + i] += 8 * testpi * testpi * 0.0002 * static_cast<double>(i * i);
        const reals wanted = densesolve(g, product(transposed(a, m, n), b, n, m, k), n, k);
        reals x(n * k);
        for (double *const scratch : {static_cast<double *>(nullptr), work.data()}) {
            ASSERT_EQ(solveleastsquares(a.data(), b.data(), x.data(), m, n, k, scratch, regularise),
                      0);
            expectclose(x, wanted, 1e-9);  // the penalty's constant is rounded in its ninth digit
        }
    }
    const reals singular = {1, 0, 1, 0};
    reals x = {5, 6};
    EXPECT_EQ(solveleastsquares(singular.data(), singular.data(), x.data(), 2, 2, 1, nullptr, 0),
              -1);
    EXPECT_EQ(x, (reals{5, 6}));
}

}  // namespace
