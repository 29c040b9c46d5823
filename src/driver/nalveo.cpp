#include "driver/nalveo.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/fvanalysis.h"
#include "analysis/harmonicanalysis.h"
#include "analysis/pitchanalysis.h"
#include "driver/conditioning.h"
#include "driver/paramread.h"
#include "io/binaryfile.h"
#include "io/fdoubleio.h"
#include "io/filepath.h"
#include "io/wavm1616io.h"
#include "numeric/windowing.h"

using namespace nalveo;

namespace {

constexpr const char *version = "0.99";
constexpr double samplerate = 16000.0;  // Hz; the reader takes no other
constexpr int failurestatus = -1;
constexpr std::uint32_t mostrefinements = 5;

// Ranges of option values; what lies outside would divide by zero, overflow or never end.
constexpr int highestorder = 511;       // envelopes have 513 points: a cepstrum says no more
constexpr double lowestsearched = 1.0;  // Hz; below it, one pitch window takes megabytes and more

// Range of a loaded log f0, 14.9 to 7943 Hz. Further down, the harmonics of one frame would need
// matrices of gigabytes and a window of seconds; further up, no harmonic lies below half the
// sample rate. Tracks of another kind (Hz, log10) fall outside and are found out.
constexpr double lowestlogf0 = 2.7;
constexpr double highestlogf0 = 8.98;
constexpr double unvoicedlogf0 = -1e10;

struct settings {
    double f0min = 60.0;
    double f0max = 500.0;
    double alpha = 0.42;
    int lframe = 80;
    int ccord = 39;
    int f0load = 0;
    int ccmeth = 1;
    int f0acc = 0;
    int htsscale = 1;
    int zfill = 160;
    int cctimeit = 0;  // counts down: only the first file of a batch is timed
    const char *indlist = nullptr;
};

// The argument strings themselves; with an index list they are rewritten for every index.
struct filenames {
    char *wave;
    char *f0;
    char *cc;
    char *fv;  // null when not wanted
};

constexpr std::size_t boxwidth = 73;

constexpr std::string_view notice[] = {
    "",
    "NALVEO16 - SPEECH ANALYSER",
    "",
    "Analyses speech for harmonic-plus-noise vocoders and for statistical",
    "speech synthesis. From a recording it derives, for every frame,",
    "",
    "    the logarithm of the fundamental frequency,",
    "    a cepstral representation of the spectral envelope on a",
    "    mel-like frequency scale,",
    "    the maximum voiced frequency,",
    "",
    "and writes each to a file of its own, as a headerless sequence of",
    "32-bit floating-point numbers.",
    "",
    "NO WARRANTY",
    "",
    "This program is free software. You may use it, study it, change it",
    "and pass it on under the terms of the licence that comes with its",
    "source code.",
    "",
    "It is distributed in the hope that it will be useful, but it comes",
    "WITHOUT ANY WARRANTY, express or implied, not even the implied",
    "warranty of merchantability or of fitness for a particular purpose.",
    "Whoever uses it bears the risk of what it does and of what it gives.",
    "",
    "Its results depend on the recording. Look at them before you build",
    "on them.",
    "",
    "",
};

void printbox() {
    const std::string edge = '+' + std::string(boxwidth - 2, '-') + '+';
    std::puts(edge.c_str());
    for (const std::string_view line : notice) {
        std::string row = "|  ";
        row += line;
        row.resize(boxwidth - 1, ' ');
        row += '|';
        std::puts(row.c_str());
    }
    std::puts(edge.c_str());
}

settings readsettings(std::uint32_t count, char **list) {
    settings set;  // a search that finds nothing leaves the default
    searchdoubleparam(count, list, "f0min", &set.f0min);
    searchdoubleparam(count, list, "f0max", &set.f0max);
    searchdoubleparam(count, list, "alpha", &set.alpha);
    searchintparam(count, list, "lframe", &set.lframe);
    searchintparam(count, list, "ccord", &set.ccord);
    searchintparam(count, list, "f0load", &set.f0load);
    searchintparam(count, list, "ccmeth", &set.ccmeth);
    searchintparam(count, list, "f0acc", &set.f0acc);
    searchintparam(count, list, "htsscale", &set.htsscale);
    searchintparam(count, list, "zfill", &set.zfill);
    searchintparam(count, list, "cctimeit", &set.cctimeit);
    set.indlist = searchstringparam(count, list, "indlist");
    return set;
}

// A number as short as it can be written.
template <class Number>
std::string written(Number number) {
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), end};
}

