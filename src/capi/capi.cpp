// The C interface: checks what comes in, then calls the routines of the analysis in the order of
// the program. Nothing is thrown beyond it.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <vector>

#include "analysis/ccanalysis.h"
#include "analysis/conditioning.h"
#include "analysis/fvanalysis.h"
#include "analysis/harmonicanalysis.h"
#include "analysis/pitchanalysis.h"
#include "capi/settings.h"
#include "nalveo.h"
#include "numeric/aligned.h"
#include "numeric/products.h"
#include "simd/vectors.h"
#include "synthesis/melenvelope.h"
#include "synthesis/synthesis.h"

namespace nalveo {

namespace {

// A failure on its way to the border.
struct failure {
    int code;
};

void expect(bool condition, int code) {
    if (!condition) throw failure{code};
}

// Runs work and turns whatever it throws into a code.
template <class Work>
int guarded(const Work &work) noexcept {
    try {
        work();
        return NALVEO_OK;
    } catch (const failure &f) {
        return f.code;
    } catch (const std::bad_alloc &) {
        return NALVEO_NO_MEMORY;
    } catch (const std::length_error &) {  // an array longer than any memory
        return NALVEO_NO_MEMORY;
    } catch (...) {
        return NALVEO_INTERNAL;
    }
}

// Comparisons are such that not-a-number fails them.
bool allwithin(const double *values, std::size_t n, double lowest, double highest) {
    return std::all_of(values, values + n, [=](double v) { return v >= lowest && v <= highest; });
}

// One call on a signal: its settings, its frames, its samples with digital silence filled. The
// noise begins anew with every call.
class call {
   public:
    call(const double *samples, std::size_t nsamples, const nalveo_options *options)
        : samples_(samples), nsamples_(static_cast<std::uint32_t>(nsamples)) {
        expect(samples != nullptr, NALVEO_NULL_POINTER);
        const int code = readgrid(options, nsamples, &settings_, &nframes_);
        expect(code == NALVEO_OK, code);
        expect(allwithin(samples, nsamples, -1.0, 1.0), NALVEO_BAD_SAMPLE);
        if (settings_.zfill == 0) return;
        if (findrun(samples, 0, nsamples_, settings_.zfill).length == 0) return;
        filled_.assign(samples, samples + nsamples);
        noisesource noise;
        fillzeros(filled_.data(), nsamples_, settings_.zfill, noise);
        samples_ = filled_.data();
    }

    const callsettings &settings() const { return settings_; }
    std::uint32_t nframes() const { return nframes_; }

    void checkf0(const double *f0) const {
        expect(f0 != nullptr, NALVEO_NULL_POINTER);
        const bool good = std::all_of(f0, f0 + nframes_, [this](double f) {
            return f == 0.0 || (f >= lowestmodelled && f < 0.5 * settings_.fs);
        });
        expect(good, NALVEO_BAD_F0);
    }

    void checkfv(const double *fv) const {
        expect(fv == nullptr || allwithin(fv, nframes_, 0.0, 0.5 * settings_.fs), NALVEO_BAD_FV);
    }

    void estimatef0(double *f0) const {
        getpitch(samples_, nsamples_, settings_.lframe, 0, nframes_, f0, settings_.fs,
                 settings_.f0min, settings_.f0max);
    }

    void refinef0(double *f0, const double *fv) const {
        refinepitch(samples_, nsamples_, settings_.lframe, 0, nframes_, settings_.iterations, f0,
                    fv, settings_.fs, settings_.f0min, settings_.f0max);
    }

    void estimatefv(const double *f0, double *fv) const {
        getfvoicing(samples_, nsamples_, settings_.lframe, 0, nframes_, f0, fv, settings_.fs);
    }

    void estimatecc(const double *f0, double *cc) const {
        // With alpha 0, some of the methods leave the last coefficient as it was.
        std::fill(cc, cc + nframes_ * (std::size_t{settings_.ccord} + 1), 0.0);
        waveform2cc(samples_, nsamples_, settings_.lframe, 0, nframes_, f0, settings_.ccord, cc,
                    settings_.ccmeth, settings_.fs, settings_.alpha);
        if (settings_.htsscale) htsadapteradhoc(cc, settings_.ccord, nframes_);
    }

