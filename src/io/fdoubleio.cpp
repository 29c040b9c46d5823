#include "io/fdoubleio.h"

#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <system_error>

#include "io/binaryfile.h"

using namespace nalveo;

static_assert(std::endian::native == std::endian::little && sizeof(float) == 4,
              "tracks are written in the machine's order");

namespace {

// Narrows to floats, nearest value. Float k lies inside double k / 2, which going up has been read
// by then, so the floats may go over the doubles themselves.
void narrow(const double *values, std::size_t count, unsigned char *floats) {
    for (std::size_t k = 0; k < count; ++k) {
        double value;
        std::memcpy(&value, values + k, sizeof value);
        const auto rounded = static_cast<float>(value);
        std::memcpy(floats + k * sizeof rounded, &rounded, sizeof rounded);
    }
}

// Widens floats at the start of an array to its doubles, going down for the same reason.
void widen(double *values, std::size_t count) {
    const auto *const floats = reinterpret_cast<const unsigned char *>(values);
    for (std::size_t k = count; k-- > 0;) {
        float value;
        std::memcpy(&value, floats + k * sizeof value, sizeof value);
        const double wide = value;
        std::memcpy(values + k, &wide, sizeof wide);
    }
}

// Number of whole values in a file, which is left at its start; 0 for what has no size, as a device
// or a pipe.
std::uint32_t countvalues(std::FILE *file) {
    if (std::fseek(file, 0, SEEK_END) != 0) return 0;
    const long size = std::ftell(file);
    std::rewind(file);
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    const std::uint64_t values = size > 0 ? static_cast<std::uint64_t>(size) / sizeof(float) : 0;
    return values <= most ? static_cast<std::uint32_t>(values) : 0;
}

// Removes a file that was not written whole: half a track would pass for a short one. What is no
// plain file, such as a device or a link, stays.
void discard(const char *path) {
    std::error_code ignored;
    if (std::filesystem::symlink_status(path, ignored).type() ==
        std::filesystem::file_type::regular)
        std::filesystem::remove(path, ignored);
}

}  // namespace

std::uint32_t fdoublewrite(const char *path, double *values, std::uint32_t count,
                           std::int8_t copy) {
    if (path == nullptr || count == 0) return 0;
    filehandle file(std::fopen(path, "wb"));
    if (!file) return 0;
    std::unique_ptr<unsigned char[]> own;
    if (copy == 1) own = std::make_unique_for_overwrite<unsigned char[]>(count * sizeof(float));
    unsigned char *const floats = own ? own.get() : reinterpret_cast<unsigned char *>(values);
    narrow(values, count, floats);
    const bool written = std::fwrite(floats, sizeof(float), count, file.get()) == count;
    // A full disk may show only when the last buffer is flushed.
    const bool closed = std::fclose(file.release()) == 0;
    if (written && closed) return count;
    discard(path);
    return 0;
}

std::uint32_t fdoubleread(const char *path, double **values) {
    if (path == nullptr) return 0;
    const filehandle file(std::fopen(path, "rb"));
    if (!file) return 0;
    std::uint32_t count = countvalues(file.get());
    if (count == 0) return 0;
    readerarray track = readvalues(file.get(), sizeof(float), &count);
    if (count == 0 || std::ferror(file.get()) != 0) return 0;
    widen(track.get(), count);
    *values = track.release();
    return count;
}