template <class Number>
bool checkoption(bool allowed, const char *name, Number value, const std::string &range) {
    if (!allowed)
        std::printf("Error: %s is %s, but must be %s.\n", name, written(value).c_str(),
                    range.c_str());
    return allowed;
}

// Both say which option's value cannot be computed with, and return false then. The first looks at
// what would leave nothing to compute, the second at what would compute without end or sense.
// Comparisons are such that not-a-number fails them.
bool checksizes(const settings &set) {
    return checkoption(set.lframe >= 1, "lframe", set.lframe, "at least 1") &&
           checkoption(set.ccord >= 0, "ccord", set.ccord, "from 0 to " + written(highestorder));
}

bool checklimits(const settings &set) {
    constexpr double infinite = std::numeric_limits<double>::infinity();
    const double f0min = set.f0min, f0max = set.f0max, alpha = set.alpha;
    return checkoption(set.ccord <= highestorder, "ccord", set.ccord,
                       "from 0 to " + written(highestorder)) &&
           checkoption(alpha > -1.0 && alpha < 1.0, "alpha", alpha, "above -1 and below 1") &&
           checkoption(f0min <= 0.0 || (f0min >= lowestsearched && f0min < infinite), "f0min",
                       f0min, "at least " + written(lowestsearched) + ", or 0 or less for 60") &&
           checkoption(f0max < infinite, "f0max", f0max, "a finite number") &&
           checkoption(set.cctimeit >= 0, "cctimeit", set.cctimeit, "at least 0");
}

// An index list needs a place for the index in every name: without one, each index would overwrite
// the files of the one before.
bool checkindexfields(const filenames &names) {
    for (const char *name : {names.wave, names.f0, names.cc, names.fv}) {
        if (name == nullptr || getfileindex(name) != nullptr) continue;
        std::printf("Error: no index field in %s.\n", name);
        return false;
    }
    return true;
}

// No two names may stand for one file, or an output would take the place of the recording or of
// another output. `identity` tells a name's file; nothing stands for what may be named twice.
template <class Identity>
bool checkdistinct(const filenames &names, Identity identity) {
    const std::array<const char *, 4> all{names.wave, names.f0, names.cc, names.fv};
    std::array<std::optional<fileidentity>, 4> files;
    for (std::size_t i = 0; i < all.size() && all[i] != nullptr; ++i) {
        files[i] = identity(all[i]);
        for (std::size_t k = 0; files[i] && k < i; ++k) {
            if (files[k] != files[i]) continue;
            std::printf("Error: %s and %s are the same file.\n", all[k], all[i]);
            return false;
        }
    }
    return true;
}

// f0 of a file's frames, in Hz.
struct f0track {
    readerarray values;  // null for a track that was refused
    std::uint32_t nframes = 0;
    bool keepfile = false;  // the loaded file already says just this
};

f0track estimatef0(const settings &set, const double *waveform, std::uint32_t nsamples,
                   std::uint32_t nframes) {
    readerarray values(static_cast<double *>(std::malloc(nframes * sizeof(double))));
    if (!values) throw std::bad_alloc();
    getpitch(waveform, nsamples, static_cast<std::uint32_t>(set.lframe), 0, nframes, values.get(),
             samplerate, set.f0min, set.f0max);
    return {std::move(values), nframes, false};
}

