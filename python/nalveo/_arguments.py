"""Arguments as users give them, turned into what the library takes, or refused."""

from __future__ import annotations

import math
import operator
from typing import Any, SupportsFloat, SupportsIndex, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _library

Reals = NDArray[np.float64]
Method = Union[int, str]

METHODS = ("harmonic", "rdc", "quasi", "pitch-window", "seevoc")
SCALES = ("hts", "plain")


def real(name: str, value: SupportsFloat) -> float:
    """A finite number."""
    try:
        number = float(value)
    except (TypeError, ValueError, OverflowError):
        number = math.nan
    if not math.isfinite(number):
        raise ValueError(f"{name} is {value!r}; it must be a finite number")
    return number


def shown(value: SupportsFloat) -> str:
    """A number with all its digits, so that what is just beyond a limit does not read like it."""
    text = repr(float(value))
    return text[:-2] if text.endswith(".0") else text


def whole(name: str, value: SupportsIndex, lowest: int, highest: int) -> int:
    """A whole number from lowest to highest."""
    try:
        number = operator.index(value)
    except TypeError:
        number = lowest - 1
    if not lowest <= number <= highest:
        raise ValueError(f"{name} is {value!r}; it must be a whole number from {lowest} to "
                         f"{highest}")
    return number


def rate(fs: SupportsFloat) -> float:
    """A sample rate that the library takes."""
    number = real("fs", fs)
    if not 8000 <= number <= 96000:
        raise ValueError(f"fs is {shown(number)} Hz; it must be from 8000 to 96000 Hz: resample "
                         "the signal, and give fs in Hz, not kHz")
    return number


def hop(fs: float, frame_period: SupportsFloat, hop_length: SupportsIndex | None) -> int:
    """The frame shift in samples."""
    if hop_length is not None:
        return whole("hop_length", hop_length, 1, 10**9)
    period = real("frame_period", frame_period)
    samples = period * fs / 1000
    nearest = round(samples)
    if samples > 1e9 or nearest < 1 or abs(samples - nearest) > 1e-9 * samples:
        near = max(1, min(nearest, 10**9))
        raise ValueError(
            f"frame_period is {shown(period)} ms, which is {shown(samples)} samples at {fs:g} "
            f"Hz; it must be a whole number of samples: give hop_length={near} "
            f"({1000 * near / fs:.6g} ms) instead")
    return nearest


def method_number(method: Method) -> int:
    """A cepstral method by number or name."""
    try:
        number = METHODS.index(method) if isinstance(method, str) else operator.index(method)
    except (TypeError, ValueError):
        number = -1
    if not 0 <= number < len(METHODS):
        raise ValueError(f"method is {method!r}; it must be one of "
                         + ", ".join(f"{k} or {name!r}" for k, name in enumerate(METHODS)))
    return number


def warping(alpha: SupportsFloat | None, fs: float) -> float:
    """The warping parameter; None is that of the mel scale."""
    if alpha is None:
        nearest: float = _library.library.nalveo_mel_alpha(fs)
        return nearest
    number = real("alpha", alpha)
    if not -1 < number < 1:
        raise ValueError(f"alpha is {shown(number)}; it must be above -1 and below 1, or None for "
                         "the mel scale")
    return number


def set_cepstra(options: _library.Options, order: int, alpha: SupportsFloat | None,
                scale: str) -> None:
    """Sets what cepstra mean, at the rate that the options have."""
    options.order = order
    options.alpha = warping(alpha, options.fs)
    options.hts_scale = scaled(scale)


def scaled(scale: str) -> int:
    """1 for cepstra scaled for HTS, 0 for plain ones."""
    if scale not in SCALES:
        raise ValueError(f"scale is {scale!r}; it must be 'hts' or 'plain'")
    return int(scale == "hts")


def search_range(fs: float, f0_floor: SupportsFloat, f0_ceil: SupportsFloat) -> tuple[float, float]:
    """The range in which f0 is searched."""
    low, high = real("f0_floor", f0_floor), real("f0_ceil", f0_ceil)
    if not 15 <= low < high <= fs / 2:
        raise ValueError(f"f0_floor is {shown(low)} and f0_ceil {shown(high)} Hz; they must be "
                         f"at least 15 Hz, in this order, and at most fs / 2 = {fs / 2:g} Hz")
    return low, high


