"""Analysis of signals: all at once, or step by step."""

from __future__ import annotations

from fractions import Fraction
from typing import Any, Iterable, NamedTuple, SupportsFloat, SupportsIndex, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _arguments as arguments
from . import _library
from ._arguments import Method, Reals

Hop = Union[int, Fraction]


class _Tracks(NamedTuple):
    f0: Reals
    mcep: Reals
    mvf: Reals


class Analysis(_Tracks):
    """What was found in a signal: a named tuple ``(f0, mcep, mvf)`` that knows its settings.

    Attributes
    ----------
    f0 : ndarray of float64, shape (n_frames,)
        Fundamental frequency in Hz, 0 where unvoiced.
    mcep : ndarray of float64, shape (n_frames, order + 1)
        Mel-warped cepstra of the spectral envelope; see `nalveo.envelope`.
    mvf : ndarray of float64, shape (n_frames,)
        Maximum voiced frequency in Hz, 0 where unvoiced: the spectrum is harmonic below it.
    fs : float
        Sample rate of the signal in Hz.
    hop_length : int or fractions.Fraction
        Frame shift in samples at `fs`; a fraction on a grid of another rate.
    alpha : float
        Warping parameter of the cepstra.
    scale : str
        "hts" or "plain".
    settings : dict
        The other settings of the analysis, by the names of the arguments of `nalveo.analyze`.
    """

    fs: float
    hop_length: Hop
    alpha: float
    scale: str
    settings: dict[str, Any]

    def __new__(cls, f0: Reals, mcep: Reals, mvf: Reals, *, fs: float = 16000.0,
                hop_length: Hop = 80, alpha: float = 0.42, scale: str = "hts",
                settings: dict[str, Any] | None = None) -> Analysis:
        self = super().__new__(cls, f0, mcep, mvf)
        self.fs = fs
        self.hop_length = hop_length
        self.alpha = alpha
        self.scale = scale
        self.settings = dict(settings or {})
        return self

    @property
    def order(self) -> int:
        """Order of the cepstra."""
        return int(self.mcep.shape[1]) - 1

    @property
    def frame_period(self) -> float:
        """Frame shift in ms."""
        return float(1000 * self.hop_length / Fraction(self.fs))

    @property
    def temporal_positions(self) -> Reals:
        """Times of the frames in s, shape (n_frames,)."""
        shift = Fraction(self.hop_length)
        frames = np.arange(len(self.f0), dtype=np.float64)
        times: Reals = frames * shift.numerator / (shift.denominator * self.fs)
        return times

    def _kept(self) -> dict[str, Any]:
        return {"fs": self.fs, "hop_length": self.hop_length, "alpha": self.alpha,
                "scale": self.scale, "settings": self.settings}

    def __getnewargs_ex__(self) -> tuple[tuple[Any, ...], dict[str, Any]]:
        return tuple(self), self._kept()

    @classmethod
    def _make(cls, iterable: Iterable[Any]) -> Analysis:  # type: ignore[override]
        """An analysis of three tracks, with the default settings."""
        return cls(*iterable)

    def _replace(self, /, **changes: Any) -> Analysis:
        """A copy with some members or settings replaced."""
        return Analysis(**{**self._asdict(), **self._kept(), **changes})


def check_analysis(where: str, analysis: Analysis) -> None:
    """Refuses what is no analysis, and tracks and frame shifts that fit nothing."""
    if not isinstance(analysis, Analysis):
        raise TypeError(f"{where} is given a {type(analysis).__name__}; it must be a "
                        "nalveo.Analysis, as nalveo.analyze and nalveo.read give it")
    f0, mcep, mvf = (np.asarray(track) for track in analysis)
    if f0.ndim != 1 or mvf.shape != f0.shape or mcep.ndim != 2 or len(mcep) != len(f0) or \
            not 1 <= mcep.shape[1] <= 512:
        raise ValueError(f"{where}: f0, mcep and mvf have shapes {f0.shape}, {mcep.shape} and "
                         f"{mvf.shape}; they must be (n,), (n, order + 1) and (n,)")
    if not isinstance(analysis.hop_length, (int, np.integer, Fraction)) or \
            analysis.hop_length <= 0:
        raise ValueError(f"{where}: hop_length is {analysis.hop_length!r}; it must be a whole "
                         "number or a fractions.Fraction above 0")
    arguments.rate(analysis.fs)


