#include "numeric/dft.h"

#include <gtest/gtest.h>

#include "testsignals.h"

using namespace nalveo;

namespace {

// Every way to call either direction.
struct ways {
    double sign;
    int (*interleaved)(std::int32_t, double *);
    int (*split)(std::int32_t, double *, double *);
};
constexpr ways both[] = {
    {-1.0, fftc, fftr},
    {1.0, ifftc, ifftr},
    {-1.0, [](std::int32_t n, double *x) { return dofftc(n, x, 0); },
     [](std::int32_t n, double *re, double *im) { return dofftr(n, re, im, 2); }},
};

class dft : public testing::TestWithParam<std::int32_t> {};

TEST_P(dft, agreeswiththedirectsum) {
    const std::int32_t n = GetParam();
    const auto size = static_cast<std::size_t>(n);
    testrandom random(size);
    complexes x(size);
    for (auto &v : x) v = {random.uniform(), random.uniform()};
    for (const ways &way : both) {
        std::vector<double> pairs, re, im;
        for (const auto &v : x) {
            re.push_back(v.real());
            im.push_back(v.imag());
            pairs.insert(pairs.end(), {v.real(), v.imag()});
        }
        ASSERT_EQ(way.interleaved(n, pairs.data()), 0);
        ASSERT_EQ(way.split(n, re.data(), im.data()), 0);
        const complexes wanted = naivedft(x, way.sign);
        for (std::size_t k = 0; k < size; ++k) {
            // Rounding, over n terms of magnitude up to 1.4.
            ASSERT_NEAR(std::abs(std::complex(re[k], im[k]) - wanted[k]), 0.0, 2e-15 * n) << k;
            ASSERT_EQ(pairs[2 * k], re[k]);
            ASSERT_EQ(pairs[2 * k + 1], im[k]);
        }
    }
}

TEST_P(dft, ofarealsignalagreeswiththedirectsum) {
    const std::int32_t n = GetParam();
    if (n < 2) return;
    const auto size = static_cast<std::size_t>(n);
    const std::vector<double> x = whitenoise(size, 0.6, size);
    const complexes wanted = naivedft({x.begin(), x.end()});
    std::vector<double> re(size / 2 + 1), im(re), back(size);
    ASSERT_EQ(fftreal(n, x.data(), re.data(), im.data()), 0);
    for (std::size_t k = 0; k < re.size(); ++k)
        ASSERT_NEAR(std::abs(std::complex(re[k], im[k]) - wanted[k]), 0.0, 2e-15 * n) << k;
    EXPECT_EQ(im.front(), 0.0);
    EXPECT_EQ(im.back(), 0.0);
    ASSERT_EQ(ifftreal(n, re.data(), im.data(), back.data()), 0);
    for (std::size_t i = 0; i < size; ++i) ASSERT_NEAR(back[i] / n, x[i], 1e-14) << i;
}

INSTANTIATE_TEST_SUITE_P(sizes, dft, testing::Values(1, 2, 4, 8, 16, 32, 64, 128, 256, 1024, 2048));

TEST(dft, leavesothersizesalone) {
    double x[] = {1, 2, 3}, re[] = {4, 5, 6}, im[] = {7, 8, 9};
    for (const std::int32_t n : {3, 1}) EXPECT_EQ(fftreal(n, x, re, im), -1);
    for (const std::int32_t n : {3, 1}) EXPECT_EQ(ifftreal(n, re, im, x), -1);
    EXPECT_EQ(dofftr(3, re, im, 1), -1);
    EXPECT_EQ(fftreal(0, x, re, im) + ifftreal(-1, re, im, x) + dofftr(0, re, im, 1), 0);
    EXPECT_EQ(x[0] + re[0] + im[0] + re[2] + im[2], 1 + 4 + 7 + 6 + 9);
}

}  // namespace
