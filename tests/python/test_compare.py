"""The comparison tool: tables, totals, what it takes and refuses."""

import json
import math
import subprocess

import numpy as np
import pytest

import nalveo
from conftest import write_wave


@pytest.fixture(scope="module")
def signal():
    t = np.arange(8000) / 16000
    x = sum(0.05 / k * np.cos(2 * np.pi * 140 * k * t + k * k) for k in range(1, 30))
    return x + 0.002 * np.random.default_rng(5).standard_normal(t.size)


@pytest.fixture
def analysis(tmp_path, signal):
    """That of the signal, which is in tracks of the name a, too."""
    made = nalveo.analyze(signal, 16000)
    nalveo.write(tmp_path / "a", made)
    return made


def run(folder, *arguments):
    return subprocess.run(["nalveo16-compare", *map(str, arguments)], cwd=folder, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)


def rows(result):
    """The rows of a table by their names, as numbers, None for nan."""
    def number(text):
        return None if text == "nan" else float(text)
    lines = [line.split("\t") for line in result.stdout.splitlines() if line[0] != "#"]
    return {line[0]: dict(zip(lines[0][1:], map(number, line[1:]))) for line in lines[1:]}


def test_recordings_stems_and_archives_are_the_same(tmp_path, signal):
    samples = np.round(signal * 32768).astype("<i2")
    write_wave(tmp_path / "a.wav", samples)
    for name in "a", "a.npz":
        nalveo.write(tmp_path / name, nalveo.analyze(samples, 16000))
    for test in ("a.wav", "a", "a.npz"):
        result = run(tmp_path, "a.wav", test)
        assert result.returncode == 0 and "Error" not in result.stderr
        table = rows(result)
        assert table[test] == table["TOTAL"]
        assert table[test]["frames"] == 100
        assert all(not value for name, value in table[test].items() if name != "frames")
    assert "# f0_rmse\tHz" in result.stdout


def test_folders_pool_their_frames(tmp_path, signal):
    for side, level in (("ref", 1.0), ("test", 2.0)):
        (tmp_path / side).mkdir()
        write_wave(tmp_path / side / "long.wav", signal * level * 8192)
        nalveo.write(tmp_path / side / "short", nalveo.analyze(signal[:4000] / 4, 16000))
    result = run(tmp_path, "ref", "test")
    assert result.returncode == 0
    table = rows(result)
    assert list(table) == ["long", "short", "TOTAL"]
    assert table["long"]["c0_offset"] == pytest.approx(20 * math.log10(2), abs=0.02)
    assert table["TOTAL"]["frames"] == 150
    assert table["TOTAL"]["c0_offset"] == pytest.approx(20 * math.log10(2) * 100 / 150, abs=0.02)

    (tmp_path / "ref/long.wav").unlink()
    lonely = run(tmp_path, "ref", "test")
    assert lonely.returncode == 1
    assert "Error: long is only in test.\n" in lonely.stderr
    assert list(rows(lonely)) == ["short", "TOTAL"]


def test_plain_tracks_give_the_same(tmp_path, signal):
    for scale in "hts", "plain":
        for number, x in ((1, signal), (2, 0.5 * signal + 0.01 * np.sin(np.arange(8000)))):
            nalveo.write(tmp_path / f"{scale}{number}", nalveo.analyze(x, 16000, scale=scale))
    scaled = rows(run(tmp_path, "hts1", "hts2"))
    assert scaled["TOTAL"]["distortion"] > 0.5
    plain = rows(run(tmp_path, "plain1", "plain2", "--htsscale=0"))
    assert list(plain.values()) == list(scaled.values())


def test_json_has_null_for_nothing(tmp_path, analysis):
    nalveo.write(tmp_path / "silent", analysis._replace(f0=np.zeros(100)))
    result = run(tmp_path, "a", "silent", "--json")
    assert result.returncode == 0
    document = json.loads(result.stdout)
    assert document["total"]["f0_rmse"] is None
    assert document["total"]["frames"] == 100
    assert document["pairs"][0]["name"] == "silent"
    assert set(document["definitions"]) == set(document["total"])


