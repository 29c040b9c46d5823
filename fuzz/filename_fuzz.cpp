// An index, four bytes, written into the index field of a path, the bytes that follow.

#include <cstring>

#include "driver/indexlist.h"
#include "driver/paramread.h"
#include "fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::uint32_t index = 0;
    if (size < sizeof index) return 0;
    std::memcpy(&index, data, sizeof index);
    const std::string bytes(reinterpret_cast<const char *>(data) + sizeof index,
                            size - sizeof index);
    const std::string path = bytes.c_str();  // up to the first NUL
    const std::string digits = std::to_string(index);
    const std::size_t name = path.find_last_of("/\\") + 1;  // npos + 1 is 0
    const std::size_t field = path.find_first_of("?0123456789", name);
    const std::size_t end = std::min(path.find_first_not_of("?0123456789", field), path.size());
    const bool has = field != std::string::npos;
    const bool fits = has && digits.size() <= end - field;
    std::string expected = path;
    if (fits)
        expected.replace(field, end - field,
                         std::string(end - field - digits.size(), '0') + digits);

    require(getfilename(path.c_str()) == path.c_str() + name, "the name follows the separators");
    require(getfileindex(path.c_str()) == (has ? path.c_str() + field : nullptr),
            "the field is the first one");
    require(getdigits(index) == digits.size(), "digits are counted");
    std::string rewritten = path;
    require((replacefileindex(rewritten.data(), index) == 0) == fits, "what fits is written");
    require(rewritten == expected, "only the field changes");
    return 0;
}
