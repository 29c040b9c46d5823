/// The options of the C interface, checked and with everything that stands for something else
/// resolved. Uses nalveo.h, analysis (defaults, harmonicanalysis, warping), numeric/windowing and
/// synthesis.

#pragma once

#include <cstddef>
#include <cstdint>

#include "nalveo.h"

namespace nalveo {

/// Settings of one call, all in range.
struct callsettings {
    double fs = 0.0;
    double f0min = 0.0;
    double f0max = 0.0;
    double alpha = 0.0;
    std::uint32_t lframe = 0;
    std::uint32_t ccord = 0;
    std::uint32_t iterations = 0;
    std::uint32_t zfill = 0;
    std::uint8_t ccmeth = 0;
    bool htsscale = false;
    bool f0given = false;
};

/// Reads options of this or an earlier version of the struct.
///
/// \param[in]  options   the caller's; null is an error
/// \param[out] settings  filled when the result is NALVEO_OK
/// \return NALVEO_OK or the code of what is wrong
int readoptions(const nalveo_options *options, callsettings *settings);

/// Reads the options that say what cepstra mean: fs, alpha, order and hts_scale. The others may
/// hold anything and have their defaults in the result.
///
/// \param[in]  options    the caller's; null is an error
/// \param[in]  withshift  whether frame_shift is used, too; else it is 1
/// \param[out] settings   filled when the result is NALVEO_OK
/// \return NALVEO_OK or the code of what is wrong
int readcepstraloptions(const nalveo_options *options, bool withshift, callsettings *settings);

/// Reads options and the length of a signal, and computes the number of frames.
///
/// \param[in]  options   the caller's
/// \param[in]  nsamples  number of samples
/// \param[out] settings  filled when the result is NALVEO_OK
/// \param[out] nframes   number of frames, at least 1; likewise
/// \return NALVEO_OK or the code of what is wrong
int readgrid(const nalveo_options *options, std::size_t nsamples, callsettings *settings,
             std::uint32_t *nframes);

}  // namespace nalveo
