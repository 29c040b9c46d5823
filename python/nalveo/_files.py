"""Tracks in files: the program's bare streams, numpy archives that tell their settings, and
Praat's pitch tiers."""

from __future__ import annotations

import os
import re
import secrets
import stat
from fractions import Fraction
from typing import Any, Callable, SupportsFloat, SupportsIndex, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _arguments as arguments
from ._analysis import Analysis, check_analysis, f0_from_log, log_f0
from ._arguments import Reals

Path = Union[str, "os.PathLike[str]"]

_FORMAT = 1  # of archives
_LOWEST_LOG, _HIGHEST_LOG = 2.7, 8.98  # of f0, as the program takes them at 16000 Hz
_ENDINGS = (".lf0", ".mcc", ".mvf")


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
    path = os.fsdecode(stem)
    if path.endswith(".npz"):
        analysis = _read_archive(path)
    else:
        if path.endswith(_ENDINGS) and not os.path.exists(path + ".lf0"):
            raise ValueError(f"{path} is one of the files; give what they have in common, "
                             f"{path[:-4]!r}")
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
        _check_log(path + ".lf0", lf0, rate)
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
        ``name`` for ``name.lf0``, ``name.mcc`` and ``name.mvf`` as the program nalveo16 writes
        them: bare float32, little-endian, f0 as its natural logarithm, -1e10 where unvoiced. A
        name that ends in ``.npz``: one archive of float64 arrays f0, mcep and mvf with fs,
        hop_length, alpha, order and scale.
    analysis : Analysis
        What is to be written.

    Raises
    ------
    ValueError
        Arrays that do not fit each other, values that are not finite or beyond float32, or a file
        ``name.mvf`` that an analysis without maximum voiced frequencies would leave beside its own.
    TypeError
        Something else than an `Analysis`.
    OSError
        A file that cannot be written, or that is there and may not be; permissions are kept.

    Examples
    --------
    >>> import nalveo, tempfile
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     nalveo.write(folder + "/silence.npz", nalveo.analyze([0.0] * 800, 16000))
    ...     nalveo.read(folder + "/silence.npz").alpha
    0.42
    """
    path = os.fsdecode(stem)
    _check(path, analysis)
    if path.endswith(".npz"):
        hop = Fraction(analysis.hop_length)
        _replace(path, lambda name: _write_archive(name, analysis, hop))
        return
    lf0 = log_f0(analysis.f0)
    _check_log(f"{path}: f0", lf0, analysis.fs)
    streams = {".lf0": _narrowed(path, "f0", lf0), ".mcc": _narrowed(path, "mcep", analysis.mcep)}
    if not np.isnan(analysis.mvf).all():
        streams[".mvf"] = _narrowed(path, "mvf", analysis.mvf)
    elif os.path.exists(path + ".mvf"):
        raise ValueError(f"{path}.mvf is there, of another analysis, as this one has no maximum "
                         "voiced frequency; remove the file, or write under another name")
    for ending, values in streams.items():
        _replace(path + ending, values.tofile)


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
    check_analysis(os.fsdecode(path), analysis)
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
    _replace(os.fsdecode(path), save)


def read_pitchtier(path: Path, times: ArrayLike | None = None,
                   longest: SupportsFloat | None = None) -> tuple[Reals, Reals]:
    """Read a pitch tier of Praat, in its text or short text format.

    Parameters
    ----------
    path : path
        File name.
    times : array_like, optional
        Times in s, such as `temporal_positions`, at which f0 is wanted. None: those of the points.
    longest : float, optional
        With `times`: longest interval in s between two points that is voiced; f0 runs linearly
        there, as in Praat. Elsewhere it is 0. A tier marks no voicing, so this is what tells.
        None: 1.5 times the median interval of `times`, so that with the times of the analysis that
        was written not even one unvoiced frame is lost. Tiers with fewer points than frames, drawn
        by hand or stylised, need more.

    Returns
    -------
    times, f0 : ndarray of float64
        Times in s and f0 in Hz.

    Raises
    ------
    ValueError
        No pitch tier, or one with values out of 15 to 48000 Hz.
    OSError
        A file that cannot be read.

    Examples
    --------
    >>> import nalveo, pathlib, tempfile
    >>> tier = ('File type = "ooTextFile"\\nObject class = "PitchTier"\\n\\n'
    ...         '0\\n1\\n2\\n0.5\\n100\\n0.51\\n110')
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     path = pathlib.Path(folder, "a.PitchTier")
    ...     size = path.write_text(tier)
    ...     nalveo.read_pitchtier(path, [0.4, 0.505, 0.6])[1].tolist()
    [0.0, 105.0, 0.0]
    """
    name = os.fsdecode(path)
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
    if not np.isfinite(points).all() or np.any(np.diff(points) <= 0):
        raise ValueError(f"{name} holds points out of order, or at times that are not finite")
    bad = np.flatnonzero(~((values >= 15) & (values <= 48000)))
    if bad.size:
        raise ValueError(f"{name} holds {arguments.shown(values[bad[0]])} for point "
                         f"{bad[0] + 1}; f0 must be from 15 to 48000 Hz, without points where "
                         "unvoiced")
    if times is None:
        return points, values
    wanted = arguments.reals("times", times)
    gap = _usual_gap(wanted) if longest is None else arguments.real("longest", longest)
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


def _usual_gap(times: Reals) -> float:
    """What joins neighbouring frames at these times, but no two with another between them."""
    intervals = np.diff(times.ravel())
    return 1.5 * float(np.median(intervals)) if intervals.size else 0.0


def _narrowed(path: str, name: str, values: Reals) -> NDArray[np.float32]:
    """Values as the program's files have them."""
    with np.errstate(over="ignore"):
        narrow = np.asarray(values, dtype="<f4")
    if not np.isfinite(narrow).all():
        place = tuple(np.argwhere(~np.isfinite(narrow))[0])
        raise ValueError(f"{path}: {name} of frame {place[0]} holds {values[place]}, which is "
                         "beyond float32; an archive, .npz, takes it")
    return narrow


