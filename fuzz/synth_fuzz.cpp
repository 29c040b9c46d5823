// The synthesiser on short tracks with any values, options and names: what it accepts becomes a WAV
// file of the right length that the analyser's reader takes; what it refuses leaves no file and no
// track changed.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "driver/synth.h"
#include "fuzzing.h"
#include "io/binaryfile.h"
#include "io/wavm1616io.h"

using namespace nalveo;

namespace {

// A value in range, mostly, or any float at all.
float valueof(FuzzedDataProvider &input, float lowest, float highest) {
    if (input.ConsumeIntegralInRange(0, 400) > 0)
        return input.ConsumeFloatingPointInRange(lowest, highest);
    const auto bits = input.ConsumeIntegral<std::uint32_t>();
    float value = 0.0F;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::string bytesof(const std::vector<float> &values, std::size_t rest) {
    std::string bytes(reinterpret_cast<const char *>(values.data()), values.size() * sizeof(float));
    return bytes + std::string(rest, 'x');
}

struct trackbytes {
    std::string lf0, mcc, mvf;
};

trackbytes tracksof(FuzzedDataProvider &input) {
    const auto nframes = input.ConsumeIntegralInRange<std::size_t>(0, 12);
    const auto order = input.ConsumeIntegralInRange<std::size_t>(0, 8);
    std::vector<float> lf0, mcc, mvf;
    bool voiced = false;
    for (std::size_t k = 0; k < nframes; ++k) {
        if (input.ConsumeIntegralInRange(0, 3) == 0) voiced = !voiced;
        lf0.push_back(voiced ? valueof(input, 2.7F, 8.98F) : -1e10F);
        mvf.push_back(valueof(input, 0.0F, 8000.0F));
        for (std::size_t j = 0; j <= order; ++j) mcc.push_back(valueof(input, -100.0F, 100.0F));
    }
    if (input.ConsumeIntegralInRange(0, 9) == 0 && !mcc.empty()) mcc.pop_back();
    const std::size_t rest = input.ConsumeIntegralInRange<std::size_t>(0, 3);
    return {bytesof(lf0, rest), bytesof(mcc, rest), bytesof(mvf, rest)};
}

// An option with a value near its range, or none.
void addoption(FuzzedDataProvider &input, const char *name, int lowest, int highest,
               std::vector<std::string> *arguments) {
    if (input.ConsumeBool()) return;
    const int value = input.ConsumeIntegralInRange(lowest - 1, highest);
    arguments->push_back("--" + std::string(name) + '=' + std::to_string(value));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    static const memoryfolder folder;
    folder.clear();
    const trackbytes tracks = tracksof(input);
    folder.put("lf0", tracks.lf0);
    folder.put("mcc", tracks.mcc);
    folder.put("mvf", tracks.mvf);
    const auto before = folder.files();

    std::vector<std::string> arguments = {"synth", folder / "lf0", folder / "mcc"};
    if (input.ConsumeIntegralInRange(0, 3) > 0) arguments.push_back(folder / "mvf");
    const std::string out = folder / (input.ConsumeIntegralInRange(0, 9) > 0 ? "out" : "mcc");
    arguments.push_back(out);
    const int lframe = input.ConsumeIntegralInRange(0, 300);
    arguments.push_back("--lframe=" + std::to_string(lframe));
    const int length = input.ConsumeIntegralInRange(0, 500);
    arguments.push_back("--length=" + std::to_string(length));
    addoption(input, "seed", 0, 9, &arguments);
    addoption(input, "gain", -100, 101, &arguments);
    addoption(input, "htsscale", 0, 1, &arguments);
    if (input.ConsumeBool())
        arguments.push_back("--alpha=" +
                            std::to_string(input.ConsumeFloatingPointInRange(-1.01, 1.01)));
    if (input.ConsumeIntegralInRange(0, 9) == 0)
        arguments.push_back(input.ConsumeRandomLengthString(20));

    const int status = runsilent(synthmain, arguments);
    auto after = folder.files();
    if (status != 0) {
        require(after == before, "a refusal changes no file");
        return 0;
    }
    require(after.count("out") == 1, "what is accepted is written");
    double *read = nullptr;
    const std::uint32_t nsamples = wavreadm1616(out.c_str(), &read);
    const readerarray samples(read);
    const auto all = static_cast<std::uint32_t>(lframe) *
                     static_cast<std::uint32_t>(tracks.lf0.size() / sizeof(float));
    require(nsamples == (length > 0 ? static_cast<std::uint32_t>(length) : all),
            "the waveform has its length");
    after.erase("out");
    require(after == before, "the tracks stay as they were");
    return 0;
}
