// Runs WORLD's analysis over float32 samples, for bench/peers.sh, which compiles it with WORLD's
// source. Speaks the interface of WORLD's headers; results are made and thrown away.
//
//   world SAMPLES dio|harvest spectrum|aperiodicity

#include <cstdio>
#include <cstring>
#include <vector>

#include "world/cheaptrick.h"
#include "world/d4c.h"
#include "world/dio.h"
#include "world/harvest.h"
#include "world/stonemask.h"

namespace {

constexpr int fs = 16000;         // Hz
constexpr double shift = 5.0;     // ms
constexpr double f0floor = 60.0;  // Hz
constexpr double f0ceil = 500.0;  // Hz

std::vector<double> readsamples(const char *name) {
    std::vector<double> samples;
    if (std::FILE *const file = std::fopen(name, "rb")) {
        float value;
        while (std::fread(&value, sizeof value, 1, file) == 1) samples.push_back(value / 32768.0);
        std::fclose(file);
    }
    return samples;
}

// Rows of a matrix, as WORLD takes them.
std::vector<double *> rowsof(std::vector<double> &values, std::size_t columns) {
    std::vector<double *> rows;
    for (std::size_t at = 0; at < values.size(); at += columns) rows.push_back(&values[at]);
    return rows;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) return 2;
    const std::vector<double> x = readsamples(argv[1]);
    if (x.empty()) return 1;
    const int length = static_cast<int>(x.size());
    const bool harvest = std::strcmp(argv[2], "harvest") == 0;

    const int frames =
        harvest ? GetSamplesForHarvest(fs, length, shift) : GetSamplesForDIO(fs, length, shift);
    std::vector<double> times(frames), f0(frames);
    if (harvest) {
        HarvestOption option;
        InitializeHarvestOption(&option);
        option.frame_period = shift;
        option.f0_floor = f0floor;
        option.f0_ceil = f0ceil;
        Harvest(x.data(), length, fs, &option, times.data(), f0.data());
    } else {
        DioOption option;
        InitializeDioOption(&option);
        option.frame_period = shift;
        option.f0_floor = f0floor;
        option.f0_ceil = f0ceil;
        std::vector<double> coarse(frames);
        Dio(x.data(), length, fs, &option, times.data(), coarse.data());
        StoneMask(x.data(), length, fs, times.data(), coarse.data(), frames, f0.data());
    }

    CheapTrickOption spectrum;
    InitializeCheapTrickOption(fs, &spectrum);
    spectrum.f0_floor = f0floor;
    spectrum.fft_size = GetFFTSizeForCheapTrick(fs, &spectrum);
    const std::size_t columns = spectrum.fft_size / 2 + 1;
    std::vector<double> values(columns * frames);
    CheapTrick(x.data(), length, fs, times.data(), f0.data(), frames, &spectrum,
               rowsof(values, columns).data());
    if (std::strcmp(argv[3], "aperiodicity") == 0) {
        D4COption option;
        InitializeD4COption(&option);
        D4C(x.data(), length, fs, times.data(), f0.data(), frames, spectrum.fft_size, &option,
            rowsof(values, columns).data());
    }
    return 0;
}
