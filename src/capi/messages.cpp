#include <array>

#include "nalveo.h"

namespace {

struct message {
    int code;
    const char *text;
};

constexpr std::array messages{
    message{NALVEO_OK, "no error"},
    message{NALVEO_NO_MEMORY, "not enough memory for this analysis"},
    message{NALVEO_INTERNAL, "internal error; please report it"},
    message{NALVEO_NULL_POINTER, "an array or struct that is needed is a null pointer"},
    message{NALVEO_BAD_OPTIONS,
            "options that nalveo_default_options has not filled, or of a later version than this "
            "library; fill them, or update the library"},
    message{NALVEO_BAD_RATE, "fs must be from 8000 to 96000 Hz; resample other recordings"},
    message{NALVEO_BAD_SHIFT,
            "frame_shift must be from 1 to 1000000000 samples, for synthesis to 1048576; 0 is 5 "
            "ms, which must be a whole "
            "number of samples at this rate"},
    message{NALVEO_BAD_F0_RANGE,
            "f0_floor must be at least 15 Hz and below f0_ceil, and f0_ceil at most fs / 2"},
    message{NALVEO_BAD_ORDER, "order must be from 0 to 511"},
    message{NALVEO_BAD_ALPHA, "alpha must be above -1 and below 1, or NALVEO_MEL_ALPHA"},
    message{NALVEO_BAD_METHOD, "method must be from 0 to 4"},
    message{NALVEO_BAD_REFINE, "refine must be from 0 to 5"},
    message{NALVEO_BAD_HTS_SCALE, "hts_scale must be 0 or 1"},
    message{NALVEO_BAD_F0_GIVEN, "f0_given must be 0 or 1, and with 1 an array f0 is needed"},
    message{
        NALVEO_BAD_LENGTH,
        "the number of samples must be from 1 to 2147483647, and that of cepstral "
        "coefficients at most 4294967295; analyse longer recordings in parts. Synthesis makes from "
        "1 sample to frames times shift"},
    message{NALVEO_BAD_SAMPLE,
            "samples must be from -1 to 1; divide 16-bit integers by 32768, and remove NaN"},
    message{
        NALVEO_BAD_F0,
        "f0 must be 0 where unvoiced, else from 15 Hz, for synthesis 14 Hz, to below fs / 2; it "
        "is in Hz, not its logarithm"},
    message{NALVEO_BAD_FV, "a maximum voiced frequency must be from 0 to fs / 2"},
    message{NALVEO_BAD_CEPSTRUM,
            "cepstral coefficients must be finite numbers, and from -100 to 100 for synthesis"},
    message{NALVEO_BAD_FREQUENCY, "frequencies must be from 0 to fs / 2"},
};

}  // namespace

const char *nalveo_version() { return NALVEO_VERSION; }

const char *nalveo_error_text(int code) {
    for (const message &m : messages)
        if (m.code == code) return m.text;
    return "no such error code";
}
