// Track bytes through the reader and back through the writer, which must give the same bytes.

#include <cstring>

#include "fuzzing.h"
#include "io/binaryfile.h"
#include "io/fdoubleio.h"

using namespace nalveo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    static const memoryfolder folder;
    folder.put("track", bytes);
    const std::string path = folder / "track";
    double untouched = 0.0, *read = &untouched;
    const std::uint32_t count = fdoubleread(path.c_str(), &read);
    require(count == size / 4, "every whole value is read");
    require((count == 0) == (read == &untouched), "only success stores a result");
    if (count == 0) return 0;
    const readerarray track(read);
    const bool copy = data[0] % 2 == 0;
    const double first = track[0];
    require(fdoublewrite(path.c_str(), read, count, copy ? 1 : 0) == count,
            "every value is written");
    const auto files = folder.files();
    const std::string &written = files.at("track");
    require(files.size() == 1, "no other file is left");
    require(written.size() == 4 * std::size_t{count}, "nothing else is written");
    for (std::size_t k = 0; k < written.size(); k += 4) {
        float was = 0.0F, is = 0.0F;
        std::memcpy(&was, &bytes[k], 4);
        std::memcpy(&is, &written[k], 4);
        // The bits of a NaN may change from signalling to quiet.
        require(written.compare(k, 4, bytes, k, 4) == 0 || (was != was && is != is),
                "a value comes back as it was");
    }
    require(!copy || first != first || track[0] == first, "a copy leaves the track alone");
    return 0;
}
