"""Other frame grids: exact where the frames meet, log-linear inside runs, never across."""

from fractions import Fraction

import numpy as np
import pytest
from hypothesis import given, settings, strategies

import nalveo


def made(f0, hop_length=80, fs=16000.0):
    """An analysis whose tracks are functions of the frame."""
    f0 = np.asarray(f0, float)
    frames = np.arange(len(f0), dtype=float)
    mvf = np.where(f0 > 0, 2000 + 10 * frames, 0)
    return nalveo.Analysis(f0, np.stack([frames, -frames], 1), mvf, fs=fs, hop_length=hop_length)


def test_by_hand():
    # Twice as dense: 0 .5 1 1.5 2 2.5 3 3.5 4
    analysis = made([100, 400, 0, 0, 200])
    new = nalveo.to_grid(analysis, 40, 16000, 9)
    np.testing.assert_allclose(new.f0, [100, 200, 400, 0, 0, 0, 0, 200, 200])
    np.testing.assert_allclose(new.mcep[:, 0], [0, 0.5, 1, 2, 2, 2.5, 3, 4, 4])
    np.testing.assert_allclose(new.mvf, [2000, 2005, 2010, 0, 0, 0, 0, 2040, 2040])
    assert new.hop_length == 40 and new.frame_period == 2.5


def test_frames_that_meet_are_the_same():
    random = np.random.default_rng(1)
    f0 = np.where(random.random(1000) < 0.6, random.uniform(60, 400, 1000), 0)
    analysis = made(f0)
    same = nalveo.to_grid(analysis, 80, 16000, 1000)
    every = nalveo.to_grid(analysis, 240, 48000, 1000)  # 5 ms at another rate
    for new in (same, every):
        assert all(np.array_equal(a, b) for a, b in zip(new, analysis))
    third = nalveo.to_grid(analysis, 240, 16000, 334)
    assert all(np.array_equal(a, b[::3]) for a, b in zip(third, analysis))


def test_no_drift_over_an_hour():
    """The usual grid of neural vocoders: a frame is where exact arithmetic has it, to the last."""
    seconds = 3600
    analysis = made(np.full(seconds * 200, 100.0))
    length = 1 + seconds * 22050 // 256
    new = nalveo.to_grid(analysis, 256, 22050, length)
    assert len(new.f0) == length
    for k in (0, 1, 1000, length // 2, length - 2, length - 1):
        frame = min(float(Fraction(k * 256 * 200, 22050)), seconds * 200 - 1)
        assert new.mcep[k, 0] == pytest.approx(frame, rel=1e-15, abs=1e-9)
        assert new.temporal_positions[k] == pytest.approx(float(Fraction(k * 256, 22050)),
                                                          rel=1e-15)


def test_end_is_repeated_but_not_invented():
    analysis = nalveo.analyze(np.zeros(22050), 22050, hop_length=110)
    assert nalveo.to_grid(analysis, 256, 22050, 1 + 22050 // 256).f0.shape == (87,)
    nalveo.to_grid(analysis, 256, 22050, 88)
    with pytest.raises(ValueError, match="analysis ends at 0.998 s"):
        nalveo.to_grid(analysis, 256, 22050, 89)
    with pytest.raises(ValueError, match="analysis ends"):  # told before anything is computed
        nalveo.to_grid(analysis, 256, 22050, 2**31 - 1)
    assert nalveo.to_grid(analysis, 256, 22050, 0).mcep.shape == (0, 40)
    for wrong in ((0, 22050, 5), (256.5, 22050, 5), (256, 22, 5), (256, 22050, -1)):
        with pytest.raises(ValueError):
            nalveo.to_grid(analysis, *wrong)


@settings(max_examples=200, deadline=None)
@given(f0=strategies.lists(strategies.sampled_from((0.0, 80.0, 100.0, 250.0)), min_size=1,
                           max_size=40),
       hop=strategies.integers(1, 700), fs=strategies.sampled_from((8000, 16000, 22050, 44100)))
def test_never_a_value_across_a_boundary(f0, hop, fs):
    analysis = made(f0)
    step = Fraction(hop * 200, fs)
    length = int((len(f0) - 1) / step) + 1
    new = nalveo.to_grid(analysis, hop, fs, length)
    for k in range(length):
        position = k * step
        left = int(position)
        right = min(left + 1, len(f0) - 1)
        around = {f0[left], f0[right]} if position != left else {f0[left]}
        if new.f0[k] == 0:
            assert 0 in around
        else:
            voiced = around - {0}
            assert min(voiced) * (1 - 1e-12) <= new.f0[k] <= max(voiced) * (1 + 1e-12)
            if 0 in around:  # the nearer frame as it is
                assert new.f0[k] in voiced and new.mcep[k, 0] in (left, right)
