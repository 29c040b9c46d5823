"""The same bytes as the program, in every way of calling; threads and processes."""

import copy
import multiprocessing
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import nalveo
from conftest import same


def files(analysis):
    """The bytes that the program would write."""
    return [np.asarray(track, "<f4").tobytes()
            for track in (nalveo.log_f0(analysis.f0), analysis.mcep, analysis.mvf)]


@pytest.mark.parametrize("settings, options", [
    ({}, ["--ccmeth=1"]),
    ({"refine": 5, "method": "harmonic"}, ["--f0acc=5", "--ccmeth=0"]),
    ({"refine": 1, "method": "quasi"}, ["--f0acc=1", "--ccmeth=2"]),
    ({"frame_period": 10, "method": "rdc"}, ["--lframe=160", "--ccmeth=1"]),
    ({"hop_length": 111, "order": 24}, ["--lframe=111", "--ccord=24"]),
    ({"order": 0, "method": np.int64(3)}, ["--ccord=0", "--ccmeth=3"]),
    ({"alpha": 0.35, "scale": "plain"}, ["--alpha=0.35", "--htsscale=0"]),
    ({"alpha": 0, "method": "pitch-window"}, ["--alpha=0", "--ccmeth=3"]),
    ({"f0_floor": 80, "f0_ceil": 300, "zfill": 0}, ["--f0min=80", "--f0max=300", "--zfill=0"]),
    ({"zfill": 20, "method": "seevoc"}, ["--zfill=20", "--ccmeth=4"])])
def test_bytes_of_settings(speech, program, settings, options):
    expected = program(speech, *options)
    assert files(nalveo.analyze(speech, 16000, **settings)) == expected
    # Digital silence a second time: its noise begins anew.
    assert files(nalveo.analyze(speech, 16000, **settings)) == expected


@pytest.mark.parametrize("refine", (0, 3))
def test_bytes_with_loaded_f0(speech, program, refine):
    lf0 = np.full(300, np.log(117.3), np.float32)
    lf0[::7] = -1e10
    lf0[100:110] = np.log(90.1)
    loaded = nalveo.analyze(speech, 16000, f0=nalveo.f0_from_log(lf0), refine=refine)
    expected = program(speech, "--f0load=1", f"--f0acc={refine}", lf0=lf0)
    if refine == 0:
        assert expected[0] == lf0.tobytes()
        expected[0] = files(loaded)[0]  # the program leaves the file as it was
    assert files(loaded) == expected


def test_single_steps(speech):
    whole = nalveo.analyze(speech, 16000, refine=2)
    f0 = nalveo.f0(speech, 16000)
    mvf = nalveo.mvf(speech, 16000, f0)
    refined = nalveo.refine_f0(speech, 16000, f0, mvf, iterations=2)
    mcep = nalveo.mcep(speech, 16000, refined)
    assert same((refined, mcep, mvf), whole)
    assert not np.array_equal(f0, refined)
    assert np.array_equal((f0 > 0), (refined > 0))
    # Without the track of the band, harmonics count up to 4500 Hz.
    assert not np.array_equal(nalveo.refine_f0(speech, 16000, f0, iterations=2), refined)


def test_result_tells_its_settings(speech):
    analysis = nalveo.analyze(speech, 16000, hop_length=100, order=20, method="seevoc")
    f0, mcep, mvf = analysis
    assert f0 is analysis.f0 and mcep is analysis.mcep and mvf is analysis.mvf
    assert f0.shape == mvf.shape == (240,) and mcep.shape == (240, 21)
    assert f0.dtype == mcep.dtype == mvf.dtype == np.float64
    np.testing.assert_allclose(analysis.temporal_positions, np.arange(240) * 100 / 16000)
    assert (analysis.fs, analysis.hop_length, analysis.frame_period) == (16000, 100, 6.25)
    assert (analysis.alpha, analysis.order, analysis.scale) == (0.42, 20, "hts")
    assert analysis.settings["method"] == 4 and analysis.settings["f0_given"] is False
    for copied in (copy.deepcopy(analysis), analysis._replace(scale="plain")._replace(scale="hts")):
        assert same(copied, analysis)
        assert vars(copied) == vars(analysis)


def test_caller_arrays_stay_as_they_are(speech):
    x = speech / 32768
    f0 = nalveo.f0(x, 16000)
    kept = x.copy(), f0.copy()
    for array in (x, f0):
        array.flags.writeable = False
    nalveo.analyze(x, 16000, f0=f0, refine=2)
    nalveo.refine_f0(x, 16000, f0)
    assert same((x, f0), kept)


def test_interpreter_goes_on_during_the_work(speech):
    worker = threading.Thread(target=nalveo.analyze, args=(np.tile(speech, 20), 16000))
    worker.start()
    turns = 0
    while worker.is_alive():
        time.sleep(0.001)
        turns += 1
    assert turns > 20  # with the lock held, one or two


def test_use_after_fork(speech):
    here = nalveo.analyze(speech, 16000)
    with multiprocessing.get_context("fork").Pool(2) as pool:
        for there in pool.starmap(nalveo.analyze, [(speech, 16000)] * 4):
            assert same(there, here) and vars(there) == vars(here)


def test_nothing_is_printed_and_nothing_but_numpy_imported():
    code = """
import sys, numpy
def modules():
    return {name.partition('.')[0] for name in sys.modules}
before = modules() | set(sys.stdlib_module_names)
import nalveo
nalveo.analyze([0.0] * 4000, 16000)
assert modules() - before == {'nalveo'}, modules() - before
"""
    if not hasattr(sys, "stdlib_module_names"):
        pytest.skip("Python 3.9 does not list its modules")
    done = subprocess.run([sys.executable, "-c", code], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    assert (done.returncode, done.stdout) == (0, "")
