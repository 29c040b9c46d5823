"""Files: the program's, archives, Praat's pitch tiers; whole or not there."""

import math
import os
import stat
import tempfile

import numpy as np
import pytest

import nalveo
from conftest import same


def made(f0, **settings):
    f0 = np.asarray(f0, float)
    return nalveo.Analysis(f0, np.zeros((len(f0), 3)), f0 * 10, **settings)


@pytest.fixture
def analysis(speech):
    return nalveo.analyze(speech, 16000, hop_length=100, order=24, alpha=0.35)


def test_files_of_the_program(speech, program, tmp_path):
    expected = program(speech)
    nalveo.write(tmp_path / "ours", nalveo.analyze(speech, 16000))
    names = [tmp_path / f"ours.{ending}" for ending in ("lf0", "mcc", "mvf")]
    assert [name.read_bytes() for name in names] == expected
    back = nalveo.read(tmp_path / "ours", order=39)
    nalveo.write(tmp_path / "again", back)
    assert [(tmp_path / f"again.{ending}").read_bytes()
            for ending in ("lf0", "mcc", "mvf")] == expected
    os.remove(names[2])
    without = nalveo.read(tmp_path / "ours")
    assert np.isnan(without.mvf).all() and same(without[:2], back[:2])
    nalveo.write(tmp_path / "without", without)
    assert sorted(p.name for p in tmp_path.glob("without*")) == ["without.lf0", "without.mcc"]


def test_archives_tell_everything(analysis, tmp_path):
    grid = nalveo.to_grid(analysis, 256, 22050, 100)
    for number, kept in enumerate((analysis, grid)):
        nalveo.write(tmp_path / f"{number}.npz", kept)
        back = nalveo.read(str(tmp_path / f"{number}.npz"), alpha=0.1, fs=48000)
        assert same(back, kept)
        for name in ("fs", "hop_length", "frame_period", "alpha", "order", "scale"):
            assert getattr(back, name) == getattr(kept, name), name
        assert np.array_equal(back.temporal_positions, kept.temporal_positions)
    with np.load(tmp_path / "0.npz") as plain:  # without nalveo
        assert plain["alpha"] == 0.35 and plain["order"] == 24 and plain["fs"] == 16000
        assert plain["frame_period"] == 6.25


def contents(folder):
    return {path.name: path.read_bytes() for path in folder.iterdir()}


def test_writing_is_whole_or_not_at_all(analysis, tmp_path, monkeypatch):
    nalveo.write(tmp_path / "a", analysis)
    before = contents(tmp_path)
    shorter = made(analysis.f0)
    huge = np.full_like(analysis.f0, 1e39)
    for spoilt, told in (
            (analysis._replace(mcep=analysis.mcep * [math.nan, *[1] * 24]), "mcep of frame 0"),
            (analysis._replace(mvf=np.r_[-1, huge[1:] * math.nan]), "mvf of frame 0 holds -1"),
            (shorter._replace(mvf=huge * math.nan), "a.mvf is there"),
            (shorter._replace(mcep=np.stack([huge, huge], 1)),
             "mcep of frame 0 holds 1e.39, which is beyond float32"),
            (shorter._replace(mvf=huge), "beyond float32"),
            (shorter._replace(f0=analysis.f0 * 0 + 9), "logarithm")):
        with pytest.raises(ValueError, match=told):
            nalveo.write(tmp_path / "a", spoilt)
    monkeypatch.setattr(os, "replace", lambda *_: (_ for _ in ()).throw(OSError("disk full")))
    for name in ("a", "a.npz"):
        with pytest.raises(OSError, match="disk full"):
            nalveo.write(tmp_path / name, analysis)
    assert contents(tmp_path) == before
    monkeypatch.undo()
    with pytest.raises(OSError):
        nalveo.write(tmp_path / "none" / "a", analysis)
    # A link stays one, a pipe is not replaced.
    (tmp_path / "link.lf0").symlink_to(tmp_path / "a.lf0")
    nalveo.write(tmp_path / "link", analysis)
    assert (tmp_path / "link.lf0").is_symlink()
    os.mkfifo(tmp_path / "pipe")
    reader = os.open(tmp_path / "pipe", os.O_RDONLY | os.O_NONBLOCK)
    nalveo.write_pitchtier(tmp_path / "pipe", made([100]))
    assert os.read(reader, 11) == b"File type ="
    os.close(reader)


