#include "io/wavm1616io.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

#include "io/binaryfile.h"
#include "io/wholefile.h"

using namespace nalveo;

static_assert(std::endian::native == std::endian::little, "files are read in the machine's order");

namespace {

constexpr std::uint32_t plainformatsize = 16;  // bytes of a "fmt " chunk without extension
constexpr std::uint32_t headersize = 44;       // bytes before the samples of what is written

template <class Field>
bool readfield(std::FILE *file, Field *field) {
    return std::fread(field, sizeof *field, 1, file) == 1;
}

bool readtag(std::FILE *file, const char *expected) {
    std::array<char, 4> tag;
    return readfield(file, &tag) && std::memcmp(tag.data(), expected, tag.size()) == 0;
}

template <class Field>
bool readexpected(std::FILE *file, Field expected) {
    Field value;
    return readfield(file, &value) && value == expected;
}

// Skips by reading, which tells the end of the file and works on a pipe too.
bool skip(std::FILE *file, std::uint32_t count) {
    std::array<char, 4096> ignored;
    while (count > 0) {
        const std::size_t chunk = std::min<std::size_t>(count, ignored.size());
        if (std::fread(ignored.data(), 1, chunk, file) != chunk) return false;
        count -= static_cast<std::uint32_t>(chunk);
    }
    return true;
}

bool readformat(std::FILE *file) {
    std::uint32_t size = 0;
    return readtag(file, "fmt ") && readfield(file, &size) && size >= plainformatsize &&
           readexpected<std::uint16_t>(file, 1) &&              // PCM
           readexpected<std::uint16_t>(file, 1) &&              // channels
           readexpected(file, wavrate) && skip(file, 4 + 2) &&  // byte rate, block align
           readexpected<std::uint16_t>(file, 16) &&             // bits
           skip(file, size - plainformatsize);
}

// Reads everything up to the samples; gives their size in bytes, 0 for a file of any other kind.
std::uint32_t readheader(std::FILE *file) {
    std::uint32_t datasize = 0;
    const bool accepted = readtag(file, "RIFF") && skip(file, 4) && readtag(file, "WAVE") &&
                          readformat(file) && readtag(file, "data") && readfield(file, &datasize);
    return accepted ? datasize : 0;
}

}  // namespace

std::uint32_t wavreadm1616(const char *path, double **samples) {
    const filehandle file(std::fopen(path, "rb"));
    if (!file) return 0;
    const std::uint32_t datasize = readheader(file.get());
    const std::uint32_t claimed = datasize / 2;
    if (claimed == 0) return 0;
    std::uint32_t count = claimed;
    readerarray waveform = readvalues(file.get(), sizeof(std::int16_t), &count);
    // The byte that an odd size ends with is of no use, but it has to be there all the same.
    if (count < claimed || !skip(file.get(), datasize % 2)) return 0;
    wavshort2double(count, reinterpret_cast<const std::int16_t *>(waveform.get()), waveform.get());
    *samples = waveform.release();
    return count;
}

int wavshort2double(std::uint32_t count, const std::int16_t *shorts, double *doubles) {
    // Where the two share their start, double k covers the bytes of shorts 4k .. 4k + 3. Going
    // down, every short is read before a double hides it; memcpy keeps that order under the
    // aliasing rules.
    const auto *const bytes = reinterpret_cast<const unsigned char *>(shorts);
    for (std::size_t k = count; k-- > 0;) {
        std::int16_t value;
        std::memcpy(&value, bytes + k * sizeof value, sizeof value);
        const double sample = value / 32768.0;
        std::memcpy(doubles + k, &sample, sizeof sample);
    }
    return 0;
}

std::uint32_t nalveo::wavwritem1616(const char *path, const double *samples, std::uint32_t count) {
    if (path == nullptr || count == 0 || count > mostwavsamples) return 0;
    // Header and samples in one block.
    std::vector<std::byte> bytes(headersize + std::size_t{2} * count);
    std::byte *end = bytes.data();
    const auto append = [&end](const auto &field) {
        std::memcpy(end, &field, sizeof field);
        end += sizeof field;
    };
    const auto appendtag = [&end](const char *tag) {
        std::memcpy(end, tag, 4);
        end += 4;
    };
    appendtag("RIFF");
    append(std::uint32_t{headersize - 8 + 2 * count});
    appendtag("WAVE");
    appendtag("fmt ");
    append(plainformatsize);
    append(std::uint16_t{1});  // PCM
    append(std::uint16_t{1});  // channels
    append(wavrate);
    append(2 * wavrate);        // bytes per second
    append(std::uint16_t{2});   // bytes per sample of all channels
    append(std::uint16_t{16});  // bits
    appendtag("data");
    append(std::uint32_t{2 * count});
    for (std::uint32_t k = 0; k < count; ++k)
        append(static_cast<std::int16_t>(
            std::clamp(std::floor(samples[k] * 32768.0 + 0.5), -32768.0, 32767.0)));
    return writewhole(path, bytes) ? count : 0;
}
