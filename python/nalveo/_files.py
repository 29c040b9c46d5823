"""Tracks in files: the program's bare streams, numpy archives that tell their settings, and
Praat's pitch tiers."""

from __future__ import annotations

import os
import re
import secrets
from fractions import Fraction
from typing import Callable, SupportsFloat, SupportsIndex, Union

import numpy as np
from numpy.typing import ArrayLike

from . import _arguments as arguments
from ._analysis import Analysis, f0_from_log, log_f0
from ._arguments import Reals

Path = Union[str, "os.PathLike[str]"]

_FORMAT = 1  # of archives


def read(stem: Path, *, order: SupportsIndex | None = None, fs: SupportsFloat = 16000.0,
         frame_period: SupportsFloat = 5.0, hop_length: SupportsIndex | None = None,
         alpha: SupportsFloat | None = None, scale: str = "hts") -> Analysis:
    """Read an analysis from files.

    Parameters
    ----------
    stem : path
        ``name`` for ``name.lf0``, ``name.mcc`` and, where there is one, ``name.mvf``; or the whole
        name of an archive that ends in ``.npz``.
    order : int, optional
        Order of the cepstra, to be checked against the files; None takes what the sizes tell.
    fs, frame_period, hop_length, alpha, scale
        Settings of the analysis, which nothing in the bare files tells; see `analyze`. An archive
        has its own, and these are not looked at.

    Returns
    -------
    Analysis
        Without a file of maximum voiced frequencies, `mvf` is all NaN.

    Raises
    ------
    ValueError
        Files that do not fit each other or the settings, or that hold what no analysis gives.
    OSError
        Files that cannot be read.

    Examples
    --------
    >>> import nalveo, tempfile
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     nalveo.write(folder + "/silence", nalveo.analyze([0.0] * 800, 16000))
    ...     nalveo.read(folder + "/silence").mcep.shape
    (10, 40)
    """
    path = os.fspath(stem)
    if path.endswith(".npz"):
        analysis = _read_archive(path)
    else:
        rate = arguments.rate(fs)
        lf0 = _stream(path + ".lf0")
        mcc = _stream(path + ".mcc")
        if lf0.size == 0 or mcc.size == 0 or mcc.size % lf0.size:
            raise ValueError(f"{path}.mcc holds {mcc.size} values and {path}.lf0 {lf0.size}; they "
                             "must be of one analysis, order + 1 values to one")
        mvf = np.full(lf0.size, np.nan)
        if os.path.exists(path + ".mvf"):
            mvf = _stream(path + ".mvf")
            if mvf.size != lf0.size:
                raise ValueError(f"{path}.mvf holds {mvf.size} values and {path}.lf0 {lf0.size}; "
                                 "they must be of one analysis, one value to one")
        arguments.scaled(scale)
        f0 = f0_from_log(lf0)
        analysis = Analysis(f0, mcc.reshape(lf0.size, -1), mvf, fs=rate,
                            hop_length=arguments.hop(rate, frame_period, hop_length),
                            alpha=arguments.warping(alpha, rate), scale=scale)
    _check(path, analysis)
    if order is not None and analysis.order != arguments.whole("order", order, 0, 511):
        raise ValueError(f"{path} has cepstra of order {analysis.order}, not {order}")
    return analysis


def write(stem: Path, analysis: Analysis) -> None:
    """Write an analysis to files, each of which is whole or not there.

    Parameters
    ----------
    stem : path
        ``name`` for ``name.lf0``, ``name.mcc`` and ``name.mvf`` as the program nalveo16 writes them:
        bare float32, little-endian, f0 as its natural logarithm, -1e10 where unvoiced. A name that
        ends in ``.npz``: one archive of float64 arrays f0, mcep and mvf with fs, hop_length, alpha,
        order and scale.
    analysis : Analysis
        What is to be written.

    Raises
    ------
    ValueError
        Arrays that do not fit each other, or values that are not finite.
    OSError
        A file that cannot be written.

    Examples
    --------
    >>> import nalveo, tempfile
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     nalveo.write(folder + "/silence.npz", nalveo.analyze([0.0] * 800, 16000))
    ...     nalveo.read(folder + "/silence.npz").alpha
    0.42
    """
    path = os.fspath(stem)
    _check(path, analysis)
    if path.endswith(".npz"):
        hop = Fraction(analysis.hop_length)
        _replace(path, lambda name: _write_archive(name, analysis, hop))
        return
    streams = {".lf0": log_f0(analysis.f0), ".mcc": analysis.mcep, ".mvf": analysis.mvf}
    for ending, values in streams.items():
        if ending == ".mvf" and np.isnan(analysis.mvf).all():
            continue
        _replace(path + ending, np.asarray(values, dtype="<f4").tofile)


