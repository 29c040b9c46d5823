#include "numeric/polynom.h"

#include <gtest/gtest.h>

namespace {

TEST(parabolafit, findsthevertex) {
    const struct {
        double y[3], a, b, x, top;
    } cases[] = {{{0, 1, 0}, -1, 0, 0, 1},
                 {{1, 2, 1.5}, -0.75, 0.25, 1.0 / 6, 2 + 1.0 / 48},
                 {{1.5, 2, 1}, -0.75, -0.25, -1.0 / 6, 2 + 1.0 / 48},
                 {{4, 1, 4}, 3, 0, 0, 1},
                 {{0, 3, 4}, -1, 2, 1, 4}};  // -(x - 1)^2 + 4: the vertex is the last sample
    for (const auto &c : cases) {
        parabola p, q;
        EXPECT_EQ(parabfit(c.y, &p), 0);
        EXPECT_EQ(parabfitpoints(&q, c.y[0], c.y[1], c.y[2]), 0);
        for (const parabola &fit : {p, q}) {
            EXPECT_DOUBLE_EQ(fit.a, c.a);
            EXPECT_DOUBLE_EQ(fit.b, c.b);
            EXPECT_DOUBLE_EQ(fit.c, c.y[1]);
            EXPECT_DOUBLE_EQ(parabextx(&fit), c.x);
            EXPECT_DOUBLE_EQ(parabexty(&fit), c.top);
        }
    }
}

}  // namespace