def array(name: str, values: ArrayLike) -> NDArray[Any]:
    """An array of real numbers in any form."""
    try:
        given = np.asarray(values)
    except ValueError as error:  # lists of different lengths
        raise ValueError(f"{name} is no array of numbers: {error}") from error
    if given.dtype.kind not in "fiu":
        raise ValueError(f"{name} has type {given.dtype}; it must be an array of real numbers")
    return given


def reals(name: str, values: ArrayLike) -> Reals:
    """An array of float64 in C order, without a copy where it is one already."""
    return np.require(array(name, values), np.float64, ["C", "A"])


def samples(x: ArrayLike) -> Reals:
    """One channel of samples from -1 to 1. Their range is checked by the library."""
    given = array("x", x)
    if given.ndim == 2 and given.shape[1] == 1:
        given = given[:, 0]
    if given.ndim != 1:
        channel = "a one-dimensional array"
        if given.ndim == 2:  # channels are fewer than samples
            channel = "x[0]" if given.shape[0] == 1 else "x.mean(axis=0) or x[0]" if \
                given.shape[0] < given.shape[1] else "x.mean(axis=1) or x[:, 0]"
        raise ValueError(f"x has shape {given.shape}; it must be one channel, (n,) or (n, 1): "
                         f"give {channel}")
    if given.size == 0:
        raise ValueError("x is empty; it must hold at least one sample")
    if given.dtype.kind == "f":
        return np.require(given, np.float64, ["C", "A"])
    if given.dtype.kind == "i" and given.dtype.itemsize == 2:
        return given / 32768.0
    remedy = "(x - 128.0) / 128" if given.dtype == np.uint8 else \
        "x / 32768.0 of 16-bit values, x / 2.0**31 of 32-bit ones"
    raise ValueError(f"x has type {given.dtype}; it must be floating point from -1 to 1, or int16, "
                     f"which is divided by 32768: give {remedy}")


def explain_samples(x: Reals) -> str:
    """What is wrong with samples that the library has refused."""
    bad = np.flatnonzero(~np.isfinite(x))
    if bad.size:
        return (f"x holds {x[bad[0]]} at sample {bad[0]} ({bad.size} such samples in all); "
                "samples must be finite numbers from -1 to 1")
    peak = int(np.argmax(np.abs(x)))
    return (f"x holds {shown(x[peak])} at sample {peak}; samples must be from -1 to 1: divide "
            "int16 values by 32768, and scale down what is louder than full scale")


def track(name: str, values: ArrayLike, nframes: int) -> Reals:
    """One value per frame."""
    given = reals(name, values)
    if given.shape != (nframes,):
        raise ValueError(f"{name} has shape {given.shape}; it must have one value per frame, "
                         f"({nframes},)")
    return given


def explain_f0(f0: Reals, fs: float) -> str:
    """What is wrong with f0 that the library has refused."""
    good = (f0 == 0) | ((f0 >= 15) & (f0 < fs / 2))
    frame = int(np.flatnonzero(~good)[0])
    return (f"f0 holds {shown(f0[frame])} for frame {frame}; it must be 0 where unvoiced, else "
            f"from 15 to below fs / 2 = {fs / 2:g} Hz, not a logarithm and never NaN")


def explain_mvf(mvf: Reals, fs: float) -> str:
    """What is wrong with a maximum voiced frequency that the library has refused."""
    frame = int(np.flatnonzero(~((mvf >= 0) & (mvf <= fs / 2)))[0])
    return (f"mvf holds {shown(mvf[frame])} for frame {frame}; it must be from 0 to fs / 2 = "
            f"{fs / 2:g} Hz")


def cepstra(mcep: ArrayLike) -> Reals:
    """Cepstra, one row per frame or a single row."""
    given = reals("mcep", mcep)
    if given.ndim not in (1, 2) or not 1 <= given.shape[-1] <= 512:
        raise ValueError(f"mcep has shape {given.shape}; it must be (n_frames, order + 1) or "
                         "(order + 1,), with an order from 0 to 511")
    return given
