#include "analysis/harmonic/qha.h"

#include <cstdint>

#include "analysis/harmonic/solution.h"
#include "numeric/cholesky.h"
#include "numeric/phasor.h"
#include "simd/dispatch.h"
#include "simd/vectors.h"

// About the centre of the frame, cosines under the window are even, and so are sines that are
// weighted by time; sines and time-weighted cosines are odd. The even and the odd part of the frame
// therefore meet half of the model each. With tau = t / h,
//   (y(t) + y(-t)) / 2 = w(t) sum over k of (u(k) cos(k theta t) + q(k) tau sin(k theta t)),
//   (y(t) - y(-t)) / 2 = w(t) sum over k of (p(k) tau cos(k theta t) + v(k) sin(k theta t)),
//   a(k) = (u(k) - i v(k)) / 2,  b(k) = (p(k) - i q(k)) / 2  fs / h,
// two real least-squares problems of 2K + 1 unknowns: those of the cosines, k = 0 .. K, and behind
// them those of the sines, k = 1 .. K. By the addition theorems the elements of their normal
// equations are sums and differences of three sequences,
//   c0(m) = sum of w(t)^2 cos(m theta t),  s1(m) = sum of w(t)^2 tau sin(m theta t),
//   c2(m) = sum of w(t)^2 tau^2 cos(m theta t),  m = 0 .. 2K,
// with sums over t = 0 .. h of which t = 0 counts half. Unknowns j and k meet in
//             cosine k             sine k
//   cosine j  c(j + k) + c(j - k)  s1(k + j) + s1(k - j)
//   sine j                         d(j - k) - d(j + k)
// where c, d are c0, c2 for the even part and c2, c0 for the odd one.

namespace nalveo {

namespace {

// What is summed over the frame for every harmonic k: the product of a weight, that depends on the
// sample alone, and cos(k theta t) or sin(k theta t) in turn. The first four are the right-hand
// sides; the others, in which the window meets harmonic K, make up the sequences.
enum sumkind : std::size_t {
    evencosine,     // w (y(t) + y(-t))
    evensine,       // the same times tau
    oddcosine,      // w (y(t) - y(-t)) tau
    oddsine,        // w (y(t) - y(-t))
    cosine0cosine,  // w^2 cos(K theta t)
    sine0sine,      // w^2 sin(K theta t)
    sine1cosine,    // w^2 tau sin(K theta t)
    cosine1sine,    // w^2 tau cos(K theta t)
    cosine2cosine,  // w^2 tau^2 cos(K theta t)
    sine2sine,      // w^2 tau^2 sin(K theta t)
    nkinds
};

// The arrays of the scratch for one frame.
struct qhaarrays {
    std::size_t h;
    std::size_t k;
    std::size_t harmonics;  // K + 1 and whole vectors
    std::size_t unknowns;   // 2K + 1
    std::size_t stride;     // of a row of the normal equations, whose column 2K + 1 is the right
                            // side
    double *weights;
    double *stepcosines;
    double *stepsines;
    double *sums;
    double *c0;  // the middles of the sequences: entries -2K .. 2K
    double *s1;
    double *c2;
    double *normal;

    static std::size_t stridefor(std::size_t k) { return wholevectors(2 * k + 2); }
    static std::size_t sequencelength(std::size_t k) { return 4 * k + 1 + 2 * vectorlength; }

    qhaarrays(qhascratch &scratch, std::size_t halflength, std::size_t count)
        : h(halflength),
          k(count),
          harmonics(wholevectors(k + 1)),
          unknowns(2 * k + 1),
          stride(stridefor(k)),
          weights(scratch.weights.data()),
          stepcosines(scratch.steps.data()),
          stepsines(stepcosines + harmonics),
          sums(scratch.sums.data()),
          c0(scratch.sequences.data() + vectorlength + 2 * k),
          s1(c0 + sequencelength(k)),
          c2(s1 + sequencelength(k)),
          normal(scratch.normal.data()) {}