def test_permissions(analysis):
    """They are kept, and what may not be written stays."""
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o777)
        stem = os.path.join(folder, "a")
        nalveo.write(stem, analysis)
        os.chmod(stem + ".lf0", 0o600)
        nalveo.write(stem, analysis)
        assert stat.S_IMODE(os.stat(stem + ".lf0").st_mode) == 0o600
        os.chmod(stem + ".lf0", 0o444)
        before = os.stat(stem + ".lf0")
        user = os.geteuid()
        if user == 0:
            os.seteuid(65534)
        try:
            with pytest.raises(PermissionError):
                nalveo.write(stem, analysis)
        finally:
            os.seteuid(user)
        assert os.stat(stem + ".lf0") == before


@pytest.mark.parametrize("ending, spoil, told", [
    ("mvf", lambda data: data[:8], "a.mvf holds 2 values"),
    ("mvf", lambda data: data[:7], "7 bytes"),
    ("mcc", lambda data: data[:-4], r"order \+ 1 values to one"),
    ("mcc", lambda data: b"\xff" * len(data), "mcep of frame 0 holds nan"),
    ("npz", lambda data: data[:1000], "damaged")])
def test_damaged_files(analysis, tmp_path, ending, spoil, told):
    path = tmp_path / f"a.{ending}"
    stem = path if ending == "npz" else tmp_path / "a"
    nalveo.write(stem, analysis)
    path.write_bytes(spoil(path.read_bytes()))
    with pytest.raises(ValueError, match=told):
        nalveo.read(stem)


def test_archives_of_others(analysis, tmp_path):
    archive = tmp_path / "a.npz"
    np.savez(archive, f0=analysis.f0)
    with pytest.raises(ValueError, match="no archive of nalveo.write"):
        nalveo.read(archive)
    np.savez(archive, f0=np.array([{}], dtype=object))  # never unpickled
    with pytest.raises(ValueError, match="allow_pickle"):
        nalveo.read(archive)
    nalveo.write(archive, analysis)
    members = dict(np.load(archive))
    for name, value in (("format", 2), ("fs", 1.0), ("hop_length", [0, 1]), ("hop_length", [1, 0]),
                        ("alpha", 3.0), ("scale", "x"), ("f0", np.zeros(3)), ("order", 23),
                        ("format", "one")):
        np.savez(archive, **{**members, name: value})
        with pytest.raises(ValueError, match="a.npz"):
            nalveo.read(archive)


@pytest.mark.parametrize("hop, fs", [(80, 16000.0), (256, 22050.0), (16, 16000.0)])
def test_pitch_tiers_keep_every_unvoiced_frame(tmp_path, hop, fs):
    """Gaps of one, two and three frames, and voiced runs of one."""
    path = tmp_path / "a.PitchTier"
    analysis = made([0, 100, 0, 110, 120, 0, 130, 0, 0, 140, 150.3, 0, 0, 0, 160, 0],
                    hop_length=hop, fs=fs)
    nalveo.write_pitchtier(path, analysis)
    voiced = analysis.f0 > 0
    assert same(nalveo.read_pitchtier(path), (analysis.temporal_positions[voiced],
                                              analysis.f0[voiced]))
    assert np.array_equal(nalveo.read_pitchtier(path, analysis.temporal_positions)[1], analysis.f0)
    assert path.read_text().splitlines()[0] == 'File type = "ooTextFile"'


