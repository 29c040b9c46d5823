/// The options: their values, defaults and ranges. Uses paramread, ranges and analysis/defaults.

#pragma once

#include <cstdint>

#include "analysis/defaults.h"

namespace nalveo {

/// Values of all options, here with their defaults. An option and its field have one name,
/// and so has the argument of the routine that takes the value (refinepitch calls f0acc
/// iterations); f0load, htsscale, cctimeit and indlist steer the chain and the batch.
struct settings {
    double f0min = defaultf0min;    // lowest f0 searched, Hz; 0 or below stands for 60
    double f0max = defaultf0max;    // highest f0 searched, Hz; f0min or below stands for 500
    double alpha = defaultalpha;    // warping factor of the cepstra
    int lframe = defaultlframe;     // frame shift, samples
    int ccord = defaultccord;       // order of the cepstra
    int f0load = 0;                 // not 0: log f0 is read, not estimated
    int ccmeth = 1;                 // cepstral method; its low 8 bits count
    int f0acc = 0;                  // refinements of f0; above 5 or negative counts as 5
    int htsscale = 1;               // 1: cepstra are scaled for HTS
    int zfill = defaultzfill;       // longest run of equal samples without noise; 0: no noise
    int cctimeit = 0;               // not 0: as many cepstral analyses of the first file, timed
    const char *indlist = nullptr;  // index list; null for a single file
};

/// Reads all options. One that no argument gives a readable value keeps its default.
///
/// \param[in]     count  number of arguments
/// \param[in,out] list   [count] arguments; those that are used get marked as read
settings readsettings(std::uint32_t count, char **list);

/// Both say in a line which option's value cannot be computed with, and return false then. They
/// are two because argument errors are reported in a fixed order: first a frame shift or an order
/// below its minimum, then arguments that nobody understands, then any other value out of its
/// range.
bool checkleasts(const settings &set);
bool checkranges(const settings &set);

}  // namespace nalveo
