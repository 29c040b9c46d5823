// Lists of arguments, one per line, through the searches for every option; against sscanf and a
// plain reading of the rules for names.

#include <climits>
#include <string_view>
#include <vector>

#include "driver/paramread.h"
#include "fuzzing.h"

namespace {

std::string lower(std::string text) {
    for (char &c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

// The value that an argument gives a name; null when it gives none.
const char *valueof(const std::string &argument, const std::string &name) {
    const std::size_t equals = argument.find('=', 2);
    if (argument.compare(0, 2, "--") != 0 || equals == std::string::npos) return nullptr;
    if (equals == 2 || equals + 1 == argument.size()) return nullptr;
    return lower(argument.substr(2, equals - 2)) == name ? &argument[equals + 1] : nullptr;
}

// A number that is too long for this conversion saturates, which is beyond an int all the same.
bool expected(const char *text, int *value) {
    long wide = 0;
    if (std::sscanf(text, "%ld", &wide) != 1 || wide < INT_MIN || wide > INT_MAX) return false;
    *value = static_cast<int>(wide);
    return true;
}

bool expected(const char *text, double *value) { return std::sscanf(text, "%lf", value) == 1; }

int search(std::uint32_t count, char **list, const char *name, int *value) {
    return searchintparam(count, list, name, value);
}

int search(std::uint32_t count, char **list, const char *name, double *value) {
    return searchdoubleparam(count, list, name, value);
}

bool same(double a, double b) { return a == b || (a != a && b != b); }

template <class Value>
void searchone(std::vector<std::string> &arguments, const char *name) {
    std::vector<std::string> after = arguments;
    Value wanted{}, value{};
    bool found = false;
    for (std::string &argument : after) {
        const char *const text = valueof(argument, name);
        found = text != nullptr && expected(text, &wanted);
        if (!found) continue;
        argument[0] = ' ';
        break;
    }
    if (!found) wanted = Value{};
    std::vector<char *> list;
    for (std::string &argument : arguments) list.push_back(argument.data());
    const auto count = static_cast<std::uint32_t>(list.size());
    require((search(count, list.data(), name, &value) == 0) == found, "what is there is found");
    require(same(value, wanted), "the value is what stands there");
    require(arguments == after, "the argument that was used is marked, and no other changes");
    bool unread = false;
    for (const std::string &argument : arguments) unread = unread || argument[0] != ' ';
    require((unreadparams(count, list.data()) == 1) == unread, "the unread are seen");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::vector<std::string> arguments(1);
    for (std::size_t i = 0; i < size && data[i] != 0; ++i) {
        if (data[i] == '\n')
            arguments.emplace_back();
        else
            arguments.back() += static_cast<char>(data[i]);
    }
    searchone<double>(arguments, "f0min");
    searchone<double>(arguments, "alpha");
    searchone<int>(arguments, "lframe");
    searchone<int>(arguments, "zfill");
    return 0;
}
