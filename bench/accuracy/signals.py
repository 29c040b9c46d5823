"""Recordings, voices whose f0 is known exactly, and noise."""

import wave

import nalveo
import numpy as np

FS = 16000  # Hz
HOP = 80  # samples between frames
SECONDS = 3.0


def read(path):
    """Samples of a 16-bit recording from -1 to 1."""
    with wave.open(path) as file:
        if (file.getnchannels(), file.getframerate(), file.getsampwidth()) != (1, FS, 2):
            raise SystemExit(f"accuracy: {path} is not mono with {FS} Hz and 16 bits")
        return np.frombuffer(file.readframes(file.getnframes()), "<i2") / 32768.0


def write(path, samples):
    """Writes samples as 16-bit integers; what is beyond full scale is cut."""
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, FS, 0, "NONE", ""))
        file.writeframes(to_integers(samples).astype("<i2").tobytes())


def to_integers(samples):
    return np.clip(np.floor(32768 * samples + 0.5), -32768, 32767)


class Voice:
    """Samples with their f0, which is known at every sample: 0 where unvoiced."""

    def __init__(self, name, samples, f0):
        self.name = name
        self.samples = samples * (0.3 / np.abs(samples).max())
        self.f0 = f0

    def truth(self, times):
        """f0 at times in s."""
        places = np.rint(np.asarray(times) * FS).astype(int)
        inside = (places >= 0) & (places < len(self.f0))
        return np.where(inside, self.f0[np.clip(places, 0, len(self.f0) - 1)], 0.0)


def vowel(frequency):
    """Amplitude of a harmonic of an open vowel."""
    level = -6 * np.log2(1 + frequency / 500)
    for centre, width in ((650, 110), (1150, 130), (2500, 180), (3500, 250)):
        level = level + 18 / (1 + ((frequency - centre) / width) ** 2)
    return 10 ** (level / 20)


def buzz(f0, highest=7500.0):
    """Harmonics of a running f0 under the envelope of a vowel; silence where f0 is 0."""
    phase = 2 * np.pi * np.cumsum(f0) / FS
    samples = np.zeros(len(f0))
    for k in range(1, int(highest / f0[f0 > 0].min()) + 1):
        hz = k * f0
        samples += np.where((hz > 0) & (hz < highest), vowel(hz), 0) * np.cos(k * phase + 0.3 * k * k)
    return samples * ramps(f0 > 0)


def ramps(voiced):
    """Weights that rise and fall over 10 ms within voiced stretches."""
    length = FS // 100
    edges = np.flatnonzero(np.diff(np.r_[0, voiced.astype(int), 0]))
    weight = voiced.astype(float)
    rise = 0.5 - 0.5 * np.cos(np.pi * np.arange(length) / length)
    for begin, end in zip(edges[::2], edges[1::2]):
        weight[begin:begin + length] *= rise[:end - begin]
        weight[end - length:end] *= rise[::-1]
    return weight


def breath(samples, f0, rng):
    """Noise of the voice's own spectrum above 1.5 kHz, as loud as what is there."""
    spectrum = np.fft.rfft(rng.standard_normal(len(samples)))
    hz = np.fft.rfftfreq(len(samples), 1 / FS)
    noise = np.fft.irfft(spectrum * vowel(hz) * (hz > 1500), len(samples)) * (f0 > 0)
    high = np.fft.irfft(np.fft.rfft(samples) * (hz > 1500), len(samples))
    return noise * np.sqrt(np.mean(high**2) / np.mean(noise**2))


def made_voices():
    """Voices by formula, each with pauses of 0.3 s."""
    rng = np.random.default_rng(1)
    t = np.arange(int(SECONDS * FS)) / FS
    gate = (t % 1.5 > 0.15) & (t % 1.5 < 1.35)
    # A creaky voice: every period has a length of its own.
    jitter = np.repeat(1 + 0.03 * rng.standard_normal(400), FS // 65)[:len(t)]
    shapes = {
        "glide, low": 90 * 2 ** (t / SECONDS),
        "glide, high": 180 * 2 ** (t / SECONDS),
        "vibrato, low": 120 * 2 ** (np.sin(2 * np.pi * 5.5 * t) / 12),
        "vibrato, high": 300 * 2 ** (np.sin(2 * np.pi * 6 * t) / 12),
        "creak": 68 * jitter,
        "breath": 130 + 20 * np.sin(2 * np.pi * 0.7 * t),
    }
    voices = []
    for name, shape in shapes.items():
        f0 = np.where(gate, shape, 0)
        samples = buzz(f0, 1500.0 if name == "breath" else 7500.0)
        if name == "breath":
            samples = samples + breath(buzz(f0), f0, rng)
        voices.append(Voice(name, samples + 1e-4 * rng.standard_normal(len(t)), f0))
    return voices


def natural_voices(recordings):
    """Recordings made anew from their own tracks: then f0 is what it was made with."""
    voices = []
    for name, samples in recordings.items():
        tracks = nalveo.analyze(samples, FS)
        made = nalveo.synthesize(*tracks, fs=FS)
        # Between frames that are both voiced f0 runs linearly; half of an interval at a border.
        frames = np.arange(len(made)) / HOP
        k = np.minimum(frames.astype(int), len(tracks.f0) - 2)
        f, g, part = tracks.f0[k], tracks.f0[k + 1], frames - k
        f0 = np.where((f > 0) & (g > 0), f + (g - f) * part, np.where(part < 0.5, f, g))
        voices.append(Voice(name, made, f0))
    return voices


def babble(voices, rng):
    """Eight voices at a time, drawn from all, as a stretch of 30 s."""
    whole = np.concatenate([voice.samples / np.std(voice.samples) for voice in voices])
    length = 30 * FS
    return sum(np.resize(np.roll(whole, rng.integers(len(whole))), length) for _ in range(8))


def with_noise(voice, noise, snr, rng):
    """A voice with noise so many dB below its mean power where it is voiced."""
    begin = rng.integers(len(noise) - len(voice.samples)) if len(noise) > len(voice.samples) else 0
    part = np.resize(noise[begin:], len(voice.samples))
    power = np.mean(voice.samples[voice.f0 > 0] ** 2)
    noisy = Voice(voice.name, voice.samples, voice.f0)
    noisy.samples = noisy.samples + part * np.sqrt(power / np.mean(part**2) / 10 ** (snr / 10))
    noisy.samples *= min(1.0, 0.99 / np.abs(noisy.samples).max())
    return noisy