class _Call:
    """A signal and its options, on their way into the library."""

    def __init__(self, x: ArrayLike, fs: SupportsFloat, frame_period: SupportsFloat,
                 hop_length: SupportsIndex | None, zfill: SupportsIndex) -> None:
        self.fs = arguments.rate(fs)
        self.samples = arguments.samples(x)
        self.hop_length = arguments.hop(self.fs, frame_period, hop_length)
        self.options = _library.default_options()
        self.options.fs = self.fs
        self.options.frame_shift = self.hop_length
        self.options.zfill = arguments.whole("zfill", zfill, 0, 2**32 - 1)
        self.nframes = (self.samples.size - 1) // self.hop_length + 1

    def set_search(self, f0_floor: SupportsFloat, f0_ceil: SupportsFloat) -> None:
        """Sets the range in which f0 is searched."""
        low, high = arguments.search_range(self.fs, f0_floor, f0_ceil)
        self.options.f0_floor, self.options.f0_ceil = low, high

    def set_cepstra(self, order: SupportsIndex, alpha: SupportsFloat | None, method: Method,
                    scale: str) -> None:
        """Sets what belongs to the cepstra."""
        arguments.set_cepstra(self.options, arguments.whole("order", order, 0, 511), alpha, scale)
        self.options.method = arguments.method_number(method)

    def run(self, name: str, f0: Reals | None, *outputs: Reals | None) -> None:
        """Calls a function of the library on the signal and on arrays."""
        addresses = [a.ctypes.data if a is not None else None for a in (f0, *outputs)]
        function = getattr(_library.library, name)
        code = function(self.samples.ctypes.data, self.samples.size, self.options, *addresses)
        if code == _library.BAD_SAMPLE:
            raise ValueError(arguments.explain_samples(self.samples))
        if code == _library.BAD_F0 and f0 is not None:
            raise ValueError(arguments.explain_f0(f0, self.fs))
        if code == _library.BAD_FV and outputs[0] is not None:
            raise ValueError(arguments.explain_mvf(outputs[0], self.fs))
        _library.check(code)


def analyze(x: ArrayLike, fs: SupportsFloat, *, frame_period: SupportsFloat = 5.0,
            hop_length: SupportsIndex | None = None, f0_floor: SupportsFloat = 60.0,
            f0_ceil: SupportsFloat = 500.0, order: SupportsIndex = 39,
            alpha: SupportsFloat | None = None, method: Method = 1, refine: SupportsIndex = 0,
            f0: ArrayLike | None = None, zfill: SupportsIndex = 160,
            scale: str = "hts") -> Analysis:
    """Analyse a signal: f0, mel-warped cepstra and maximum voiced frequency of every frame.

    The values are those of the program nalveo16 with the same settings, to the byte once they are
    float32. Frame k is centred on sample k times the frame shift; n samples give
    ``(n - 1) // hop_length + 1`` frames.

    Parameters
    ----------
    x : array_like, shape (n,) or (n, 1)
        Samples, floating point from -1 to 1, or int16, which is divided by 32768.
    fs : float
        Sample rate in Hz, 8000 to 96000.
    frame_period : float
        Frame shift in ms, a whole number of samples.
    hop_length : int, optional
        Frame shift in samples, used instead of `frame_period`.
    f0_floor, f0_ceil : float
        Range in which f0 is searched, Hz, from 15 to fs / 2.
    order : int
        Order of the cepstra, 0 to 511; a frame has order + 1 coefficients.
    alpha : float, optional
        Warping parameter, above -1 and below 1. None takes the one that comes closest to the mel
        scale at `fs`: 0.42 at 16000 Hz.
    method : int or str
        How the envelope of a voiced frame is found: 0 or "harmonic", 1 or "rdc", 2 or "quasi",
        3 or "pitch-window", 4 or "seevoc".
    refine : int
        Most iterations of f0 refinement by the quasi-harmonic model, 0 to 5.
    f0 : array_like, shape (n_frames,), optional
        f0 in Hz, 0 where unvoiced, to be used instead of an estimate.
    zfill : int
        Runs of more equal samples than this get faint noise, as digital silence has no spectrum;
        0: none.
    scale : str
        "hts": c(0) + 5 and twice c(1) .. c(order), as HTS expects; "plain": without.

    Returns
    -------
    Analysis
        Named tuple ``(f0, mcep, mvf)`` of float64 arrays of shapes (n_frames,),
        (n_frames, order + 1) and (n_frames,), with `temporal_positions` (s) and the settings as
        attributes.

    Raises
    ------
    ValueError
        An argument out of its range; the message says what is allowed and what to do.
    MemoryError
        Less memory than the analysis needs.

    Examples
    --------
    >>> import numpy as np, nalveo
    >>> t = np.arange(16000) / 16000
    >>> x = sum(0.1 / k * np.cos(2 * np.pi * 120 * k * t) for k in range(1, 40))
    >>> f0, mcep, mvf = nalveo.analyze(x, 16000)
    >>> mcep.shape, round(float(f0[100]))
    ((200, 40), 120)
    """
    call = _Call(x, fs, frame_period, hop_length, zfill)
    call.set_search(f0_floor, f0_ceil)
    call.set_cepstra(order, alpha, method, scale)
    call.options.refine = arguments.whole("refine", refine, 0, 5)
    if f0 is None:
        track = np.empty(call.nframes)
    else:
        track = arguments.track("f0", f0, call.nframes).copy()
        call.options.f0_given = 1
    cepstra = np.empty((call.nframes, call.options.order + 1))
    mvf = np.empty(call.nframes)
    call.run("nalveo_analyse", track, cepstra, mvf)
    settings = {"method": int(call.options.method), "refine": int(call.options.refine),
                "f0_floor": float(call.options.f0_floor), "f0_ceil": float(call.options.f0_ceil),
                "zfill": int(call.options.zfill), "f0_given": f0 is not None}
    return Analysis(track, cepstra, mvf, fs=call.fs, hop_length=call.hop_length,
                    alpha=float(call.options.alpha), scale=scale, settings=settings)


