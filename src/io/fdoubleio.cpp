#include "io/fdoubleio.h"

#include <sys/stat.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "io/wholefile.h"

using namespace nalveo;

static_assert(std::endian::native == std::endian::little && sizeof(float) == 4,
              "tracks are written in the machine's order");

namespace {

// Narrows to floats, nearest value. Float k overwrites half of double k / 2, which has been
// read already, so floats may replace the doubles in place.
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

// Number of whole values in a file, which is left at its start; nothing for what has no size, as a
// folder or a pipe, or more values than can be counted.
std::optional<std::uint32_t> countvalues(std::FILE *file) {
    if (std::fseek(file, 0, SEEK_END) != 0) return std::nullopt;
    const long size = std::ftell(file);
    std::rewind(file);
    if (size < 0) return std::nullopt;
    const std::uint64_t count = static_cast<std::uint64_t>(size) / sizeof(float);
    if (count > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    return static_cast<std::uint32_t>(count);
}

}  // namespace

std::uint32_t fdoublewrite(const char *path, double *values, std::uint32_t count,
                           std::int8_t copy) {
    if (path == nullptr || count == 0) return 0;
    const std::size_t size = count * sizeof(float);
    std::unique_ptr<unsigned char[]> own;
    if (copy == 1) own = std::make_unique_for_overwrite<unsigned char[]>(size);
    unsigned char *const floats = own ? own.get() : reinterpret_cast<unsigned char *>(values);
    narrow(values, count, floats);
    return nalveo::writewhole(path, std::as_bytes(std::span(floats, size))) ? count : 0;
}

std::uint32_t fdoubleread(const char *path, double **values) {
    if (path == nullptr) return 0;
    readerarray track;
    std::uint32_t count = 0;
    if (nalveo::readtrack(path, &track, &count) != nalveo::trackstate::good) return 0;
    *values = track.release();
    return count;
}

namespace nalveo {

trackstate readtrack(const char *path, readerarray *values, std::uint32_t *count) {
    // A pipe without a writer would have us wait for one.
    struct stat found;
    if (stat(path, &found) == 0 && S_ISFIFO(found.st_mode)) return trackstate::unreadable;
    const filehandle file(std::fopen(path, "rb"));
    if (!file)
        return errno == ENOENT || errno == ENOTDIR ? trackstate::missing : trackstate::unreadable;
    const std::optional<std::uint32_t> held = countvalues(file.get());
    if (!held) return trackstate::unreadable;
    if (*held == 0) {  // of which a folder is told by the error that reading it gives
        static_cast<void>(std::getc(file.get()));
        return std::ferror(file.get()) == 0 ? trackstate::empty : trackstate::unreadable;
    }
    std::uint32_t got = *held;
    readerarray track = readvalues(file.get(), sizeof(float), &got);
    if (got < *held) return trackstate::unreadable;
    widen(track.get(), got);
    *values = std::move(track);
    *count = got;
    return trackstate::good;
}

}  // namespace nalveo
