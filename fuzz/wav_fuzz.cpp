// WAV bytes against what stands at their offsets. The input is XORed onto a good file, so that
// zeros are a good one and the tags need not be found first.

#include "fuzzing.h"
#include "io/binaryfile.h"
#include "io/wavm1616io.h"

using namespace nalveo;

namespace {

// Little-endian number at an offset; behind the end of the file, one that no field may have.
std::uint64_t number(const std::string &bytes, std::uint64_t offset, std::size_t size) {
    if (offset + size > bytes.size()) return ~std::uint64_t{0};
    std::uint64_t value = 0;
    while (size-- > 0) value = value << 8 | static_cast<unsigned char>(bytes[offset + size]);
    return value;
}

std::uint64_t expectedcount(const std::string &bytes) {
    const std::uint64_t fmtsize = number(bytes, 16, 4);
    if (bytes.size() < 44 || fmtsize < 16 || 20 + fmtsize > bytes.size()) return 0;
    const std::uint64_t datasize = number(bytes, 24 + fmtsize, 4);
    const bool good = bytes.compare(0, 4, "RIFF") == 0 && bytes.compare(8, 8, "WAVEfmt ") == 0 &&
                      number(bytes, 20, 2) == 1 && number(bytes, 22, 2) == 1 &&
                      number(bytes, 24, 4) == 16000 && number(bytes, 34, 2) == 16 &&
                      bytes.compare(20 + fmtsize, 4, "data") == 0;
    return good && 28 + fmtsize + datasize <= bytes.size() ? datasize / 2 : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string bytes(
        "RIFF\0\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x80\x3e\0\0\0\x7d\0\0\2\0\x10\0data\4\0\0\0", 44);
    bytes.resize(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(bytes[i] ^ data[i]);
    static memoryfile file;
    double untouched = 0.0, *read = &untouched;
    const std::uint32_t count = wavreadm1616(file.put(bytes).c_str(), &read);
    require(count == expectedcount(bytes), "the count is what the header says and the file has");
    require((count == 0) == (read == &untouched), "only success stores a result");
    const readerarray samples(count == 0 ? nullptr : read);
    for (std::uint32_t k = 0; k < count; ++k) {
        const std::uint64_t value = number(bytes, 28 + number(bytes, 16, 4) + 2 * k, 2);
        require(samples[k] * 32768.0 == static_cast<std::int16_t>(value), "a sample is its value");
    }
    return 0;
}
