// The C interface with any options and arrays: whatever it accepts, every value is finite, the same
// a second time, and f0 lies where the next step takes it; whatever it refuses has a text.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>
#include <vector>

#include "fuzzing.h"
#include "nalveo.h"

namespace {

using reals = std::vector<double>;

// A value in its range, or now and then anything.
double real(FuzzedDataProvider &input, double lowest, double highest) {
    if (input.ConsumeIntegralInRange(0, 15) == 0) {
        const auto bits = input.ConsumeIntegral<std::uint64_t>();
        double any = 0.0;
        std::memcpy(&any, &bits, sizeof any);
        return any;
    }
    return input.ConsumeFloatingPointInRange(lowest, highest);
}

std::uint32_t whole(FuzzedDataProvider &input, std::uint32_t highest) {
    if (input.ConsumeIntegralInRange(0, 15) == 0) return input.ConsumeIntegral<std::uint32_t>();
    return input.ConsumeIntegralInRange(0u, highest);
}

nalveo_options optionsof(FuzzedDataProvider &input) {
    nalveo_options o;
    nalveo_default_options(&o, sizeof o);
    constexpr double rates[] = {8000, 16000, 22050, 24000, 44100, 48000};
    if (input.ConsumeIntegralInRange(0, 31) == 0) o.size = input.ConsumeIntegral<std::uint32_t>();
    o.frame_shift = whole(input, 400);
    o.fs = input.ConsumeBool() ? input.PickValueInArray(rates) : real(input, 8000, 48000);
    o.f0_floor = real(input, 40, 400);
    o.f0_ceil = real(input, 200, 4000);
    o.alpha = input.ConsumeBool() ? NALVEO_MEL_ALPHA : real(input, -1, 1);
    o.order = whole(input, 60);
    o.method = whole(input, 4);
    o.refine = whole(input, 5);
    o.zfill = whole(input, 300);
    o.hts_scale = whole(input, 1);
    o.f0_given = whole(input, 1);
    return o;
}

bool allfinite(const reals &values) {
    return std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const nalveo_options options = optionsof(input);
    const auto period = input.ConsumeIntegralInRange<std::size_t>(0, 400);
    const auto nsamples = input.ConsumeIntegralInRange<std::size_t>(0, 1500);
    const std::size_t nframes = nalveo_frame_count(nsamples, &options);
    reals f0(nframes, std::nan(""));
    const double pitch = real(input, 60, 4000);
    if (options.f0_given == 1)
        for (double &f : f0) f = input.ConsumeIntegralInRange(0, 3) == 0 ? 0.0 : pitch;
    reals x(nsamples);
    for (std::size_t n = 0; n < nsamples; ++n)
        x[n] = period > 0 && n >= period ? 0.999 * x[n - period] : real(input, -1, 1);

    const reals given = f0;
    reals cc(nframes * (nframes > 0 ? options.order + std::size_t{1} : 0), std::nan(""));
    reals fv(nframes, std::nan(""));
    const int code = nalveo_analyse(x.data(), nsamples, &options, f0.data(), cc.data(), fv.data());
    if (code != NALVEO_OK) {
        require(code != NALVEO_INTERNAL, "no error of the library's own");
        require(std::string_view(nalveo_error_text(code)) != nalveo_error_text(-1),
                "every code has a text");
        return 0;
    }
    require(nframes > 0, "frames where there is a result");
    require(allfinite(f0) && allfinite(cc) && allfinite(fv), "every value is finite");
    for (const double f : f0) require(f >= 0.0 && f < options.fs / 2, "f0 in range");
    for (const double f : fv) require(f >= 0.0 && f <= options.fs / 2, "fv in range");

    reals again = given;
    reals cc2(cc.size());
    reals fv2(fv.size());
    nalveo_analyse(x.data(), nsamples, &options, again.data(), cc2.data(), fv2.data());
    require(again == f0 && cc2 == cc && fv2 == fv, "the same a second time");

    reals frequencies(input.ConsumeIntegralInRange<std::size_t>(1, 9));
    for (double &f : frequencies) f = real(input, 0, options.fs / 2);
    reals levels(nframes * frequencies.size());
    if (nalveo_envelope(cc.data(), nframes, &options, frequencies.data(), frequencies.size(),
                        levels.data()) == NALVEO_OK)
        require(allfinite(levels), "every level is finite");
    return 0;
}
