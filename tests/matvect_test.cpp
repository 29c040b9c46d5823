#include "numeric/matvect.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "testsignals.h"

using namespace nalveo;

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

TEST_P(inverses, arenotneededtosolve) {
    const std::uint32_t n = GetParam() | 1u, k = n / 2;
    reals t = whitenoise(n, 1.0, 9), even = whitenoise(n, 1.0, 10), odd = whitenoise(n, 1.0, 11);
    t[0] = 2.0 * n;
    odd[k] = 0.0;
    for (std::size_t i = 0; i < k; ++i) {
        even[i] = even[n - 1 - i];
        odd[i] = -odd[n - 1 - i];
    }
    const reals a = toeplitz(t), re = densesolve(a, even, n), im = densesolve(a, odd, n);
    reals foundre(even.begin() + k, even.end()), foundim(odd.begin() + k, odd.end());
    reals work(toeplitzworkspace(k), nan);
    ASSERT_EQ(toeplitzsolve(k, t.data(), foundre.data(), foundim.data(), work.data()), 0);
    expectclose(foundre, reals(re.begin() + k, re.end()), 1e-14);
    expectclose(foundim, reals(im.begin() + k, im.end()), 1e-14);

    const std::size_t stride = (n + 8) / 8 * 8;  // leaves room for the right-hand side
    reals augmented(n * stride), x(n);
    for (std::size_t i = 0; i < n; ++i) {
        std::copy_n(a.begin() + static_cast<std::ptrdiff_t>(i * n), n, &augmented[i * stride]);
        std::fill_n(&augmented[i * stride], i, 99.0);  // not to count
        augmented[i * stride + n] = even[i];
    }
    EXPECT_GT(choleskysolve(n, augmented.data(), stride, x.data()), 0.0);
    expectclose(x, re, 1e-14);
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
    reals ones(3, 1.0), centre(2), wide(16, 1.0), work(toeplitzworkspace(1));
    EXPECT_EQ(toeplitzsolve(1, ones.data(), centre.data(), centre.data(), work.data()), -1);
    EXPECT_EQ(choleskysolve(0, none.data(), 8, out), 0.0);
    EXPECT_EQ(choleskysolve(2, wide.data(), 8, out), 0.0);
    wide[0] = -1.0;
    EXPECT_EQ(choleskysolve(2, wide.data(), 8, out), 0.0);
    EXPECT_EQ(simgaussinv(0, none.data(), out), -1);
    EXPECT_EQ(simgaussinv(1, none.data(), out), -1);
    EXPECT_EQ(simgaussinv(3, column.data(), out), -1);
}

TEST(choleskysolvepossible, leavesoutunknownswithoutapositivepivot) {
    // The second unknown repeats the first one, then contradicts it; the third stands alone.
    for (const double diagonal : {1.0, 0.5}) {
        reals a(24), x(3);
        a[0] = 4.0, a[1] = 2.0, a[9] = diagonal, a[18] = 3.0;
        a[3] = 2.0, a[11] = 1.0, a[19] = 6.0;
        choleskysolvepossible(3, a.data(), 8, x.data());
        expectclose(x, {0.5, 0.0, 2.0}, 1e-15);
    }
}

}  // namespace