    const double *sumsof(sumkind kind) const { return sums + kind * harmonics; }
};

// Phasors by which the harmonics turn from sample to sample. Where harmonic K comes close to fs / 2
// its sine all but vanishes; it is made from the angle itself, to be right to the last digits even
// there.
void fillsteps(const qhaarrays &mem, const phasor &fundamental, const phasor &top) {
    phasor step{1.0, 0.0};
    for (std::size_t k = 0; k < mem.harmonics; ++k, step.rotate(fundamental)) {
        const phasor &made = k == mem.k ? top : step;
        mem.stepcosines[k] = made.re;
        mem.stepsines[k] = made.im;
    }
}

void fillweights(const qhaarrays &mem, const double *window, const double *frame,
                 const phasor &top) {
    const double *const w = window + mem.h;
    const double *const y = frame + mem.h;
    const double *mirror = y;
    phasor z{1.0, 0.0};
    double *row = mem.weights;
    for (std::size_t t = 0; t <= mem.h; ++t, --mirror, row += nkinds, z.rotate(top)) {
        const double share = t == 0 ? 0.5 : 1.0;
        const double tau = static_cast<double>(t) / static_cast<double>(mem.h);
        const double even = share * w[t] * (y[t] + *mirror);
        const double odd = w[t] * (y[t] - *mirror);
        const double cosine = share * w[t] * w[t] * z.re;
        const double sine = w[t] * w[t] * z.im;
        row[evencosine] = even;
        row[evensine] = even * tau;
        row[oddcosine] = odd * tau;
        row[oddsine] = odd;
        row[cosine0cosine] = cosine;
        row[sine0sine] = sine;
        row[sine1cosine] = sine * tau;
        row[cosine1sine] = cosine * tau;
        row[cosine2cosine] = cosine * tau * tau;
        row[sine2sine] = sine * tau * tau;
    }
}

// All sums, eight harmonics side by side, each turning from sample to sample.
template <class Real8>
[[gnu::always_inline]] inline void harmonicsums(const qhaarrays &mem) {
    for (std::size_t k = 0; k < mem.harmonics; k += vectorlength) {
        const complexof<Real8> step{Real8::load(mem.stepcosines + k),
                                    Real8::load(mem.stepsines + k)};
        complexof<Real8> z = samephasors<Real8>({1.0, 0.0});
        Real8 sums[nkinds] = {};
        const double *row = mem.weights;
        for (std::size_t t = 0; t <= mem.h; ++t, row += nkinds) {
            for (std::size_t kind = 0; kind < nkinds; kind += 2) {
                sums[kind] += row[kind] * z.re;
                sums[kind + 1] += row[kind + 1] * z.im;
            }
            z.rotate(step);
        }
        for (std::size_t kind = 0; kind < nkinds; ++kind)
            sums[kind].store(mem.sums + kind * mem.harmonics + k);
    }
}

// Entries K - k and K + k of the sequences, by the addition theorems, and their mirror images.
void fillsequences(const qhaarrays &mem) {
    const auto last = static_cast<std::ptrdiff_t>(mem.k);
    for (std::ptrdiff_t k = 0; k <= last; ++k) {
        const auto sum = [&](sumkind kind) { return mem.sumsof(kind)[k]; };
        mem.c0[last - k] = sum(cosine0cosine) + sum(sine0sine);
        mem.c0[last + k] = sum(cosine0cosine) - sum(sine0sine);
        mem.s1[last - k] = sum(sine1cosine) - sum(cosine1sine);
        mem.s1[last + k] = sum(sine1cosine) + sum(cosine1sine);
        mem.c2[last - k] = sum(cosine2cosine) + sum(sine2sine);
        mem.c2[last + k] = sum(cosine2cosine) - sum(sine2sine);
    }
    mem.s1[0] = 0.0;
    for (std::ptrdiff_t m = 1; m <= 2 * last; ++m) {
        mem.c0[-m] = mem.c0[m];
        mem.s1[-m] = -mem.s1[m];
        mem.c2[-m] = mem.c2[m];
    }
}

// What tells the normal equations of the even part of a frame from those of the odd one.
struct partofframe {
    const double *c;         // sequence of the cosines
    const double *d;         // sequence of the sines
    const double *topsines;  // half of what sine k and sine K meet in
    const double *cosines;   // right-hand sides
    const double *sines;
};

// Normal equations of one part, from the diagonal on. Vectors begin at whole multiples of their
// length and may run over into what is written next.
//
// Sine K all but vanishes when harmonic K lies close to fs / 2. As differences of the sequences,
// its elements would keep few right digits or none; as the sums over the frame that they are, they
// keep all, and with them the fit: this is why the sequences are made by way of harmonic K.
template <class Real8>
[[gnu::always_inline]] inline void fillequations(const qhaarrays &mem, const partofframe &part) {
    const std::size_t k = mem.k;
    const double *const topcosines = mem.sumsof(sine1cosine);
    for (std::size_t j = 0; j <= k; ++j) {
        double *const row = mem.normal + j * mem.stride;
        for (std::size_t i = j / vectorlength * vectorlength; i <= k; i += vectorlength)
            (Real8::load(part.c + j + i) + Real8::load(part.c - j + i)).store(row + i);
        for (std::size_t i = 1; i <= k; i += vectorlength)
            (Real8::load(mem.s1 + i + j) + Real8::load(mem.s1 + i - j)).store(row + k + i);
        row[2 * k] = 2.0 * topcosines[j];
        row[2 * k + 1] = part.cosines[j];
        for (std::size_t i = 2 * k + 2; i < mem.stride; ++i) row[i] = 0.0;
    }
    for (std::size_t j = 1; j <= k; ++j) {
        double *const row = mem.normal + (k + j) * mem.stride;
        for (std::size_t i = (k + j) / vectorlength * vectorlength; i <= 2 * k; i += vectorlength)
            (Real8::load(part.d + i - (k + j)) - Real8::load(part.d + i - k + j)).store(row + i);
        row[2 * k] = 2.0 * part.topsines[j];
        row[2 * k + 1] = part.sines[j];
        for (std::size_t i = 2 * k + 2; i < mem.stride; ++i) row[i] = 0.0;
    }
}

struct sumskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const qhaarrays *mem) {
        harmonicsums<Real8>(*mem);
    }
};

