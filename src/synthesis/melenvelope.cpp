#include "synthesis/melenvelope.h"

#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

namespace nalveo {
namespace {

// cos w = ((1 + alpha^2) cos omega - 2 alpha) / d and sin w = (1 - alpha^2) sin omega / d, where
// d = 1 + alpha^2 - 2 alpha cos omega is the length of the vector whose angle w is.
struct warpkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(double omega, std::size_t count, double alpha,
                                           double *cosine, double *sine) {
        const phasor step = unitphasor(omega);
        const auto eightsteps = samephasors<Real8>(unitphasor(vectorlength * omega));
        const double square = alpha * alpha;
        auto z = powersof<Real8>(step);
        for (std::size_t k = 0; k < count; k += vectorlength) {
            const Real8 d = (1.0 + square) - (2.0 * alpha) * z.re;
            (((1.0 + square) * z.re - 2.0 * alpha) / d).store(cosine + k);
            if (sine != nullptr) ((1.0 - square) * z.im / d).store(sine + k);
            z.rotate(eightsteps);
        }
    }
};

// b(1) and b(2) of the recursion over c(order) .. c(1), for several vectors of frequencies side by
// side: one alone would wait for its own products.
template <std::size_t tile, class Real8>
struct clenshaw {
    Real8 cosine[tile];
    Real8 b1[tile];
    Real8 b2[tile];

    [[gnu::always_inline]] clenshaw(const double *c, std::uint32_t order, const double *cosines) {
        Real8 twice[tile];
        for (std::size_t i = 0; i < tile; ++i) {
            cosine[i] = Real8::load(cosines + i * vectorlength);
            twice[i] = cosine[i] + cosine[i];
            b1[i] = b2[i] = Real8::all(0.0);
        }
        for (std::uint32_t j = order; j > 0; --j) {
            for (std::size_t i = 0; i < tile; ++i) {
                const Real8 b = twice[i] * b1[i] + (c[j] - b2[i]);
                b2[i] = b1[i];
                b1[i] = b;
            }
        }
    }
};

// Calls work<tile>(first) for all vectors, in tiles as large as registers allow.
template <class Real8, class Work>
[[gnu::always_inline]] inline void fortiles(std::size_t count, const Work &work) {
    constexpr std::size_t tile = Real8::registers / 4;
    std::size_t k = 0;
    if constexpr (tile > 1)
        for (; k + tile * vectorlength <= count; k += tile * vectorlength)
            work.template operator()<tile>(k);
    for (; k < count; k += vectorlength) work.template operator()<1>(k);
}

struct levelkernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *c, std::uint32_t order,
                                           const double *cosine, std::size_t count, double *level) {
        fortiles<Real8>(
            count, [=]<std::size_t tile>(std::size_t k) __attribute__((always_inline)) {
                const clenshaw<tile, Real8> b(c, order, cosine + k);
                for (std::size_t i = 0; i < tile; ++i)
                    (c[0] + 2.0 * (b.cosine[i] * b.b1[i] - b.b2[i]))
                        .store(level + k + i * vectorlength);
            });
    }
};

struct phasekernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const double *c, std::uint32_t order,
                                           const double *cosine, const double *sine,
                                           std::size_t count, double *phase) {
        fortiles<Real8>(
            count, [=]<std::size_t tile>(std::size_t k) __attribute__((always_inline)) {
                const clenshaw<tile, Real8> b(c, order, cosine + k);
                for (std::size_t i = 0; i < tile; ++i) {
                    const std::size_t at = k + i * vectorlength;
                    (-2.0 * (Real8::load(sine + at) * b.b1[i])).store(phase + at);
                }
            });
    }
};

}  // namespace

void undohtsscale(double *c, std::uint32_t order) {
    c[0] -= 5.0;
    for (std::size_t j = 1; j <= order; ++j) c[j] *= 0.5;
}

void warpmultiples(double omega, std::size_t count, double alpha, double *cosine, double *sine) {
    runwidest<warpkernel>(omega, count, alpha, cosine, sine);
}

void envelopelevels(const double *c, std::uint32_t order, const double *cosine, std::size_t count,
                    double *level) {
    runwidest<levelkernel>(c, order, cosine, count, level);
}

void envelopephases(const double *c, std::uint32_t order, const double *cosine, const double *sine,
                    std::size_t count, double *phase) {
    runwidest<phasekernel>(c, order, cosine, sine, count, phase);
}

}  // namespace nalveo
