#include "analysis/harmonicanalysis.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "analysis/harmonic/logspectrum.h"
#include "numeric/elementary.h"
#include "numeric/phasor.h"
#include "numeric/windowing.h"

using namespace nalveo;

namespace {

// Half the length of a frame, and the harmonics that a fit is to reckon with: those of the largest
// frame that the record was made for, so that the first frame of a run makes room for all.
std::size_t largesth(const hamem &record, std::size_t h) { return std::max(h, record.longest / 2); }
std::size_t mostharmonics(const hamem &record, std::size_t k) { return std::max(k, record.most); }

// Cuts and windows a frame of n samples. Returns false when it is silent.
bool loadframe(hamem &record, const double *x, std::uint32_t len, std::uint32_t centre,
               std::uint32_t n) {
    growto(record.frame, std::max<std::size_t>(n, record.longest));
    record.window = record.windows.get(n);
    return getwindowedsamples(x, len, centre, record.frame.data(), n / 2, record.window) != 0;
}

// Fits the three models to the loaded frame of n samples. The solution stays in the record.
int fitharmonics(hamem &record, std::size_t n, std::size_t k, double f0, double fs) {
    growto(record.solution, 2 * (2 * mostharmonics(record, k) + 1));
    record.ha.reserve(largesth(record, n / 2), mostharmonics(record, k));
    return solveharmonics(record.ha, record.window, record.frame.data(), n / 2, k, f0, fs,
                          record.solution.data());
}

void fitqharmonics(hamem &record, std::size_t n, std::size_t k, double f0, double fs) {
    growto(record.solution, 4 * (2 * mostharmonics(record, k) + 1));
    record.qha.reserve(largesth(record, n / 2), mostharmonics(record, k));
    solveqharmonics(record.qha, record.window, record.frame.data(), n / 2, k, f0, fs,
                    record.solution.data());
}

int fitsqharmonics(hamem &record, std::size_t n, std::size_t k, const double *fk, double fs) {
    growto(record.solution, 2 * (2 * mostharmonics(record, k) + 1));
    record.sqha.reserve(largesth(record, n / 2), mostharmonics(record, k));
    return solvesqharmonics(record.sqha, record.window, record.frame.data(), n / 2, k, fk, fs,
                            record.solution.data());
}

// Complex amplitude of harmonic j of k, and its slope where there is one.
const double *amplitudeof(const hamem &record, std::size_t k, std::size_t j) {
    return record.solution.data() + 2 * (k + j);
}
const double *slopeof(const hamem &record, std::size_t k, std::size_t j) {
    return amplitudeof(record, k, j) + 2 * (2 * k + 1);
}

double powerof(const double *a) { return a[0] * a[0] + a[1] * a[1]; }

// Amplitudes and phases of the harmonics 1 .. k.
void polarform(const hamem &record, std::size_t k, double *amp, double *phase) {
    for (std::size_t j = 1; j <= k; ++j) {
        const double *const a = amplitudeof(record, k, j);
        if (amp != nullptr) amp[j - 1] = 2.0 * std::sqrt(powerof(a));
        if (phase != nullptr) phase[j - 1] = arctangent(a[1], a[0]);
    }
}

// Frequency mismatch of a harmonic as the QHA solution tells it: the slope's component at right
// angles to the amplitude, over `divisor` times the squared amplitude.
double mismatch(const double *a, const double *b, double divisor) {
    return (b[1] * a[0] - b[0] * a[1]) / (divisor * powerof(a));
}

}  // namespace

double nalveo::lowestvoiced(const double *f0, std::size_t nframes, double most) {
    for (std::size_t k = 0; k < nframes; ++k)
        if (f0[k] >= lowestmodelled) most = std::min(most, f0[k]);
    return most;
}

std::uint32_t haframesize(double fs, double f0) { return getwinlengthnperiodsodd(2.5, f0, fs); }

std::uint32_t qhaframesize(double fs, double f0) { return getwinlengthnperiodsodd(3.0, f0, fs); }

std::uint32_t sqhaframesize(double fs, double f0) { return getwinlengthnperiodsodd(2.5, f0, fs); }

std::uint32_t hanoharms(double fs, double fmax, double f0) {
    const double nyquist = fs / 2.0;
    if (!(f0 > 0.0) || f0 >= fmax || f0 >= nyquist) return 0;
    const double limit = fmax > nyquist ? nyquist : fmax;
    constexpr double most = 4294967295.0;  // an f0 next to 0 has more than can be counted
    return static_cast<std::uint32_t>(std::min(std::ceil(limit / f0), most)) - 1;
}

hamem *hameminitialize(double fs, double fmax, double f0min) {
    return haqhameminitialize(0, fs, fmax, f0min);
}

