/// Kernels that run with the widest instructions of the processor.

#pragma once

namespace nalveo {

namespace dispatchdetail {

#if defined(__x86_64__)

template <auto kernel, class... Arguments>
[[gnu::target("avx2")]] void withavx2(Arguments... arguments) {
    kernel(arguments...);
}

template <auto kernel, class... Arguments>
[[gnu::target("avx512f,avx512dq,avx512vl")]] void withavx512(Arguments... arguments) {
    kernel(arguments...);
}

#endif

}  // namespace dispatchdetail

/// Runs a kernel compiled for the widest vectors that this processor has. It pays for work of some
/// hundred operations or more; a call costs about as much as a virtual one.
///
/// \tparam kernel  function that returns nothing, declared [[gnu::always_inline]], as is every
///                 function of its own that it calls
template <auto kernel, class... Arguments>
inline void runwidest(Arguments... arguments) {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl"))
        return dispatchdetail::withavx512<kernel>(arguments...);
    if (__builtin_cpu_supports("avx2")) return dispatchdetail::withavx2<kernel>(arguments...);
#endif
    kernel(arguments...);
}

}  // namespace nalveo