// First of n values that is no log f0 to analyse with; n when all are.
std::uint32_t findbadlogf0(const double *values, std::uint32_t n) {
    const double *const bad = std::find_if_not(values, values + n, [](double v) {
        return v <= unvoicedlogf0 || (v >= lowestlogf0 && v <= highestlogf0);
    });
    return static_cast<std::uint32_t>(bad - values);
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
    const std::uint32_t bad = findbadlogf0(track.values.get(), track.nframes);
    if (bad < track.nframes) {
        std::printf(
            "Error: %s holds %s for frame %u; a log f0 must be from %s to %s, or %s for "
            "unvoiced.\n",
            filef0, written(track.values[bad]).c_str(), bad, written(lowestlogf0).c_str(),
            written(highestlogf0).c_str(), written(unvoicedlogf0).c_str());
        return {};
    }
    logf02f0(track.nframes, track.values.get());
    return track;
}

void analysecepstra(settings &set, const double *waveform, std::uint32_t nsamples,
                    const f0track &f0, double *cc) {
    const auto analyse = [&] {
        waveform2cc(waveform, nsamples, static_cast<std::uint32_t>(set.lframe), 0, f0.nframes,
                    f0.values.get(), static_cast<std::uint32_t>(set.ccord), cc,
                    static_cast<std::uint8_t>(set.ccmeth), samplerate, set.alpha);
    };
    if (set.cctimeit == 0) {
        analyse();
        return;
    }
    const std::time_t start = std::time(nullptr);
    for (; set.cctimeit > 0; --set.cctimeit) analyse();
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

void analysefile(settings &set, const filenames &names, nalveo::noisesource &noise) {
    double *read = nullptr;
    const std::uint32_t nsamples = wavreadm1616(names.wave, &read);
    if (nsamples == 0) {
        std::printf("Error: could not open %s.\n", names.wave);
        return;
    }
    readerarray waveform(read);
    if (set.zfill != 0 &&
        fillzeros(waveform.get(), nsamples, static_cast<std::uint32_t>(set.zfill), noise) == 1)
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
    analysecepstra(set, waveform.get(), nsamples, f0, cc.data());
    if (set.htsscale == 1) htsadapteradhoc(cc.data(), ccord, f0.nframes);
    waveform.reset();

    if (!f0.keepfile || set.f0acc != 0) {
        f02logf0(f0.nframes, f0values);
        writetrack(names.f0, f0values, f0.nframes);
    }
    writetrack(names.cc, cc.data(), getccsize(f0.nframes, ccord));
    if (names.fv != nullptr) writetrack(names.fv, fv.data(), f0.nframes);
}

// Returns the exit status, which says no more than that there was enough memory and that every name
// stood for a file of its own.
int analyseguarded(settings &set, const filenames &names, nalveo::noisesource &noise) {
    try {
        if (!checkdistinct(names, identify)) return failurestatus;
        analysefile(set, names, noise);
        return 0;
    } catch (const std::bad_alloc &) {
        std::printf("Error: not enough memory to analyse %s.\n", names.wave);
        return failurestatus;
    }
}

// Writes an index into every name. A name whose field is too narrow keeps its text, so that its
// file is that of the index before: a line says so.
void setindex(const filenames &names, std::uint32_t index) {
    std::array<const char *, 4> narrow{};
    std::size_t count = 0;
    for (char *name : {names.wave, names.f0, names.cc, names.fv})
        if (name != nullptr && replacefileindex(name, index) != 0) narrow[count++] = name;
    std::puts(names.wave);
    for (std::size_t i = 0; i < count; ++i)
        std::printf("Warning: %u does not fit the index field of %s.\n", index, narrow[i]);
}

// Names of a series that differ in nothing but the index are one file's for every index. Index
// fields of one width in the same place of the same text get the same digits as long as an index
// fits; indices grow, so the first of them fits if any does, and what holds for it holds for all.
bool checkseriesnames(const settings &set, const filenames &names) {
    const std::uint32_t first = strnumintervstart(set.indlist);
    return checkdistinct(names, [first](std::string name) {
        replacefileindex(name.data(), first);
        return identifyplace(name);
    });
}

// A file that needs too much memory does not stop the batch: the next one may well fit. The noise
// of one file continues that of the one before, so that no two have the same.
int analyseseries(settings &set, const filenames &names) {
    noisesource noise;
    int status = 0;
    for (const char *position = set.indlist; position != nullptr;
         position = strnumnextinterv(position)) {
        const std::uint32_t start = strnumintervstart(position);
        const std::uint64_t end = strnumintervend(position, start);
        // In 64 bits, since an interval may end at the largest number.
        for (std::uint64_t i = start; i <= end; ++i) {
            setindex(names, static_cast<std::uint32_t>(i));
            status = std::min(status, analyseguarded(set, names, noise));
        }
    }
    return status;
}

}  // namespace

