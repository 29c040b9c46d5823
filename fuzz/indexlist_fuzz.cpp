// An index list and a file name, a line each, against a grammar by regular expressions that
// compares numbers as text: it converts no digit, so nothing in it can overflow.

#include <algorithm>
#include <cstring>
#include <regex>

#include "driver/paramread.h"
#include "fuzzing.h"

namespace {

bool less(const std::string &a, const std::string &b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
}

bool wellformed(const std::string &list) {
    static const std::regex grammar(R"(0*(\d+(?:[,-]\d+)*)(?:\(0*(\d+)\)[^]*)?)");
    static const std::regex separator("[,-]0*(?=[0-9])");
    std::smatch parts;
    if (!std::regex_match(list, parts, grammar)) return false;
    const std::string numbers = parts[1], most = parts[2].matched ? parts[2].str() : "0";
    std::string previous;
    std::sregex_token_iterator i(numbers.begin(), numbers.end(), separator, -1);
    for (; i != std::sregex_token_iterator(); ++i) {
        const std::string number = *i;
        if (!less(previous, number) || !less(number, std::to_string(indexlimit))) return false;
        if (most != "0" && less(most, std::to_string(number.size()))) return false;
        previous = number;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size > 300) return 0;  // the regular expressions recurse
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::size_t newline = std::min(input.find('\n'), size);
    const std::string list = input.substr(0, newline).c_str();
    std::string name = newline < size ? input.substr(newline + 1).c_str() : "u??";

    const bool accepted = strnumdiagnose(list.c_str()) == 0;
    require(accepted == wellformed(list), "a list is accepted when it is well formed");
    std::uint32_t next = 0;  // lowest index that may come now
    for (const char *p = accepted ? list.c_str() : nullptr; p != nullptr; p = strnumnextinterv(p)) {
        const std::uint32_t start = strnumintervstart(p), end = strnumintervend(p, start);
        require(start >= next && end >= start && end < indexlimit, "indices ascend");
        std::string rewritten = name;
        if (replacefileindex(rewritten.data(), end) == 0) {
            const char *const field = getfileindex(rewritten.c_str());
            require(strnumintervstart(field) == end, "an index can be read back");
            const std::string digits(field, std::strspn(field, "0123456789"));
            name.replace(static_cast<std::size_t>(field - rewritten.c_str()), digits.size(),
                         digits);
        }
        require(rewritten == name, "nothing but the field is rewritten");
        next = end + 1;
    }
    return 0;
}
