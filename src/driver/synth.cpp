#include "driver/synth.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "analysis/defaults.h"
#include "analysis/pitchanalysis.h"
#include "driver/filenames.h"
#include "driver/help.h"
#include "driver/indexlist.h"
#include "driver/paramread.h"
#include "driver/program.h"
#include "driver/ranges.h"
#include "io/binaryfile.h"
#include "io/fdoubleio.h"
#include "io/wavm1616io.h"
#include "numeric/elementary.h"
#include "synthesis/synthesis.h"

namespace nalveo {
namespace {

constexpr double samplerate = wavrate;
constexpr int failurestatus = -1;
constexpr double highestseed = 2147483647.0;
constexpr double largestgain = 100.0;  // dB
constexpr double fullscale = 32767.0 / 32768.0;

// Values of all options, here with their defaults.
struct synthoptions {
    double alpha = defaultalpha;  // warping factor of the cepstra
    double gain = 0.0;            // dB
    int lframe = defaultlframe;   // frame shift, samples
    int htsscale = 1;             // 1: the cepstra are scaled for HTS
    double seed = 1.0;            // of the noise, a whole number
    int length = 0;  // samples of the waveform; 0: all that the tracks have something for
};

synthoptions readoptions(std::uint32_t count, char **list) {
    synthoptions set;
    searchdoubleparam(count, list, "alpha", &set.alpha);
    searchdoubleparam(count, list, "gain", &set.gain);
    searchintparam(count, list, "lframe", &set.lframe);
    searchintparam(count, list, "htsscale", &set.htsscale);
    searchdoubleparam(count, list, "seed", &set.seed);
    searchintparam(count, list, "length", &set.length);
    return set;
}

bool checkranges(const synthoptions &set) {
    const int most = static_cast<int>(longestshift);
    return checkoption(set.lframe >= 1 && set.lframe <= most, "lframe", set.lframe,
                       "from 1 to " + numbertext(most)) &&
           checkalpha(set.alpha) &&
           checkoption(std::abs(set.gain) <= largestgain, "gain", set.gain,
                       "from " + numbertext(-largestgain) + " to " + numbertext(largestgain)) &&
           checkoption(
               set.seed >= 0.0 && set.seed <= highestseed && set.seed == std::floor(set.seed),
               "seed", set.seed, "a whole number from 0 to 2147483647") &&
           checkoption(set.length >= 0, "length", set.length, "at least 0");
}

void printhelp(const char *path) {
    const synthoptions defaults;
    std::puts("");
    std::puts("  Resynthesis of speech from what nalveo16 writes: harmonics plus noise.");
    std::puts("");
    std::puts("  Usage:");
    std::printf("   %s filef0 filecc [filefv] fileout [params]\n", getfilename(path));
    std::puts("");
    std::puts("  Arguments:");
    std::puts("   filef0: logf0");
    std::puts("   filecc: cepstral coeffs.; their order is found by the sizes of the files");
    std::puts("   filefv: max. voiced freq.; without it, voiced frames are harmonics only");
    std::puts("   fileout: output wav file (mono 16kHz 16bits)");
    std::puts("");
    std::puts("  Optional parameters and default values:");
    std::printf("   --lframe=%d     Frame shift (samples)\n", defaults.lframe);
    std::printf("   --alpha=%.2f    Warping factor of the cepstra\n", defaults.alpha);
    std::printf("   --htsscale=%d    %d: cepstra are scaled for HTS, else plain\n",
                defaults.htsscale, 1);
    std::printf("   --gain=%.0f        Gain (dB)\n", defaults.gain);
    std::printf("   --length=%d      Length (samples); 0: frames x frame shift\n", defaults.length);
    std::printf("   --seed=%.0f        Seed of the noise\n", defaults.seed);
    std::puts("");
}

// The tracks of a file, owned.
struct loadedtracks {
    readerarray f0, cc, fv;  // fv is null when no file is named
    std::uint32_t nframes = 0;
    std::uint32_t order = 0;

