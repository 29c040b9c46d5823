"""Levels of spectra and envelopes, and what a column of pixels keeps of a track.

All levels are densities, in dB relative to full scale, per Hz: noise shows its power per Hz of the
two-sided spectrum, a harmonic its power over f0. The cepstra are scaled that way, so spectra and
envelopes share an axis.
"""

import math

import numpy as np

from .recording import FS, library

RANGE = 70  # dB from the palest to the darkest
# Rounding to 16 bits alone makes noise of -143 dB per Hz; what lies below this is drawn as silence.
SILENCE = -130


def mel(hz):
    """O'Shaughnessy, "Speech communication: human and machine", 1987."""
    return 2595 * np.log10(1 + np.asarray(hz) / 700)


def rows(count):
    """Frequencies in Hz, evenly spaced in mel: low frequencies, f0 too, get room to be seen."""
    return 700 * (10 ** (np.linspace(0, mel(FS / 2), count) / 2595) - 1)


def frames_around(samples, centres, length):
    """An odd number of samples around each of some rising centres, zero outside the recording."""
    half = length // 2
    first, last = centres[0] - half, centres[-1] + half + 1
    padded = np.pad(samples[max(first, 0):last],
                    (max(-first, 0), max(last - max(len(samples), first), 0)))
    return np.lib.stride_tricks.sliding_window_view(padded, 2 * half + 1)[centres - centres[0]]


def decibels(power):
    """Of a power; digital silence gives -200."""
    return 10 * np.log10(power + 1e-20)


def at(freqs, table):
    """Columns of a table, [any x bins] from 0 to FS / 2, between which frequencies in Hz lie."""
    bins = table.shape[1] - 1
    place = np.asarray(freqs) * 2 * bins / FS
    low = np.minimum(place.astype(int), bins - 1)
    return table[:, low] * (1 - place + low) + table[:, low + 1] * (place - low)


def spectrogram(samples, centres, freqs):
    """Levels in dB, [centres x freqs], of 25 ms Hann frames; freqs in Hz."""
    window = np.hanning(403)[1:-1]
    levels = np.empty((len(centres), len(freqs)))
    for start in range(0, len(centres), 1000):  # keeps the memory of an hour at that of a minute
        some = slice(start, start + 1000)
        frames = frames_around(samples, centres[some], len(window)) * window
        power = np.abs(np.fft.rfft(frames, 1024)) ** 2 / (FS * np.sum(window**2))
        levels[some] = decibels(at(freqs, power))
    return levels


def silent(samples, centres):
    """Whether the 25 ms around each of some centres hold nothing but equal samples."""
    return np.ptp(frames_around(samples, centres, 401), axis=1) == 0


def envelope(cepstra, tracks, nfft):
    """Levels in dB, [rows of cepstra x nfft / 2 + 1], of envelopes at k FS / nfft."""
    return library().envelope(cepstra, FS, tracks.alpha, nfft, tracks.scale, unit="db")


def frame_spectrum(samples, centre, f0):
    """Frequencies in Hz and levels in dB of one frame; four periods resolve the harmonics."""
    length = int(4 * FS / f0) if f0 > 0 else 401
    window = np.hanning(length // 2 * 2 + 3)[1:-1]
    nfft = max(4096, 1 << len(window).bit_length())
    frame = frames_around(samples, np.array([centre]), len(window))[0]
    power = np.abs(np.fft.rfft(frame * window, nfft)) ** 2
    power /= np.sum(window) ** 2 * f0 if f0 > 0 else FS * np.sum(window**2)
    return np.arange(nfft // 2 + 1) * FS / nfft, decibels(power)


def level_range(levels):
    """The palest and the darkest level of a picture."""
    top = max(5 * math.ceil(np.percentile(levels, 99.8) / 5), SILENCE + 40)
    return max(top - RANGE, SILENCE), top


def middle(table):
    """Median of the finite values in each row, NaN without any; sorts the rows."""
    table.sort(axis=1)  # NaN last
    count = np.isfinite(table).sum(axis=1)
    row = np.arange(len(table))
    return (table[row, np.maximum(count - 1, 0) // 2] + table[row, count // 2 * (count > 0)]) / 2


def by_column(values, columns):
    """Lowest, median and highest finite value in each of some equal columns, NaN without any.

    The columns are as many as asked for, or as there are values if these are fewer.
    """
    columns = min(columns, len(values))
    edges = np.arange(columns + 1) * len(values) // columns
    place = edges[:-1, None] + np.arange(np.diff(edges).max())
    table = np.where(place < edges[1:, None], values[np.minimum(place, len(values) - 1)], np.nan)
    median = middle(table)
    highest = np.maximum(np.isfinite(table).sum(axis=1) - 1, 0)
    return table[:, 0], median, table[np.arange(columns), highest]


def smoothed(values, width):
    """Running median over so many values, then their running mean; NaN where most are."""
    half = width // 2
    if half == 0:
        return values

    def windows(track):
        return np.lib.stride_tricks.sliding_window_view(
            np.pad(track, half, constant_values=np.nan), 2 * half + 1)
    here = windows(values)
    rough = np.where(np.isfinite(here).mean(axis=1) >= 0.5, middle(here.copy()), np.nan)
    here = windows(rough)
    count = np.maximum(np.isfinite(here).sum(axis=1), 1)
    return np.where(np.isfinite(rough), np.nansum(here, axis=1) / count, np.nan)
