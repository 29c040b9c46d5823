#include "analysis/conditioning.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>
#include <vector>

namespace {

using doubles = std::vector<double>;

// First values of the noise by independent arithmetic on the first numbers of an unseeded rand():
// u1 (-2 ln s / s) and u2 in turns. The third pair, 1957747793 and 424238335, has s = 1.04 and is
// thrown away, and so is the one before the last.
const doubles reference = {1.818331560632813,  -0.21123414636181392, 0.6530087836637346,
                           0.5968800669521466, -1.538626378863241,   0.536459189623808,
                           -6.64814671610816,  0.10793991159086103,  -3.54030924366978,
                           0.2577418495238488, -19.0832861371721,    0.026801820391231024,
                           2.76516019313138,   0.43459385886536617};

}  // namespace

TEST(gaussrand, startsalikeineverysource) {
    nalveo::noisesource noise, sparednoise;
    doubles white(4, 10.0), filled(7, -0.5);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_NEAR(gaussrand(noise), reference[i], 1e-13 * std::abs(reference[i]));
    nalveo::noisesource copy = noise;  // in the middle of a pair
    addwhitenoise(white.data(), 4, 0.5, noise);
    fillzeros(filled.data(), 7, 6, noise);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(white[i], 10.0 + 0.5 * reference[3 + i], 1e-13 * std::abs(white[i]));
    for (std::size_t i = 0; i < 7; ++i)
        EXPECT_NEAR(filled[i], -0.5 + 1.3 / 32768.0 * reference[7 + i], 1e-15);
    EXPECT_NEAR(gaussrand(copy), reference[3], 1e-13) << "a copy goes on by itself";
    EXPECT_NEAR(gaussrand(sparednoise), reference[0], 1e-13) << "and no source moves another";
}

TEST(defaultrandom, istheunseededsequenceofthegnulibrary) {
    nalveo::defaultrandom random;
    for (const std::uint32_t published : {1804289383U, 846930886U, 1681692777U, 1714636915U})
        EXPECT_EQ(random.next(), published);
#ifdef __GLIBC__
    std::srand(1);
    for (int i = 0; i < 4; ++i) static_cast<void>(std::rand());
    for (int i = 0; i < 100000; ++i)
        ASSERT_EQ(random.next(), static_cast<std::uint32_t>(std::rand())) << i;
#endif
}

TEST(fillzeros, fillsrunslongerthanthethreshold) {
    struct run {
        double value;
        std::size_t length;
        bool filled;
    };
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const std::pair<std::uint32_t, std::vector<run>> cases[] = {
        {399, {{0.0, 400, true}}},
        {400, {{0.0, 400, false}}},
        {0, {{0.0, 400, false}}},
        {160, {{0.1, 200, true}, {0.2, 160, false}, {0.1, 161, true}, {0.3, 1, false}}},
        {160, {{0.3, 1, false}, {-1.0, 160, false}, {0.5, 161, true}}},
        {1, {{0.5, 1, false}}},
        {1, {{nan, 9, false}}}};  // no NaN equals another
    for (const auto &[zfill, runs] : cases) {
        doubles before;
        bool any = false;
        for (const run &r : runs) {
            before.insert(before.end(), r.length, r.value);
            any = any || r.filled;
        }
        doubles after = before;
        nalveo::noisesource noise;
        const auto size = static_cast<std::uint32_t>(after.size());
        EXPECT_EQ(fillzeros(after.data(), size, zfill, noise), any);
        std::size_t i = 0;
        for (const run &r : runs)
            for (const std::size_t end = i + r.length; i < end && r.value == r.value; ++i)
                ASSERT_EQ(after[i] != before[i], r.filled) << "sample " << i << ", " << zfill;
    }
}
