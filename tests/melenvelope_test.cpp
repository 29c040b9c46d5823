#include "synthesis/melenvelope.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "testsignals.h"

namespace {

constexpr std::size_t count = 88;  // whole vectors, and no whole tiles of them

struct curves {
    reals cosine, sine, level, phase;
};

curves evaluate(const reals &c, double omega, double alpha) {
    curves e{reals(count), reals(count), reals(count), reals(count)};
    const auto order = static_cast<std::uint32_t>(c.size() - 1);
    nalveo::warpmultiples(omega, count, alpha, e.cosine.data(), e.sine.data());
    nalveo::envelopelevels(c.data(), order, e.cosine.data(), count, e.level.data());
    nalveo::envelopephases(c.data(), order, e.cosine.data(), e.sine.data(), count, e.phase.data());
    return e;
}

TEST(melenvelope, isthedirectsumsatthewarpedfrequencies) {
    constexpr double omega = 0.0353, alpha = 0.42;
    const reals c = whitenoise(40, 1.0, 5);
    const curves e = evaluate(c, omega, alpha);
    for (std::size_t k = 0; k < count; ++k) {
        const double x = omega * static_cast<double>(k);
        const double w = std::atan2((1 - alpha * alpha) * std::sin(x),
                                    (1 + alpha * alpha) * std::cos(x) - 2 * alpha);
        double level = c[0], phase = 0.0;
        for (std::size_t j = 1; j < c.size(); ++j) {
            level += 2 * c[j] * std::cos(static_cast<double>(j) * w);
            phase -= 2 * c[j] * std::sin(static_cast<double>(j) * w);
        }
        // The recursion magnifies rounding where w is near 0 or pi, by at most the square of the
        // order.
        EXPECT_NEAR(e.level[k], level, 1e-11) << k;
        EXPECT_NEAR(e.phase[k], phase, 1e-11) << k;
    }
}

TEST(melenvelope, ofordernoughtisflat) {
    const curves e = evaluate({-1.5}, 0.1, 0.42);
    for (std::size_t k = 0; k < count; ++k) {
        EXPECT_EQ(e.level[k], -1.5);
        EXPECT_EQ(e.phase[k], 0.0);
    }
}

}  // namespace
