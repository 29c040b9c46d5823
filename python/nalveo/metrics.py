"""Measures that tell two analyses apart.

Definitions and literature are in the chapter on measures. Frames are compared one by one; two
tracks of different length are compared over the shorter one, if they differ by at most
`MOST_DIFFERENT` frames. Where there is nothing to measure, as no frame that is voiced in both, the
result is NaN.
"""

from __future__ import annotations

import math
from typing import NamedTuple

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _arguments as arguments
from ._arguments import Reals

__all__ = ["Comparison", "GROSS", "MOST_DIFFERENT", "align", "c0_offset", "compare", "f0_rmse",
           "gross_pitch_error", "mel_cepstral_distortion", "mvf_rmse", "voicing_error"]

MOST_DIFFERENT = 2
"""Most frames by which the lengths of two tracks may differ."""

GROSS = 0.2
"""Relative deviation of f0 beyond which it is a gross error."""

_DB = 20 / math.log(10)  # dB per neper

Indices = NDArray[np.intp]


class Comparison(NamedTuple):
    """What tells a test from its reference; see `compare`.

    Attributes
    ----------
    frames : int
        Frames, or with an alignment pairs of frames, that were compared.
    voicing_error : float
        Frames voiced in one and not in the other, in percent of all.
    gross_pitch_error : float
        Frames whose f0 is off by more than 20 %, in percent of those voiced in both.
    f0_rmse : float
        Root mean square difference of f0 in Hz, over frames voiced in both.
    f0_rmse_cents : float
        The same in cents.
    distortion : float
        Mel-cepstral distortion in dB, mean over all frames.
    distortion_voiced, distortion_unvoiced : float
        The same over the frames that are voiced in both, and over those that are in neither.
    c0_offset : float
        Mean level of the test above the reference, dB.
    mvf_rmse : float
        Root mean square difference of the maximum voiced frequency in Hz, over frames voiced in
        both.
    """

    frames: int
    voicing_error: float
    gross_pitch_error: float
    f0_rmse: float
    f0_rmse_cents: float
    distortion: float
    distortion_voiced: float
    distortion_unvoiced: float
    c0_offset: float
    mvf_rmse: float


def _refuse_infinite(name: str, which: str, values: Reals) -> None:
    if not np.isfinite(values).all():
        frame = int(np.argwhere(~np.isfinite(values))[0][0])
        raise ValueError(f"{name} of the {which} is not finite in frame {frame}")


def _pair(name: str, reference: ArrayLike, test: ArrayLike, ndim: int) -> tuple[Reals, Reals]:
    """Two tracks, cut to the length of the shorter one."""
    pair = []
    for which, values in (("reference", reference), ("test", test)):
        given = arguments.reals(f"{name} of the {which}", values)
        if given.ndim != ndim:
            shape = "(n_frames, order + 1)" if ndim == 2 else "(n_frames,)"
            raise ValueError(f"{name} of the {which} has shape {given.shape}; it must be {shape}")
        _refuse_infinite(name, which, given)
        if ndim == 1 and (given < 0).any():
            frame = int(np.argwhere(given < 0)[0][0])
            raise ValueError(f"{name} of the {which} is {given[frame]:g} in frame {frame}; it must "
                             "be in Hz, 0 where unvoiced: turn logarithms into Hz with "
                             "nalveo.f0_from_log")
        pair.append(given)
    first, second = pair
    if abs(len(first) - len(second)) > MOST_DIFFERENT:
        raise ValueError(f"{name} has {len(first)} frames in the reference and {len(second)} in "
                         f"the test; lengths may differ by {MOST_DIFFERENT} frames at most: align "
                         "the two, or compare what belongs together")
    if ndim == 2 and first.shape[1] != second.shape[1]:
        raise ValueError(f"{name} has order {first.shape[1] - 1} in the reference and "
                         f"{second.shape[1] - 1} in the test; distortions of different orders "
                         "cannot be compared: analyse both with one order")
    n = min(len(first), len(second))
    return first[:n], second[:n]


def _mean(values: Reals) -> float:
    return float(values.mean()) if values.size else math.nan


def _rms(values: Reals) -> float:
    return math.sqrt(float(np.mean(values * values))) if values.size else math.nan