   private:
    const double *samples_;
    std::uint32_t nsamples_;
    std::uint32_t nframes_ = 0;
    callsettings settings_;
    std::vector<double> filled_;
};

// Frequencies that are evaluated at a time, which bounds the memory that the basis takes.
constexpr std::size_t mostfrequencies = 1024;

// Fills in the basis by which a plain cepstrum gives the levels at frequencies: row j is that of
// c(j), one value per frequency. Rows are `columns` doubles apart, a multiple of vectorlength.
void envelopebasis(const callsettings &settings, const double *frequencies,
                   std::size_t nfrequencies, std::size_t columns, double *basis) {
    std::vector<double> column(std::size_t{settings.ccord} + 1);
    for (std::size_t i = 0; i < nfrequencies; ++i) {
        ccmatrixcreate(settings.ccord, 1, frequencies + i, column.data(), nullptr, 0.0, settings.fs,
                       settings.alpha);
        for (std::size_t j = 0; j < column.size(); ++j) basis[j * columns + i] = column[j];
    }
}

void evaluateenvelopes(const callsettings &settings, const double *cc, std::size_t nframes,
                       const double *frequencies, std::size_t nfrequencies, double *levels) {
    const std::size_t order = std::size_t{settings.ccord} + 1;
    const std::size_t columns = wholevectors(std::min(nfrequencies, mostfrequencies));
    alignedreals basis(order * columns);
    std::vector<double> plain(order);
    alignedreals row(columns);
    for (std::size_t first = 0; first < nfrequencies; first += mostfrequencies) {
        const std::size_t count = std::min(nfrequencies - first, mostfrequencies);
        envelopebasis(settings, frequencies + first, count, columns, basis.data());
        for (std::size_t k = 0; k < nframes; ++k) {
            std::copy(cc + k * order, cc + (k + 1) * order, plain.begin());
            if (settings.htsscale) undohtsscale(plain.data(), settings.ccord);
            vecbymat(plain.data(), basis.data(), order, columns, row.data());
            std::copy(row.data(), row.data() + count, levels + k * nfrequencies + first);
        }
    }
}

// Converts a track into another, or in place.
int convert(const double *from, std::size_t nframes, double *to,
            int (*inplace)(std::uint32_t, double *)) {
    if (nframes == 0) return NALVEO_OK;
    if (from == nullptr || to == nullptr) return NALVEO_NULL_POINTER;
    if (nframes > NALVEO_MOST_SAMPLES) return NALVEO_BAD_LENGTH;
    if (to != from) std::copy(from, from + nframes, to);
    inplace(static_cast<std::uint32_t>(nframes), to);
    return NALVEO_OK;
}

}  // namespace

}  // namespace nalveo

int nalveo_analyse(const double *samples, std::size_t nsamples, const nalveo_options *options,
                   double *f0, double *cc, double *fv) {
    return nalveo::guarded([&] {
        const nalveo::call call(samples, nsamples, options);
        std::vector<double> ownf0;
        double *track = f0;
        if (call.settings().f0given) {
            nalveo::expect(f0 != nullptr, NALVEO_BAD_F0_GIVEN);
            call.checkf0(f0);
        } else {
            if (f0 == nullptr) {
                ownf0.resize(call.nframes());
                track = ownf0.data();
            }
            call.estimatef0(track);
        }
        if (fv != nullptr) call.estimatefv(track, fv);
        call.refinef0(track, fv);
        if (cc != nullptr) call.estimatecc(track, cc);
    });
}

int nalveo_estimate_f0(const double *samples, std::size_t nsamples, const nalveo_options *options,
                       double *f0) {
    return nalveo::guarded([&] {
        const nalveo::call call(samples, nsamples, options);
        nalveo::expect(f0 != nullptr, NALVEO_NULL_POINTER);
        call.estimatef0(f0);
    });
}

int nalveo_refine_f0(const double *samples, std::size_t nsamples, const nalveo_options *options,
                     double *f0, const double *fv) {
    return nalveo::guarded([&] {
        const nalveo::call call(samples, nsamples, options);
        call.checkf0(f0);
        call.checkfv(fv);
        call.refinef0(f0, fv);
    });
}

