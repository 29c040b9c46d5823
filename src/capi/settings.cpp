#include "capi/settings.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "analysis/defaults.h"
#include "analysis/harmonicanalysis.h"
#include "analysis/warping.h"
#include "numeric/windowing.h"
#include "synthesis/synthesis.h"

namespace nalveo {

namespace {

constexpr double lowestrate = 8000.0;  // Hz
constexpr double highestrate = 96000.0;
constexpr double defaultshift = 0.005;  // s
constexpr std::size_t firstsize = 64;   // bytes of the first version of the options
constexpr std::size_t mostsamples = NALVEO_MOST_SAMPLES;

static_assert(NALVEO_HIGHEST_ORDER == highestorder && NALVEO_MOST_REFINE == mostrefinements &&
              NALVEO_MOST_SYNTHESIS_SHIFT == longestshift);

constexpr nalveo_options defaults{
    .size = sizeof(nalveo_options),
    .frame_shift = 0,
    .fs = 16000.0,
    .f0_floor = defaultf0min,
    .f0_ceil = defaultf0max,
    .alpha = NALVEO_MEL_ALPHA,
    .order = defaultccord,
    .method = NALVEO_RDC,
    .refine = 0,
    .zfill = defaultzfill,
    .hts_scale = 1,
    .f0_given = 0,
};

// Comparisons are such that not-a-number fails them.
bool israte(double fs) { return fs >= lowestrate && fs <= highestrate; }

// Samples of the default shift; 0 when that is no whole number.
std::uint32_t wholeshift(double fs) {
    const double samples = std::floor(fs * defaultshift + 0.5);
    return samples / defaultshift == fs ? static_cast<std::uint32_t>(samples) : 0;
}

int check(const nalveo_options &o, std::uint32_t shift) {
    if (!israte(o.fs)) return NALVEO_BAD_RATE;
    if (shift == 0 || shift > NALVEO_MOST_SHIFT) return NALVEO_BAD_SHIFT;
    if (!(o.f0_floor >= lowestmodelled && o.f0_ceil > o.f0_floor && o.f0_ceil <= 0.5 * o.fs))
        return NALVEO_BAD_F0_RANGE;
    if (o.order > NALVEO_HIGHEST_ORDER) return NALVEO_BAD_ORDER;
    if (!((o.alpha > -1.0 && o.alpha < 1.0) || o.alpha == NALVEO_MEL_ALPHA))
        return NALVEO_BAD_ALPHA;
    if (o.method > NALVEO_SEEVOC) return NALVEO_BAD_METHOD;
    if (o.refine > NALVEO_MOST_REFINE) return NALVEO_BAD_REFINE;
    if (o.hts_scale > 1) return NALVEO_BAD_HTS_SCALE;
    if (o.f0_given > 1) return NALVEO_BAD_F0_GIVEN;
    return NALVEO_OK;
}

// Copies options of this or an earlier version of the struct.
int load(const nalveo_options *options, nalveo_options *o) {
    if (options == nullptr) return NALVEO_NULL_POINTER;
    // A client of an earlier version knows fewer members: the others keep their defaults.
    if (options->size < firstsize || options->size > sizeof(nalveo_options))
        return NALVEO_BAD_OPTIONS;
    *o = defaults;
    std::memcpy(o, options, options->size);
    return NALVEO_OK;
}

int resolve(const nalveo_options &o, callsettings *settings) {
    const std::uint32_t shift = o.frame_shift != 0 ? o.frame_shift : wholeshift(o.fs);
    const int code = check(o, shift);
    if (code != NALVEO_OK) return code;
    *settings = {.fs = o.fs,
                 .f0min = o.f0_floor,
                 .f0max = o.f0_ceil,
                 .alpha = o.alpha == NALVEO_MEL_ALPHA ? melalpha(o.fs) : o.alpha,
                 .lframe = shift,
                 .ccord = o.order,
                 .iterations = o.refine,
                 .zfill = o.zfill,
                 .ccmeth = static_cast<std::uint8_t>(o.method),
                 .htsscale = o.hts_scale == 1,
                 .f0given = o.f0_given == 1};
    return NALVEO_OK;
}

}  // namespace

int readoptions(const nalveo_options *options, callsettings *settings) {
    nalveo_options o;
    const int code = load(options, &o);
    return code == NALVEO_OK ? resolve(o, settings) : code;
}

int readcepstraloptions(const nalveo_options *options, bool withshift, callsettings *settings) {
    nalveo_options o;
    const int code = load(options, &o);
    if (code != NALVEO_OK) return code;
    nalveo_options used = defaults;
    used.frame_shift = withshift ? o.frame_shift : 1;
    used.fs = o.fs;
    used.alpha = o.alpha;
    used.order = o.order;
    used.hts_scale = o.hts_scale;
    return resolve(used, settings);
}

int readgrid(const nalveo_options *options, std::size_t nsamples, callsettings *settings,
             std::uint32_t *nframes) {
    const int code = readoptions(options, settings);
    if (code != NALVEO_OK) return code;
    if (nsamples == 0 || nsamples > mostsamples) return NALVEO_BAD_LENGTH;
    *nframes = getnumframes(static_cast<std::uint32_t>(nsamples), settings->lframe, 0);
    constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
    if (std::uint64_t{*nframes} * (settings->ccord + 1) > most) return NALVEO_BAD_LENGTH;
    return NALVEO_OK;
}

}  // namespace nalveo

int nalveo_default_options(nalveo_options *options, std::size_t size) {
    if (options == nullptr) return NALVEO_NULL_POINTER;
    if (size < nalveo::firstsize || size > sizeof(nalveo_options)) return NALVEO_BAD_OPTIONS;
    std::memcpy(options, &nalveo::defaults, size);
    options->size = static_cast<std::uint32_t>(size);
    return NALVEO_OK;
}

int nalveo_check_options(const nalveo_options *options) {
    nalveo::callsettings settings;
    return nalveo::readoptions(options, &settings);
}

double nalveo_mel_alpha(double fs) {
    return nalveo::israte(fs) ? nalveo::melalpha(fs) : std::numeric_limits<double>::quiet_NaN();
}

std::uint32_t nalveo_frame_shift(const nalveo_options *options) {
    nalveo::callsettings settings;
    return nalveo::readoptions(options, &settings) == NALVEO_OK ? settings.lframe : 0;
}

std::size_t nalveo_frame_count(std::size_t nsamples, const nalveo_options *options) {
    nalveo::callsettings settings;
    std::uint32_t nframes = 0;
    return nalveo::readgrid(options, nsamples, &settings, &nframes) == NALVEO_OK ? nframes : 0;
}
