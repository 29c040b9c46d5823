#include "numeric/dft.h"

#include <gtest/gtest.h>

#include "testsignals.h"

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
            // The twiddle recurrence loses up to eps a step, over n terms of magnitude up to 1.4.
            ASSERT_NEAR(std::abs(std::complex(re[k], im[k]) - wanted[k]), 0.0, 2e-15 * n) << k;
            ASSERT_EQ(pairs[2 * k], re[k]);
            ASSERT_EQ(pairs[2 * k + 1], im[k]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(sizes, dft, testing::Values(1, 2, 4, 8, 64, 1024, 2048));

}  // namespace