struct equationskernel {
    template <class Real8>
    [[gnu::always_inline]] static void run(const qhaarrays *mem, const partofframe *part) {
        fillequations<Real8>(*mem, *part);
    }
};

// Solves for the unknowns of one part.
//
// Deliberate: where a pivot is not above 0, its unknown is left out of the fit, that is, set to 0.
// The unknowns before it then explain the same to within rounding. In the odd part this is sine K
// when harmonic K is within some thousandths of a hertz of fs / 2: there it differs from a multiple
// of the time-weighted cosine K by less than can be told. All other harmonics come out as they
// should, while failing the frame would give them up, too. Held against the fit in extended
// precision, no other rule (failing, or leaving out small positive pivots as well) was nearer.
void solvepart(const qhaarrays &mem, const partofframe &part, double *unknowns) {
    runwidest<equationskernel>(&mem, &part);
    choleskysolvepossible(static_cast<std::uint32_t>(mem.unknowns), mem.normal, mem.stride,
                          unknowns);
}

}  // namespace

void qhascratch::reserve(std::size_t h, std::size_t k) {
    growto(weights, (h + 1) * nkinds);
    growto(steps, 2 * wholevectors(k + 1));
    growto(sums, nkinds * wholevectors(k + 1));
    growto(sequences, 3 * qhaarrays::sequencelength(k));
    growto(normal, (2 * k + 1) * qhaarrays::stridefor(k) + vectorlength);
    growto(even, 2 * k + 1);
    growto(odd, 2 * k + 1);
}

void solveqharmonics(qhascratch &scratch, const double *window, const double *frame, std::size_t h,
                     std::size_t k, double f0, double fs, double *solution) {
    scratch.reserve(h, k);
    const qhaarrays mem(scratch, h, k);
    const double theta = twopi * f0 / fs;
    const phasor top = unitphasor(theta * static_cast<double>(k));
    fillsteps(mem, unitphasor(theta), top);
    fillweights(mem, window, frame, top);
    runwidest<sumskernel>(&mem);
    fillsequences(mem);
    double *const even = scratch.even.data();
    double *const odd = scratch.odd.data();
    solvepart(mem,
              {mem.c0, mem.c2, mem.sumsof(sine2sine), mem.sumsof(evencosine), mem.sumsof(evensine)},
              even);
    solvepart(mem,
              {mem.c2, mem.c0, mem.sumsof(sine0sine), mem.sumsof(oddcosine), mem.sumsof(oddsine)},
              odd);

    const double persecond = fs / static_cast<double>(h);
    storeconjugates(solution, k, [&](std::size_t j) {
        return j == 0 ? phasor{even[0], 0.0} : phasor{0.5 * even[j], -0.5 * odd[k + j]};
    });
    storeconjugates(solution + 2 * mem.unknowns, k, [&](std::size_t j) {
        return j == 0 ? phasor{odd[0] * persecond, 0.0}
                      : phasor{0.5 * odd[j] * persecond, -0.5 * even[k + j] * persecond};
    });
}

}  // namespace nalveo
