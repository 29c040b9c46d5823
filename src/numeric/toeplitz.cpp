#include "numeric/toeplitz.h"

#include "simd/dispatch.h"
#include "simd/vectors.h"

namespace nalveo {

namespace {

// Scratch of toeplitzsolve. Vectors run over the end of what they are to cover, so there is room
// for one more behind the first four. What they find there is 0 or is multiplied by one, and adds
// nothing.
struct levinsonarrays {
    double *t;         // first row of T
    double *reversed;  // its last row
    double *x;         // solution of T x = (1, 0, .., 0) for the current order
    double *y;         // x reversed; it begins one entry earlier at every order
    double *even;      // real parts from the centre on, the centre itself halved
    double *odd;       // imaginary parts

    static std::size_t length(std::size_t k) { return wholevectors(2 * k + 1) + vectorlength; }
    static std::size_t size(std::size_t k) { return 4 * length(k) + 2 * wholevectors(k + 1); }

    levinsonarrays(double *work, std::size_t k)
        : t(work),
          reversed(t + length(k)),
          x(reversed + length(k)),
          y(x + length(k)),
          even(y + length(k)),
          odd(even + wholevectors(k + 1)) {}
};

// Carries the solution on from the 2j - 1 entries around the centre to 2j + 1. Solutions for unit
// vectors at both ends are sums and differences of x and y; they take away what the shorter
// solution, padded with zeros, leaves of the right-hand side there.
template <class Real8>
[[gnu::always_inline]] inline void extendsolution(const levinsonarrays &mem, const double *x,
                                                  const double *y, const double *reversed,
                                                  std::size_t j, double re, double im) {
    Real8 evensum{};
    Real8 oddsum{};
    for (std::size_t i = 0; i < j; i += vectorlength) {
        const Real8 near = Real8::load(reversed + i);
        const Real8 far = Real8::load(mem.t + j + i);
        evensum += Real8::load(mem.even + i) * (near + far);
        oddsum += Real8::load(mem.odd + i) * (near - far);
    }
    const Real8 evenstep = Real8::all(re - sumof(evensum));
    const Real8 oddstep = Real8::all(im - sumof(oddsum));
    Real8 weight = Real8::all(1.0);
    weight.set(0, 0.5);
    for (std::size_t i = 0; i <= j; i += vectorlength) {
        const Real8 a = Real8::load(x + i);
        const Real8 b = Real8::load(y + i);
        (Real8::load(mem.even + i) + evenstep * ((a + b) * weight)).store(mem.even + i);
        (Real8::load(mem.odd + i) - oddstep * (a - b)).store(mem.odd + i);
        weight = Real8::all(1.0);
    }
}

struct toeplitzsolvekernel {
    template <class Real8>
    [[gnu::always_inline]] static int run(std::size_t k, const double *t, double *re, double *im,
                                          double *work) {
        const std::size_t last = 2 * k;
        const levinsonarrays mem(work, k);
        for (std::size_t i = 0; i < levinsonarrays::size(k); ++i) work[i] = 0.0;
        for (std::size_t i = 0; i <= last; ++i) mem.t[i] = mem.reversed[last - i] = t[i];
        mem.x[0] = mem.y[last] = 1.0 / t[0];
        mem.even[0] = 0.5 * (re[0] * mem.x[0]);

        // With e the residual that x, padded with a zero, leaves in the next row,
        //   x' = (x - e y) / (1 - e^2),  y' = (y - e x) / (1 - e^2),
        // One pass updates both and, as each piece of x' is at hand, sums up the residual that x'
        // will leave in the row below.
        double e = last > 0 ? mem.x[0] * t[1] : 0.0;
        for (std::size_t m = 1; m <= last; ++m) {
            if (e == 1.0) return -1;
            const double g = 1.0 / (1.0 - e * e);
            const double h = -e * g;
            double *const y = mem.y + (last - m);
            const double *const row = mem.reversed + (m < last ? last - m - 1 : 0);
            Real8 sum{};
            for (std::size_t i = 0; i <= m; i += vectorlength) {
                const Real8 a = Real8::load(mem.x + i);
                const Real8 b = Real8::load(y + i);
                const Real8 next = a * g + b * h;
                next.store(mem.x + i);
                (b * g + a * h).store(y + i);
                sum += next * Real8::load(row + i);
            }
            e = sumof(sum);
            if (m % 2 != 0) continue;
            const std::size_t j = m / 2;
            extendsolution<Real8>(mem, mem.x + j, y + j, mem.reversed + (last - j), j, re[j],
                                  im[j]);
        }
        re[0] = 2.0 * mem.even[0];
        im[0] = 0.0;
        for (std::size_t i = 1; i <= k; ++i) {
            re[i] = mem.even[i];
            im[i] = mem.odd[i];
        }
        return 0;
    }
};

}  // namespace

std::size_t toeplitzworkspace(std::uint32_t k) { return levinsonarrays::size(k); }

int toeplitzsolve(std::uint32_t k, const double *t, double *re, double *im, double *work) {
    return runwidest<toeplitzsolvekernel>(std::size_t{k}, t, re, im, work);
}

}  // namespace nalveo