def voicing_error(reference: ArrayLike, test: ArrayLike) -> float:
    """Share of the frames that are voiced in one track and not in the other.

    Parameters
    ----------
    reference, test : array_like, shape (n_frames,)
        f0 in Hz, 0 where unvoiced. Symmetric.

    Returns
    -------
    float
        Percent of all frames.

    Raises
    ------
    ValueError
        Tracks that cannot be compared.

    Examples
    --------
    >>> from nalveo import metrics
    >>> metrics.voicing_error([0, 0, 100, 100], [0, 90, 100, 100])
    25.0
    """
    f, g = _pair("f0", reference, test, 1)
    return 100 * _mean(((f > 0) != (g > 0)).astype(np.float64))


def gross_pitch_error(reference: ArrayLike, test: ArrayLike) -> float:
    """Share of the frames voiced in both whose f0 is off by more than 20 % of the reference.

    Parameters
    ----------
    reference, test : array_like, shape (n_frames,)
        f0 in Hz, 0 where unvoiced. Not symmetric: the deviation is relative to the reference.

    Returns
    -------
    float
        Percent of the frames voiced in both; NaN when there are none.

    Raises
    ------
    ValueError
        Tracks that cannot be compared.

    Examples
    --------
    >>> from nalveo import metrics
    >>> metrics.gross_pitch_error([0, 100, 100, 100, 100], [90, 100, 119, 121, 50])
    50.0
    """
    f, g = _pair("f0", reference, test, 1)
    both = (f > 0) & (g > 0)
    off = np.abs(g[both] - f[both]) > GROSS * f[both]
    return 100 * _mean(off.astype(np.float64))


def f0_rmse(reference: ArrayLike, test: ArrayLike, unit: str = "hz") -> float:
    """Root mean square difference of f0 over the frames voiced in both, gross errors included.

    Parameters
    ----------
    reference, test : array_like, shape (n_frames,)
        f0 in Hz, 0 where unvoiced. Symmetric.
    unit : str
        "hz" or "cents", 1200 to the octave.

    Returns
    -------
    float
        The difference; NaN when no frame is voiced in both.

    Raises
    ------
    ValueError
        Tracks that cannot be compared.

    Examples
    --------
    >>> from nalveo import metrics
    >>> metrics.f0_rmse([0, 100, 100], [100, 103, 97])
    3.0
    >>> metrics.f0_rmse([100], [200], "cents")
    1200.0
    """
    if unit not in ("hz", "cents"):
        raise ValueError(f"unit is {unit!r}; it must be 'hz' or 'cents'")
    f, g = _pair("f0", reference, test, 1)
    both = (f > 0) & (g > 0)
    if unit == "hz":
        return _rms(g[both] - f[both])
    cents: Reals = 1200.0 * np.log2(g[both] / f[both])
    return _rms(cents)


def _distortions(reference: Reals, test: Reals, scale: str) -> Reals:
    """Distortion of every frame. The factor stands for one-sided cepstra, as HTS has them."""
    factor = _DB / 2 * (1.0 if arguments.scaled(scale) else 2.0)
    difference = test[:, 1:] - reference[:, 1:]
    result: Reals = factor * np.sqrt(2 * np.sum(difference * difference, axis=1))
    return result


def mel_cepstral_distortion(reference: ArrayLike, test: ArrayLike, scale: str = "hts") -> Reals:
    """Mel-cepstral distortion of every frame: 10 / ln 10 sqrt(2 sum of squared differences).

    It is the root mean square difference of the two envelopes in dB on the warped frequency axis,
    their mean levels, c(0), left out.

    Parameters
    ----------
    reference, test : array_like, shape (n_frames, order + 1)
        Cepstra of one order and one alpha. Symmetric.
    scale : str
        "hts" or "plain", as both are: plain coefficients are half as large and count twice.

    Returns
    -------
    ndarray of float64, shape (n_frames,)
        dB.

    Raises
    ------
    ValueError
        Cepstra that cannot be compared.

    Examples
    --------
    >>> from nalveo import metrics
    >>> metrics.mel_cepstral_distortion([[9.0, 1.0]], [[5.0, 2.0]]).round(3).tolist()
    [6.142]
    """
    return _distortions(*_pair("mcep", reference, test, 2), scale)


def c0_offset(reference: ArrayLike, test: ArrayLike) -> float:
    """Mean level of a test above its reference.

    Parameters
    ----------
    reference, test : array_like, shape (n_frames, order + 1)
        Cepstra, of which c(0) counts. The other way round it is the negative.

    Returns
    -------
    float
        dB.

    Raises
    ------
    ValueError
        Cepstra that cannot be compared.

    Examples
    --------
    >>> from nalveo import metrics
    >>> round(metrics.c0_offset([[1.0, 0.0]], [[2.0, 7.0]]), 3)
    8.686
    """
    c, d = _pair("mcep", reference, test, 2)
    return _DB * _mean(d[:, 0] - c[:, 0])


