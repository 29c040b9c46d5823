#include "numeric/toeplitz.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "testsignals.h"

namespace {

class toeplitz : public testing::TestWithParam<std::uint32_t> {};

TEST_P(toeplitz, agreeswiththedensesolve) {
    const std::uint32_t k = GetParam(), n = 2 * k + 1;
    reals t = whitenoise(n, 1.0, 9), even = whitenoise(n, 1.0, 10), odd = whitenoise(n, 1.0, 11);
    t[0] = 2.0 * n;
    odd[k] = 0.0;
    for (std::size_t i = 0; i < k; ++i) {
        even[i] = even[n - 1 - i];
        odd[i] = -odd[n - 1 - i];
    }
    reals a(std::size_t{n} * n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) a[i * n + j] = t[i < j ? j - i : i - j];
    const reals re = densesolve(a, even, n), im = densesolve(a, odd, n);
    reals foundre(even.begin() + k, even.end()), foundim(odd.begin() + k, odd.end());
    reals work(nalveo::toeplitzworkspace(k), std::numeric_limits<double>::quiet_NaN());
    ASSERT_EQ(nalveo::toeplitzsolve(k, t.data(), foundre.data(), foundim.data(), work.data()), 0);
    for (std::size_t i = 0; i <= k; ++i) {
        EXPECT_NEAR(foundre[i], re[k + i], 1e-14) << i;
        EXPECT_NEAR(foundim[i], im[k + i], 1e-14) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(sizes, toeplitz, testing::Values(0, 1, 2, 3, 5, 8, 26, 60));

TEST(toeplitz, failswhereareflectioncoefficientisone) {
    reals ones(3, 1.0), centre(2), work(nalveo::toeplitzworkspace(1));
    EXPECT_EQ(nalveo::toeplitzsolve(1, ones.data(), centre.data(), centre.data(), work.data()), -1);
}

}  // namespace
