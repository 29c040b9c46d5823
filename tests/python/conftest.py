"""What the tests of the Python package share. They need nalveo16 on the path and nalveo importable,
as tests/tools/CMakeLists.txt sets up."""

import pathlib
import subprocess
import wave

import numpy as np
import pytest

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"


def same(a, b):
    """Whether tracks are equal to the bit, NaN to NaN."""
    return all(np.array_equal(x, y, equal_nan=True) for x, y in zip(a, b))


def read_wave(path):
    """Samples of a 16-bit recording, as int16."""
    with wave.open(str(path)) as file:
        return np.frombuffer(file.readframes(file.getnframes()), "<i2")


def write_wave(path, samples, rate=16000):
    """Writes int16 samples as the program takes them."""
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, rate, 0, "NONE", ""))
        file.writeframes(np.asarray(samples, "<i2").tobytes())


@pytest.fixture(scope="session")
def speech():
    """A second and a half of a recording, with 50 ms of digital silence in it, as int16."""
    samples = read_wave(EXAMPLES / "sample.wav")[8000:32000].copy()
    samples[12000:12800] = 0
    return samples


@pytest.fixture
def program(tmp_path):
    """Runs nalveo16 on int16 samples: program(samples, *options, lf0=None) gives the bytes of its
    three files."""
    def run(samples, *options, lf0=None):
        write_wave(tmp_path / "in.wav", samples)
        names = [str(tmp_path / name) for name in ("in.wav", "lf0", "mcc", "mvf")]
        if lf0 is not None:
            np.asarray(lf0, "<f4").tofile(names[1])
        done = subprocess.run(["nalveo16", *names, *options], stdout=subprocess.PIPE, text=True,
                              check=True)
        assert "Error" not in done.stdout
        return [pathlib.Path(name).read_bytes() for name in names[1:]]
    return run