def test_alignment(tmp_path, analysis):
    nalveo.write(tmp_path / "b", nalveo.Analysis(*(np.repeat(track, 2, 0) for track in analysis)))
    refused = run(tmp_path, "a", "b")
    assert refused.returncode == 1
    assert "lengths may differ by 2 frames at most" in refused.stderr
    aligned = rows(run(tmp_path, "a", "b", "--align", "dtw"))["TOTAL"]
    assert aligned["frames"] == 200
    assert aligned["distortion"] == aligned["f0_rmse"] == 0


def test_refusals(tmp_path, analysis):
    nalveo.write(tmp_path / "c.npz", analysis._replace(alpha=0.3))
    (tmp_path / "empty").mkdir()
    for arguments, status, words in (
            (("a", "c.npz"), 1, "alpha"), (("a", "none"), 1, "could not read none.lf0: No such"),
            (("a", "empty"), 1, "two folders or two files"),
            (("empty", "empty"), 1, "no names in common"),
            (("a", "a", "--align", "cow"), 2, "choose from")):
        result = run(tmp_path, *arguments)
        assert result.returncode == status, arguments
        assert result.stderr.startswith("Error: ") and words in result.stderr, result.stderr
        assert result.stderr.count("\n") == 1


def test_damaged_recordings_are_told_and_the_folder_goes_on(tmp_path, signal):
    write_wave(tmp_path / "whole", signal * 16384)
    whole = (tmp_path / "whole").read_bytes()
    damaged = {"bits": whole[:34] + b"\x0c" + whole[35:], "cut": whole[:-100],
               "format": whole[:16] + b"\x11" + whole[17:], "header": whole[:30],
               "huge": whole[:16] + b"\xff\xff\xff\x7f" + whole[20:], "text": b"no recording"}
    for side in ("ref", "test"):
        (tmp_path / side).mkdir()
        for name, content in {**damaged, "good": whole}.items():
            (tmp_path / side / f"{name}.wav").write_bytes(whole if side == "ref" else content)
    result = run(tmp_path, "ref", "test")
    assert result.returncode == 1
    assert list(rows(result)) == ["good", "TOTAL"]
    lines = [line for line in result.stderr.splitlines() if not line.startswith("Note: ")]
    assert len(lines) == len(damaged)
    for line, name in zip(lines, damaged):
        assert line.startswith("Error: ") and f"test/{name}.wav" in line, line
        assert not line.endswith((": .", "..")), line
        assert ("sox converts" in line) == (name != "cut"), line


def test_defaults_follow_the_rate_of_recordings(tmp_path, signal):
    samples = np.round(signal * 32768).astype("<i2")
    write_wave(tmp_path / "a.wav", samples, 44100)
    nalveo.write(tmp_path / "a.npz", nalveo.analyze(samples, 44100, hop_length=220))
    result = run(tmp_path, "a.npz", "a.wav")  # refused where the shift or alpha differ
    assert result.returncode == 0, result.stderr
    assert rows(result)["TOTAL"]["frames"] == 7999 // 220 + 1
    assert rows(result)["TOTAL"]["distortion"] == 0


def test_a_pair_without_third_track_leaves_the_others_their_figure(tmp_path, analysis):
    for side, shift in (("ref", 0), ("test", 100)):
        (tmp_path / side).mkdir()
        moved = analysis._replace(mvf=analysis.mvf + shift * (analysis.f0 > 0))
        nalveo.write(tmp_path / side / "a", moved)
        nalveo.write(tmp_path / side / "b", analysis)
    (tmp_path / "ref/b.mvf").unlink()
    result = run(tmp_path, "ref", "test")
    assert result.returncode == 0
    table = rows(result)
    assert table["b"]["mvf_rmse"] is None
    assert table["TOTAL"]["mvf_rmse"] == table["a"]["mvf_rmse"] == 100
    *_, pair, total = result.stderr.splitlines()
    assert pair.startswith("Note: b: ") and "no maximum voiced frequencies" in pair
    assert total.startswith("Note: ") and "1 of 2 pairs" in total
    document = json.loads(run(tmp_path, "ref", "test", "--json").stdout)
    assert document["pairs_with_mvf"] == 1


@pytest.mark.usefixtures("analysis")
def test_a_reader_may_leave(tmp_path):
    result = subprocess.run("nalveo16-compare a a | true; exit ${PIPESTATUS[0]}", cwd=tmp_path,
                            shell=True, executable="/bin/bash", text=True, check=False,
                            stderr=subprocess.PIPE)
    assert "Traceback" not in result.stderr and "BrokenPipe" not in result.stderr
