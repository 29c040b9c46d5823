#include "analysis/ccanalysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <memory>

#include "analysis/defaults.h"
#include "analysis/harmonic/logspectrum.h"
#include "numeric/windowing.h"
#include "simd/vectors.h"

using namespace nalveo;

namespace {

// The five ways, the kind of harmonic record each needs, and what it does with it.
enum class harmonicrecord { none, ha, qha };

struct methodentry {
    ccmethod *method;
    harmonicrecord record;
};

constexpr methodentry methods[] = {
    {getharmmcep, harmonicrecord::ha},  {getharmrdc, harmonicrecord::ha},
    {getqharmrdc, harmonicrecord::qha}, {getwwcmcep, harmonicrecord::none},
    {getseemcep, harmonicrecord::none},
};

methodentry findmethod(std::uint8_t ccmeth) {
    if (ccmeth < std::size(methods)) return methods[ccmeth];
    return {getharmmcep, harmonicrecord::qha};
}

// Transform size by sample rate, raised where three periods of the lowest f0 need more.
std::uint32_t transformsize(double fs, std::uint32_t noisewindow, double f0min) {
    std::uint32_t size = 512;
    for (std::uint32_t rate = 8000; fs > rate && rate <= 128000; rate *= 2) size *= 2;
    if (fs > 128000.0) size = 0;
    const std::uint32_t longest = std::max(getwinlengthnperiodsodd(3.0, f0min, fs), noisewindow);
    return std::max(size, getwinlengthceilpot2(longest));
}

// Warps the cepstra that wait.
void warpwaiting(ccmem &memory, std::uint32_t nfft, std::uint32_t ccord, double alpha) {
    waitingframes &waiting = memory.waiting;
    const std::size_t order = std::size_t{ccord} + 1;
    const std::size_t columns = wholevectors(order);
    if (waiting.ncepstra == 0) return;
    growto(waiting.warped, waitingframes::most * columns);
    warpcepstra(memory.warp, waiting.cepstra.data(), waiting.ncepstra, nfft / 2,
                waiting.warped.data(), ccord, alpha);
    for (std::size_t i = 0; i < waiting.ncepstra; ++i) {
        double *const row = waiting.cepstrumrows[i];
        std::copy_n(waiting.warped.data() + i * columns, order, row);
        row[0] *= 2.0;
    }
    waiting.ncepstra = 0;
}

// Lets a cepstrum wait for others.
void waitforwarping(ccmem &memory, std::uint32_t nfft, const double *cepstrum, std::uint32_t ccord,
                    double *out, double alpha) {
    waitingframes &waiting = memory.waiting;
    const std::size_t length = nfft / 2 + 1;
    growto(waiting.cepstra, waitingframes::most * length);
    std::copy_n(cepstrum, length, waiting.cepstra.data() + waiting.ncepstra * length);
    waiting.cepstrumrows[waiting.ncepstra++] = out;
    if (waiting.ncepstra == waitingframes::most) warpwaiting(memory, nfft, ccord, alpha);
}

// From a log spectrum in the first half of the buffer to a warped cepstrum. Only quefrencies up to
// m enter the warping.
void logspectrum2cc(std::uint32_t nfft, double *buffer, std::uint32_t m, std::uint32_t ccord,
                    double *out, ccmem *memory, double alpha) {
    double *const scratch = buffer + nfft;
    getrealcepstrum(nfft, buffer, memory->noise.get());
    // The warping works on the one-sided cepstrum, in which all but the ends stand for two.
    buffer[nfft / 2] *= 0.5;
    buffer[0] *= 0.5;
    if (memory->waiting.together && m == nfft / 2 && warpsbymatrix(m, ccord, alpha)) {
        waitforwarping(*memory, nfft, buffer, ccord, out, alpha);
        return;
    }
    warpcepstrum(memory->warp, buffer, m, nfft / 2, out, ccord, scratch, alpha);
    out[0] *= 2.0;
}

int noise2cc(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
             double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
             double alpha) {
    getnoiselogspectrum(x, nsamples, centre, nfft, buffer, memory->noise.get(), fs);
    logspectrum2cc(nfft, buffer, nfft / 2, ccord, out, memory, alpha);
    return 0;
}

// Fits the discrete cepstra that wait; frames whose fit fails take the noise log spectrum.
void fitwaiting(const double *x, std::uint32_t nsamples, std::uint32_t nfft, double *buffer,
                std::uint32_t ccord, ccmem *memory, double fs, double alpha) {
    waitingframes &waiting = memory->waiting;
    const std::size_t count = waiting.fits.count;
    if (count == 0) return;
    waiting.fits.solve(ccord);
    for (std::size_t i = 0; i < count; ++i)
        if (waiting.fits.take(i, ccord, waiting.fitrows[i]) != 0)
            noise2cc(x, nsamples, waiting.fitcentres[i], nfft, buffer, ccord, waiting.fitrows[i],
                     memory, fs, alpha);
}

// Discrete cepstrum of a voiced frame. The quasi-harmonic model finds the frequencies of the
// harmonics, else they are multiples of f0. Levels and frequencies use the halves of the buffer.
// Returns false when the frame is unvoiced or cannot be modelled.
bool harmonics2cc(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
                  double *buffer, bool quasi, std::uint32_t ccord, double *out, ccmem *memory,
                  double fs, double f0, double alpha) {
    if (!(f0 > 0.0)) return false;
    const std::uint32_t k = hanoharms(fs, fs, f0);
    hamem *const record = memory->harmonic.get();
    double *const levels = buffer;
    double *const freqs = buffer + nfft;
    const int failed =
        quasi ? getsqharmonics(x, nsamples, centre, k, levels, nullptr, freqs, record, fs, f0)
              : getharmonics(x, nsamples, centre, k, levels, nullptr, record, fs, f0);
    if (failed != 0) return false;
    // Half the amplitudes over sqrt(f0), and their logs.
    const double root = std::sqrt(f0);
    for (std::size_t i = 0; i < k; ++i) levels[i] = levels[i] * 0.5 / root;
    if (!loglevels(levels, k)) return false;
    const double *const given = quasi ? freqs : nullptr;
    waitingframes &waiting = memory->waiting;
    if (!waiting.together || ccord > rdcbatch::highest)
        return fitcepstrum(memory->rdc, levels, k, given, ccord, out, fs, f0, alpha) == 0;
    waiting.fitrows[waiting.fits.count] = out;
    waiting.fitcentres[waiting.fits.count] = centre;
    waiting.fits.add(memory->rdc, levels, k, given, ccord, fs, f0, alpha);
    if (waiting.fits.count == rdcbatch::size)
        fitwaiting(x, nsamples, nfft, buffer, ccord, memory, fs, alpha);
    return true;
}

}  // namespace

