"""Every form of input that is taken, and a line for every one that is not."""

import math
import re

import numpy as np
import pytest
from hypothesis import HealthCheck, given, settings, strategies
from hypothesis.extra import numpy as arrays

import nalveo
from conftest import same

X = 0.1 * np.sin(np.arange(1600) * 0.05)
NFRAMES = 20


@pytest.mark.parametrize("form", [
    X.tolist(), tuple(X), X[:, None], np.repeat(X, 3)[::3], X[::-1].copy()[::-1],
    X.astype(">f8"), np.asfortranarray(X[:, None]), np.frombuffer(X.tobytes()),
    X.astype(np.longdouble),
    np.frombuffer(b"x" + X.tobytes(), "V1")[1:].view(np.float64)],
    ids=lambda form: type(form).__name__)
def test_forms_of_input(form):
    assert same(nalveo.analyze(form, 16000), nalveo.analyze(X, 16000))


def test_types_of_input():
    integers = np.round(X * 32768).astype(np.int16)
    expected = nalveo.analyze(integers / 32768.0, 16000)
    for form in (integers, integers.astype(">i2"), integers[:, None], np.repeat(integers, 2)[::2]):
        assert same(nalveo.analyze(form, 16000), expected)
    narrow = X.astype(np.float32)
    assert same(nalveo.analyze(narrow, 16000), nalveo.analyze(narrow.astype(float), 16000))
    for rate in (16000, 16000.0, np.int64(16000), np.float32(16000)):
        assert same(nalveo.analyze(X, rate), nalveo.analyze(X, 16000))
    full = np.array([-1.0, 1.0] * 800)
    assert np.isfinite(nalveo.analyze(full, 16000).mcep).all()
    assert np.isfinite(nalveo.analyze(np.full(1600, -32768, np.int16), 16000).mcep).all()


def spoilt(place, value):
    x = X.copy()
    x[place] = value
    return x


F0 = np.full(NFRAMES, 120.0)
REFUSED = [
    # samples and rate, settings, what the message must tell
    ((np.stack([X, X], 1), 16000), {}, r"shape \(1600, 2\).*one channel.*x\[:, 0\]"),
    ((X[None], 16000), {}, r"shape \(1, 1600\).*give x\[0\]"),
    ((np.stack([X, X]), 16000), {}, r"shape \(2, 1600\).*x.mean\(axis=0\) or x\[0\]"),
    ((X[None, None], 16000), {}, "one-dimensional"),
    (([], 16000), {}, "empty"),
    ((spoilt(7, math.nan), 16000), {}, "nan at sample 7.*finite"),
    ((spoilt(3, 1.0000001), 16000), {}, "1.0000001 at sample 3.*divide int16 values by 32768"),
    ((np.zeros(1600, np.int32), 16000), {}, r"int32.*int16.*2\.0\*\*31"),
    ((np.zeros(1600, np.uint8), 16000), {}, r"uint8.*\(x - 128\.0\) / 128"),
    ((np.zeros(1600, complex), 16000), {}, "complex.*real numbers"),
    (([[0.1], [0.1, 0.2]], 16000), {}, "no array of numbers|real numbers"),
    ((X, 16), {}, "16 Hz.*8000 to 96000.*kHz"),
    ((X, 96000.1), {}, r"96000\.1 Hz.*8000 to 96000"),
    ((X, math.nan), {}, "finite"),
    ((X, "16000 Hz"), {}, "finite"),
    ((X, None), {}, "finite"),
    ((X, 22050), {}, r"110\.25 samples.*hop_length=110"),
    ((X, 16000), {"frame_period": 0}, "0 samples.*hop_length=1 "),
    ((X, 16000), {"frame_period": 1e300}, "hop_length=1000000000 "),
    ((X, 16000), {"hop_length": 0}, "hop_length is 0.*from 1"),
    ((X, 16000), {"hop_length": 80.0}, "hop_length is 80.0.*whole"),
    ((X, 16000), {"f0_floor": 14}, "f0_floor is 14.*at least 15 Hz"),
    ((X, 16000), {"f0_floor": 500}, "in this order"),
    ((X, 16000), {"f0_ceil": 8001}, "fs / 2 = 8000"),
    ((X, 16000), {"order": 512}, "order is 512.*0 to 511"),
    ((X, 16000), {"alpha": 1}, "below 1, or None"),
    ((X, 16000), {"method": 5}, "0 or 'harmonic'.*4 or 'seevoc'"),
    ((X, 16000), {"method": "RDC?"}, "1 or 'rdc'"),
    ((X, 16000), {"method": 1.0}, "'rdc'"),
    ((X, 16000), {"refine": 6}, "refine is 6.*0 to 5"),
    ((X, 16000), {"zfill": -1}, "zfill"),
    ((X, 16000), {"scale": "HTK"}, "'hts' or 'plain'"),
    ((X, 16000), {"f0": F0[:-1]}, r"shape \(19,\).*one value per frame, \(20,\)"),
    ((X, 16000), {"f0": np.where(np.arange(20) == 9, math.nan, F0)}, "nan for frame 9.*never NaN"),
    ((X, 16000), {"f0": F0 * 0 + 14}, "14 for frame 0.*from 15.*not a logarithm"),
    ((X, 16000), {"f0": F0 + 7880}, "8000 for frame 0.*below fs / 2"),
]


