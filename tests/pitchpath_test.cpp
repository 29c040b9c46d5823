#include "analysis/pitchpath.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "testsignals.h"

using namespace nalveo;

namespace {

constexpr std::size_t us = unvoicedslot;

std::vector<lagpeak> peaksof(const std::vector<double> &r) {
    std::vector<lagpeak> peaks = {{1.0, 1.0}};  // of the frame before
    findlagpeaks(r.data(), 2, static_cast<std::uint32_t>(r.size() - 2), 1.0, peaks);
    return peaks;
}

TEST(lagpeaks, byhand) {
    const auto symmetric = peaksof({1, 0, 0.5, 0.75, 0.5, 0});
    ASSERT_EQ(symmetric.size(), 1u);
    EXPECT_EQ(symmetric[0].period, 3.0);
    EXPECT_EQ(symmetric[0].height, 0.75);
    // A vertex above 1 is turned over, not cut off.
    const auto high = peaksof({1, 0, 0.75, 1.25, 0.75, 0});
    ASSERT_EQ(high.size(), 1u);
    EXPECT_EQ(high[0].height, 0.8);
    // Plateaus have no strict maximum, nor is one at half the threshold or below.
    EXPECT_TRUE(peaksof({1, 0, 0.5, 0.75, 0.75, 0.5, 0}).empty());
    EXPECT_TRUE(peaksof({1, 0, 0.1, 0.225, 0.1, 0}).empty());
    EXPECT_EQ(peaksof({1, 0, 0.1, std::nextafter(0.225, 1), 0.1, 0}).size(), 1u);
    // Vertices outside the range 2 .. 4 are taken at its ends.
    const auto first = peaksof({1, 0.75, 0.875, 0.25, 0.125, 0});
    const auto last = peaksof({1, 0, 0.125, 0.25, 0.875, 0.75});
    ASSERT_EQ(first.size() + last.size(), 2u);
    EXPECT_EQ(first[0].period, 2.0);
    EXPECT_EQ(first[0].height, 0.875);
    EXPECT_EQ(last[0].period, 4.0);
}

TEST(strengths, ofcandidates) {
    EXPECT_EQ(unvoicedstrength(0, 1), 2.45);
    EXPECT_EQ(unvoicedstrength(0, 0), 2.45);
    EXPECT_NEAR(unvoicedstrength(0.01, 1), 2.45 - 0.01 * 1.45 / 0.03, 1e-15);
    EXPECT_EQ(unvoicedstrength(1, 1), 0.45);
    EXPECT_EQ(unvoicedstrength(2, 1), 0.45);
    // The octave cost of 0.01 chooses among candidates and is taken back: the fifth, two octaves
    // above the first, wins its slot by half of what it is weaker, and all have their heights.
    for (const double weaker : {0.5805, 0.5795}) {
        slotvalues freqs{}, strengths{};
        strengths[us] = 0.5;
        collectcandidates({{1.0 / 100, 0.6},
                           {1.0 / 110, 0.8},
                           {1.0 / 120, 0.8},
                           {1.0 / 130, 0.8},
                           {1.0 / 400, weaker}},
                          100, freqs, strengths);
        EXPECT_NEAR(freqs[1], weaker > 0.58 ? 400 : 100, 1e-10);
        EXPECT_NEAR(strengths[1], weaker > 0.58 ? weaker : 0.6, 1e-15);
        EXPECT_NEAR(strengths[2], 0.8, 1e-15);
        EXPECT_EQ(strengths[us], 0.5);
    }
}

TEST(slots, fillupandthengivewaytothestrong) {
    slotvalues freqs{}, strengths{};
    for (int k = 1; k <= 4; ++k) keepcandidate(100 * k, 0.5, freqs, strengths);
    EXPECT_EQ(freqs, (slotvalues{0, 100, 200, 300, 400, 0}));
    keepcandidate(500, 0.4, freqs, strengths);
    EXPECT_EQ(freqs, (slotvalues{0, 100, 200, 300, 400, 0}));
    keepcandidate(600, 0.5, freqs, strengths);  // of equals the first goes, for one as strong
    EXPECT_EQ(freqs, (slotvalues{0, 600, 200, 300, 400, 0}));
    keepcandidate(700, 0.75, freqs, strengths);
    keepcandidate(800, 0.5, freqs, strengths);
    EXPECT_EQ(freqs, (slotvalues{0, 700, 800, 300, 400, 0}));
    EXPECT_EQ(strengths, (slotvalues{0, 0.75, 0.5, 0.5, 0.5, 0}));
}

TEST(path, byhand) {
    const transitioncosts transition(2.0);
    framecandidates before, now;
    before.freq = {0, 100, 400, 0, 0, 0};
    now.freq = {0, 200, 0, 0, 0, 0};
    // An octave costs 0.35 and a change of voicing 0.14, times the frames per 10 ms.
    const slotvalues cost =
        linkframe(before, {0, -1.0, -1.0, 0, 0, -1.5}, now, {0, 0.75, 0, 0, 0, 0.5}, transition);
    EXPECT_NEAR(cost[1], -1.5 - 0.75 + 0.28, 1e-15);
    EXPECT_EQ(now.back[1], us);
    EXPECT_EQ(cost[us], -2.0);
    EXPECT_EQ(now.back[us], us);
    const slotvalues jumped =
        linkframe(before, {0, -1.0, -1.0, 0, 0, 9.0}, now, {0, 0.75, 0, 0, 0, 0.5}, transition);
    EXPECT_NEAR(jumped[1], -1.0 - 0.75 + 0.7, 1e-15);
    EXPECT_EQ(now.back[1], 1u);  // an octave up or down is the same: the lower slot
    EXPECT_NEAR(jumped[us], -1.0 - 0.5 + 0.28, 1e-15);
    EXPECT_EQ(now.back[us], 1u);
    // The cheapest end, of equals that in the lowest slot, and back from there.
    double f0[2];
    traceback({before, now}, {0, -2.0, 0, 0, 0, -2.0}, f0);
    EXPECT_EQ(f0[0], 100);
    EXPECT_EQ(f0[1], 200);
    now.back[us] = 2;
    traceback({before, now}, {0, -2.0, 0, 0, 0, -2.5}, f0);
    EXPECT_EQ(f0[0], 400);
    EXPECT_EQ(f0[1], 0);
}

}  // namespace
