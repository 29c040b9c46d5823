/// Arrays of doubles that begin on a cache line, so that no vector of one straddles two.

#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace nalveo {

constexpr std::size_t cacheline = 64;  // bytes

/// Allocator of memory that begins on a cache line.
template <class Value>
struct alignedallocator {
    using value_type = Value;

    alignedallocator() = default;
    template <class Other>
    explicit alignedallocator(const alignedallocator<Other> &) {}

    Value *allocate(std::size_t count) {
        return static_cast<Value *>(
            ::operator new (count * sizeof(Value), std::align_val_t{cacheline}));
    }
    void deallocate(Value *memory, std::size_t) {
        ::operator delete (memory, std::align_val_t{cacheline});
    }
    bool operator==(const alignedallocator &) const { return true; }
};

/// An array of doubles on a cache line.
using alignedreals = std::vector<double, alignedallocator<double>>;

/// Lengthens an array to at least `size`; throws std::bad_alloc when memory runs out.
inline void growto(alignedreals &array, std::size_t size) {
    if (array.size() < size) array.resize(size);
}

}  // namespace nalveo