def f0(x: ArrayLike, fs: SupportsFloat, *, frame_period: SupportsFloat = 5.0,
       hop_length: SupportsIndex | None = None, f0_floor: SupportsFloat = 60.0,
       f0_ceil: SupportsFloat = 500.0, zfill: SupportsIndex = 160) -> Reals:
    """Estimate the fundamental frequency, the first step of `analyze`.

    Parameters
    ----------
    x, fs, frame_period, hop_length, f0_floor, f0_ceil, zfill
        As for `analyze`.

    Returns
    -------
    ndarray of float64, shape (n_frames,)
        f0 in Hz, 0 where unvoiced.

    Raises
    ------
    ValueError
        An argument out of its range.

    Examples
    --------
    >>> import numpy as np, nalveo
    >>> t = np.arange(8000) / 16000
    >>> round(float(nalveo.f0(0.5 * np.sin(2 * np.pi * 200 * t), 16000)[50]))
    200
    """
    call = _Call(x, fs, frame_period, hop_length, zfill)
    call.set_search(f0_floor, f0_ceil)
    track = np.empty(call.nframes)
    call.run("nalveo_estimate_f0", track)
    return track


def refine_f0(x: ArrayLike, fs: SupportsFloat, f0: ArrayLike, mvf: ArrayLike | None = None, *,
              iterations: SupportsIndex = 5, frame_period: SupportsFloat = 5.0,
              hop_length: SupportsIndex | None = None, f0_floor: SupportsFloat = 60.0,
              f0_ceil: SupportsFloat = 500.0, zfill: SupportsIndex = 160) -> Reals:
    """Refine f0 with the quasi-harmonic model.

    Parameters
    ----------
    x, fs, frame_period, hop_length, zfill
        As for `analyze`.
    f0 : array_like, shape (n_frames,)
        f0 in Hz, 0 where unvoiced.
    mvf : array_like, shape (n_frames,), optional
        Maximum voiced frequency in Hz, up to which harmonics are modelled; None: 4500 Hz.
    iterations : int
        Most iterations per frame, 0 to 5.
    f0_floor, f0_ceil : float
        Refined values outside are not taken.

    Returns
    -------
    ndarray of float64, shape (n_frames,)
        Refined f0 in Hz, a new array; voicing is as it was.

    Raises
    ------
    ValueError
        An argument out of its range, or a track of another length.

    Examples
    --------
    >>> import numpy as np, nalveo
    >>> t = np.arange(8000) / 16000
    >>> x = sum(0.1 / k * np.cos(2 * np.pi * 150 * k * t) for k in range(1, 30))
    >>> f0 = nalveo.refine_f0(x, 16000, np.full(100, 153.0))
    >>> round(float(f0[50]), 1)
    150.0
    """
    call = _Call(x, fs, frame_period, hop_length, zfill)
    call.set_search(f0_floor, f0_ceil)
    call.options.refine = arguments.whole("iterations", iterations, 0, 5)
    track = arguments.track("f0", f0, call.nframes).copy()
    band = None if mvf is None else arguments.track("mvf", mvf, call.nframes)
    call.run("nalveo_refine_f0", track, band)
    return track


