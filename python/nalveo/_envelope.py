"""What cepstra mean: envelopes on a frequency axis."""

from __future__ import annotations

from typing import SupportsFloat, SupportsIndex

import numpy as np
from numpy.typing import ArrayLike

from . import _arguments as arguments
from . import _library
from ._arguments import Reals

UNITS = ("amplitude", "db", "log")


def _levels(mcep: ArrayLike, fs: SupportsFloat, alpha: SupportsFloat | None, nfft: SupportsIndex,
            scale: str) -> Reals:
    """Natural logarithm of the amplitude density at bins 0 .. nfft / 2, frame by frame."""
    cepstra = arguments.cepstra(mcep)
    bins = arguments.whole("nfft", nfft, 2, 2**24)
    if bins % 2:
        raise ValueError(f"nfft is {bins}; it must be even")
    options = _library.default_options()
    options.fs = arguments.rate(fs)
    options.frame_shift = 1
    arguments.set_cepstra(options, cepstra.shape[-1] - 1, alpha, scale)
    frequencies = np.arange(bins // 2 + 1) * (options.fs / bins)
    frequencies[-1] = options.fs / 2
    levels = np.empty(cepstra.shape[:-1] + frequencies.shape)
    nframes = cepstra.size // cepstra.shape[-1]
    code = _library.library.nalveo_envelope(cepstra.ctypes.data, nframes, options,
                                            frequencies.ctypes.data, frequencies.size,
                                            levels.ctypes.data)
    if code == _library.BAD_CEPSTRUM:
        place = np.argwhere(~np.isfinite(cepstra))[0]
        raise ValueError(f"mcep holds {cepstra[tuple(place)]} at {place.tolist()}; it must be "
                         "finite numbers")
    _library.check(code)
    return levels


def envelope(mcep: ArrayLike, fs: SupportsFloat, alpha: SupportsFloat | None = None,
             nfft: SupportsIndex = 1024, scale: str = "hts", *, unit: str = "amplitude") -> Reals:
    """Evaluate the spectral envelope of cepstra.

    It is an amplitude density: a harmonic of amplitude a, in samples from -1 to 1, shows as
    a / (2 sqrt(f0)), white noise of standard deviation s as s / sqrt(fs).

    Parameters
    ----------
    mcep : array_like, shape (n_frames, order + 1) or (order + 1,)
        Cepstra.
    fs : float
        Sample rate in Hz of the analysed signal.
    alpha : float, optional
        Warping parameter of the cepstra; None for that of the mel scale at `fs`, as `analyze` has
        it by default.
    nfft : int
        Even; the frequencies are k fs / nfft, k = 0 .. nfft / 2.
    scale : str
        "hts" or "plain", as the cepstra are.
    unit : str
        "amplitude"; "db", 20 log10 of it; or "log", its natural logarithm.

    Returns
    -------
    ndarray of float64, shape (n_frames, nfft // 2 + 1) or (nfft // 2 + 1,)
        The envelope.

    Raises
    ------
    ValueError
        An argument out of its range.

    Examples
    --------
    >>> import nalveo
    >>> nalveo.envelope([0.0, 0.5], 16000, 0.0, 4, "plain", unit="log").round(9).tolist()
    [1.0, 0.0, -1.0]
    """
    if unit not in UNITS:
        raise ValueError(f"unit is {unit!r}; it must be 'amplitude', 'db' or 'log'")
    levels = _levels(mcep, fs, alpha, nfft, scale)
    if unit == "log":
        return levels
    if unit == "db":
        levels *= 20 / np.log(10)
        return levels
    amplitudes: Reals = np.exp(levels, out=levels)
    return amplitudes


def mcep_to_spectrum(mcep: ArrayLike, fs: SupportsFloat, alpha: SupportsFloat | None = None,
                     nfft: SupportsIndex = 1024, scale: str = "hts") -> Reals:
    """Turn cepstra into power spectra on the scale of WORLD and SPTK.

    The scale is that of the squared magnitude of the DFT of a frame whose window has unit energy,
    for samples from -1 to 1: white noise of variance v gives v in every bin, a voice whose
    harmonics have amplitude a gives a squared times fs / (4 f0). WORLD's spectrograms have it, and
    SPTK's spectra of frames through ``window -n 1``. It is fs times the square of `envelope`.

    Parameters
    ----------
    mcep, fs, alpha, nfft, scale
        As for `envelope`.

    Returns
    -------
    ndarray of float64, shape (n_frames, nfft // 2 + 1) or (nfft // 2 + 1,)
        Power at k fs / nfft, k = 0 .. nfft / 2.

    Raises
    ------
    ValueError
        An argument out of its range.

    Examples
    --------
    >>> import nalveo
    >>> nalveo.mcep_to_spectrum([0.0], 16000, nfft=2, scale="plain").tolist()
    [16000.0, 16000.0]
    """
    levels = _levels(mcep, fs, alpha, nfft, scale)
    levels *= 2
    power: Reals = np.exp(levels, out=levels)
    power *= float(fs)
    return power
