#include "driver/indexlist.h"

#include <gtest/gtest.h>

#include <string>

TEST(strnumdiagnose, tellsgoodlistsfrombad) {
    for (const char *good : {"1-5,7,9-12", "3", "0", "1-100(3)", "007-9", "0007(1)", "1-3(2)x",
                             "1-3-5", "0-1", "1-1000(0)", "1(99999999999)", "1410065407", "1(1)("})
        EXPECT_EQ(strnumdiagnose(good), 0) << good;
    for (const char *bad : {"", "-3", "1,,2", "1,-2", "1-", "1,", "5-5", "5-3", "3,1", "1-5,4-8",
                            "1-3-2", "1 2", " 1"})
        EXPECT_EQ(strnumdiagnose(bad), -1) << bad;
    for (const char *bad :
         {"1(0", "1(", "1()", "1(2x)", "1-1000(3)", "12(1)", "1-(2)", "1x", "(1)"})
        EXPECT_EQ(strnumdiagnose(bad), -1) << bad;
    for (const char *bad : {"+1", "1410065408", "1-4294967297", "18446744073709551617"})
        EXPECT_EQ(strnumdiagnose(bad), -1) << bad;
}

TEST(replacefileindex, rewritesthefirstfieldofthelastcomponent) {
    const struct {
        const char *before;
        std::uint32_t index;
        const char *after;  // null: refused, the name stays
    } cases[] = {{"utt????.wav", 7, "utt0007.wav"},
                 {"utt0007.wav", 123, "utt0123.wav"},
                 {"utt??.wav", 123, nullptr},
                 {"dir9/utt?.wav", 0, "dir9/utt0.wav"},
                 {"dir9\\utt?.wav", 3, "dir9\\utt3.wav"},
                 {"data/take2_????.wav", 5, "data/take5_????.wav"},
                 {"?12?x?", 34, "0034x?"},
                 {"??????????", 4294967295, "4294967295"},
                 {"dir9/utt.wav", 1, nullptr},
                 {"", 1, nullptr}};
    for (const auto &c : cases) {
        std::string path = c.before;
        EXPECT_EQ(replacefileindex(path.data(), c.index), c.after != nullptr ? 0 : -1) << c.before;
        EXPECT_EQ(path, c.after != nullptr ? c.after : c.before);
    }
}