def mvf_rmse(reference: ArrayLike, test: ArrayLike, reference_f0: ArrayLike,
             test_f0: ArrayLike) -> float:
    """Root mean square difference of the maximum voiced frequency over frames voiced in both.

    Parameters
    ----------
    reference, test : array_like, shape (n_frames,)
        Maximum voiced frequency in Hz. Symmetric.
    reference_f0, test_f0 : array_like, shape (n_frames,)
        f0 in Hz, 0 where unvoiced.

    Returns
    -------
    float
        Hz; NaN when no frame is voiced in both.

    Raises
    ------
    ValueError
        Tracks that cannot be compared.

    Examples
    --------
    >>> from nalveo import metrics
    >>> metrics.mvf_rmse([0, 3000, 3000], [900, 3500, 0], [0, 100, 100], [80, 100, 0])
    500.0
    """
    for which, bands, f0 in (("reference", reference, reference_f0), ("test", test, test_f0)):
        if np.shape(bands) != np.shape(f0):
            raise ValueError(f"mvf and f0 of the {which} have shapes {np.shape(bands)} and "
                             f"{np.shape(f0)}; they must be of one analysis, one value to one")
    u, v = _pair("mvf", reference, test, 1)
    f, g = _pair("f0", reference_f0, test_f0, 1)
    both = (f > 0) & (g > 0)
    return _rms(v[both] - u[both])


def align(reference: ArrayLike, test: ArrayLike, scale: str = "hts") -> tuple[Indices, Indices]:
    """Align two versions of an utterance by dynamic time warping.

    The symmetric recursion of Sakoe and Chiba (1978) without slope constraint: a step in one of the
    two costs the distortion of the frames that it leads to, a step in both twice that; of paths
    that cost the same, the one with more steps in both. Symmetric.

    Parameters
    ----------
    reference, test : array_like, shapes (n, order + 1) and (m, order + 1)
        Cepstra of one order and one alpha; c(0) does not count.
    scale : str
        "hts" or "plain", as both are.

    Returns
    -------
    i, j : ndarray of intp
        Frames of the reference and of the test that belong together, from the first ones to the
        last ones.

    Raises
    ------
    ValueError
        Cepstra that cannot be compared, or more than 4e8 pairs of frames.

    Examples
    --------
    >>> from nalveo import metrics
    >>> a, b, c = [0.0, 1.0], [0.0, 5.0], [0.0, 9.0]
    >>> [index.tolist() for index in metrics.align([a, b, c], [a, b, b, c])]
    [[0, 1, 1, 2], [0, 1, 2, 3]]
    """
    c = arguments.cepstra(reference)
    d = arguments.cepstra(test)
    if c.ndim != 2 or d.ndim != 2 or c.shape[1] != d.shape[1] or not len(c) or not len(d):
        raise ValueError(f"the cepstra have shapes {c.shape} and {d.shape}; they must be "
                         "(n, order + 1) and (m, order + 1), with at least one frame each")
    _refuse_infinite("mcep", "reference", c)
    _refuse_infinite("mcep", "test", d)
    n, m = len(c), len(d)
    if n * m > 400_000_000:
        raise ValueError(f"{n} and {m} frames are too many to be aligned; cut the recordings into "
                         "utterances")
    steps = _best_steps(c, d, scale)
    i, j = n - 1, m - 1
    path = [(i, j)]
    while i or j:
        step = steps[i, j]
        i, j = i - (step != 2), j - (step != 1)
        path.append((i, j))
    pairs = np.array(path[::-1], dtype=np.intp)
    return pairs[:, 0], pairs[:, 1]


