"""The same analysis on another frame grid."""

from __future__ import annotations

from fractions import Fraction
from typing import SupportsFloat, SupportsIndex

import numpy as np
from numpy.typing import NDArray

from . import _arguments as arguments
from ._analysis import Analysis, check_analysis
from ._arguments import Reals


def to_grid(analysis: Analysis, hop_length: SupportsIndex, fs: SupportsFloat,
            length: SupportsIndex) -> Analysis:
    """Put an analysis on another frame grid, such as that of a mel spectrogram.

    Frame k of the result is at k hop_length / fs seconds, exactly: nothing drifts. Inside voiced
    runs f0 is interpolated linearly in its logarithm, cepstra and maximum voiced frequency
    linearly; so are the cepstra inside unvoiced runs. Across a boundary of voicing nothing is
    interpolated: there, a frame takes all of the nearer one. A frame that falls on one of the
    analysis is that frame.

    Parameters
    ----------
    analysis : Analysis
        What `analyze` or `read` gives.
    hop_length : int
        Frame shift of the new grid in samples.
    fs : float
        Sample rate of the new grid in Hz. It may differ from that of the analysis; the cepstra stay
        those of the latter.
    length : int
        Number of frames of the new grid, for instance ``1 + n // hop_length`` for a centred
        spectrogram of n samples. Frames behind the last one of the analysis repeat it; more than
        the length of a frame of each grid behind it, there is nothing to repeat.

    Returns
    -------
    Analysis
        On the new grid.

    Raises
    ------
    ValueError
        An argument out of its range, tracks that do not fit each other, or more frames than the
        analysis has time for.
    TypeError
        Something else than an `Analysis`.

    Examples
    --------
    >>> import nalveo
    >>> analysis = nalveo.analyze([0.0] * 16000, 16000)
    >>> nalveo.to_grid(analysis, 256, 22050, 1 + 22050 // 256).mcep.shape
    (87, 40)
    """
    check_analysis("to_grid", analysis)
    count = arguments.whole("length", length, 0, 2**31 - 1)
    hop = arguments.whole("hop_length", hop_length, 1, 10**9)
    rate = Fraction(arguments.rate(fs))
    shift = hop * Fraction(analysis.fs) / rate  # in samples of the analysed signal
    last = len(analysis.f0) - 1
    # In units of frames of the analysis; one of its frames, and one of the new grid, may be
    # missing.
    beyond = (count - 1) * shift / Fraction(analysis.hop_length) - last
    if count > 0 and (last < 0 or beyond > 1 + shift / Fraction(analysis.hop_length)):
        end = float(max(last, 0) * Fraction(analysis.hop_length) / Fraction(analysis.fs))
        raise ValueError(
            f"length is {count}: the last frame would be at {float((count - 1) * hop / rate):.3f} "
            f"s, but the analysis ends at {end:.3f} s; give the number of frames of the same "
            "signal")
    left, weight = _positions(shift / Fraction(analysis.hop_length), count)
    after = left >= last
    left[after] = max(last, 0)
    weight[after] = 0.0
    right = np.minimum(left + 1, max(last, 0))

    f0, mcep, mvf = (np.asarray(track, dtype=np.float64) for track in analysis)
    nearer = np.where(weight < 0.5, left, right)
    exact = weight == 0
    voiced = (f0[left] > 0) & (f0[right] > 0) & ~exact
    unvoiced = (f0[left] == 0) & (f0[right] == 0) & ~exact
    newf0 = f0[nearer]
    newf0[voiced] = np.exp(_between(np.log(f0[left[voiced]]), np.log(f0[right[voiced]]),
                                    weight[voiced]))
    # The track of the maximum voiced frequency is smoothed: its own zeros may lie elsewhere.
    banded = (mvf[left] > 0) & (mvf[right] > 0) & (voiced | unvoiced)
    newmvf = mvf[nearer]
    newmvf[banded] = _between(mvf[left[banded]], mvf[right[banded]], weight[banded])
    newmcep = mcep[nearer]
    same = voiced | unvoiced
    newmcep[same] = _between(mcep[left[same]], mcep[right[same]], weight[same][:, None])
    return analysis._replace(f0=newf0, mcep=newmcep, mvf=newmvf,
                             hop_length=int(shift) if shift.denominator == 1 else shift)


def _between(a: Reals, b: Reals, weight: Reals) -> Reals:
    values: Reals = a + weight * (b - a)
    return values


def _positions(step: Fraction, count: int) -> tuple[NDArray[np.intp], Reals]:
    """Whole and fractional part of k step, k = 0 .. count - 1, without rounding of the former."""
    numerator, denominator = step.numerator, step.denominator
    if count * numerator < 2**63 and denominator < 2**63:
        products = np.arange(count, dtype=np.int64) * numerator
        whole, rest = np.divmod(products, denominator)
        return whole.astype(np.intp), rest / denominator
    pairs = [divmod(k * numerator, denominator) for k in range(count)]
    return (np.array([p for p, _ in pairs], dtype=np.intp),
            np.array([float(Fraction(r, denominator)) for _, r in pairs], dtype=np.float64))
