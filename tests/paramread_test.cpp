#include "driver/paramread.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(paramnamematch, takesawholenameinanycase) {
    const struct {
        const char *argument, *name, *value;
    } cases[] = {{"--F0Min=70", "f0min", "70"},
                 {"--f0min=70", "F0MIN", "70"},
                 {"--lframe= 90", "lframe", " 90"},
                 {"--indlist=1=2", "indlist", "1=2"},
                 {"--\xe4=1", "\xe4", "1"},
                 {"--\xe4=1", "\xc4", nullptr},  // one letter in some character sets
                 {"--a[=1", "a{", nullptr},      // as far apart as a and A
                 {"--f0mi=70", "f0min", nullptr},
                 {"--f0minx=70", "f0min", nullptr},
                 {"--lframe=", "lframe", nullptr},
                 {"--lframe", "lframe", nullptr},
                 {"--=3", "", nullptr},
                 {"-lframe=80", "lframe", nullptr},
                 {" -lframe=80", "lframe", nullptr},
                 {"", "", nullptr}};
    for (const auto &c : cases) {
        std::string argument = c.argument;
        EXPECT_STREQ(paramnamematch(argument.data(), c.name), c.value) << c.argument;
        EXPECT_EQ(argument, c.argument);
    }
}

TEST(getintparam, takesnonumberthatintholds) {
    int value = 7;
    for (std::string bad : {"--n=2147483648", "--n=-2147483649", "--n=4294967376",
                            "--n=99999999999999999999", "--n=x1"})
        EXPECT_EQ(getintparam(bad.data(), "n", &value), -1) << bad;
    EXPECT_EQ(value, 7);
    std::string lowest = "--n= -2147483648.5";
    ASSERT_EQ(getintparam(lowest.data(), "n", &value), 0);
    EXPECT_EQ(value, -2147483647 - 1);
}

TEST(searchparam, takesthefirstthatgivesavalueandmarksit) {
    std::vector<std::string> list = {"file", "--n=abc", "--N=100", "--n=120", " stray"};
    std::vector<char *> arguments;
    for (std::string &argument : list) arguments.push_back(argument.data());
    int value = 0;
    ASSERT_EQ(searchintparam(5, arguments.data(), "n", &value), 0);
    EXPECT_EQ(value, 100);
    EXPECT_EQ(searchintparam(5, arguments.data(), "n", &value), 0);
    EXPECT_EQ(value, 120);
    EXPECT_EQ(searchintparam(5, arguments.data(), "n", &value), -1);
    EXPECT_EQ(unreadparams(4, arguments.data() + 1), 1);
    EXPECT_STREQ(searchstringparam(5, arguments.data(), "n"), "abc");
    EXPECT_EQ(searchstringparam(5, arguments.data(), "n"), nullptr);
    EXPECT_EQ(unreadparams(4, arguments.data() + 1), 0) << "a leading blank is a mark";
    EXPECT_EQ(unreadparams(5, arguments.data()), 1);
    EXPECT_EQ(list, (std::vector<std::string>{"file", " -n=abc", " -N=100", " -n=120", " stray"}));
}

TEST(getdigits, countsdecimaldigits) {
    for (std::uint32_t n = 1, digits = 1; digits < 10; n *= 10, ++digits) {
        EXPECT_EQ(getdigits(n), digits);
        EXPECT_EQ(getdigits(n * 10 - 1), digits);
    }
    EXPECT_EQ(getdigits(0), 1U);
    EXPECT_EQ(getdigits(4294967295), 10U);  // beyond the last 32-bit power of ten
}

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
