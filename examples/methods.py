#!/usr/bin/python3
"""How far the five cepstral methods are from an envelope that is known, for voices made of it.

Prints the root-mean-square error in dB over the harmonics of each voice, from the second to 7 kHz.
The envelope has four resonances like those of a vowel and falls by 6 dB per octave.
"""

import nalveo
import numpy as np

FS = 16000  # Hz
NFFT = 8192  # bins are close enough to draw lines between them
SECONDS = 1.0
TIME = np.arange(int(SECONDS * FS)) / FS
RESONANCES = ((600, 100), (1300, 130), (2600, 180), (3700, 250))  # centre, half width, Hz
VOICES = (
    ("low, steady", lambda t: 100 + 0 * t, 0),
    ("high, steady", lambda t: 240 + 0 * t, 0),
    ("low, gliding", lambda t: 100 * 1.6**t, 0),
    ("low, in noise", lambda t: 100 + 0 * t, 1),
)


def envelope(hz):
    """Amplitude of a harmonic at a frequency in Hz."""
    level = -30 - 6 * np.log2(1 + np.asarray(hz) / 500)
    for centre, width in RESONANCES:
        level = level + 18 / (1 + ((hz - centre) / width) ** 2)
    return 10 ** (level / 20)


def voice(f0, noisy):
    """Samples of a voice with f0(t) in Hz, with or without noise."""
    phase = 2 * np.pi * np.cumsum(f0(TIME)) / FS
    samples = np.zeros_like(TIME)
    for harmonic in range(1, int(FS / 2 / f0(TIME).min()) + 1):
        hz = harmonic * f0(TIME)
        samples += np.where(hz < FS / 2, envelope(hz), 0) * np.cos(harmonic * phase - harmonic**2)
    # White noise through the envelope's filter: everywhere 10 dB below the harmonics' density.
    noise = np.random.default_rng(1).standard_normal(len(TIME))
    shape = envelope(np.abs(np.fft.fftfreq(len(TIME), 1 / FS)))
    noise = np.fft.ifft(np.fft.fft(noise) * shape).real * np.sqrt(FS / 4 / f0(TIME).mean())
    return samples + noisy * noise / 10**0.5


def error(method, samples, f0):
    """Of the frames in the middle of a recording, in dB."""
    cepstra = nalveo.analyze(samples, FS, method=method).mcep
    levels = nalveo.envelope(cepstra, FS, nfft=NFFT, unit="db")
    squares = []
    for frame in range(40, 160):
        here = f0(np.array(frame * 80 / FS))
        hz = here * np.arange(2, int(7000 / here) + 1)
        truth = 20 * np.log10(envelope(hz) / 2 / np.sqrt(here))
        found = np.interp(hz, np.arange(NFFT // 2 + 1) * FS / NFFT, levels[frame])
        squares.append((found - truth) ** 2)
    return np.sqrt(np.mean(np.concatenate(squares)))


print("method            0     1     2     3     4")
for name, f0, noisy in VOICES:
    samples = np.round(32768 * voice(f0, noisy)).astype(np.int16)
    errors = [error(method, samples, f0) for method in range(5)]
    print(f"{name:14}" + "".join(f"{value:6.1f}" for value in errors))
