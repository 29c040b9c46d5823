"""From tracks back to speech."""

from __future__ import annotations

from typing import SupportsFloat, SupportsIndex

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _arguments as arguments
from . import _library
from ._arguments import Reals

_LONGEST_HOP = 2**20


def synthesize(f0: ArrayLike, mcep: ArrayLike, mvf: ArrayLike | None = None,
               fs: SupportsFloat = 16000.0, frame_period: SupportsFloat = 5.0,
               seed: SupportsIndex = 1, length: SupportsIndex | None = None, scale: str = "hts",
               alpha: SupportsFloat | None = None, *,
               hop_length: SupportsIndex | None = None) -> Reals:
    """Synthesise speech from tracks: harmonics up to the maximum voiced frequency, noise above.

    The waveform is that of the program nalveo16-synth with the same settings, before it is
    rounded to 16 bits and kept within full scale: samples may lie beyond -1 to 1.

    Parameters
    ----------
    f0 : array_like, shape (n_frames,)
        Fundamental frequency in Hz, 0 where unvoiced, else from 14 to below fs / 2.
    mcep : array_like, shape (n_frames, order + 1)
        Mel-warped cepstra, each coefficient from -100 to 100.
    mvf : array_like, shape (n_frames,), optional
        Maximum voiced frequency in Hz, 0 to fs / 2; 0 in a voiced frame stands for 1000 Hz, the
        least that is estimated. None, or all NaN: harmonics up to fs / 2.
    fs : float
        Sample rate in Hz, 8000 to 96000.
    frame_period : float
        Frame shift in ms, a whole number of samples.
    seed : int
        Of the noise, 0 to 2**64 - 1. The same seed gives the same noise.
    length : int, optional
        Number of samples, at most n_frames times the shift, which is the default.
    scale : str
        "hts" or "plain", as the cepstra are.
    alpha : float, optional
        Warping parameter of the cepstra; None for that of the mel scale at `fs`.
    hop_length : int, optional
        Frame shift in samples, used instead of `frame_period`.

    Returns
    -------
    ndarray of float64, shape (length,)
        The waveform, at the level of the analysed one.

    Raises
    ------
    ValueError
        An argument out of its range; the message says frame and value.
    MemoryError
        Less memory than the synthesis needs.

    Examples
    --------
    >>> import numpy as np, nalveo
    >>> x = nalveo.synthesize(np.full(200, 150.0), np.tile([-4.0, 0.0], (200, 1)))
    >>> x.shape, round(float(np.median(nalveo.f0(x, 16000))))
    ((16000,), 150)
    """
    options = _library.default_options()
    options.fs = arguments.rate(fs)
    options.frame_shift = arguments.hop(options.fs, frame_period, hop_length)
    if options.frame_shift > _LONGEST_HOP:
        raise ValueError(f"the frame shift is {options.frame_shift} samples; it must be at most "
                         f"{_LONGEST_HOP}")
    cepstra = arguments.cepstra(mcep)
    if cepstra.ndim != 2 or len(cepstra) == 0:
        raise ValueError(f"mcep has shape {cepstra.shape}; it must be (n_frames, order + 1) with "
                         "at least one frame")
    nframes = len(cepstra)
    pitch = arguments.track("f0", f0, nframes)
    band = None if mvf is None else arguments.track("mvf", mvf, nframes)
    if band is not None and np.isnan(band).all():
        band = None
    arguments.set_cepstra(options, cepstra.shape[1] - 1, alpha, scale)
    longest = nframes * options.frame_shift
    nsamples = longest if length is None else arguments.whole("length", length, 1, longest)
    samples = np.empty(nsamples)
    code = _library.library.nalveo_synthesise(
        pitch.ctypes.data, cepstra.ctypes.data, None if band is None else band.ctypes.data, nframes,
        options, arguments.whole("seed", seed, 0, 2**64 - 1), samples.ctypes.data, nsamples)
    if code == _library.BAD_F0:
        good = (pitch == 0) | ((pitch >= 14) & (pitch < options.fs / 2))
        raise ValueError(_explain("f0", pitch, good, "0 where unvoiced, else from 14 to below "
                                  f"fs / 2 = {options.fs / 2:g} Hz, not a logarithm"))
    if code == _library.BAD_CEPSTRUM:
        raise ValueError(_explain("mcep", cepstra, np.abs(cepstra) <= 100, "from -100 to 100"))
    if code == _library.BAD_FV and band is not None:
        raise ValueError(arguments.explain_mvf(band, options.fs))
    _library.check(code)
    return samples


def _explain(name: str, track: Reals, good: NDArray[np.bool_], rule: str) -> str:
    place = tuple(np.argwhere(~good)[0])
    return f"{name} holds {arguments.shown(track[place])} for frame {place[0]}; it must be {rule}"
