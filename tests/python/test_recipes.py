"""The recipes in examples/recipes: what they refuse, in one line each."""

import pathlib
import subprocess
import sys

import numpy as np
import pytest

import nalveo

RECIPES = pathlib.Path(__file__).parents[2] / "examples/recipes"
SAMPLE = RECIPES.parent / "sample.wav"
sys.path.append(str(RECIPES))
sys.dont_write_bytecode = True

import frames  # noqa: E402


@pytest.fixture
def folders(tmp_path):
    for name in "recordings", "features":
        (tmp_path / name).mkdir()
    (tmp_path / "recordings/a.wav").write_bytes(SAMPLE.read_bytes())
    nalveo.write(tmp_path / "features/a.npz", nalveo.analyze(np.zeros(44580), 16000))
    return tmp_path / "recordings", tmp_path / "features"


def test_frames_take_recordings_only(folders):
    recordings, features = folders
    for name in "a.txt", "a.lab", "a":
        (recordings / name).write_text("x")
    data = frames.Frames(recordings, features)
    assert data.names == ["a"] and len(data[0]["f0"]) == 1 + 61437 // 256
    (recordings / "a.flac").write_text("x")
    with pytest.raises(ValueError, match="keep one of them"):
        frames.Frames(recordings, features)
    with pytest.raises(ValueError, match="nalveo16-corpus"):
        frames.Frames(features, features)


def test_features_refuse_labels_in_a_line(folders, tmp_path):
    recordings, _ = folders
    labels = tmp_path / "labels"

    def refusal():
        run = subprocess.run([RECIPES / "features.py", "make", recordings, labels,
                              tmp_path / "out"],
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        lines = run.stderr.splitlines() or [""]
        assert "Traceback" not in run.stderr
        return run.returncode, lines[-1]

    assert refusal() == (1, f"Error: there is no folder {labels}.")
    labels.mkdir()
    (labels / "notes.txt").write_text("x")
    assert refusal() == (1, f"Error: {labels} holds no labels (NAME.lab).")
    for text in "", "sil\n", "0 end sil\n":
        (labels / "a.lab").write_text(text)
        code, line = refusal()
        assert code == 1 and "a.lab does not end with a line of start, end and label" in line
    (labels / "a.lab").write_text("0 20000000 speech\n")
    assert refusal()[0] == 0
    (labels / "b.lab").write_text("0 20000000 speech\n")
    code, line = refusal()
    assert code == 1 and "b.lab has no recording" in line