@pytest.mark.parametrize("arguments, options, told", REFUSED)
def test_refusals(arguments, options, told):
    with pytest.raises(ValueError) as caught:
        nalveo.analyze(*arguments, **options)
    assert re.search(told, str(caught.value)), str(caught.value)
    assert "\n" not in str(caught.value)


@pytest.mark.parametrize("call, told", [
    (lambda: nalveo.refine_f0(X, 16000, F0, F0[:5]), r"mvf has shape \(5,\)"),
    (lambda: nalveo.refine_f0(X, 16000, F0, F0 - 200), "mvf holds -80 for frame 0"),
    (lambda: nalveo.refine_f0(X, 16000, F0 + 9000), "f0 holds 9120"),
    (lambda: nalveo.refine_f0(X, 16000, F0, iterations=9), "iterations"),
    (lambda: nalveo.mvf(X, 16000, F0[:3]), "one value per frame"),
    (lambda: nalveo.mcep(X, 16000, F0[:3]), "one value per frame"),
    (lambda: nalveo.f0(X, 16000, f0_floor=1), "at least 15"),
    (lambda: nalveo.log_f0(np.zeros((2, 2))), r"shape \(2, 2\)"),
    (lambda: nalveo.envelope(np.zeros((2, 513)), 16000), r"shape \(2, 513\).*0 to 511"),
    (lambda: nalveo.envelope([0.0, np.inf], 16000), r"inf at \[1\]"),
    (lambda: nalveo.envelope([0.0], 16000, nfft=7), "even"),
    (lambda: nalveo.envelope([0.0], 16000, unit="dB"), "'amplitude', 'db' or 'log'")])
def test_refusals_of_single_steps(call, told):
    with pytest.raises(ValueError, match=told):
        call()


SHAPES = arrays.array_shapes(min_dims=0, max_dims=3, min_side=0, max_side=40)
TYPES = strategies.one_of(arrays.floating_dtypes(), arrays.integer_dtypes(),
                          arrays.boolean_dtypes(), arrays.unicode_string_dtypes())


@settings(max_examples=200, deadline=None, suppress_health_check=list(HealthCheck))
@given(x=TYPES.flatmap(lambda dtype: arrays.arrays(dtype, SHAPES)),
       fs=strategies.one_of(strategies.sampled_from((8000, 16000, 44100, 96000)),
                            strategies.floats(), strategies.integers()),
       hop=strategies.one_of(strategies.none(), strategies.integers(-1, 50)),
       method=strategies.one_of(strategies.integers(-1, 5), strategies.text(max_size=3)),
       order=strategies.integers(-1, 60), refine=strategies.integers(-1, 6),
       alpha=strategies.one_of(strategies.none(), strategies.floats()))
def test_whatever_comes_is_analysed_or_refused(x, fs, hop, method, order, refine, alpha):
    try:
        analysis = nalveo.analyze(x, fs, hop_length=hop, method=method, order=order, refine=refine,
                                  alpha=alpha)
    except ValueError as error:
        assert len(str(error)) > 20
        return
    nframes = (x.size - 1) // analysis.hop_length + 1
    assert analysis.mcep.shape == (nframes, order + 1)
    assert all(np.isfinite(track).all() for track in analysis)
    assert analysis.f0.shape == analysis.mvf.shape == (nframes,)
