#include "driver/nalveo.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/conditioning.h"
#include "analysis/defaults.h"
#include "analysis/fvanalysis.h"
#include "analysis/harmonicanalysis.h"
#include "analysis/pitchanalysis.h"
#include "driver/filenames.h"
#include "driver/help.h"
#include "driver/indexlist.h"
#include "driver/program.h"
#include "driver/ranges.h"
#include "driver/settings.h"
#include "io/binaryfile.h"
#include "io/fdoubleio.h"
#include "io/wavm1616io.h"
#include "numeric/windowing.h"

namespace nalveo {
namespace {

constexpr double samplerate = wavrate;
constexpr int failurestatus = -1;

// What a run carries from one file to the next: the noise, which goes on so that no two files get
// the same, and the number of analyses to time, which the first file that gets that far uses up.
struct runstate {
    noisesource noise;
    int timings;
};

// f0 of a file's frames, in Hz.
struct f0track {
    readerarray values;  // null for a track that was refused
    std::uint32_t nframes = 0;
    bool keepfile = false;  // it was loaded, and its file holds just these values
};

f0track estimatef0(const settings &set, const double *waveform, std::uint32_t nsamples,
                   std::uint32_t nframes) {
    readerarray values(static_cast<double *>(std::malloc(nframes * sizeof(double))));
    if (!values) throw std::bad_alloc();
    getpitch(waveform, nsamples, static_cast<std::uint32_t>(set.lframe), 0, nframes, values.get(),
             samplerate, set.f0min, set.f0max);
    return {std::move(values), nframes, false};
}

// A loaded track can shorten the analysis but not lengthen it. One that is too long is cut, in its
// file too; one that is missing or empty is replaced by an estimate. One that is there but cannot
// be read, or has a value out of range, is refused with a message and stays: it may be somebody's
// work by hand. The result holds no values then.
f0track obtainf0(const settings &set, const char *filef0, const double *waveform,
                 std::uint32_t nsamples, std::uint32_t nframes) {
    readerarray read;
    std::uint32_t loaded = 0;
    const trackstate state =
        set.f0load != 0 ? readtrack(filef0, &read, &loaded) : trackstate::missing;
    if (state == trackstate::unreadable) {
        std::printf("Error: could not open %s.\n", filef0);
        return {};
    }
    if (state != trackstate::good) return estimatef0(set, waveform, nsamples, nframes);
    f0track track{std::move(read), std::min(loaded, nframes), loaded <= nframes};
    if (!checklogf0(filef0, track.values.get(), track.nframes)) return {};
    logf02f0(track.nframes, track.values.get());
    return track;
}

void analysecepstra(const settings &set, const double *waveform, std::uint32_t nsamples,
                    const f0track &f0, double *cc, int *timings) {
    const auto analyse = [&] {
        waveform2cc(waveform, nsamples, static_cast<std::uint32_t>(set.lframe), 0, f0.nframes,
                    f0.values.get(), static_cast<std::uint32_t>(set.ccord), cc,
                    static_cast<std::uint8_t>(set.ccmeth), samplerate, set.alpha);
    };
    if (*timings == 0) {
        analyse();
        return;
    }
    const std::time_t start = std::time(nullptr);
    for (; *timings > 0; --*timings) analyse();
    std::printf("Time: %d\n", static_cast<int>(std::time(nullptr) - start));
}

// Writes a track over its own storage, which is of no use after that.
void writetrack(const char *path, double *values, std::uint32_t count) {
    if (fdoublewrite(path, values, count, 0) == 0)
        std::printf("Error: could not create %s.\n", path);
}

// The cepstral matrix of a file: by far the largest output, so it is taken before the work begins.
std::vector<double> makematrix(std::uint32_t nframes, std::uint32_t ccord) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    if (std::uint64_t{nframes} * (ccord + 1) > most) throw std::bad_alloc();
    return std::vector<double>(getccsize(nframes, ccord));
}

void warnoflowf0(const f0track &f0, const char *wave) {
    const double *const values = f0.values.get();
    if (std::any_of(values, values + f0.nframes,
                    [](double f) { return f > 0.0 && f < lowestmodelled; }))
        std::printf("Warning: frames of %s with f0 below %.0f Hz are analysed as unvoiced.\n", wave,
                    lowestmodelled);
}

// The chain of one recording, from its samples to its tracks.
void analysefile(const settings &set, const filenames &names, runstate *state) {
    double *read = nullptr;
    const std::uint32_t nsamples = wavreadm1616(names.wave, &read);
    if (nsamples == 0) {
        std::printf("Error: could not open %s.\n", names.wave);
        return;
    }
    readerarray waveform(read);
    const auto zfill = static_cast<std::uint32_t>(set.zfill);
    if (fillzeros(waveform.get(), nsamples, zfill, state->noise) == 1)
        std::printf("Warning: zeros in %s have been filled with noise.\n", names.wave);

    const auto lframe = static_cast<std::uint32_t>(set.lframe);
    const auto ccord = static_cast<std::uint32_t>(set.ccord);
    const std::uint32_t ngrid = getnumframes(nsamples, lframe, 0);
    std::vector<double> cc = makematrix(ngrid, ccord);
    const f0track f0 = obtainf0(set, names.f0, waveform.get(), nsamples, ngrid);
    if (!f0.values) return;
    warnoflowf0(f0, names.wave);
    double *const f0values = f0.values.get();

    std::vector<double> fv;
    if (names.fv != nullptr) {
        fv.resize(f0.nframes);
        getfvoicing(waveform.get(), nsamples, lframe, 0, f0.nframes, f0values, fv.data(),
                    samplerate);
    }
    if (set.f0acc != 0) {
        const std::uint32_t iterations =
            std::min(static_cast<std::uint32_t>(set.f0acc), mostrefinements);
        refinepitch(waveform.get(), nsamples, lframe, 0, f0.nframes, iterations, f0values,
                    fv.empty() ? nullptr : fv.data(), samplerate, set.f0min, set.f0max);
    }
    analysecepstra(set, waveform.get(), nsamples, f0, cc.data(), &state->timings);
    if (set.htsscale == 1) htsadapteradhoc(cc.data(), ccord, f0.nframes);
    waveform.reset();

    if (!f0.keepfile || set.f0acc != 0) {
        f02logf0(f0.nframes, f0values);
        writetrack(names.f0, f0values, f0.nframes);
    }
    writetrack(names.cc, cc.data(), getccsize(f0.nframes, ccord));
    if (names.fv != nullptr) writetrack(names.fv, fv.data(), f0.nframes);
}

// Runs a step and returns its exit status, and that of a failure where memory runs out.
int guarded(const filenames &names, auto step) {
    try {
        return step();
    } catch (const std::bad_alloc &) {
        std::printf("Error: not enough memory to analyse %s.\n", names.wave);
        return failurestatus;
    }
}

// Returns the exit status, which says no more than that there was enough memory and that every name
// stood for a file of its own.
int analyseguarded(const settings &set, const filenames &names, runstate *state) {
    return guarded(names, [&] {
        if (!checkdistinct(names)) return failurestatus;
        analysefile(set, names, state);
        return 0;
    });
}

// The batch. What goes wrong with one file does not stop it: the next one may well be good.
int analyseseries(const settings &set, const filenames &names, runstate *state) {
    int status = 0;
    for (const char *position = set.indlist; position != nullptr;
         position = strnumnextinterv(position)) {
        const std::uint32_t start = strnumintervstart(position);
        const std::uint64_t end = strnumintervend(position, start);
        // In 64 bits, since an interval may end at the largest number.
        for (std::uint64_t i = start; i <= end; ++i) {
            setindex(names, static_cast<std::uint32_t>(i));
            status = std::min(status, analyseguarded(set, names, state));
        }
    }
    return status;
}

}  // namespace

int nalveomain(int argc, char **argv) {
    const char *const program = argc > 0 ? argv[0] : "nalveo16";
    if (argc < 2) {
        plothelp(program);
        return 0;
    }
    if (argc < 4) {
        argcerror(program);
        return failurestatus;
    }
    const arguments given = splitarguments(argc, argv);
    const settings set = readsettings(given.noptions, given.options);
    if (set.indlist != nullptr && strnumdiagnose(set.indlist) != 0) {
        std::puts("Error: bad formatted indlist.");
        return failurestatus;
    }
    if (!checkleasts(set) || !checkarguments(given, program) || !checkranges(set))
        return failurestatus;
    const filenames names{argv[1], argv[2], argv[3], given.nnames == 5 ? argv[4] : nullptr};
    runstate state{{}, set.cctimeit};
    if (set.indlist == nullptr) return analyseguarded(set, names, &state);
    if (!checkindexfields(names)) return failurestatus;
    return guarded(names, [&] {
        if (!checkseriesdistinct(names, strnumintervstart(set.indlist))) return failurestatus;
        return analyseseries(set, names, &state);
    });
}

}  // namespace nalveo