int waveform2cc(const double *x, std::uint32_t nsamples, std::uint32_t lframe, std::uint32_t first,
                std::uint32_t nframes, const double *f0, std::uint32_t ccord, double *cc,
                std::uint8_t ccmeth, double fs, double alpha) {
    const double f0min = lowestvoiced(f0, nframes, defaultf0min);
    const std::uint32_t lwin = naframesize(fs);
    const std::uint32_t nfft = transformsize(fs, lwin, f0min);
    const std::size_t row = std::size_t{ccord} + 1;

    const ccmemhandle memory(ccmeminitialize(lwin, nfft, ccmeth, fs, f0min));
    const auto buffer =
        std::make_unique_for_overwrite<double[]>(nfft + std::max<std::size_t>(nfft, row));
    memory->waiting.together = true;
    ccmethod *const method = findmethod(ccmeth).method;
    for (std::uint32_t i = 0; i < nframes; ++i) {
        const double frequency = f0[i] >= lowestmodelled ? f0[i] : 0.0;
        method(x, nsamples, first + i * lframe, nfft, buffer.get(), ccord, cc + i * row,
               memory.get(), fs, frequency, alpha);
    }
    fitwaiting(x, nsamples, nfft, buffer.get(), ccord, memory.get(), fs, alpha);
    warpwaiting(*memory, nfft, ccord, alpha);
    return 0;
}

ccmem *ccmeminitialize(std::uint32_t lwin, std::uint32_t nfft, std::uint8_t ccmeth, double fs,
                       double f0min) {
    auto record = std::make_unique<ccmem>();
    const harmonicrecord kind = findmethod(ccmeth).record;
    if (kind == harmonicrecord::ha) record->harmonic.reset(hameminitialize(fs, fs, f0min));
    if (kind == harmonicrecord::qha) record->harmonic.reset(qhameminitialize(fs, fs, f0min));
    record->noise.reset(nameminitializefft(lwin, nfft));
    return record.release();
}

int ccmemdestroy(ccmem *record) {
    const std::unique_ptr<ccmem> owned(record);
    return 0;
}

int getharmmcep(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
                double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
                double f0, double alpha) {
    if (f0 == 0.0 || getlogspectrumfromharms(x, nsamples, centre, nfft, buffer,
                                             memory->harmonic.get(), 0, fs, f0) != 0)
        return noise2cc(x, nsamples, centre, nfft, buffer, ccord, out, memory, fs, alpha);
    logspectrum2cc(nfft, buffer, nfft / 2, ccord, out, memory, alpha);
    return 0;
}

int getharmrdc(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
               double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
               double f0, double alpha) {
    if (harmonics2cc(x, nsamples, centre, nfft, buffer, false, ccord, out, memory, fs, f0, alpha))
        return 0;
    return noise2cc(x, nsamples, centre, nfft, buffer, ccord, out, memory, fs, alpha);
}

int getqharmrdc(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
                double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
                double f0, double alpha) {
    if (harmonics2cc(x, nsamples, centre, nfft, buffer, true, ccord, out, memory, fs, f0, alpha))
        return 0;
    return noise2cc(x, nsamples, centre, nfft, buffer, ccord, out, memory, fs, alpha);
}

int getwwcmcep(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
               double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
               double f0, double alpha) {
    getsignallogspectrum(x, nsamples, centre, nfft, buffer, memory->noise.get(), fs, f0);
    std::uint32_t m = nfft / 2;
    // Of a voiced frame, quefrencies beyond two thirds of a period would bring the pitch in.
    if (f0 > 0.0) m = static_cast<std::uint32_t>(std::min<double>(m, std::floor(fs / (1.5 * f0))));
    logspectrum2cc(nfft, buffer, m, ccord, out, memory, alpha);
    return 0;
}

int getseemcep(const double *x, std::uint32_t nsamples, std::uint32_t centre, std::uint32_t nfft,
               double *buffer, std::uint32_t ccord, double *out, ccmem *memory, double fs,
               double f0, double alpha) {
    getseevoclogspectrum(x, nsamples, centre, nfft, buffer, memory->noise.get(), fs, f0);
    logspectrum2cc(nfft, buffer, nfft / 2, ccord, out, memory, alpha);
    return 0;
}
