#include "driver/settings.h"

#include <limits>
#include <string>

#include "driver/paramread.h"
#include "driver/ranges.h"

namespace nalveo {
namespace {

// What lies outside these would divide by zero, overflow or never end.
constexpr int shortestshift = 1;        // samples
constexpr double lowestsearched = 1.0;  // Hz; below it, one pitch window takes megabytes and more

std::string orderrange() { return "from 0 to " + numbertext(highestorder); }

}  // namespace

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

bool checkleasts(const settings &set) {
    return checkoption(set.lframe >= shortestshift, "lframe", set.lframe,
                       "at least " + numbertext(shortestshift)) &&
           checkoption(set.ccord >= 0, "ccord", set.ccord, orderrange());
}

bool checkranges(const settings &set) {
    constexpr double infinite = std::numeric_limits<double>::infinity();
    const double f0min = set.f0min, f0max = set.f0max;
    return checkoption(set.ccord <= static_cast<int>(highestorder), "ccord", set.ccord,
                       orderrange()) &&
           checkalpha(set.alpha) &&
           checkoption(f0min <= 0.0 || (f0min >= lowestsearched && f0min < infinite), "f0min",
                       f0min, "at least " + numbertext(lowestsearched) + ", or 0 or less for 60") &&
           checkoption(f0max < infinite, "f0max", f0max, "a finite number") &&
           checkoption(set.cctimeit >= 0, "cctimeit", set.cctimeit, "at least 0");
}

}  // namespace nalveo
