#include "numeric/cholesky.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "testsignals.h"

namespace {

// Positive definite: the inner products of more random columns than rows, and b behind each row.
struct linearsystem {
    std::size_t n;
    reals a;
    reals b;

    linearsystem(std::size_t order, std::uint64_t seed)
        : n(order), a(n * n), b(whitenoise(n, 1.0, seed)) {
        const reals r = whitenoise(n * 2 * n, 1.0, seed + 100);
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t j = 0; j < n; ++j)
                for (std::size_t k = 0; k < 2 * n; ++k)
                    a[i * n + j] += r[i * 2 * n + k] * r[j * 2 * n + k];
    }
    std::size_t stride() const { return (n + 8) / 8 * 8; }
    reals augmented() const {
        reals rows(n * stride());
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j)
                rows[i * stride() + j] =
                    j < i ? 99.0 : a[i * n + j];  // the lower triangle is not to count
            rows[i * stride() + n] = b[i];
        }
        return rows;
    }
};

class cholesky : public testing::TestWithParam<std::uint32_t> {};

TEST_P(cholesky, solves) {
    const std::uint32_t n = GetParam();
    const linearsystem system(n, n);
    reals rows = system.augmented(), x(n), possible(n);
    EXPECT_GT(nalveo::choleskysolve(n, rows.data(), system.stride(), x.data()), 0.0);
    rows = system.augmented();
    nalveo::choleskysolvepossible(n, rows.data(), system.stride(), possible.data());
    const reals wanted = densesolve(system.a, system.b, n);
    for (std::size_t i = 0; i < n; ++i) EXPECT_NEAR(x[i], wanted[i], 1e-10) << i;
    EXPECT_EQ(possible, x);
}

TEST_P(cholesky, ofeightisthatofeach) {
    const std::uint32_t n = GetParam();
    reals side((n + 1) * n * 8), x(n * 8), determinants(8);
    std::vector<linearsystem> systems;
    for (std::size_t s = 0; s < 8; ++s) {
        systems.emplace_back(n, 10 * n + s);
        reals &a = systems[s].a;
        const std::size_t middle = n / 2 * (n + 1);
        if (s == 1) a[0] *= -1.0;  // the first, a middle and the last pivot are negative
        if (s == 3) a[middle] *= -1.0;
        if (s == 5) a[n * n - 1] *= -1.0;
        if (s == 6)  // the first pivot is 0, and so is its row
            for (std::size_t j = 0; j < n; ++j) a[j] = 0.0;
        if (s == 7) a[middle] = std::numeric_limits<double>::quiet_NaN();
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j)
                side[((n + 1) * i + j) * 8 + s] = j < i ? 99.0 : systems[s].a[i * n + j];
            side[((n + 1) * i + n) * 8 + s] = systems[s].b[i];
        }
    }
    nalveo::choleskysolveeight(n, side.data(), x.data(), determinants.data());
    for (std::size_t s = 0; s < 8; ++s) {
        reals rows = systems[s].augmented(), alone(n);
        const double determinant =
            nalveo::choleskysolve(n, rows.data(), systems[s].stride(), alone.data());
        if (s == 7) {
            EXPECT_TRUE(std::isnan(determinant) && std::isnan(determinants[s]));
            continue;
        }
        EXPECT_EQ(determinants[s], determinant) << s;
        const bool solvable = s != 1 && s != 3 && s != 5 && s != 6;
        EXPECT_EQ(determinant > 0.0, solvable) << s;
        for (std::size_t i = 0; solvable && i < n; ++i) EXPECT_EQ(x[8 * i + s], alone[i]) << s;
    }
}

INSTANTIATE_TEST_SUITE_P(orders, cholesky, testing::Values(1, 2, 3, 7, 8, 15, 24, 40, 53, 197));

TEST(cholesky, failswhereitshould) {
    double x[2] = {5.0, 6.0};
    reals ones(16, 1.0), minus(16, -1.0);
    EXPECT_EQ(nalveo::choleskysolve(0, ones.data(), 8, x), 0.0);
    EXPECT_EQ(nalveo::choleskysolve(2, ones.data(), 8, x), 0.0);
    EXPECT_EQ(nalveo::choleskysolve(2, minus.data(), 8, x), 0.0);
    EXPECT_EQ(x[0] + x[1], 11.0);
}

TEST(cholesky, leavesoutunknownswithoutapositivepivot) {
    // The second unknown repeats the first one, then contradicts it; the third stands alone.
    for (const double diagonal : {1.0, 0.5}) {
        reals a(24), x(3);
        a[0] = 4.0, a[1] = 2.0, a[9] = diagonal, a[18] = 3.0;
        a[3] = 2.0, a[11] = 1.0, a[19] = 6.0;
        nalveo::choleskysolvepossible(3, a.data(), 8, x.data());
        EXPECT_NEAR(x[0], 0.5, 1e-15);
        EXPECT_EQ(x[1], 0.0);
        EXPECT_NEAR(x[2], 2.0, 1e-15);
    }
}

}  // namespace