def write_pitchtier(path: Path, analysis: Analysis) -> None:
    """Write f0 as a pitch tier of Praat, in its text format: a point per voiced frame.

    Parameters
    ----------
    path : path
        File name, by custom ending in ``.PitchTier``.
    analysis : Analysis
        Whose f0 is written.

    Raises
    ------
    OSError
        A file that cannot be written.

    Examples
    --------
    >>> import nalveo, tempfile
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     nalveo.write_pitchtier(folder + "/a.PitchTier", nalveo.analyze([0.0] * 800, 16000))
    ...     nalveo.read_pitchtier(folder + "/a.PitchTier")[0].size
    0
    """
    times = analysis.temporal_positions
    end = float(times[-1] + analysis.frame_period / 1000) if times.size else 0.0
    points = [(t, f) for t, f in zip(times.tolist(), np.asarray(analysis.f0).tolist()) if f > 0]
    lines = ['File type = "ooTextFile"', 'Object class = "PitchTier"', "", "xmin = 0 ",
             f"xmax = {end!r} ", f"points: size = {len(points)} "]
    for number, (time, value) in enumerate(points, start=1):
        lines += [f"points [{number}]:", f"    number = {time!r} ", f"    value = {value!r} "]

    def save(name: str) -> None:
        with open(name, "w", encoding="utf-8", newline="\n") as file:
            file.write("\n".join(lines) + "\n")
    _replace(os.fspath(path), save)


def read_pitchtier(path: Path, times: ArrayLike | None = None,
                   longest: SupportsFloat = 0.02) -> tuple[Reals, Reals]:
    """Read a pitch tier of Praat, in its text or short text format.

    Parameters
    ----------
    path : path
        File name.
    times : array_like, optional
        Times in s, such as `temporal_positions`, at which f0 is wanted. None: those of the points.
    longest : float
        With `times`: longest interval in s between two points that is voiced; f0 runs linearly
        there, as in Praat. Elsewhere it is 0. A tier marks no voicing, so this is what tells.

    Returns
    -------
    times, f0 : ndarray of float64
        Times in s and f0 in Hz.

    Raises
    ------
    ValueError
        No pitch tier.
    OSError
        A file that cannot be read.

    Examples
    --------
    >>> import nalveo, pathlib, tempfile
    >>> tier = 'File type = "ooTextFile"\\nObject class = "PitchTier"\\n\\n0\\n1\\n2\\n0.5\\n100\\n0.51\\n110'
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     path = pathlib.Path(folder, "a.PitchTier")
    ...     size = path.write_text(tier)
    ...     nalveo.read_pitchtier(path, [0.4, 0.505, 0.6])[1].tolist()
    [0.0, 105.0, 0.0]
    """
    name = os.fspath(path)
    with open(name, "rb") as file:
        raw = file.read()
    text = raw.decode("utf-16" if raw[:2] in (b"\xfe\xff", b"\xff\xfe") else "utf-8", "replace")
    if "ooTextFile" not in text or '"PitchTier"' not in text:
        raise ValueError(f"{name} is no pitch tier in Praat's text format; in Praat, choose Save "
                         "as text file")
    body = text[text.index('"PitchTier"') + len('"PitchTier"'):]
    body = re.sub(r"\[\d+\]", "", body)  # the long format numbers its points
    tokens = re.findall(r"(?<![\w.])[-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?(?![\w.])", body)
    numbers = np.array([float(token) for token in tokens])
    if numbers.size < 3 or numbers.size != 3 + 2 * numbers[2]:
        raise ValueError(f"{name} does not hold the number of points that it tells")
    points, values = numbers[3::2], numbers[4::2]
    if np.any(np.diff(points) <= 0) or np.any(values <= 0):
        raise ValueError(f"{name} holds points out of order or values that are not above 0")
    if times is None:
        return points, values
    wanted = arguments.reals("times", times)
    gap = arguments.real("longest", longest)
    f0 = np.zeros(wanted.shape)
    if points.size == 0:
        return wanted, f0
    # Points are matched to rounding: the text may have been written with fewer digits.
    right = np.searchsorted(points, wanted)
    before = np.clip(right - 1, 0, points.size - 1)
    after = np.clip(right, 0, points.size - 1)
    inside = (wanted >= points[0]) & (wanted <= points[-1])
    joined = inside & (points[after] - points[before] <= gap * (1 + 1e-9))
    f0[joined] = np.interp(wanted[joined], points, values)
    for near in (before, after):
        hit = np.abs(points[near] - wanted) <= 1e-6
        f0[hit] = values[near[hit]]
    return wanted, f0


