#include "driver/ranges.h"

#include <algorithm>

#include "analysis/pitchanalysis.h"

namespace nalveo {

bool checkalpha(double alpha) {
    return checkoption(alpha > -1.0 && alpha < 1.0, "alpha", alpha, "above -1 and below 1");
}

bool checklogf0(const char *path, const double *values, std::uint32_t nframes) {
    const double *const bad = std::find_if_not(values, values + nframes, [](double v) {
        return v <= unvoicedlogf0 || (v >= lowestlogf0 && v <= highestlogf0);
    });
    if (bad == values + nframes) return true;
    std::printf(
        "Error: %s holds %s for frame %u; a log f0 must be from %s to %s, or %s for "
        "unvoiced.\n",
        path, numbertext(*bad).c_str(), static_cast<std::uint32_t>(bad - values),
        numbertext(lowestlogf0).c_str(), numbertext(highestlogf0).c_str(),
        numbertext(unvoicedlogf0).c_str());
    return false;
}

}  // namespace nalveo
