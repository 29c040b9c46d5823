#include "simd/vectors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "simd/dispatch.h"
#include "simd/tile.h"
#include "testsignals.h"

using namespace nalveo;

namespace {

using eight = std::array<double, 8>;

template <class Real8>
eight elements(const Real8 &v) {
    eight e;
    v.store(e.data());
    return e;
}

// What every vector has to do, whatever its registers.
template <class Part>
class vectors : public testing::Test {};

using parts = testing::Types<part16, part32, part64>;
TYPED_TEST_SUITE(vectors, parts);

TYPED_TEST(vectors, calculateelementbyelement) {
    using real = real8<TypeParam>;
    const std::vector<double> x = whitenoise(9, 1.0, 1), y = whitenoise(8, 1.0, 2);
    const real a = real::load(x.data() + 1), b = real::load(y.data());
    const auto both = [&](const auto &calculate) {
        const eight found = elements(calculate(a, b));
        for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(found[i], calculate(x[i + 1], y[i]));
    };
    both([](auto p, auto q) { return p + q; });
    both([](auto p, auto q) { return p - q; });
    both([](auto p, auto q) { return p * q; });
    both([](auto p, auto q) { return p / q; });
    both([](auto p, auto) { return p + 3.0; });
    both([](auto p, auto) { return p - 3.0; });
    both([](auto p, auto) { return p * 3.0; });
    both([](auto p, auto) { return p / 3.0; });
    both([](auto p, auto) { return 3.0 + p; });
    both([](auto p, auto) { return 3.0 - p; });
    both([](auto p, auto) { return 3.0 * p; });
    both([](auto p, auto) { return 3.0 / p; });
    both([](auto p, auto) { return -p; });
    const eight three = elements(real::all(3.0)), count = elements(real::count()),
                less = elements(select(a < b, a, b)), size = elements(select(a < 0.0, -a, a)),
                same = elements(select(a == x[4], b, a)), back = elements(reversed(a));
    for (std::size_t i = 0; i < 8; ++i) {
        const double p = x[i + 1], q = y[i];
        EXPECT_TRUE(three[i] == 3.0 && count[i] == static_cast<double>(i));
        EXPECT_TRUE(less[i] == std::min(p, q) && size[i] == std::abs(p));
        EXPECT_TRUE(same[i] == (i == 3 ? q : p) && back[i] == x[8 - i]);
        EXPECT_EQ(a[i], p);
        real changed = a;
        changed.set(i, 7.0);
        changed += b;
        EXPECT_EQ(changed[i], 7.0 + q);
        EXPECT_EQ(changed[(i + 1) % 8], x[(i + 1) % 8 + 1] + y[(i + 1) % 8]);
    }
    EXPECT_EQ(sumof(a), ((x[1] + x[5]) + (x[3] + x[7])) + ((x[2] + x[6]) + (x[4] + x[8])));
}

TYPED_TEST(vectors, exchangeelements) {
    using real = real8<TypeParam>;
    double numbers[64];
    for (std::size_t i = 0; i < 64; ++i) numbers[i] = static_cast<double>(i);
    real rows[8];
    for (std::size_t i = 0; i < 8; ++i) rows[i] = real::load(numbers + 8 * i);
    const auto [even, odd] = deinterleaved(rows[0], rows[1]);
    const auto [first, second] = interleaved(rows[0], rows[1]);
    transpose(rows);
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(even[i], 2.0 * static_cast<double>(i));
        EXPECT_EQ(odd[i], even[i] + 1.0);
        EXPECT_EQ(first[i], static_cast<double>(i / 2 + i % 2 * 8));
        EXPECT_EQ(second[i], first[i] + 4.0);
        for (std::size_t j = 0; j < 8; ++j) EXPECT_EQ(rows[i][j], numbers[8 * j + i]);
    }
}

TYPED_TEST(vectors, keeptiles) {
    using real = real8<TypeParam>;
    const std::vector<double> start = whitenoise(48, 1.0, 3), column = whitenoise(6, 1.0, 4),
                              row = whitenoise(16, 1.0, 5), lanes = whitenoise(24, 1.0, 6);
    tile<real, 3, 2> added, less, eightless;
    for (tile<real, 3, 2> *t : {&added, &less, &eightless}) t->load(start.data(), 16);
    added.add(column.data(), 2, row.data());
    less.subtract(column.data(), 2, row.data());
    eightless.subtracteight(lanes.data(), row.data());
    std::vector<double> sum(48), difference(48), eightdifference(48);
    added.store(sum.data(), 16);
    less.store(difference.data(), 16);
    eightless.store(eightdifference.data(), 16);
    for (std::size_t i = 0; i < 48; ++i) {
        const double product = column[i / 16 * 2] * row[i % 16];
        EXPECT_EQ(sum[i], start[i] + product);
        EXPECT_EQ(difference[i], start[i] - product);
        EXPECT_EQ(eightdifference[i], start[i] - lanes[i / 16 * 8 + i % 8] * row[i % 16]);
    }
}

// Says how wide the vectors are that it has been given.
struct widthkernel {
    template <class Real8>
    [[gnu::always_inline]] static std::size_t run(std::size_t factor) {
        return factor * Real8::registers;
    }
};

TEST(dispatch, handsonwhatakernelreturns) {
    const std::size_t registers = runwidest<widthkernel>(std::size_t{1});
    EXPECT_TRUE(registers == 4 || registers == 8 || registers == 32) << registers;
    EXPECT_EQ(runwidest<widthkernel>(std::size_t{3}), 3 * registers);
}

}  // namespace
