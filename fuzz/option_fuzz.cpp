// Arguments, one per line, against a search by the C library: occurrence after occurrence of an
// option is found and marked, and no other argument is touched.

#include <strings.h>

#include <sstream>
#include <vector>

#include "driver/paramread.h"
#include "fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::vector<std::string> list;
    std::istringstream lines(std::string(reinterpret_cast<const char *>(data), size));
    for (std::string line; std::getline(lines, line);) list.emplace_back(line.c_str());
    std::vector<char *> arguments;
    for (std::string &argument : list) arguments.push_back(argument.data());
    const auto count = static_cast<std::uint32_t>(list.size());

    std::vector<std::string> expected = list;
    bool unread = false;
    for (std::string &argument : expected) {
        int value = -7;
        char *end = argument.data();
        if (strncasecmp(argument.c_str(), "--lframe=", 9) == 0) {
            const auto number = static_cast<int>(std::strtol(argument.c_str() + 9, &end, 10));
            if (end != argument.c_str() + 9) {
                require(searchintparam(count, arguments.data(), "lframe", &value) == 0 &&
                            value == number,
                        "a number is found in its turn");
                argument[0] = ' ';
                require(list == expected, "its argument is marked and nothing else");
            }
        }
        unread = unread || argument.substr(0, 1) != " ";
    }
    int value = -7;
    require(searchintparam(count, arguments.data(), "lframe", &value) == -1 && value == -7,
            "nothing is found twice");
    require(list == expected, "nothing else has changed");
    require(unreadparams(count, arguments.data()) == unread, "what has no mark is unread");
    return 0;
}
