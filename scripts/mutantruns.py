"""Runs of the programs for mutants.py: recordings that bring out what speech brings out, many
options, and a digest of all that each run leaves."""

import array
import hashlib
import math
import os
import pathlib
import random
import resource
import shutil
import signal
import struct
import subprocess
import sys

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "examples"
MEMORY = 3 << 30  # bytes that a changed program may have


def limits():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def quiet(command, seconds=None, **options):
    """Runs a command in a session of its own: its status, None for a time-out, and its output."""
    with subprocess.Popen(
        command,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        start_new_session=True,
        **options,
    ) as process:
        try:
            output, _ = process.communicate(timeout=seconds)
            return process.returncode, output
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            output, _ = process.communicate()
            return None, output
        except BaseException:  # a changed program may never end by itself
            os.killpg(process.pid, signal.SIGKILL)
            raise


def executables(folder, pattern):
    return sorted(
        path for path in folder.glob(pattern) if path.is_file() and os.access(path, os.X_OK)
    )


def wavbytes(samples):
    data = array.array("h", (max(-32768, min(32767, round(s))) for s in samples)).tobytes()
    header = struct.pack("<4sI4s4sIHHIIHH", b"RIFF", 36 + len(data), b"WAVE", b"fmt ", 16, 1, 1,
                         16000, 32000, 2, 16)  # fmt: skip
    return header + struct.pack("<4sI", b"data", len(data)) + data


def buzz(seconds, f0, level=6000.0, noise=0.02, top=7500.0):
    """Harmonics of a gliding f0, falling with frequency, in noise."""
    randoms = random.Random(1)
    samples, phase = [], 0.0
    for n in range(round(seconds * 16000)):
        f = f0(n / 16000)
        phase += 2.0 * math.pi * f / 16000
        x = sum(math.cos(k * phase + k * k) / k for k in range(1, int(min(top, 7900.0) / f) + 1))
        samples.append(level * (x / 2 + noise * randoms.gauss(0.0, 1.0)))
    return samples


def recordings(folder):
    """Writes recordings of a second or less; their names."""
    silence = [0.0] * 2500
    randoms = random.Random(2)
    made = {
        "low": buzz(0.5, lambda t: 70 + 60 * t),
        "high": buzz(0.4, lambda t: 300 + 500 * t, noise=0.1, top=4000),
        "gap": buzz(0.2, lambda t: 120.0) + silence + buzz(0.15, lambda t: 210 - 300 * t) + silence,
        "noise": [3000.0 * randoms.gauss(0.0, 1.0) for _ in range(4000)],
        "quiet": buzz(0.3, lambda t: 140.0, level=20.0),
        "full": [32767.0 if n // 37 % 2 else -32768.0 for n in range(4000)],
        "one": [7.0],
    }
    for name, samples in made.items():
        (folder / f"{name}.wav").write_bytes(wavbytes(samples))
    whole = (EXAMPLES / "sample.wav").read_bytes()
    (folder / "speech.wav").write_bytes(
        wavbytes(struct.unpack(f"<{(len(whole) - 44) // 2}h", whole[44:])[8000:32000])
    )
    track = [math.log(130.0 + k % 50) if k % 20 else -1e10 for k in range(80)]
    (folder / "loaded").write_bytes(struct.pack("<80f", *track))
    return ["speech", *made]


OPTIONS = [
    "--ccmeth=0 --f0acc=1",
    "--ccmeth=1",
    "--ccmeth=2 --f0acc=3",
    "--ccmeth=3 --ccord=60",
    "--ccmeth=4 --alpha=-0.3 --zfill=0",
    "--ccmeth=2 --lframe=133 --ccord=24 --f0min=30 --f0max=900",
    "--ccmeth=1 --lframe=200 --alpha=0 --htsscale=0 --f0acc=5 --f0min=100 --f0max=250",
    "--ccmeth=0 --lframe=320 --ccord=0 --alpha=0.6 --f0min=12",
]
ARGUMENTS = [
    "",
    "x",
    "in.wav f c --lframe=0",
    "in.wav f c --ccord=512",
    "in.wav f c --alpha=1",
    "in.wav f c --f0min=0.5",
    "in.wav f c --lframe=010 --ccord=0x10",
    "in.wav f c v w",
    "in.wav f c --indlist=1-3(1",
    "in.wav f f",
    "in?.wav f? c? --indlist=1-3,7,9-11(2)",
    "speech.wav f c v --f0load=1 --f0acc=1",
]


THROUGHPYTHON = """
import hashlib, nalveo, numpy, sys
with open("speech.wav", "rb") as wave:
    x = numpy.frombuffer(wave.read()[44:], "<i2") / 32768
digest = hashlib.sha256()
for rate, options in [
    (16000, {}),
    (16000, dict(method="seevoc", alpha=0.3, order=24, hop_length=100)),
    (16000, dict(refine=3, scale="hts", f0_floor=100, f0_ceil=250)),
    (48000, dict(frame_period=4.0)),
    (8000, dict(f0_floor=-1)),
    (16000, dict(order=512)),
    (16000, dict(alpha=1.0)),
    (1, {}),
]:
    try:
        for track in nalveo.analyze(x, rate, **options)[:3]:
            digest.update(track.astype("<f4").tobytes())
    except Exception as error:
        digest.update(repr(error).encode())
analysis = nalveo.analyze(x, 16000)
levels = nalveo.envelope(analysis[1], 16000)
digest.update(levels.astype("<f4").tobytes())
print(digest.hexdigest())
"""


def outputs(folder, waves, tree, build):
    """What the programs of a build make of all this: a digest per run."""
    runs = [(f"{wave}.wav f c v {option}", True) for option in OPTIONS for wave in waves]
    runs += [(arguments, False) for arguments in ARGUMENTS]
    digests = {}
    for arguments, synthesise in runs:
        shutil.copy(folder / "loaded", folder / "f")
        digest = hashlib.sha256()
        commands = [[build / "nalveo16", *arguments.split()]]
        if synthesise and (build / "nalveo16-synth").exists():
            common = ("--lframe", "--alpha", "--hts")
            options = [option for option in arguments.split() if option.startswith(common)]
            commands.append([build / "nalveo16-synth", "f", "c", "v", "out.wav", *options])
        for command in commands:
            status, text = quiet(command, seconds=60, cwd=folder, preexec_fn=limits)
            digest.update(f"{status} {len(text)} ".encode() + text)
        for name in ("f", "c", "v", "out.wav"):
            if (folder / name).exists():
                digest.update(name.encode() + (folder / name).read_bytes())
                (folder / name).unlink()
        digests[arguments] = digest.hexdigest()
    if executables(build, "libnalveo.so*"):
        paths = {"PYTHONPATH": tree / "python", "LD_LIBRARY_PATH": build}
        environment = {**os.environ, **{name: str(path) for name, path in paths.items()}}
        digests["through Python"] = quiet(
            [sys.executable, "-c", THROUGHPYTHON], 60, cwd=folder, env=environment
        )
    return digests
