/// Kernels, each compiled for several register widths, of which the widest that suits this
/// processor runs. Uses vectors.

#pragma once

#include "simd/vectors.h"

/// Widest instructions that kernels may use on x86-64: 0 SSE2, 1 AVX2, 2 AVX-512. The build sets it
/// to what its option of that name says; a macro, since it comes from without.
#if !defined(NALVEO_WIDEST)
#define NALVEO_WIDEST 2
#endif

namespace nalveo {

namespace dispatchdetail {

#if defined(__x86_64__)

template <class Kernel, class... Arguments>
[[gnu::target("avx2")]] auto withavx2(Arguments... arguments) {
    return Kernel::template run<real8<part32>>(arguments...);
}

template <class Kernel, class... Arguments>
[[gnu::target("avx512f,avx512dq,avx512vl")]] auto withavx512(Arguments... arguments) {
    return Kernel::template run<real8<part64>>(arguments...);
}

#endif

}  // namespace dispatchdetail

/// Runs a kernel with the widest vectors that this processor runs without slowing its clock, and
/// returns what it returns. It pays for work of some hundred operations or more; a call costs about
/// as much as a virtual one.
///
/// A kernel is a struct with a static function template `run<Real8>(arguments)`, declared
/// [[gnu::always_inline]], as is every function of its own that it calls: only what is inlined is
/// compiled for the wide registers.
///
/// \param arguments  passed on by value; arrays and records by pointer
template <class Kernel, class... Arguments>
inline auto runwidest(Arguments... arguments) {
#if defined(__x86_64__)
    // Processors before those with VBMI2 run 512-bit arithmetic at a lower clock, so that it gains
    // nothing over AVX2.
    if (NALVEO_WIDEST >= 2 && __builtin_cpu_supports("avx512f") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512vbmi2"))
        return dispatchdetail::withavx512<Kernel>(arguments...);
    if (NALVEO_WIDEST >= 1 && __builtin_cpu_supports("avx2"))
        return dispatchdetail::withavx2<Kernel>(arguments...);
#endif
    return Kernel::template run<real8<part16>>(arguments...);
}

}  // namespace nalveo
