#!/usr/bin/python3
"""How far the five cepstral methods are from an envelope that is known, for voices made of it.

Prints the root-mean-square error in dB over the harmonics of each voice, from the second to 7 kHz.
The envelope has four resonances like those of a vowel and falls by 6 dB per octave.
"""

import os
import subprocess
import tempfile
import wave

import numpy as np

FS = 16000  # Hz
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


def decibels(cepstra, hz, alpha=0.42):
    """Envelope of a frame without HTS scaling."""
    omega = 2 * np.pi * hz / FS
    warped = np.arctan2((1 - alpha**2) * np.sin(omega), (1 + alpha**2) * np.cos(omega) - 2 * alpha)
    basis = np.cos(np.outer(warped, np.arange(len(cepstra))))
    return 20 / np.log(10) * (2 * basis @ cepstra - cepstra[0])


def error(method, f0, folder):
    """Of the frames in the middle of a recording, in dB."""
    names = [os.path.join(folder, name) for name in ("wav", "lf0", "mcc")]
    subprocess.run(["nalveo16", *names, f"--ccmeth={method}", "--htsscale=0"], check=True)
    cepstra = np.fromfile(names[2], "<f4").reshape(-1, 40)
    squares = []
    for frame in range(40, 160):
        here = f0(np.array(frame * 80 / FS))
        hz = here * np.arange(2, int(7000 / here) + 1)
        truth = 20 * np.log10(envelope(hz) / 2 / np.sqrt(here))
        squares.append((decibels(cepstra[frame], hz) - truth) ** 2)
    return np.sqrt(np.mean(np.concatenate(squares)))


print("method            0     1     2     3     4")
with tempfile.TemporaryDirectory() as temporary:
    for name, f0, noisy in VOICES:
        with wave.open(os.path.join(temporary, "wav"), "wb") as file:
            file.setparams((1, 2, FS, 0, "NONE", ""))
            file.writeframes(np.round(32768 * voice(f0, noisy)).astype("<i2").tobytes())
        errors = [error(method, f0, temporary) for method in range(5)]
        print(f"{name:14}" + "".join(f"{value:6.1f}" for value in errors))
