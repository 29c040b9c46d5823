"""Synthesis from Python: the program's samples, tracks that fit, and what is refused."""

import pathlib
import subprocess

import numpy as np
import pytest

import nalveo


@pytest.fixture(scope="module")
def tracks():
    t = np.arange(24000) / 16000
    x = sum(0.05 / k * np.cos(2 * np.pi * 130 * k * t + k * k) for k in range(1, 30))
    x[:4000] = 0
    x += 0.003 * np.random.default_rng(3).standard_normal(t.size)
    return nalveo.analyze(x, 16000)


def test_samples_are_those_of_the_program(tracks, tmp_path):
    streams = {"lf0": nalveo.log_f0(tracks.f0), "mcc": tracks.mcep, "mvf": tracks.mvf}
    for name, values in streams.items():
        np.asarray(values, "<f4").tofile(tmp_path / name)
    subprocess.run(["nalveo16-synth", "lf0", "mcc", "mvf", "out.wav", "--seed=5", "--length=23456"],
                   cwd=tmp_path, check=True)
    samples = np.frombuffer(pathlib.Path(tmp_path, "out.wav").read_bytes()[44:], "<i2")
    f0, mcep, mvf = (np.fromfile(tmp_path / name, "<f4") for name in streams)
    x = nalveo.synthesize(nalveo.f0_from_log(f0), mcep.reshape(len(f0), -1), mvf, seed=5,
                          length=23456)
    assert np.array_equal(samples, np.floor(32768 * x + 0.5))


def test_what_comes_out_is_what_went_in(tracks):
    again = nalveo.analyze(nalveo.synthesize(*tracks), 16000)
    difference = nalveo.metrics.compare(tracks, again)
    assert difference.voicing_error < 2
    assert difference.f0_rmse_cents < 15
    assert abs(difference.c0_offset) < 0.5


def test_any_rate_and_shift(tracks):
    at48 = nalveo.synthesize(*tracks, fs=48000)
    assert at48.shape == (tracks.f0.size * 240,)
    assert np.median(nalveo.f0(at48, 48000)[100:]) == pytest.approx(130, rel=0.01)
    assert nalveo.synthesize(*tracks, hop_length=7).shape == (tracks.f0.size * 7,)
    # Without a maximum voiced frequency, or with none known.
    unknown = np.full_like(tracks.mvf, np.nan)
    assert np.array_equal(nalveo.synthesize(tracks.f0, tracks.mcep),
                          nalveo.synthesize(tracks.f0, tracks.mcep, unknown))


@pytest.mark.parametrize("name, place, value, words", [
    ("f0", 3, 5.1, "f0 holds 5.1 for frame 3.*not a logarithm"),
    ("mcep", (7, 2), np.inf, "mcep holds inf for frame 7.*-100 to 100"),
    ("mvf", 1, 8001, "mvf holds 8001 for frame 1")])
def test_bad_values_are_named(tracks, name, place, value, words):
    arrays = {key: track.copy() for key, track in tracks._asdict().items()}
    arrays[name][place] = value
    with pytest.raises(ValueError, match=words):
        nalveo.synthesize(**arrays)


@pytest.mark.parametrize("arguments, words", [
    (dict(length=24001), "length is 24001; it must be a whole number from 1 to 24000"),
    (dict(seed=2**64), "seed is 18446744073709551616"),
    (dict(hop_length=2**20 + 1), "frame shift is 1048577 samples.*at most 1048576"),
    (dict(mvf=[1.0]), "mvf has shape"),
    (dict(f0=[1.0]), "f0 has shape"),
    (dict(mcep=[0.0] * 40), "mcep has shape")])
def test_bad_arguments_are_refused(tracks, arguments, words):
    with pytest.raises(ValueError, match=words):
        nalveo.synthesize(**{"f0": tracks.f0, "mcep": tracks.mcep, **arguments})
