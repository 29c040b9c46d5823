/// Windows of one kind, made once per length: a run meets few lengths, but each of them many times.
/// Needs numeric/aligned.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "numeric/aligned.h"

namespace nalveo {

/// Keeps the windows of all odd lengths that it has been asked for.
class windowcache {
   public:
    /// Fills a window: [length] values.
    using maker = void (*)(double *window, std::uint32_t length);

    explicit windowcache(maker make) : make_(make) {}

    /// The window of an odd length. It stays where it is as long as the cache lives. Throws
    /// std::bad_alloc at the first use of a length.
    const double *get(std::uint32_t length) {
        const std::size_t place = length / 2;
        if (windows_.size() <= place) windows_.resize(place + 1);
        alignedreals &window = windows_[place];
        if (window.empty()) {
            window.resize(length);
            make_(window.data(), length);
        }
        return window.data();
    }

   private:
    maker make_;
    std::vector<alignedreals> windows_;  // by half length
};

}  // namespace nalveo