def test_pitch_tiers_of_others(tmp_path):
    path = tmp_path / "a.PitchTier"
    short = ('File type = "ooTextFile"\nObject class = "PitchTier"\n\n'
             '0\n2\n3\n.5\n1e2\n0.51\n120\n1.5\n90\n')
    for text, encoding in ((short, "utf-8"), (short, "utf-16")):
        path.write_text(text, encoding=encoding)
        assert [array.tolist() for array in nalveo.read_pitchtier(path)] == \
            [[0.5, 0.51, 1.5], [100, 120, 90]]
    wanted = [0.4, 0.5, 0.505, 0.7, 1.5, 1.6]
    assert nalveo.read_pitchtier(path, wanted)[1].tolist() == [0, 100, 110, 0, 90, 0]
    for wrong, told in ((short.replace("PitchTier", "Pitch"), "no pitch tier"),
                        ("RIFF", "no pitch"),
                        (short.replace("\n3\n", "\n4\n"), "number of points"),
                        (short.replace("0.51", "0.49"), "out of order"),
                        (short.replace("1.5", "1e999"), "not finite"),
                        (short.replace("\n3\n", "\n1e999\n"), "number of points"),
                        (short.replace("90", "1e999"), "inf for point 3.*15 to 48000"),
                        (short.replace("120", "5.1"), "5.1 for point 2"),
                        (short.replace("120", "-120"), "-120 for point 2.*15 to 48000")):
        path.write_text(wrong)
        with pytest.raises(ValueError, match=told):
            nalveo.read_pitchtier(path)


def test_logarithms_that_the_program_takes(tmp_path):
    for number, (value, f0) in enumerate(((-1e10, 0), (-np.inf, 0), (2.71, np.exp(2.71)),
                                          (8.97, np.exp(8.97)))):
        np.array([value], "<f4").tofile(tmp_path / f"{number}.lf0")
        np.zeros(2, "<f4").tofile(tmp_path / f"{number}.mcc")
        assert nalveo.read(tmp_path / str(number)).f0[0] == pytest.approx(f0, rel=1e-6)
    for value in (np.nan, np.inf, 0.0, -5.0, 2.69, 9.0, 120.0):  # the last is Hz
        np.array([value], "<f4").tofile(tmp_path / "0.lf0")
        with pytest.raises(ValueError, match="0.lf0 holds a logarithm of .* for frame 0"):
            nalveo.read(tmp_path / "0")
    np.array([9.5], "<f4").tofile(tmp_path / "0.lf0")
    assert nalveo.read(tmp_path / "0", fs=48000).f0[0] > 8000


def test_what_is_no_analysis_is_told(analysis, tmp_path):
    for call in (lambda: nalveo.write(tmp_path / "a", tuple(analysis)),
                 lambda: nalveo.write_pitchtier(tmp_path / "a", tuple(analysis)),
                 lambda: nalveo.to_grid(tuple(analysis), 100, 16000, 5)):
        with pytest.raises(TypeError, match="given a tuple; it must be a nalveo.Analysis"):
            call()
    for spoilt in (analysis._replace(hop_length=0), analysis._replace(f0=analysis.f0[1:]),
                   analysis._replace(f0=analysis.f0[:, None])):
        with pytest.raises(ValueError, match="hop_length is 0|shapes"):
            nalveo.write(tmp_path / "a", spoilt)
        with pytest.raises(ValueError, match="hop_length is 0|shapes"):
            nalveo.to_grid(spoilt, 100, 16000, 5)
    nalveo.write(tmp_path / "s", analysis)
    assert same(nalveo.read(os.fsencode(tmp_path / "s")), nalveo.read(tmp_path / "s", order=24))
    with pytest.raises(ValueError, match="order 24, not 39"):
        nalveo.read(tmp_path / "s", order=39)
    with pytest.raises(FileNotFoundError):
        nalveo.read(tmp_path / "none")
    with pytest.raises(ValueError, match="one of the files; give .*s'"):
        nalveo.read(tmp_path / "s.lf0")
    again = nalveo.Analysis._make(tuple(analysis))
    assert same(again, analysis) and again.hop_length == 80