    speechtracks view() const { return {nframes, order, f0.get(), cc.get(), fv.get()}; }
};

// A track is refused where its last value is cut off: it may be of another format, or not whole.
bool load(const char *path, readerarray *values, std::uint32_t *count) {
    const trackstate state = readtrack(path, values, count);
    if (state == trackstate::empty)
        std::printf("Error: %s is empty.\n", path);
    else if (state != trackstate::good)
        std::printf("Error: could not open %s.\n", path);
    if (state != trackstate::good) return false;
    std::error_code failed;
    const std::uintmax_t size = std::filesystem::file_size(path, failed);
    const bool whole = failed || size % sizeof(float) == 0;
    if (!whole)
        std::printf("Error: %s has %s bytes; a file of float32 has a multiple of 4.\n", path,
                    numbertext(size).c_str());
    return whole;
}

// Reads the files and sees that they belong together; says what is wrong when they do not.
bool loadtracks(const filenames &names, loadedtracks *tracks) {
    std::uint32_t ncc = 0, nfv = 0;
    if (!load(names.f0, &tracks->f0, &tracks->nframes) || !load(names.cc, &tracks->cc, &ncc))
        return false;
    const std::uint32_t nframes = tracks->nframes;
    if (ncc % nframes != 0) {
        std::printf("Error: %s holds %u values, which is no multiple of the %u frames of %s.\n",
                    names.cc, ncc, nframes, names.f0);
        return false;
    }
    tracks->order = ncc / nframes - 1;
    if (tracks->order > highestorder) {
        std::printf(
            "Error: %s holds %u values for each of the %u frames of %s; at most %u are "
            "possible.\n",
            names.cc, tracks->order + 1, nframes, names.f0, highestorder + 1);
        return false;
    }
    if (names.fv == nullptr) return true;
    if (!load(names.fv, &tracks->fv, &nfv)) return false;
    if (nfv != nframes)
        std::printf("Error: %s holds %u values, but %s has %u frames.\n", names.fv, nfv, names.f0,
                    nframes);
    return nfv == nframes;
}

bool checkvalues(const filenames &names, const loadedtracks &tracks) {
    const badvalue bad = findbadvalue(tracks.view(), samplerate);
    const auto report = [&](const char *path, const char *what) {
        std::printf("Error: %s holds %s for frame %u; %s.\n", path, numbertext(bad.value).c_str(),
                    bad.frame, what);
        return false;
    };
    switch (bad.where) {
        case badvalue::track::none:
            return true;
        case badvalue::track::f0:
            return report(names.f0, "f0 must be below half the sample rate");
        case badvalue::track::cc:
            return report(names.cc, "a cepstral coefficient must be from -100 to 100");
        case badvalue::track::fv:
            return report(names.fv, "a maximum voiced frequency must be from 0 to 8000");
    }
    return true;
}

// Samples of the waveform; 0, with a message, when the tracks cannot give what is asked for.
std::uint32_t findlength(const synthoptions &set, const loadedtracks &tracks) {
    const std::uint64_t all =
        synthesislength(tracks.nframes, static_cast<std::uint32_t>(set.lframe));
    const auto length = static_cast<std::uint64_t>(set.length);
    if (length > all) {
        std::printf("Error: length is %d, but the tracks end after %s samples.\n", set.length,
                    numbertext(all).c_str());
        return 0;
    }
    const std::uint64_t wanted = length > 0 ? length : all;
    if (wanted > mostwavsamples) {
        std::printf("Error: the tracks make %s samples; a WAV file holds at most %u.\n",
                    numbertext(all).c_str(), mostwavsamples);
        return 0;
    }
    return static_cast<std::uint32_t>(wanted);
}

// Applies the gain, and takes back what leads beyond full scale: by a common factor, since cut
// peaks would be heard.
void setlevel(const char *path, double gain, std::vector<double> *samples) {
    constexpr double decibel = 0.11512925464970229;  // nepers
    const double wanted = exponential(gain * decibel);
    double peak = 0.0;
    for (const double x : *samples) peak = std::max(peak, std::abs(wanted * x));
    const double scale = peak > fullscale ? wanted * (fullscale / peak) : wanted;
    for (double &x : *samples) x *= scale;
    if (peak > fullscale)
        std::printf("Warning: %s has been made %.2f dB quieter, to stay within full scale.\n", path,
                    logarithm(peak / fullscale) / decibel);
}

bool synthesisefile(const synthoptions &set, const filenames &names) {
    if (!checkdistinct(names)) return false;
    loadedtracks tracks;
    if (!loadtracks(names, &tracks) || !checklogf0(names.f0, tracks.f0.get(), tracks.nframes))
        return false;
    logf02f0(tracks.nframes, tracks.f0.get());
    if (!checkvalues(names, tracks)) return false;
    std::vector<double> samples(findlength(set, tracks));
    if (samples.empty()) return false;
    if (names.fv == nullptr)
        std::puts("Warning: no maximum voiced frequencies, voiced frames are harmonics only.");

    const synthesissettings settings{samplerate, static_cast<std::uint32_t>(set.lframe), set.alpha,
                                     set.htsscale == 1, static_cast<std::uint64_t>(set.seed)};
    synthesise(tracks.view(), settings, samples.size(), samples.data());
    setlevel(names.wave, set.gain, &samples);
    if (wavwritem1616(names.wave, samples.data(), static_cast<std::uint32_t>(samples.size())) > 0)
        return true;
    std::printf("Error: could not create %s.\n", names.wave);
    return false;
}

}  // namespace

int synthmain(int argc, char **argv) {
    const char *const program = argc > 0 ? argv[0] : "nalveo16-synth";
    const std::string_view alone = argc == 2 ? argv[1] : "";
    if (argc < 2 || alone == "--help") {
        printhelp(program);
        return 0;
    }
    if (alone == "--version") {
        std::printf("nalveo16-synth %s\n", version);
        return 0;
    }
    const arguments given = splitarguments(argc, argv);
    const synthoptions set = readoptions(given.noptions, given.options);
    if (!checkarguments(given, program) || !checkranges(set)) return failurestatus;
    const filenames names{argv[given.nnames - 1], argv[1], argv[2],
                          given.nnames == 5 ? argv[3] : nullptr};
    try {
        return synthesisefile(set, names) ? 0 : failurestatus;
    } catch (const std::bad_alloc &) {
    } catch (const std::length_error &) {  // more than any memory
    }
    std::printf("Error: not enough memory to synthesise %s.\n", names.wave);
    return failurestatus;
}

}  // namespace nalveo