namespace nalveo {

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
    // File names come first, options after them. What is in the options' place and is not read as
    // an option is an error.
    char **const options =
        std::find_if(argv, argv + argc, [](const char *a) { return isparam(a) == 1; });
    const auto positional = options - argv;
    const auto noptions = static_cast<std::uint32_t>(argc - positional);
    settings set = readsettings(noptions, options);
    if (set.indlist != nullptr && strnumdiagnose(set.indlist) != 0) {
        std::puts("Error: bad formatted indlist.");
        return failurestatus;
    }
    if (!checksizes(set)) return failurestatus;
    if (unreadparams(noptions, options) == 1 || positional < 4 || positional > 5) {
        argcerror(program);
        return failurestatus;
    }
    if (!checklimits(set)) return failurestatus;
    const filenames names{argv[1], argv[2], argv[3], positional == 5 ? argv[4] : nullptr};
    if (set.indlist == nullptr) {
        nalveo::noisesource noise;
        return analyseguarded(set, names, noise);
    }
    if (!checkindexfields(names) || !checkseriesnames(set, names)) return failurestatus;
    return analyseseries(set, names);
}

}  // namespace nalveo

int argcerror(const char *path) {
    std::printf("Error: incorrect input arguments.\nType '%s' for help.\n", getfilename(path));
    return 0;
}

int plothelp(const char *path) {
    const settings defaults;
    std::puts("");
    printbox();
    std::puts("");
    std::printf("  === NALVEO16 v%s ===\n", version);
    std::puts("");
    std::puts("  Speech analyser for vocoders and statistical synthesis.");
    std::puts("  Written by the nalveo16 authors; see the licence in the source code.");
    std::puts("");
    std::puts("  Usage:");
    std::printf("   %s filein filef0 filecc filefv [params]\n", getfilename(path));
    std::puts("");
    std::puts("  Arguments:");
    std::puts("   filein: input wav file (mono 16kHz 16bits)");
    std::puts("   filef0: output file for logf0");
    std::puts("   filecc: output file for cepstral coeffs.");
    std::puts("   filefv: output file for max. voiced freq.");
    std::puts("");
    std::puts("  Optional parameters and default values:");
    std::printf("   --lframe=%d     Frame shift (samples)\n", defaults.lframe);
    std::printf("   --ccord=%d      Order of the cepstral representation\n", defaults.ccord);
    std::printf("   --ccmeth=%d      %d: harmonics + interpolation + mcep\n", defaults.ccmeth, 0);
    std::printf("                   %d: harmonics + mel-rdc\n", 1);
    std::printf("                   %d: quasi-harmonics + mel-rdc\n", 2);
    std::printf("                   %d: complementary windows + liftering + mcep\n", 3);
    std::printf("                   %d: seevoc + mcep\n", 4);
    std::printf("   --f0min=%.0f      Lowest detectable pitch (Hz)\n", defaults.f0min);
    std::printf("   --f0max=%.0f     Highest detectable pitch (Hz)\n", defaults.f0max);
    std::printf("   --f0acc=%d       f0 refinement iterations using qhm [0...5]\n", defaults.f0acc);
    std::puts("   --f0load=0      Load+overwrite external logf0 file");
    std::puts("");
    std::puts("");
    return 0;
}