hamem *qhameminitialize(double fs, double fmax, double f0min) {
    return haqhameminitialize(1, fs, fmax, f0min);
}

hamem *haqhameminitialize(std::uint8_t type, double fs, double fmax, double f0min) {
    auto record = std::make_unique<hamem>();
    record->longest = type == 0 ? haframesize(fs, f0min) : qhaframesize(fs, f0min);
    record->most = hanoharms(fs, fmax, f0min);
    return record.release();
}

int hamemdestroy(hamem *record) {
    const std::unique_ptr<hamem> owned(record);
    return 0;
}

int qhamemdestroy(hamem *record) { return hamemdestroy(record); }

int getharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                 double *amp, double *phase, hamem *record, double fs, double f0) {
    if (f0 == 0.0 || k == 0) return -1;
    const std::uint32_t n = haframesize(fs, f0);
    if (!loadframe(*record, x, len, centre, n)) return -1;
    if (fitharmonics(*record, n, k, f0, fs) != 0) return -1;
    polarform(*record, k, amp, phase);
    return 0;
}

int getqharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                  double *amp, double *phase, double *freq, hamem *record, double fs, double f0) {
    if (f0 == 0.0 || k == 0) return -1;
    const std::uint32_t n = qhaframesize(fs, f0);
    if (!loadframe(*record, x, len, centre, n)) return -1;
    fitqharmonics(*record, n, k, f0, fs);
    polarform(*record, k, amp, phase);
    if (freq == nullptr) return 0;
    for (std::size_t j = 1; j <= k; ++j) {
        const double shift = mismatch(amplitudeof(*record, k, j), slopeof(*record, k, j), twopi);
        const double nominal = static_cast<double>(j) * f0;
        freq[j - 1] = std::abs(shift) >= f0 / 2.0 ? nominal : nominal + shift;
    }
    return 0;
}

int getsqharmonics(const double *x, std::uint32_t len, std::uint32_t centre, std::uint32_t k,
                   double *amp, double *phase, double *freq, hamem *record, double fs, double f0) {
    if (f0 == 0.0 || k == 0) return -1;
    growto(record->frequencies, mostharmonics(*record, k));
    double *const found = freq != nullptr ? freq : record->frequencies.data();
    if (getqharmonics(x, len, centre, k, nullptr, nullptr, found, record, fs, f0) != 0) return -1;
    const std::uint32_t n = sqhaframesize(fs, f0);
    if (!loadframe(*record, x, len, centre, n)) return -1;
    if (fitsqharmonics(*record, n, k, found, fs) != 0) return -1;
    polarform(*record, k, amp, phase);
    return 0;
}

double qharefinepitch(const double *x, std::uint32_t len, std::uint32_t centre, hamem *record,
                      double fs, double f0, double fmax) {
    if (f0 == 0.0) return 0.0;
    const std::uint32_t k = hanoharms(fs, fmax, f0);
    if (getqharmonics(x, len, centre, k, nullptr, nullptr, nullptr, record, fs, f0) != 0) return f0;
    double sum = 0.0;
    double weights = 0.0;
    for (std::size_t j = 1; j <= k; ++j) {
        const double *const a = amplitudeof(*record, k, j);
        const double estimate =
            f0 + mismatch(a, slopeof(*record, k, j), twopi * static_cast<double>(j));
        const double weight = std::sqrt(std::sqrt(powerof(a)));
        sum += weight * estimate;
        weights += weight;
    }
    return sum / weights;
}

int getlogspectrumfromharms(const double *x, std::uint32_t len, std::uint32_t centre,
                            std::uint32_t nfft, double *out, hamem *record, std::uint8_t sqha,
                            double fs, double f0) {
    const std::uint32_t k = hanoharms(fs, fs, f0);
    const int failed =
        sqha == 0 ? getharmonics(x, len, centre, k, nullptr, nullptr, record, fs, f0)
                  : getsqharmonics(x, len, centre, k, nullptr, nullptr, nullptr, record, fs, f0);
    if (failed != 0) return -1;

    // Logs of half the amplitudes over sqrt(f0); at 0 Hz that of the first harmonic once more.
    growto(record->levels, mostharmonics(*record, k) + 1);
    double *const levels = record->levels.data();
    for (std::size_t j = 1; j <= k; ++j) levels[j] = powerof(amplitudeof(*record, k, j)) / f0;
    if (!loglevels(levels + 1, k)) return -1;
    for (std::size_t j = 1; j <= k; ++j) levels[j] *= 0.5;
    levels[0] = levels[1];

    const std::int64_t nyquist = nfft / 2;
    interpolatelevels(levels, k, f0, fs / nfft, nyquist, out);
    for (std::int64_t i = 1; i < nyquist; ++i) out[nfft - i] = out[i];
    return 0;
}