def _check(path: str, analysis: Analysis) -> None:
    f0, mcep, mvf = (np.asarray(track) for track in analysis)
    if f0.ndim != 1 or mvf.shape != f0.shape or mcep.ndim != 2 or len(mcep) != len(f0) or \
            not 1 <= mcep.shape[1] <= 512:
        raise ValueError(f"{path}: f0, mcep and mvf have shapes {f0.shape}, {mcep.shape} and "
                         f"{mvf.shape}; they must be (n,), (n, order + 1) and (n,)")
    if len(f0) == 0:
        raise ValueError(f"{path}: no frames")
    for name, track in (("f0", f0), ("mcep", mcep), ("mvf", mvf)):
        good = np.isfinite(track)
        if name != "mcep":
            good &= track >= 0
        if name == "mvf" and np.isnan(mvf).all():
            continue
        if not good.all():
            frame = int(np.argwhere(~good)[0][0])
            raise ValueError(f"{path}: {name} of frame {frame} holds "
                             f"{track[frame][~good[frame]][0] if name == 'mcep' else track[frame]}"
                             "; no analysis gives that")


def _stream(path: str) -> Reals:
    """The values of a bare file of float32."""
    size = os.path.getsize(path)
    if size % 4:
        raise ValueError(f"{path} has {size} bytes; a file of float32 has a multiple of 4")
    return np.fromfile(path, "<f4").astype(np.float64)


def _replace(path: str, save: Callable[[str], object]) -> None:
    """Lets `save` write a file beside its final name, which it gets when it is whole."""
    if os.path.exists(path) and not os.path.isfile(path):  # a device, a pipe
        save(path)
        return
    target = os.path.realpath(path)  # a link stays one
    temporary = f"{target}.{secrets.token_hex(4)}.part"
    try:
        save(temporary)
        os.replace(temporary, target)
    except BaseException:
        if os.path.exists(temporary):
            os.remove(temporary)
        raise


def _write_archive(name: str, analysis: Analysis, hop: Fraction) -> None:
    with open(name, "wb") as file:
        np.savez(file, format=_FORMAT, f0=analysis.f0, mcep=analysis.mcep, mvf=analysis.mvf,
                 fs=analysis.fs, hop_length=[hop.numerator, hop.denominator],
                 frame_period=analysis.frame_period, alpha=analysis.alpha, order=analysis.order,
                 scale=analysis.scale)


def _read_archive(path: str) -> Analysis:
    with open(path, "rb") as file:
        try:
            with np.load(file, allow_pickle=False) as archive:
                members = dict(archive)
        except Exception as error:  # numpy raises whatever its parts do
            raise ValueError(f"{path} is no archive of arrays, or a damaged one: {error}") \
                from error
    try:
        if int(members["format"]) != _FORMAT:
            raise ValueError(f"{path} has format {members['format']}; this version reads "
                             f"{_FORMAT}: update nalveo")
        numerator, denominator = (int(part) for part in members["hop_length"])
        hop = Fraction(numerator, denominator)
        if hop <= 0:
            raise ValueError(f"{path} has a frame shift of {hop} samples")
        fs = arguments.rate(float(members["fs"]))
        scale = str(members["scale"])
        arguments.scaled(scale)
        return Analysis(arguments.reals("f0", members["f0"]),
                        arguments.reals("mcep", members["mcep"]),
                        arguments.reals("mvf", members["mvf"]), fs=fs,
                        hop_length=hop.numerator if hop.denominator == 1 else hop,
                        alpha=arguments.warping(float(members["alpha"]), fs), scale=scale)
    except (KeyError, TypeError, ZeroDivisionError) as error:
        raise ValueError(f"{path} is no archive of nalveo.write: {error!r}") from error