def _check_log(where: str, lf0: Reals, fs: float) -> None:
    """Logarithms of f0 that the program takes; at higher rates f0 may be as high as fs / 2."""
    highest = max(_HIGHEST_LOG, float(np.log(fs / 2)))
    bad = np.flatnonzero(~((lf0 <= -1e10) | ((lf0 >= _LOWEST_LOG) & (lf0 <= highest))))
    if bad.size:
        raise ValueError(f"{where} holds a logarithm of {lf0[bad[0]]} for frame {bad[0]}; it must "
                         f"be -1e10 where unvoiced, else from {_LOWEST_LOG} to {highest:.4g}: the "
                         "natural logarithm of f0 in Hz")


def _check(path: str, analysis: Analysis) -> None:
    check_analysis(path, analysis)
    f0, mcep, mvf = (np.asarray(track) for track in analysis)
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
    mode = None
    if os.path.exists(target):
        with open(target, "r+b") as file:  # what may not be written is not replaced
            mode = stat.S_IMODE(os.fstat(file.fileno()).st_mode)
    temporary = f"{target}.{secrets.token_hex(4)}.part"
    try:
        save(temporary)
        if mode is not None:
            os.chmod(temporary, mode)
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
        return _from_members(members)
    except KeyError as error:
        raise ValueError(f"{path} is no archive of nalveo.write: it has no {error}") from error
    except (ValueError, TypeError, ZeroDivisionError) as error:
        raise ValueError(f"{path} is no archive of nalveo.write, or a damaged one: {error}") \
            from error


def _from_members(members: dict[str, Any]) -> Analysis:
    if int(members["format"]) != _FORMAT:
        raise ValueError(f"it has format {members['format']}; this version reads {_FORMAT}: "
                         "update nalveo")
    numerator, denominator = (int(part) for part in members["hop_length"])
    hop = Fraction(numerator, denominator)
    fs = arguments.rate(float(members["fs"]))
    scale = str(members["scale"])
    arguments.scaled(scale)
    mcep = arguments.reals("mcep", members["mcep"])
    if mcep.ndim == 2 and mcep.shape[1] != int(members["order"]) + 1:
        raise ValueError(f"order is {members['order']}, but mcep has shape {mcep.shape}")
    return Analysis(arguments.reals("f0", members["f0"]), mcep,
                    arguments.reals("mvf", members["mvf"]), fs=fs,
                    hop_length=hop.numerator if hop.denominator == 1 else hop,
                    alpha=arguments.warping(float(members["alpha"]), fs), scale=scale)
