"""The measures against hand computation and against their definition on the spectrum, and the traps
that make such figures wrong."""

import math

import numpy as np
import pytest

import nalveo
from nalveo import metrics

RNG = np.random.default_rng(7)


def tracks(n=40, order=5, seed=1):
    """A voice of 30 frames between silences, without a mean level of any kind."""
    rng = np.random.default_rng(seed)
    f0 = np.where((np.arange(n) > 4) & (np.arange(n) < 35), rng.uniform(90, 200, n), 0)
    return nalveo.Analysis(f0, rng.normal(size=(n, order + 1)), np.where(f0 > 0, 3000.0, 0.0))


def test_identity_is_exactly_nothing():
    a = tracks()
    result = metrics.compare(a, a)
    assert result == metrics.Comparison(40, 0, 0, 0, 0, 0, 0, 0, 0, 0)
    assert metrics.compare(a, a, dtw=True) == result


def test_distortion_is_the_rms_of_the_envelopes_on_the_warped_axis():
    # With alpha = 0 the warped axis is the linear one. c(0) is alike, so that only shapes differ.
    c, d = RNG.normal(size=(2, 1, 9))
    d[0, 0] = c[0, 0]
    nfft = 4096
    a, b = (nalveo.envelope(x, 16000, 0.0, nfft, unit="db")[0] for x in (c, d))
    squares = (a - b) ** 2
    expected = math.sqrt((squares.sum() - (squares[0] + squares[-1]) / 2) / (nfft // 2))
    d[0, 0] += 3  # the level does not count
    assert metrics.mel_cepstral_distortion(c, d)[0] == pytest.approx(expected, rel=1e-9)


def test_plain_cepstra_give_the_same():
    a, b = tracks(seed=1), tracks(seed=2)
    plain = [x._replace(mcep=x.mcep * [1, *[0.5] * 5] - [5, *[0] * 5], scale="plain")
             for x in (a, b)]
    assert metrics.compare(*plain) == pytest.approx(metrics.compare(a, b), rel=1e-12)
    bare = [tuple(x) for x in plain]
    assert metrics.compare(*bare, "plain") == pytest.approx(metrics.compare(a, b), rel=1e-12)


def test_symmetry():
    a, b = tracks(seed=1), tracks(seed=2)
    b.f0[[6, 20]] = 0
    b.f0[10] = 3 * a.f0[10]
    there, back = metrics.compare(a, b), metrics.compare(b, a)
    assert there.c0_offset == -back.c0_offset != 0
    for name in set(metrics.Comparison._fields) - {"c0_offset", "gross_pitch_error"}:
        assert getattr(there, name) == pytest.approx(getattr(back, name), rel=1e-12), name
    # 100 and 121 Hz: 21 % above, 17 % below.
    assert metrics.gross_pitch_error([100], [121]) == 100
    assert metrics.gross_pitch_error([121], [100]) == 0


def test_voiced_and_unvoiced_frames_are_parted():
    a = tracks()
    mcep = a.mcep.copy()
    mcep[:, 1] += np.where(a.f0 > 0, 1.0, 2.0)
    f0 = a.f0.copy()
    f0[5] = 0  # voiced in one only: neither here nor there
    result = metrics.compare(a, a._replace(mcep=mcep, f0=f0))
    unit = 10 / math.log(10) * math.sqrt(2)
    assert result.distortion_voiced == pytest.approx(unit)
    assert result.distortion_unvoiced == pytest.approx(2 * unit)
    assert result.distortion == pytest.approx((30 * 1 + 10 * 2) / 40 * unit)
    assert result.voicing_error == pytest.approx(100 / 40)


def test_nothing_in_common_is_nan():
    a = tracks()
    result = metrics.compare(a, a._replace(f0=np.zeros(40)))
    for name in ("gross_pitch_error", "f0_rmse", "f0_rmse_cents", "distortion_voiced", "mvf_rmse"):
        assert math.isnan(getattr(result, name)), name
    assert result.voicing_error == 75
    assert math.isnan(metrics.compare(a, a._replace(mvf=np.full(40, np.nan))).mvf_rmse)


def test_lengths():
    a = tracks()
    shorter, shortest = (nalveo.Analysis(*(track[:n] for track in a)) for n in (38, 37))
    assert metrics.compare(a, shorter) == metrics.compare(shorter, a)
    assert metrics.compare(a, shorter).frames == 38
    for pair in ((a, shortest), (shortest, a)):
        with pytest.raises(ValueError, match="frames"):
            metrics.compare(*pair)


A, F0, BANDS = tracks(), np.full(5, 100.0), np.full(5, 3000.0)


@pytest.mark.parametrize("measure, arguments, told", [
    (metrics.compare, (A, A._replace(mcep=A.mcep[:, :5])),
     "order 5 in the reference and 4 in the test"),
    (metrics.compare, (A, A._replace(alpha=0.35)), "alpha"),
    (metrics.compare, (A, A._replace(hop_length=160)), "shift"),
    (metrics.compare, (A, A._replace(scale="plain")), "scale"),
    (metrics.compare, (A, A, "plain"), "scale"),
    (metrics.voicing_error, ([1, 1, 1, 1], [1, 1, 1, math.nan]), "frame 3"),
    (metrics.voicing_error, (F0, [100, 100, -1e10, 100, 100]),
     "f0 of the test is -1e.10 in frame 2"),
    (metrics.c0_offset, ([1, 1], [1, 1]), "shape"),
    (metrics.f0_rmse, ([1], [1], "mel"), "unit"),
    (metrics.mvf_rmse, (BANDS, BANDS[:4], F0, F0), "mvf and f0 of the test"),
    (metrics.mvf_rmse, (BANDS[:3], BANDS, F0, F0), "mvf and f0 of the reference"),
    (metrics.align, (np.zeros((4, 3)), [[0, 0, 0], [0, math.nan, 0]]),
     "mcep of the test is not finite in frame 1")])
def test_refusals(measure, arguments, told):
    with pytest.raises(ValueError, match=told):
        measure(*arguments)


def naive_alignment(c, d):
    """The recursion of the paper, pair by pair; its least cost."""
    cost = np.sqrt(((c[:, None, 1:] - d[None, :, 1:]) ** 2).sum(-1))
    best = np.full(cost.shape, math.inf)
    for i in range(len(c)):
        for j in range(len(d)):
            ways = [2 * cost[0, 0]] if i == j == 0 else []
            if i:
                ways.append(best[i - 1, j] + cost[i, j])
            if j:
                ways.append(best[i, j - 1] + cost[i, j])
            if i and j:
                ways.append(best[i - 1, j - 1] + 2 * cost[i, j])
            best[i, j] = min(ways)
    return best[-1, -1], cost


@pytest.mark.parametrize("n, m", [(1, 1), (1, 6), (6, 1), (12, 17), (17, 12)])
def test_alignment_is_the_cheapest_path(n, m):
    rng = np.random.default_rng(n)
    c, d = rng.normal(size=(n, 4)), rng.normal(size=(m, 4))
    i, j = metrics.align(c, d)
    assert (i[0], j[0], i[-1], j[-1]) == (0, 0, n - 1, m - 1)
    steps = np.stack([np.diff(i), np.diff(j)], axis=1)
    assert set(map(tuple, steps.tolist())) <= {(0, 1), (1, 0), (1, 1)}
    least, cost = naive_alignment(c, d)
    weights = np.concatenate([[2], steps.sum(axis=1)])
    assert float((weights * cost[i, j]).sum()) == pytest.approx(least, rel=1e-12)


def test_alignment_undoes_a_change_of_tempo():
    a = tracks(60)
    slow = np.repeat(np.arange(60), 1 + (np.arange(60) % 3 == 0))
    b = nalveo.Analysis(a.f0[slow], a.mcep[slow], a.mvf[slow])
    with pytest.raises(ValueError, match="lengths"):
        metrics.compare(a, b)
    result = metrics.compare(a, b, dtw=True)
    assert result.frames == 80
    assert result.distortion == result.voicing_error == result.f0_rmse == 0
