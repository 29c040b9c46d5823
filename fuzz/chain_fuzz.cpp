// The whole program on short signals with any options and names: whatever it accepts, all outputs
// have the right size and hold finite numbers; whatever it refuses, every file stays as it was.

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cmath>
#include <cstring>
#include <set>
#include <vector>

#include "driver/nalveo.h"
#include "fuzzing.h"
#include "numeric/windowing.h"

using namespace nalveo;

namespace {

template <class Value>
std::string littleendian(Value value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::string wavbytes(const std::string &samples) {
    const std::string header(
        "RIFF\0\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x80\x3e\0\0\0\x7d\0\0\2\0\x10\0data", 40);
    return header + littleendian(static_cast<std::uint32_t>(samples.size())) + samples;
}

// A period of samples, repeated with a slow change: what a voice looks like to the tracker. Without
// a period, the samples as they are.
std::string signalof(FuzzedDataProvider &input, std::size_t n) {
    const auto period = input.ConsumeIntegralInRange<std::size_t>(0, 500);
    const double growth = 1.0 + 1e-3 * input.ConsumeFloatingPointInRange(-1.0, 1.0);
    std::vector<std::int16_t> values;
    for (std::size_t i = 0; i < n; ++i) {
        if (period > 0 && i >= period) {
            const double next = growth * values[i - period];
            values.push_back(static_cast<std::int16_t>(std::clamp(next, -32768.0, 32767.0)));
        } else {
            values.push_back(input.ConsumeIntegral<std::int16_t>());
        }
    }
    return {reinterpret_cast<const char *>(values.data()), 2 * n};
}

// Values that a user may give, in and out of range.
double realoption(FuzzedDataProvider &input, double lowest, double highest) {
    constexpr double odd[] = {0.0, -1.0, 1e300, -1e300, 1e-300, NAN, INFINITY};
    if (input.ConsumeIntegralInRange(0, 9) == 0) return input.PickValueInArray(odd);
    return input.ConsumeFloatingPointInRange(lowest, highest);
}

std::string written(double value) {
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "%.17g", value);
    return text.data();
}

int wholeoption(FuzzedDataProvider &input, int lowest, int highest) {
    constexpr int odd[] = {0, -1, 1, INT32_MAX, INT32_MIN};
    if (input.ConsumeIntegralInRange(0, 9) == 0) return input.PickValueInArray(odd);
    return input.ConsumeIntegralInRange(lowest, highest);
}

void requirefinite(const std::string &bytes, const char *property) {
    for (std::size_t k = 0; k + 4 <= bytes.size(); k += 4) {
        float value = 0.0F;
        std::memcpy(&value, &bytes[k], 4);
        require(std::isfinite(value), property);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    static const memoryfolder folder;
    folder.clear();
    for (const char *other : {"x", "y"}) folder.put(other, "mine");
    std::filesystem::create_symlink("cc", folder / "ahead");
    std::filesystem::create_hard_link(folder / "x", folder / "hard");
    // One run in eight or so has names that are not the four of a careful user.
    std::string wave = "wave", f0 = "f0", cc = "cc", fv = "fv";
    for (std::string *name : {&wave, &f0, &cc, &fv}) {
        constexpr const char *odd[] = {"wave", "f0", "cc", "fv", "x", "y", "ahead", "hard"};
        if (input.ConsumeIntegralInRange(0, 31) == 31) *name = input.PickValueInArray(odd);
    }

    const int lframe = wholeoption(input, 40, 400), ccord = wholeoption(input, 0, 50);
    // A frame takes milliseconds under the sanitizers, so there are few.
    const auto n = input.ConsumeIntegralInRange<std::uint32_t>(
        1, static_cast<std::uint32_t>(6 * std::clamp(lframe, 1, 400)));
    const int f0load = input.ConsumeIntegralInRange(0, 1);
    std::vector<std::string> arguments{"nalveo16",
                                       folder / wave,
                                       folder / f0,
                                       folder / cc,
                                       folder / fv,
                                       "--lframe=" + std::to_string(lframe),
                                       "--ccord=" + std::to_string(ccord),
                                       "--ccmeth=" + std::to_string(wholeoption(input, 0, 5)),
                                       "--f0acc=" + std::to_string(wholeoption(input, 0, 5)),
                                       "--zfill=" + std::to_string(wholeoption(input, 0, 200)),
                                       "--htsscale=" + std::to_string(wholeoption(input, 0, 1)),
                                       "--f0load=" + std::to_string(f0load),
                                       "--alpha=" + written(realoption(input, -0.99, 0.99)),
                                       "--f0min=" + written(realoption(input, 50.0, 600.0)),
                                       "--f0max=" + written(realoption(input, 30.0, 9000.0))};
    if (f0load != 0) {
        const auto loaded = input.ConsumeIntegralInRange<std::size_t>(0, 80);
        std::string track;
        for (std::size_t k = 0; k < loaded; ++k)
            track += littleendian(static_cast<float>(realoption(input, 4.0, 9.2)));
        folder.put(f0, track);
    }
    folder.put(wave, wavbytes(signalof(input, n)));

    auto files = folder.files();
    const auto before = files;
    const int status = runsilent(nalveomain, arguments);
    files = folder.files();
    const auto place = [](const std::string &name) { return name == "ahead" ? "cc" : name; };
    const std::set<std::string> outputs{place(f0), place(cc), place(fv)};
    if (status != 0 || files == before) {
        require(files == before, "what is refused leaves everything as it was");
        return 0;
    }
    require(outputs.size() == 3 && outputs.count(place(wave)) == 0, "no file is named twice");
    std::size_t frames = getnumframes(n, static_cast<std::uint32_t>(lframe), 0);
    if (f0load != 0 && before.count(f0) != 0 && before.at(f0).size() >= 4)
        frames = std::min(frames, before.at(f0).size() / 4);
    require(files[f0].size() / 4 == frames && files[fv].size() == 4 * frames &&
                files[cc].size() == 4 * frames * (static_cast<std::size_t>(ccord) + 1),
            "every output holds every frame");
    requirefinite(files[f0], "log f0 is finite");
    requirefinite(files[fv], "the maximum voiced frequency is finite");
    requirefinite(files[cc], "the cepstra are finite");
    for (const auto &[name, bytes] : before)
        require(files.count(name) != 0 && (outputs.count(place(name)) != 0 || files[name] == bytes),
                "no other file changes");
    for (const auto &[name, bytes] : files)
        require(before.count(name) != 0 || outputs.count(name) != 0, "no other file appears");
    return 0;
}
