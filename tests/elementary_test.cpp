#include "numeric/elementary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "testsignals.h"

using namespace nalveo;

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

// Errors of a function against exact values, here of 64 bits, in units in the last place of a
// double.
struct errors {
    double worst = 0.0, sum = 0.0;  // the sum counts away from 0 as positive
    int count = 0;

    void add(double value, long double exact) {
        int exponent = 0;
        std::frexp(static_cast<double>(exact), &exponent);
        const long double unit = std::ldexp(1.0L, std::max(exponent - 53, -1074));
        const auto error = static_cast<double>((value - exact) / unit);
        worst = std::max(worst, std::abs(error));
        sum += exact < 0.0L ? -error : error;
        ++count;
    }
};

}  // namespace

TEST(elementary, iswithinaunitinthelastplace) {
    testrandom random(1);
    errors of[5];
    for (int i = 0; i < 200000; ++i) {
        const double u = random.uniform(), v = random.uniform(), scale = i % 3 == 0 ? 1e-3 : 1.0;
        const double angle = u * (i % 4 == 0 ? 1e6 : 10.0);
        of[0].add(sine(angle), std::sin(static_cast<long double>(angle)));
        of[1].add(cosine(angle), std::cos(static_cast<long double>(angle)));
        of[2].add(arctangent(u * scale, v), std::atan2(u * scale, static_cast<long double>(v)));
        const double x = i % 2 == 0 ? u : 709.0 * u;
        of[3].add(exponential(x), std::exp(static_cast<long double>(x)));
        const double positive = i % 2 == 0 ? 1.0 + 0.5 * u : std::exp(744.0 * u);
        of[4].add(logarithm(positive), std::log(static_cast<long double>(positive)));
    }
    for (const errors &e : of) EXPECT_GT(e.worst, 0.45);  // the measure measures
    for (const int i : {0, 1, 3, 4}) EXPECT_LT(of[i].worst, 1.0) << i;
    EXPECT_LT(of[2].worst, 1.5);
}

// Errors of rounding cancel in the mean. What is left of them tells of a constant that is one unit
// off its place: 0.06 units for a sine's 1/6 or 0.04 for an exponential's 1/2 where they weigh
// most.
TEST(elementary, isroundedbothways) {
    testrandom random(2);
    errors of[4];
    for (int i = 0; i < 100000; ++i) {
        const double u = std::abs(random.uniform());
        const double angle = 0.5 + 0.25 * u, exponent = 0.25 + 0.09 * u, near = 1.2 + 0.2 * u;
        of[0].add(cosine(angle), std::cos(static_cast<long double>(angle)));
        of[1].add(exponential(exponent), std::exp(static_cast<long double>(exponent)));
        of[2].add(logarithm(near), std::log(static_cast<long double>(near)));
        of[3].add(sine(angle), std::sin(static_cast<long double>(angle)));
    }
    for (const int i : {0, 1, 2}) EXPECT_LT(std::abs(of[i].sum), 0.008 * of[i].count) << i;
    EXPECT_LT(std::abs(of[3].sum), 0.03 * of[3].count);  // 1/6 as a double is a third of a unit off
}

TEST(elementary, specialvaluesareasanywhere) {
    EXPECT_TRUE(logarithm(1.0) == 0.0 && exponential(0.0) == 1.0 && cosine(0.0) == 1.0);
    EXPECT_TRUE(logarithm(0.0) == -infinite && logarithm(infinite) == infinite);
    EXPECT_TRUE(exponential(710.0) == infinite && exponential(-infinite) == 0.0);
    EXPECT_TRUE(power(0.0, 8.5) == 0.0 && power(1.0, 8.5) == 1.0);
    EXPECT_NEAR(power(0.92, 8.31295041412083), 0.5, 1e-15);  // ln 0.5 / ln 0.92
    for (const double y : {0.0, -0.0, 1.0, -1.0})
        for (const double x : {0.0, -0.0, 2.0, -2.0}) {
            EXPECT_EQ(arctangent(y, x), std::atan2(y, x)) << y << ' ' << x;
            EXPECT_EQ(std::signbit(arctangent(y, x)), std::signbit(y));
        }
    const double nan = std::nan("");
    for (const double value : {logarithm(-1.0), logarithm(nan), exponential(nan), sine(nan),
                               sine(infinite), cosine(1e7), arctangent(nan, 1.0)})
        EXPECT_TRUE(std::isnan(value));
}

TEST(elementary, manyvaluesareasonebyone) {
    for (std::size_t n = 0; n < 40; ++n) {
        std::vector<double> values(n), wide(n);
        for (std::size_t i = 0; i < n; ++i) {
            values[i] = std::ldexp(static_cast<double>(i), 1 - 20 * static_cast<int>(i));
            wide[i] = 38.0 * (static_cast<double>(i) - 0.5 * static_cast<double>(n) + 0.1);
        }
        std::vector<double> exps = wide, logs = values, roots = values;
        exponentials(exps.data(), n);  // from -750 to 750, which is beyond its range
        logarithms(logs.data(), n);
        powers(roots.data(), n, 0.5);
        for (std::size_t i = 0; i < n; ++i) {
            EXPECT_EQ(exps[i], exponential(wide[i])) << i;
            EXPECT_EQ(logs[i], logarithm(values[i])) << i;
            EXPECT_EQ(roots[i], power(values[i], 0.5)) << i;
        }
    }
    double odd[] = {std::nan(""), -800.0, 800.0, 0.0};
    exponentials(odd, 4);
    EXPECT_TRUE(std::isnan(odd[0]) && odd[1] == 0.0 && std::isinf(odd[2]) && odd[3] == 1.0);
}

TEST(sinesandcosines, arethoseofeachangle) {
    std::vector<double> angles = {0.0, -0.0, 1e6, -1e6, 1.1e6, std::nan(""), 1e-300, 3.1};
    for (int i = -40; i < 40; ++i)
        angles.push_back(i * 0.785398163397448);  // octants and near them
    for (int i = 0; i < 500; ++i) angles.push_back((i - 250) * 0.377);
    std::vector<double> sines(angles.size()), cosines(angles.size());
    sinesandcosines(angles.data(), angles.size(), sines.data(), cosines.data());
    for (std::size_t i = 0; i < angles.size(); ++i) {
        if (std::isnan(sine(angles[i]))) {
            EXPECT_TRUE(std::isnan(sines[i]) && std::isnan(cosines[i])) << angles[i];
            continue;
        }
        EXPECT_EQ(sines[i], sine(angles[i])) << angles[i];
        EXPECT_EQ(cosines[i], cosine(angles[i])) << angles[i];
    }
}