def mvf(x: ArrayLike, fs: SupportsFloat, f0: ArrayLike, *, frame_period: SupportsFloat = 5.0,
        hop_length: SupportsIndex | None = None, zfill: SupportsIndex = 160) -> Reals:
    """Estimate the maximum voiced frequency: up to where the spectrum is harmonic.

    Parameters
    ----------
    x, fs, frame_period, hop_length, zfill
        As for `analyze`.
    f0 : array_like, shape (n_frames,)
        f0 in Hz, 0 where unvoiced.

    Returns
    -------
    ndarray of float64, shape (n_frames,)
        Maximum voiced frequency in Hz, 0 where unvoiced.

    Raises
    ------
    ValueError
        An argument out of its range, or a track of another length.

    Examples
    --------
    >>> import numpy as np, nalveo
    >>> t = np.arange(16000) / 16000
    >>> x = sum(0.03 * np.cos(2 * np.pi * 100 * k * t + k * k) for k in range(1, 31))
    >>> x = x + 0.01 * np.random.default_rng(1).standard_normal(t.size)
    >>> bool(3000 < nalveo.mvf(x, 16000, nalveo.f0(x, 16000))[100] < 4000)
    True
    """
    call = _Call(x, fs, frame_period, hop_length, zfill)
    track = arguments.track("f0", f0, call.nframes)
    band = np.empty(call.nframes)
    call.run("nalveo_estimate_fv", track, band)
    return band


def mcep(x: ArrayLike, fs: SupportsFloat, f0: ArrayLike, *, frame_period: SupportsFloat = 5.0,
         hop_length: SupportsIndex | None = None, order: SupportsIndex = 39,
         alpha: SupportsFloat | None = None, method: Method = 1, zfill: SupportsIndex = 160,
         scale: str = "hts") -> Reals:
    """Compute mel-warped cepstra of the spectral envelope.

    Parameters
    ----------
    x, fs, frame_period, hop_length, order, alpha, method, zfill, scale
        As for `analyze`.
    f0 : array_like, shape (n_frames,)
        f0 in Hz, 0 where unvoiced.

    Returns
    -------
    ndarray of float64, shape (n_frames, order + 1)
        The cepstra; see `envelope` for what they mean.

    Raises
    ------
    ValueError
        An argument out of its range, or a track of another length.

    Examples
    --------
    >>> import numpy as np, nalveo
    >>> x = 0.1 * np.random.default_rng(1).standard_normal(16000).clip(-9, 9)
    >>> nalveo.mcep(x, 16000, np.zeros(200), order=24).shape
    (200, 25)
    """
    call = _Call(x, fs, frame_period, hop_length, zfill)
    call.set_cepstra(order, alpha, method, scale)
    track = arguments.track("f0", f0, call.nframes)
    cepstra = np.empty((call.nframes, call.options.order + 1))
    call.run("nalveo_estimate_cc", track, cepstra)
    return cepstra


def log_f0(f0: ArrayLike) -> NDArray[np.float64]:
    """Natural logarithm of f0 as in ``.lf0`` files.

    Parameters
    ----------
    f0 : array_like, shape (n_frames,)
        f0 in Hz; whatever is not above 0 counts as unvoiced.

    Returns
    -------
    ndarray of float64, shape (n_frames,)
        ln f0, -1e10 where unvoiced.

    Raises
    ------
    ValueError
        No one-dimensional array of real numbers.

    Examples
    --------
    >>> import nalveo
    >>> nalveo.log_f0([100, 0]).round(3).tolist()
    [4.605, -10000000000.0]
    """
    return _converted("f0", f0, "nalveo_f0_to_log")


def f0_from_log(lf0: ArrayLike) -> NDArray[np.float64]:
    """f0 of the logarithms in ``.lf0`` files, exactly as the program loads them.

    Parameters
    ----------
    lf0 : array_like, shape (n_frames,)
        ln f0, -1e10 where unvoiced.

    Returns
    -------
    ndarray of float64, shape (n_frames,)
        f0 in Hz, 0 where unvoiced.

    Raises
    ------
    ValueError
        No one-dimensional array of real numbers.

    Examples
    --------
    >>> import nalveo
    >>> nalveo.f0_from_log([0.0, -1e10]).tolist()
    [1.0, 0.0]
    """
    return _converted("lf0", lf0, "nalveo_log_to_f0")


def _converted(name: str, values: ArrayLike, function: str) -> Reals:
    given = arguments.reals(name, values)
    if given.ndim != 1:
        raise ValueError(f"{name} has shape {given.shape}; it must be (n_frames,)")
    result = np.empty(given.size)
    _library.check(getattr(_library.library, function)(given.ctypes.data, given.size,
                                                       result.ctypes.data))
    return result
