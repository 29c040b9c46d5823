// Track bytes: read and written they are the same again, and in Hz they are sound.

#include <algorithm>
#include <cstring>
#include <vector>

#include "analysis/pitchanalysis.h"
#include "fuzzing.h"
#include "io/binaryfile.h"
#include "io/fdoubleio.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const char *const path = memoryfile({reinterpret_cast<const char *>(data), size});
    double untouched = 0.0, *read = &untouched;
    const std::uint32_t count = fdoubleread(path, &read);
    require(count == size / 4, "every whole value is read");
    require((count == 0) == (read == &untouched), "only success stores a result");
    if (count == 0) return 0;
    const readerarray track(read);

    std::vector<double> f0(track.get(), track.get() + count);
    logf02f0(count, f0.data());
    for (const double f : f0) require(f >= 0.0, "f0 is a number and not negative");

    std::vector<float> before(count), after(count + 1);
    std::memcpy(before.data(), data, 4 * before.size());
    for (const auto copy : {std::int8_t{1}, std::int8_t{0}}) {
        require(fdoublewrite(path, track.get(), count, copy) == count, "a track is written");
        const filehandle file(std::fopen(path, "rb"));
        require(std::fread(after.data(), 1, 4 * after.size(), file.get()) == 4 * before.size(),
                "the file holds the values and nothing else");
        require(std::equal(before.begin(), before.end(), after.begin(),
                           [](float a, float b) { return a == b || (a != a && b != b); }),
                "the values are those that were read");
    }
    return 0;
}