int nalveo_estimate_fv(const double *samples, std::size_t nsamples, const nalveo_options *options,
                       const double *f0, double *fv) {
    return nalveo::guarded([&] {
        const nalveo::call call(samples, nsamples, options);
        call.checkf0(f0);
        nalveo::expect(fv != nullptr, NALVEO_NULL_POINTER);
        call.estimatefv(f0, fv);
    });
}

int nalveo_estimate_cc(const double *samples, std::size_t nsamples, const nalveo_options *options,
                       const double *f0, double *cc) {
    return nalveo::guarded([&] {
        const nalveo::call call(samples, nsamples, options);
        call.checkf0(f0);
        nalveo::expect(cc != nullptr, NALVEO_NULL_POINTER);
        call.estimatecc(f0, cc);
    });
}

int nalveo_f0_to_log(const double *f0, std::size_t nframes, double *logf0) {
    return nalveo::convert(f0, nframes, logf0, f02logf0);
}

int nalveo_log_to_f0(const double *logf0, std::size_t nframes, double *f0) {
    return nalveo::convert(logf0, nframes, f0, logf02f0);
}

int nalveo_envelope(const double *cc, std::size_t nframes, const nalveo_options *options,
                    const double *frequencies, std::size_t nfrequencies, double *levels) {
    return nalveo::guarded([&] {
        nalveo::callsettings settings;
        const int code = nalveo::readcepstraloptions(options, false, &settings);
        nalveo::expect(code == NALVEO_OK, code);
        if (nframes == 0 || nfrequencies == 0) return;
        nalveo::expect(cc != nullptr && frequencies != nullptr && levels != nullptr,
                       NALVEO_NULL_POINTER);
        nalveo::expect(nalveo::allwithin(frequencies, nfrequencies, 0.0, 0.5 * settings.fs),
                       NALVEO_BAD_FREQUENCY);
        const std::size_t ncoefficients = nframes * (std::size_t{settings.ccord} + 1);
        nalveo::expect(
            std::all_of(cc, cc + ncoefficients, [](double c) { return std::isfinite(c); }),
            NALVEO_BAD_CEPSTRUM);
        nalveo::evaluateenvelopes(settings, cc, nframes, frequencies, nfrequencies, levels);
    });
}

int nalveo_synthesise(const double *f0, const double *cc, const double *fv, std::size_t nframes,
                      const nalveo_options *options, std::uint64_t seed, double *samples,
                      std::size_t nsamples) {
    return nalveo::guarded([&] {
        nalveo::callsettings settings;
        const int code = nalveo::readcepstraloptions(options, true, &settings);
        nalveo::expect(code == NALVEO_OK, code);
        nalveo::expect(settings.lframe <= nalveo::longestshift, NALVEO_BAD_SHIFT);
        nalveo::expect(f0 != nullptr && cc != nullptr && samples != nullptr, NALVEO_NULL_POINTER);
        nalveo::expect(nframes >= 1 && nframes <= NALVEO_MOST_SAMPLES, NALVEO_BAD_LENGTH);
        const nalveo::speechtracks tracks{static_cast<std::uint32_t>(nframes), settings.ccord, f0,
                                          cc, fv};
        nalveo::expect(
            nsamples >= 1 && nsamples <= nalveo::synthesislength(tracks.nframes, settings.lframe),
            NALVEO_BAD_LENGTH);
        switch (nalveo::findbadvalue(tracks, settings.fs).where) {
            case nalveo::badvalue::track::none:
                break;
            case nalveo::badvalue::track::f0:
                throw nalveo::failure{NALVEO_BAD_F0};
            case nalveo::badvalue::track::cc:
                throw nalveo::failure{NALVEO_BAD_CEPSTRUM};
            case nalveo::badvalue::track::fv:
                throw nalveo::failure{NALVEO_BAD_FV};
        }
        nalveo::synthesise(tracks,
                           {settings.fs, settings.lframe, settings.alpha, settings.htsscale, seed},
                           nsamples, samples);
    });
}
