#include "driver/paramread.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
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

TEST(getintparam, takesdecimalnumbersthatanintholds) {
    int value = 7;
    for (std::string bad : {"--n=2147483648", "--n=-2147483649", "--n=4294967376",
                            "--n=99999999999999999999", "--n=x1"})
        EXPECT_EQ(getintparam(bad.data(), "n", &value), -1) << bad;
    EXPECT_EQ(value, 7);
    // Decimal, whatever they begin with, up to what is no digit.
    for (auto [text, number] : {std::pair("--n=010", 10), {"--n=0x1f", 0}, {"--n=+7e3", 7}}) {
        std::string argument = text;
        ASSERT_EQ(getintparam(argument.data(), "n", &value), 0) << text;
        EXPECT_EQ(value, number) << text;
    }
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
