"""Frames of the analysis beside frames of a mel spectrogram, for neural trainers.

    nalveo16-corpus RECORDINGS FEATURES --npz --convert
    data = frames.Frames("RECORDINGS", "FEATURES", rate=22050, hop=256)
    for batch in data.batches(16, seed=epoch): ...

Nothing but numpy, nalveo and sox: an item is a dict of arrays that torch.from_numpy and the like
take without a copy.
"""

import os
import subprocess

import numpy as np

import nalveo


# Of recordings; labels and texts may lie beside them.
ENDINGS = (".wav", ".flac", ".aif", ".aiff", ".au", ".ogg", ".mp3", ".sph")


def read_audio(path, rate):
    """Samples of a recording at a rate, float32 from -1 to 1."""
    raw = subprocess.run(["sox", "-R", "-G", "--no-glob", path, "-t", "raw", "-e", "float", "-b",
                          "32", "-c", "1", "-", "rate", "-v", str(rate)], check=True,
                         stdout=subprocess.PIPE).stdout
    return np.frombuffer(raw, "<f4").copy()


def stft_power(x, hop, window=1024):
    """Powers of a short-time transform that is centred: 1 + len(x) // hop frames."""
    padded = np.pad(x, window // 2, "reflect")
    spans = np.lib.stride_tricks.sliding_window_view(padded, window)[::hop]
    return np.abs(np.fft.rfft(spans * np.hanning(window + 1)[:-1])) ** 2


def mel_filters(rate, bins, nmels=80):
    """[nmels x bins] triangles, equally spaced on the mel scale from 0 to half the rate."""
    edges = 700 * (10 ** (np.linspace(0, 2595 * np.log10(1 + rate / 1400), nmels + 2) / 2595) - 1)
    low, centre, high = (edges[k:k + nmels, None] for k in range(3))
    hz = np.linspace(0, rate / 2, bins)
    return np.maximum(0, np.minimum((hz - low) / (centre - low), (high - hz) / (high - centre)))


class Frames:
    """Recordings with their features: a sequence of items.

    An item is a dict: name; audio [n]; mel [frames x 80], log; f0 [frames] in Hz, 0 where unvoiced;
    log_f0 [frames], straight lines through unvoiced stretches; voiced [frames], bool; mcep
    [frames x (order + 1)]; mvf [frames] in Hz. frames is 1 + n // hop; all are float32 but
    `voiced`.
    """

    def __init__(self, recordings, features, rate=22050, hop=256):
        self._recordings, self._features, self.rate, self.hop = recordings, features, rate, hop
        self._mel = mel_filters(rate, 513)
        self.names = []  # relative to both folders
        endings = {}
        for place, _, files in os.walk(recordings):
            for file in files:
                stem, ending = os.path.splitext(os.path.join(place, file))
                if ending.lower() not in ENDINGS:
                    continue
                name = os.path.relpath(stem, recordings)
                if name in endings:
                    raise ValueError(f"{stem}{endings[name]} and {stem}{ending} would both be "
                                     f"{name}: keep one of them in {recordings}")
                endings[name] = ending
        for name in sorted(endings):
            if os.path.exists(os.path.join(features, name + ".npz")):
                self.names.append(name)
        if not self.names:
            raise ValueError(f"no recording of {recordings} has its NAME.npz in {features}: make "
                             f"them by nalveo16-corpus {recordings} {features} --npz --convert")
        self._endings = endings

    def __len__(self):
        return len(self.names)

    def __getitem__(self, index):
        name = self.names[index]
        path = os.path.join(self._recordings, name + self._endings[name])
        audio = read_audio(path, self.rate)
        nframes = 1 + len(audio) // self.hop
        grid = nalveo.to_grid(nalveo.read(os.path.join(self._features, name + ".npz")), self.hop,
                              self.rate, nframes)
        voiced = grid.f0 > 0
        frames = np.arange(nframes)
        log_f0 = (np.interp(frames, frames[voiced], np.log(grid.f0[voiced])) if voiced.any()
                  else np.zeros(nframes))
        mel = np.log(np.maximum(stft_power(audio, self.hop) @ self._mel.T, 1e-10))
        item = {"audio": audio, "mel": mel, "f0": grid.f0, "log_f0": log_f0, "mcep": grid.mcep,
                "mvf": grid.mvf}
        item = {key: np.ascontiguousarray(value, np.float32) for key, value in item.items()}
        return {"name": name, "voiced": voiced, **item}

    def batches(self, size, seed=0):
        """All items once, in an order that the seed gives, padded with zeros to the longest of each
        batch; `frames` and `samples` are the true lengths."""
        order = np.random.default_rng(seed).permutation(len(self))
        for start in range(0, len(order), size):
            items = [self[index] for index in order[start:start + size]]
            batch = {"name": [item["name"] for item in items],
                     "frames": np.array([len(item["f0"]) for item in items]),
                     "samples": np.array([len(item["audio"]) for item in items])}
            for key in set(items[0]) - {"name"}:
                longest = max(len(item[key]) for item in items)
                batch[key] = np.stack([
                    np.pad(item[key], [(0, longest - len(item[key]))]
                           + [(0, 0)] * (item[key].ndim - 1)) for item in items])
            yield batch
