#include "analysis/autocorrelation.h"

#include <algorithm>
#include <cstdint>

#include "analysis/pitchanalysis.h"
#include "numeric/dft.h"

namespace nalveo {

autocorrelator::autocorrelator(std::size_t n, std::size_t lagcount)
    : frame_(n), re_(n / 2 + 1), im_(n / 2 + 1), lags_(std::max(n, lagcount)) {}

const double *autocorrelator::run() {
    const auto size = static_cast<std::int32_t>(frame_.size());
    fftreal(size, frame_.data(), re_.data(), im_.data());
    powerspectrum(re_.size(), re_.data(), im_.data(), re_.data());
    std::fill(im_.begin(), im_.end(), 0.0);
    ifftreal(size, re_.data(), im_.data(), lags_.data());
    return lags_.data();
}

}  // namespace nalveo

// The plain form, for complex data of any kind, that the autocorrelator is tested against. The
// tracker does not run it.
int autocorrelation(std::int32_t n, double *x) {
    if (n <= 0) return 0;
    if (fftc(n, x) != 0) return -1;
    for (std::size_t k = 0; k < static_cast<std::size_t>(n); ++k) {
        x[2 * k] = x[2 * k] * x[2 * k] + x[2 * k + 1] * x[2 * k + 1];
        x[2 * k + 1] = 0.0;
    }
    return ifftc(n, x);
}
