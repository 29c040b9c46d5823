#include "driver/logf0range.h"

#include <algorithm>
#include <cstdio>

#include "driver/numbertext.h"

namespace nalveo {

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