def _best_steps(c: Reals, d: Reals, scale: str) -> NDArray[np.int8]:
    """The last step of the best path to every pair: 0 in both, 1 in the reference, 2 in the test.

    The recursion runs over the pairs of one sum i + j at a time, which do not depend on each other.
    """
    n, m = len(c), len(d)
    steps = np.zeros((n, m), dtype=np.int8)
    # Costs by i of the diagonals i + j = k - 1 and k - 2; what is not there is infinite. Entry
    # i + 1 is that of i.
    last = np.full(n + 1, math.inf)
    before = np.full(n + 1, math.inf)
    for k in range(n + m - 1):
        i = np.arange(max(0, k - m + 1), min(n, k + 1))
        j = k - i
        cost = _distortions(c[i], d[j], scale)
        here = np.full(n + 1, math.inf)
        if k == 0:
            here[1] = 2 * cost[0]
        else:
            ways = np.stack([before[i] + 2 * cost, last[i] + cost, last[i + 1] + cost])
            step = np.argmin(ways, axis=0)
            here[i + 1] = ways[step, np.arange(i.size)]
            steps[i, j] = step
        before, last = last, here
    return steps


def compare(reference: tuple[ArrayLike, ArrayLike, ArrayLike],
            test: tuple[ArrayLike, ArrayLike, ArrayLike], scale: str | None = None, *,
            dtw: bool = False) -> Comparison:
    """Compare two analyses by all measures.

    Parameters
    ----------
    reference, test : Analysis, or tuple (f0, mcep, mvf)
        f0 in Hz; mvf may be all NaN.
    scale : str, optional
        Scale of the cepstra, "hts" or "plain". None takes that of the analyses, which must have
        one, and "hts" for bare tuples.
    dtw : bool
        Align the two by `align` before they are compared, for versions of one sentence that differ
        in time.

    Returns
    -------
    Comparison
        The measures, NaN where there is nothing to measure.

    Raises
    ------
    ValueError
        Analyses that cannot be compared: of different order, alpha, scale or frame shift, or
        lengths that differ by more than `MOST_DIFFERENT` frames without an alignment.

    Examples
    --------
    >>> import nalveo
    >>> from nalveo import metrics
    >>> silence = nalveo.analyze([0.0] * 8000, 16000)
    >>> metrics.compare(silence, silence).distortion
    0.0
    """
    scale = _common_scale(reference, test, scale)
    (f, c, u), (g, d, v) = (_frames(which, analysis) for which, analysis in
                            (("reference", reference), ("test", test)))
    if dtw:
        i, j = align(c, d, scale)
        f, c, u, g, d, v = f[i], c[i], u[i], g[j], d[j], v[j]
    f, g = _pair("f0", f, g, 1)
    c, d = _pair("mcep", c, d, 2)
    u, v = u[:len(f)], v[:len(f)]
    both, neither = (f > 0) & (g > 0), (f == 0) & (g == 0)
    distortions = _distortions(c, d, scale)
    bands = not (np.isnan(u).all() or np.isnan(v).all())
    return Comparison(
        frames=len(f), voicing_error=voicing_error(f, g),
        gross_pitch_error=gross_pitch_error(f, g), f0_rmse=f0_rmse(f, g),
        f0_rmse_cents=f0_rmse(f, g, "cents"), distortion=_mean(distortions),
        distortion_voiced=_mean(distortions[both]), distortion_unvoiced=_mean(distortions[neither]),
        c0_offset=c0_offset(c, d), mvf_rmse=mvf_rmse(u, v, f, g) if bands else math.nan)


def _frames(which: str, analysis: tuple[ArrayLike, ArrayLike, ArrayLike]
            ) -> tuple[Reals, Reals, Reals]:
    f0, mcep, mvf = analysis
    cepstra = arguments.cepstra(mcep)
    if cepstra.ndim != 2:
        raise ValueError(f"mcep of the {which} has shape {cepstra.shape}; it must be (n_frames, "
                         "order + 1)")
    n = len(cepstra)
    return (arguments.track(f"f0 of the {which}", f0, n), cepstra,
            arguments.track(f"mvf of the {which}", mvf, n))


def _common_scale(reference: object, test: object, scale: str | None) -> str:
    """The scale of both; refuses analyses whose settings do not go together."""
    def settings(name: str) -> list[object]:
        return [getattr(analysis, name) for analysis in (reference, test)
                if hasattr(analysis, name)]
    for name, what in (("alpha", "alpha"), ("frame_period", "a frame shift in ms of"),
                       ("scale", "scale")):
        values = settings(name)
        if len(values) == 2 and values[0] != values[1]:
            raise ValueError(f"the reference has {what} {values[0]} and the test {values[1]}; "
                             "analyse both with the same settings")
    known = settings("scale")
    if scale is None:
        scale = str(known[0]) if known else "hts"
    elif known and scale != known[0]:
        raise ValueError(f"scale is {scale!r}, but the analyses have {known[0]!r}")
    arguments.scaled(scale)
    return scale
