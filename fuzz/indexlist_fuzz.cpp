// Index lists: the verdict against a regular expression and numbers of unlimited length, the walk
// against the list split at its commas.

#include <regex>
#include <vector>

#include "driver/indexlist.h"
#include "fuzzing.h"

using namespace nalveo;

namespace {

std::string significant(const std::string &digits) {
    const std::size_t first = digits.find_first_not_of('0');
    return first == std::string::npos ? "0" : digits.substr(first);
}

bool below(const std::string &a, const std::string &b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
}

std::vector<std::string> numbersof(const std::string &text) {
    static const std::regex number("[0-9]+");
    std::vector<std::string> numbers;
    for (std::sregex_iterator i(text.begin(), text.end(), number), end; i != end; ++i)
        numbers.push_back(significant(i->str()));
    return numbers;
}

bool wellformed(const std::string &list) {
    static const std::regex form("[0-9]+([-,][0-9]+)*(\\([0-9]+\\)[^]*)?");
    if (!std::regex_match(list, form)) return false;
    const std::size_t bracket = list.find('(');
    std::string most = "0";
    if (bracket != std::string::npos)
        most = significant(list.substr(bracket + 1, list.find(')') - bracket - 1));
    const std::vector<std::string> numbers = numbersof(list.substr(0, bracket));
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (!below(numbers[i], std::to_string(indexlimit))) return false;
        if (i > 0 && !below(numbers[i - 1], numbers[i])) return false;
        if (most != "0" && below(most, std::to_string(numbers[i].size()))) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::string list = text.c_str();  // up to the first NUL, as an argument is
    const bool good = strnumdiagnose(list.c_str()) == 0;
    if (list.size() > 2000) return 0;  // std::regex recurses once per character
    require(good == wellformed(list), "the verdict follows the rules");
    if (!good) return 0;
    const char *position = list.c_str();
    const std::string intervals = list.substr(0, list.find('('));
    for (std::size_t from = 0; from <= intervals.size();) {
        const std::size_t comma = std::min(intervals.find(',', from), intervals.size());
        const std::vector<std::string> ends = numbersof(intervals.substr(from, comma - from));
        require(position != nullptr, "the walk reaches every interval");
        const std::uint32_t start = strnumintervstart(position);
        require(
            std::to_string(start) == ends[0] && std::to_string(strnumintervend(position, start)) ==
                                                    ends[std::min<std::size_t>(1, ends.size() - 1)],
            "an interval goes from its first number to the one after");
        position = strnumnextinterv(position);
        from = comma + 1;
    }
    require(position == nullptr, "the walk ends with the list");
    return 0;
}
