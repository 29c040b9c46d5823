#!/usr/bin/python3
"""From recordings and labels to what a statistical trainer reads, and back to tracks.

    features.py make RECORDINGS LABELS OUT     analyses and writes all of OUT
    features.py back OUT NAME STEM             OUT/cmp/NAME.cmp to STEM.lf0, STEM.mcc, STEM.mvf

LABELS has a NAME.lab in the form of HTK for every RECORDINGS/NAME.wav: lines of start, end and
label, in units of 100 ns. OUT gets, all of them float32 without header,

    mgc/NAME.mgc   [n x 40]  mel-cepstra
    lf0/NAME.lf0   [n]       log f0, linear through unvoiced stretches, constant at the ends
    vuv/NAME.vuv   [n]       1 where voiced, else 0
    mvf/NAME.mvf   [n]       log of the maximum voiced frequency, filled in like log f0
    cmp/NAME.cmp   [n x 127] the first, second and fourth with their deltas and accelerations, and
                             vuv; each column less its mean and divided by its standard deviation
    statistics.f32 [2 x 127] these means and deviations
"""

import os
import subprocess
import sys

import numpy as np

ORDER = 39
NSTATIC = ORDER + 3  # mel-cepstra, log f0, log maximum voiced frequency
SHIFT = 50000  # of a frame, in the units of labels
UNVOICED = -1e10
# Weights of the frame before, the frame itself and the one after it, as in recipes for HTS.
WINDOWS = ((0, 1, 0), (-0.5, 0, 0.5), (1, -2, 1))


def read(path, columns=1):
    """A file of float32."""
    values = np.fromfile(path, "<f4").astype(float)
    return values.reshape(-1, columns) if columns > 1 else values


def write(values, *path):
    """A file of float32, in folders that are made."""
    path = os.path.join(*path)
    os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
    np.asarray(values).astype("<f4").tofile(path)


def filled(values, there):
    """Values with straight lines through the frames where there are none."""
    if not there.any():
        return np.zeros(len(values))
    frames = np.arange(len(values))
    return np.interp(frames, frames[there], values[there])


def frames_of(label, nframes):
    """Number of frames that a label file covers."""
    with open(label, encoding="utf-8", errors="replace") as file:
        lines = [line.split() for line in file if line.strip()]
    if not lines or len(lines[-1]) < 2 or not lines[-1][1].isdecimal():
        sys.exit(f"Error: {label} does not end with a line of start, end and label in units of "
                 "100 ns.")
    covered = round(int(lines[-1][1]) / SHIFT)
    if covered > nframes + 1:
        sys.exit(f"Error: {label} ends {(covered - nframes) * 5} ms after its recording.")
    return min(covered, nframes)


def with_deltas(static):
    """Static values, deltas, accelerations side by side; the first and last frame are repeated."""
    padded = np.pad(static, ((1, 1), (0, 0)), "edge")
    n = len(static)
    return np.hstack([sum(weight * padded[k:k + n] for k, weight in enumerate(window))
                      for window in WINDOWS])


def make(recordings, labels, out):
    """Analyses, writes the streams, then the normalised observations."""
    if not os.path.isdir(labels):
        sys.exit(f"Error: there is no folder {labels}.")
    names = [file[:-4] for file in sorted(os.listdir(labels)) if file.endswith(".lab")]
    if not names:
        sys.exit(f"Error: {labels} holds no labels (NAME.lab).")
    tracks = os.path.join(out, "tracks")
    if subprocess.run(["nalveo16-corpus", recordings, tracks, "--layout", "kinds"], check=False,
                      stdout=sys.stderr).returncode:
        sys.exit(f"Error: not all of {recordings} could be analysed; see above.")
    observations = {}
    for name in names:
        if not os.path.exists(f"{tracks}/lf0/{name}.lf0"):
            sys.exit(f"Error: {labels}/{name}.lab has no recording {recordings}/{name}.wav.")
        lf0 = read(f"{tracks}/lf0/{name}.lf0")
        mgc = read(f"{tracks}/mgc/{name}.mgc", ORDER + 1)
        mvf = read(f"{tracks}/mvf/{name}.mvf")
        n = frames_of(os.path.join(labels, name + ".lab"), len(lf0))
        lf0, mgc, mvf = lf0[:n], mgc[:n], mvf[:n]
        voiced = lf0 > UNVOICED / 10
        lf0 = filled(lf0, voiced)
        mvf = filled(np.log(np.maximum(mvf, 1)), mvf > 0)
        for values, kind in (mgc, "mgc"), (lf0, "lf0"), (voiced, "vuv"), (mvf, "mvf"):
            write(values, out, kind, f"{name}.{kind}")
        static = np.column_stack([mgc, lf0, mvf])
        observations[name] = np.column_stack([with_deltas(static), voiced])
    everything = np.concatenate(list(observations.values()))
    mean, deviation = everything.mean(0), np.maximum(everything.std(0), 1e-6)
    write([mean, deviation], out, "statistics.f32")
    for name, values in observations.items():
        write((values - mean) / deviation, out, "cmp", name + ".cmp")
    print(f"{len(observations)} utterances, {len(everything)} frames of {len(mean)} values")


def back(out, name, stem):
    """Tracks from normalised observations, such as a trained model predicts."""
    mean, deviation = read(os.path.join(out, "statistics.f32"), 3 * NSTATIC + 1)
    values = read(os.path.join(out, "cmp", name + ".cmp"), len(mean)) * deviation + mean
    voiced = values[:, -1] > 0.5
    write(values[:, :ORDER + 1], stem + ".mcc")
    write(np.where(voiced, values[:, ORDER + 1], UNVOICED), stem + ".lf0")
    write(np.where(voiced, np.exp(values[:, ORDER + 2]), 0), stem + ".mvf")


if __name__ == "__main__":
    if len(sys.argv) == 5 and sys.argv[1] in ("make", "back"):
        {"make": make, "back": back}[sys.argv[1]](*sys.argv[2:])
    else:
        sys.exit(__doc__)
