/// Circular autocorrelation of real frames, as the pitch tracker runs it. Needs numeric/aligned and
/// numeric/dft; the routine autocorrelation is declared in pitchanalysis.h. Throws std::bad_alloc
/// when memory runs out.

#pragma once

#include <cstddef>

#include "numeric/aligned.h"

namespace nalveo {

/// Autocorrelates one frame after the other: the inverse transform of the power spectrum.
class autocorrelator {
   public:
    /// \param n         size of the transforms, a power of two, at least 2
    /// \param lagcount  number of lags that users read; those from n on are 0
    autocorrelator(std::size_t n, std::size_t lagcount);

    /// [n] the frame to be autocorrelated; zeros at first, and run leaves it as it is.
    double *frame() { return frame_.data(); }

    /// Autocorrelates the frame.
    ///
    /// \return [max(n, lagcount)] sums over i of x(i) x(i + lag mod n), times n; users take ratios
    ///         to lag 0
    const double *run();

   private:
    alignedreals frame_;
    alignedreals re_;
    alignedreals im_;
    alignedreals lags_;
};

}  // namespace nalveo
