#include "numeric/matvect.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "testsignals.h"

namespace {

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

// Symmetric Toeplitz with first row t.
reals toeplitz(const reals &t) {
    const std::size_t n = t.size();
    reals a(n * n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) a[i * n + j] = t[std::max(i, j) - std::min(i, j)];
    return a;
}

void expectclose(const reals &a, const reals &b, double tolerance) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], tolerance) << i;
}

TEST(median, istheupperofthetwoinanevencount) {
    reals even = {3, 1, 2, 4}, odd = {9, 1, 5};
    EXPECT_EQ(medianelem(even.data(), 4), 3.0);
    EXPECT_EQ(medianelem(odd.data(), 3), 5.0);
}

class inverses : public testing::TestWithParam<std::uint32_t> {};

TEST_P(inverses, cholesky) {
    const std::uint32_t n = GetParam();
    reals l = whitenoise(std::size_t{n} * n, 0.1, 6);  // lower triangle of A = L L'
    double determinant = 1.0;
    for (std::size_t i = 0; i < n; ++i) {
        std::fill_n(l.begin() + static_cast<std::ptrdiff_t>(i * n + i), n - i, 0.0);
        l[i * (n + 1)] = i % 2 == 0 ? 1.5 : 0.8;
        determinant *= l[i * (n + 1)] * l[i * (n + 1)];
    }
    reals a = product(l, transposed(l, n, n), n, n, n);
    const reals wanted = densesolve(a, identity(n), n, n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < i; ++j) a[i * n + j] = nan;  // not to be read
    const double corner = a[0];
    reals inverse(a.size());
    for (const std::int16_t keepinput : {std::int16_t{1}, std::int16_t{2}}) {
        EXPECT_EQ(a[0], corner);
        const double found = choleskyinvdet(n, a.data(), inverse.data(), keepinput);
        EXPECT_NEAR(found / determinant, 1.0, 1e-11);
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
    for (const bool exchange : {false, true}) {
        reals a = r;
        for (std::size_t i = 0; i < a.size(); ++i) a[i] += rt[i];
        if (exchange && n > 2) a[0] = a[1] = a[n] = 0.0;  // row 0 goes, and not with row 1
        const reals wanted = densesolve(a, identity(n), n, n);
        reals inverse(a.size());
        ASSERT_EQ(simgaussinv(n, a.data(), inverse.data()), 0);
        expectclose(inverse, wanted, 1e-7);  // no pivoting for size: digits are lost
    }
}

TEST_P(inverses, andproductssuminorder) {
    const std::uint32_t n = GetParam(), m = n + 3;
    const reals a = whitenoise(std::size_t{n} * m, 1.0, 12), b = whitenoise(a.size(), 1.0, 13),
                p = product(a, b, n, m, n);
    for (const std::int8_t symmetric : {std::int8_t{1}, std::int8_t{-1}}) {
        reals triangle(p.size(), nan), half(p.size(), nan);
        simprodmat(a.data(), b.data(), triangle.data(), n, m, symmetric);
        simpmprodmat(a.data(), b.data(), half.data(), n, m, symmetric);
        for (std::size_t i = 0; i < p.size(); ++i) {
            const std::size_t row = i / n, column = i % n, image = p.size() - 1 - i;
            const double mirror = symmetric * p[column * n + row];
            ASSERT_EQ(triangle[i], column > row ? mirror : p[i]) << i;
            ASSERT_EQ(half[i], i < image ? p[i] : symmetric * p[image]) << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(orders, inverses, testing::Values(1, 2, 3, 4, 7, 10, 16, 53, 120));

TEST(leastsquares, withapenaltyfitasdoesatallersystem) {
    constexpr std::uint32_t m = 9, n = 4, k = 2;
    const reals a = whitenoise(m * n, 1.0, 14), b = whitenoise(m * k, 1.0, 15);
    for (const std::int16_t regularise : {std::int16_t{0}, std::int16_t{1}}) {
        // A penalty of d^2 on unknown i is one more equation, d x(i) = 0: 8 pi^2 0.0002 i^2.
        constexpr double pi = 3.141592653589793;
        reals normal(n * n), right(n * k);
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t r = 0; r < m; ++r) {
                for (std::size_t j = 0; j < n; ++j)
                    normal[i * n + j] += a[r * n + i] * a[r * n + j];
                for (std::size_t j = 0; j < k; ++j) right[i * k + j] += a[r * n + i] * b[r * k + j];
            }
            normal[i * (n + 1)] += regularise * 8.0 * pi * pi * 0.0002 * static_cast<double>(i * i);
        }
        const reals wanted = densesolve(normal, right, n, k);
        reals x(n * k), work((k + 2 * n) * n);
        for (double *const scratch : {work.data(), static_cast<double *>(nullptr)}) {
            ASSERT_EQ(solveleastsquares(a.data(), b.data(), x.data(), m, n, k, scratch, regularise),
                      0);
            expectclose(x, wanted, 1e-9);  // the constant in use has eight digits
        }
    }
    const reals twins = {1, 1, 2, 2, 3, 3};
    reals x = {7, 8};
    EXPECT_EQ(solveleastsquares(twins.data(), b.data(), x.data(), 3, 2, 1, nullptr, 0), -1);
    EXPECT_EQ(x, (reals{7, 8}));
}

TEST(copies, fillscaleandtranspose) {
    reals a(6, nan);
    EXPECT_EQ(initializemat(a.data(), 5, 2.5), 0);
    EXPECT_EQ(std::count(a.begin(), a.end(), 2.5), 5);
    EXPECT_TRUE(std::isnan(a[5]));
    const reals source = {1, 2, 3, 4, 5, 6};
    for (const double scale : {1.0, -1.0, 2.5, 0.0}) {
        reals same(6, nan), turned(6, nan), sum(6, 10.0);
        copymatwtr(same.data(), source.data(), 2, 3, 0, scale);
        copymatwtr(turned.data(), source.data(), 3, 2, 1, scale);
        addmat(sum.data(), source.data(), 6, scale);
        for (std::size_t i = 0; i < 6; ++i) {
            EXPECT_EQ(same[i], scale * source[i]);
            EXPECT_EQ(turned[i % 3 * 2 + i / 3], scale * source[i]);
            EXPECT_EQ(sum[i], 10.0 + scale * source[i]);
        }
    }
}

TEST(inverses, failwheretheyshould) {
    double out[9];
    reals none = {0}, negative = {1, 2, 2, 1}, zero = {1, 1, 1, 1}, hidden = {0, 0, 0, 1},
          minus = {1, -1, -1, 1},
          column = {1, 2, 3, 2, 4,
                    6, 3, 6, 5};  // after one step column 1 is 0 from the diagonal on
    EXPECT_EQ(choleskyinvdet(0, none.data(), out, 1), 0.0);
    EXPECT_EQ(choleskyinvdet(1, none.data(), out, 1), 0.0);
    EXPECT_EQ(choleskyinvdet(2, negative.data(), out, 1), 0.0);
    EXPECT_EQ(choleskyinvdet(2, zero.data(), out, 0), 0.0);
    EXPECT_EQ(zero, reals(4, 1.0));
    EXPECT_EQ(choleskyinvdet(2, hidden.data(), out, 1), 0.0);
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

}  // namespace
