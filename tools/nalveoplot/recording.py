"""Recordings and what the analyser found in them, read and checked against each other."""

import math
import os
import re
import shutil
import subprocess
import sys
import tempfile

import numpy as np

from nalveowav import DAMAGED, FS, Foreign, Wrong, read_plain

UNVOICED = -1e9  # anything below is the marker -1e10


def tell(message):
    """A line for the user that is no failure."""
    print(message, file=sys.stderr)


def escape(text):
    """Bytes of a name that are not UTF-8 must not end the drawing."""
    return text.encode(errors="replace").decode()


# Recordings ---------------------------------------------------------------------------------------


def read_recording(path):
    """Samples of anything that the analyser or sox reads, at 16 kHz; says what was converted."""
    try:
        return read_plain(path)
    except Foreign as refusal:
        if not shutil.which("soxi"):
            raise Wrong(f"{refusal} With sox installed, it would be converted.") from refusal
        return convert(path, refusal)


def convert(path, refusal):
    """Samples of what sox makes of a file: the downmix, with its best resampler."""
    kind = []
    for option in "-r", "-c", "-b":
        run = subprocess.run(["soxi", "-V1", option, path], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, check=False, text=True)
        if run.returncode:
            raise Wrong(f"{refusal} sox cannot read it either.")
        kind.append(run.stdout.strip())
    with tempfile.TemporaryDirectory(prefix="nalveo16-plot.") as folder:
        made = os.path.join(folder, "converted.wav")
        run = subprocess.run(
            ["sox", "-R", "-G", "--no-glob", path, "-c", "1", "-b", "16", made, "rate", "-v",
             str(FS)], stderr=subprocess.PIPE, check=False)
        said = run.stderr.decode(errors="replace").strip()
        if run.returncode or DAMAGED.search(said):
            raise Wrong(f"could not open {path}: sox says: {said or run.returncode}")
        samples = read_plain(made)
    rate, channels, bits = kind
    what = ", ".join(text for text, differs in (
        (f"{rate} Hz", rate != str(FS)), (f"{channels} channels", channels != "1"),
        (f"{bits} bits", bits not in ("0", "16"))) if differs)  # 0: bits have no meaning there
    tell(f"Note: {escape(path)} was converted by sox from {what or 'another kind of file'} to "
         f"mono, {FS} Hz, 16 bits.")
    return samples


# Tracks -------------------------------------------------------------------------------------------


def read_floats(path):
    """Values of a headerless file of float32."""
    try:
        size = os.path.getsize(path)
        if size == 0 or size % 4:
            raise Wrong(f"{path} is no track: its {size} bytes are not a whole number of floats.")
        return np.fromfile(path, "<f4").astype(float)
    except OSError as error:
        raise Wrong(f"could not read {path}: {error.strerror}.") from error


