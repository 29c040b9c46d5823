"""The shared library: found, loaded, and its functions with their types.

ctypes lets go of the interpreter's lock for as long as a function of the library runs.
"""

from __future__ import annotations

import ctypes
import pathlib
import sys
from ctypes import c_char_p, c_double, c_int, c_size_t, c_uint32, c_uint64, c_void_p
from typing import Any

NAME = "libnalveo.so.0"


class Options(ctypes.Structure):
    """The struct nalveo_options of nalveo.h."""

    _fields_ = [
        ("size", c_uint32),
        ("frame_shift", c_uint32),
        ("fs", c_double),
        ("f0_floor", c_double),
        ("f0_ceil", c_double),
        ("alpha", c_double),
        ("order", c_uint32),
        ("method", c_uint32),
        ("refine", c_uint32),
        ("zfill", c_uint32),
        ("hts_scale", c_uint32),
        ("f0_given", c_uint32),
    ]


# Results that callers look at; see nalveo.h.
OK, NO_MEMORY, INTERNAL = 0, 1, 2
BAD_SAMPLE, BAD_F0, BAD_FV, BAD_CEPSTRUM = 15, 16, 17, 18

# Arrays go as their addresses; the callers see to types, sizes and lifetimes.
_ARRAY = c_void_p
_SIGNAL = [_ARRAY, c_size_t, ctypes.POINTER(Options)]
_PROTOTYPES: dict[str, tuple[Any, list[Any]]] = {
    "nalveo_version": (c_char_p, []),
    "nalveo_error_text": (c_char_p, [c_int]),
    "nalveo_default_options": (c_int, [ctypes.POINTER(Options), c_size_t]),
    "nalveo_check_options": (c_int, [ctypes.POINTER(Options)]),
    "nalveo_mel_alpha": (c_double, [c_double]),
    "nalveo_frame_count": (c_size_t, [c_size_t, ctypes.POINTER(Options)]),
    "nalveo_analyse": (c_int, [*_SIGNAL, _ARRAY, _ARRAY, _ARRAY]),
    "nalveo_estimate_f0": (c_int, [*_SIGNAL, _ARRAY]),
    "nalveo_refine_f0": (c_int, [*_SIGNAL, _ARRAY, _ARRAY]),
    "nalveo_estimate_fv": (c_int, [*_SIGNAL, _ARRAY, _ARRAY]),
    "nalveo_estimate_cc": (c_int, [*_SIGNAL, _ARRAY, _ARRAY]),
    "nalveo_f0_to_log": (c_int, [_ARRAY, c_size_t, _ARRAY]),
    "nalveo_log_to_f0": (c_int, [_ARRAY, c_size_t, _ARRAY]),
    "nalveo_synthesise": (c_int, [_ARRAY, _ARRAY, _ARRAY, c_size_t, ctypes.POINTER(Options),
                                  c_uint64, _ARRAY, c_size_t]),
    "nalveo_envelope": (c_int, [_ARRAY, c_size_t, ctypes.POINTER(Options), _ARRAY, c_size_t,
                                _ARRAY]),
}


def _load() -> ctypes.CDLL:
    """Load the library: beside this file (wheel), in the prefix of an installed tree, built in a
    clone, or as the system finds it."""
    here = pathlib.Path(__file__).resolve()
    places = [here.parent / NAME]
    if here.parts[-5:-2] == ("lib", "python3", "dist-packages"):
        machine = getattr(sys.implementation, "_multiarch", "")
        places += [here.parents[3] / NAME, here.parents[3] / machine / NAME]
    if here.parts[-3] == "python":
        places.append(here.parents[2] / "build/release" / NAME)
    path = next((str(place) for place in places if place.is_file()), NAME)
    try:
        loaded = ctypes.CDLL(path)
    except OSError as error:
        raise ImportError(
            f"nalveo cannot load its library {path}: {error}. Install it with "
            "`pip install .` in the source folder, or the Debian package libnalveo0, or build all "
            "targets of the preset release there") from error
    for name, (result, arguments) in _PROTOTYPES.items():
        function = getattr(loaded, name)
        function.restype = result
        function.argtypes = arguments
    return loaded


library = _load()


def default_options() -> Options:
    """Options filled with the defaults."""
    options = Options()
    check(library.nalveo_default_options(options, ctypes.sizeof(options)))
    return options


def error_text(code: int) -> str:
    """What a result means."""
    text: bytes = library.nalveo_error_text(code)
    return text.decode()


def check(code: int) -> None:
    """Raise what a result stands for, if that is an error."""
    if code == OK:
        return
    if code == NO_MEMORY:
        raise MemoryError(error_text(code))
    if code == INTERNAL:
        raise RuntimeError(error_text(code))
    raise ValueError(error_text(code))


def version() -> str:
    """Version of the library."""
    text: bytes = library.nalveo_version()
    return text.decode()
