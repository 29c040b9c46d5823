#include "driver/help.h"

#include <nalveo.h>  // in quotes it would be the driver's own header of that name

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

#include "driver/indexlist.h"
#include "driver/settings.h"

const char *const nalveo::version = NALVEO_VERSION;

namespace {

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

}  // namespace

int argcerror(const char *path) {
    std::printf("Error: incorrect input arguments.\nType '%s' for help.\n", getfilename(path));
    return 0;
}

int plothelp(const char *path) {
    const nalveo::settings defaults;
    std::puts("");
    printbox();
    std::puts("");
    std::printf("  === NALVEO16 v%s ===\n", nalveo::version);
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