def shift_that_fits(nsamples, nframes):
    """The roundest frame shift by which so many samples make so many frames, or None."""
    if nframes < 2:
        return None
    low, high = (nsamples - 1) // nframes + 1, (nsamples - 1) // (nframes - 1)
    for step in (80, 40, 16, 10, 5, 1):
        fit = -(-low // step) * step
        if low <= fit <= high:
            return fit
    return None


def short_names(paths):
    """Names of files to be shown, with as many of their folders as tell them apart."""
    parts = [os.path.normpath(path).split(os.sep) for path in paths]
    for depth in range(1, max(map(len, parts), default=1) + 1):
        names = [os.sep.join(part[-depth:]) for part in parts]
        if len(set(names)) == len(set(map(tuple, parts))):
            break
    return [escape(name) for name in names] if paths else []


class Tracks:
    """What the analyser wrote, checked against the recording.

    nframes  number of frames, common to all tracks
    time     [nframes] their centres in s
    f0       list of [nframes] in Hz, NaN where unvoiced; one array for each file given
    mvf      the same for the maximum voiced frequency
    cc       list of [nframes x (ccord + 1)] cepstra
    names    of the files, as they are shown, by kind: "lf0", "mcc", "mvf"
    """

    def __init__(self, args, wave, nsamples, lf0=(), mcc=(), mvf=()):
        self.lframe, self.ccord, self.alpha = args.lframe, args.ccord, args.alpha
        self.scale = "hts" if args.htsscale == 1 else "plain"
        self.wave, self.nsamples, self.partial = wave, nsamples, args.partial
        self.nframes = None
        self.names = {"lf0": short_names(lf0), "mcc": short_names(mcc), "mvf": short_names(mvf)}
        self.f0 = [self._f0(path) for path in lf0]
        self.mvf = [self._mvf(path) for path in mvf]
        self.cc = [self._cepstra(path) for path in mcc]
        self.time = np.arange(self.nframes or 0) * self.lframe / FS

    def _track(self, path):
        values = read_floats(path)
        self._check_frames(path, len(values))
        return values

    def _check_frames(self, path, nframes):
        expected = (self.nsamples - 1) // self.lframe + 1
        if self.nframes is not None and nframes != self.nframes:
            raise Wrong(f"{path} holds {nframes} frames, but the tracks before it {self.nframes}.")
        if nframes != expected and not (self.partial and nframes < expected):
            fit = shift_that_fits(self.nsamples, nframes)
            hint = (f" It would fit --lframe={fit}." if fit else
                    " If it ends early on purpose, say --partial." if nframes < expected else "")
            raise Wrong(f"{path} holds {nframes} frames, but {self.wave} makes {expected} with a "
                        f"frame shift of {self.lframe} samples.{hint}")
        self.nframes = nframes

    def _f0(self, path):
        values = self._track(path)
        voiced = values > UNVOICED
        if not np.all(np.isfinite(values)) or np.any(values[voiced] > math.log(FS / 2)) or np.any(
                values[voiced] < 0):
            raise Wrong(f"{path} is no track of log f0: it has values other than logarithms of 1 "
                        f"to {FS // 2} Hz and -1e10.")
        return np.exp(np.where(voiced, values, np.nan))

    def _mvf(self, path):
        values = self._track(path)
        if not np.all((values >= 0) & (values <= FS / 2)):
            raise Wrong(f"{path} is no track of maximum voiced frequency: it has values below 0 or "
                        f"above {FS // 2} Hz.")
        return np.where(values > 0, values, np.nan)

    def _cepstra(self, path):
        values = read_floats(path)
        nframes = self.nframes or (self.nsamples - 1) // self.lframe + 1
        fit = len(values) // nframes - 1
        fits = len(values) == nframes * (fit + 1)
        if (self.nframes is None and (self.partial or not fits)
                and len(values) % (self.ccord + 1) == 0):
            nframes = len(values) // (self.ccord + 1)
        if len(values) != nframes * (self.ccord + 1):
            hint = f" It would fit --ccord={fit}." if fits else ""
            raise Wrong(f"{path} holds {len(values)} values, but {nframes} frames of order "
                        f"{self.ccord} make {nframes * (self.ccord + 1)}.{hint}")
        self._check_frames(path, nframes)
        if not np.all(np.isfinite(values)):
            raise Wrong(f"{path} is no file of cepstra: it has values that are no finite numbers.")
        return values.reshape(nframes, self.ccord + 1)


# Analysing ----------------------------------------------------------------------------------------

# Options of the analyser by which tracks are made, each with its name and its type in the package
# nalveo. The first four tell how to read tracks, too.
SHARED = {"lframe": ("hop_length", int), "ccord": ("order", int), "alpha": ("alpha", float),
          "htsscale": ("scale", lambda one: "hts" if one == 1 else "plain"),
          "ccmeth": ("method", int), "f0min": ("f0_floor", float), "f0max": ("f0_ceil", float),
          "f0acc": ("refine", int), "zfill": ("zfill", int)}


def library():
    """The package nalveo, which holds the analyser."""
    try:
        import nalveo
    except ModuleNotFoundError as error:
        raise Wrong(f"{error}. Install Debian's python3-nalveo, or, in a clone, build the preset "
                    "release.") from error
    except ImportError as error:
        raise Wrong(f"{error}.") from error
    return nalveo


def analyse(args, wave, samples, method=None):
    """Tracks of a recording, made with the options that this program shares with the analyser."""
    settings = {}
    for name, (theirs, kind) in SHARED.items():
        value = method if name == "ccmeth" and method is not None else getattr(args, name)
        if value is not None:
            settings[theirs] = kind(value)
    try:
        found = library().analyze(samples, FS, **settings)
    except ValueError as error:
        text = str(error)
        for name, (theirs, _) in SHARED.items():
            text = re.sub(rf"\b{theirs}\b" if "_" in theirs else rf"^{theirs}\b", name, text)
        text = re.sub(r"ccmeth is (\S+); .*", r"ccmeth is \1; it must be from 0 to 4", text)
        raise Wrong(f"could not analyse {wave}: {text}.") from error
    tracks = Tracks(args, wave, len(samples))
    tracks.nframes, tracks.time = len(found.f0), found.temporal_positions
    tracks.f0 = [np.where(found.f0 > 0, found.f0, np.nan)]
    tracks.mvf = [np.where(found.mvf > 0, found.mvf, np.nan)]
    tracks.cc = [found.mcep]
    tracks.names = {"lf0": ["f0"], "mcc": ["envelope"], "mvf": ["mvf"]}
    return tracks


def resynthesis(tracks):
    """Samples that the first tracks of each kind sound like, as many as the recording has."""
    if not tracks.f0 or not tracks.cc:
        raise Wrong("a resynthesis needs f0 and cepstra: name --lf0 and --mcc, or no tracks.")
    length = min(tracks.nsamples, tracks.nframes * tracks.lframe)
    try:
        made = library().synthesize(
            np.nan_to_num(tracks.f0[0]), tracks.cc[0],
            np.nan_to_num(tracks.mvf[0]) if tracks.mvf else None, FS, scale=tracks.scale,
            alpha=tracks.alpha, hop_length=tracks.lframe, length=length)
    except ValueError as error:
        raise Wrong(f"could not resynthesise {tracks.wave}: {error}.") from error
    return np.pad(made, (0, tracks.nsamples - length))
