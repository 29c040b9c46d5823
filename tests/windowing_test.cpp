#include "numeric/windowing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "testsignals.h"

namespace {

TEST(framegrid, countsframeswhosecentreisinside) {
    const struct {
        std::uint32_t nsamples, shift, offset, frames;
    } cases[] = {{1, 80, 0, 1},       {80, 80, 0, 1},      {81, 80, 0, 2},
                 {16000, 80, 0, 200}, {16001, 80, 0, 201}, {100, 80, 19, 2},
                 {100, 80, 20, 1},    {7, 1, 0, 7},        {4294967295u, 1, 0, 4294967295u}};
    for (const auto &c : cases) {
        EXPECT_EQ(getnumframes(c.nsamples, c.shift, c.offset), c.frames) << c.nsamples;
        EXPECT_EQ(getnumanalysisframes(c.nsamples, c.shift, c.offset), c.frames) << c.nsamples;
    }
    EXPECT_EQ(getccsize(200, 39), 8000u);
}

TEST(windowedsamples, arezerobeyondbothends) {
    const std::vector<double> x = {1, 2}, w = {10, 20, 30, 40, 50, 60, 70};
    std::vector<double> f(7, -1.0);
    EXPECT_EQ(getwindowedsamples(x.data(), 2, 0, f.data(), 3, w.data()), 1);
    EXPECT_EQ(f, (std::vector<double>{0, 0, 0, 40, 100, 0, 0}));
}

TEST(windowedsamples, tellsilencefromsound) {
    const std::vector<double> x = {0, 0, 0, 1e-300, std::numeric_limits<double>::quiet_NaN()}, w(3);
    std::vector<double> f(3);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 1, f.data(), 1, nullptr), 0);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 2, f.data(), 1, nullptr), 1);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 2, f.data(), 1, w.data()), 0);
    EXPECT_EQ(getwindowedsamples(x.data(), 5, 4, f.data(), 1, w.data()), 1);  // a NaN is not 0
}

}  // namespace
