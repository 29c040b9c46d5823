"""Collections of recordings for the test of nalveo16-corpus, and ways to run it."""

import csv
import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest
import wave

EXAMPLES = os.path.join(os.path.dirname(__file__), "../../examples")
KINDS = ("lf0", "mcc", "mvf")
WORK = ".nalveo16-corpus"
with wave.open(os.path.join(EXAMPLES, "sample.wav")) as sample:
    SPEECH = sample.readframes(sample.getnframes())

STRANGE = ("with space/a b.wav", "line\nbreak.wav", "ünï/cødé.wav", "-dash.wav", "{}.wav",
           "quote'\"$(x)`.wav", "%d*?.wav", "CAPS.WAV", "two.dots.wav", ".hidden.wav", "a\\nb.wav",
           "return\r.wav", os.fsdecode(b"latin\xe9.wav"))
# What is wrong with a file, and what the list of failures says about it. To a program that expands
# wildcards, two of the names mean other files, too.
BAD = {
    "bad/rat[e].wav": "It has 2 channels.",
    "bad/rate.wav": "It has 44100 Hz.",
    "bad/b*.wav": "It has 8000 Hz, 2 channels.",
    "bad/bits.wav": "It has 24 bits.",
    "bad/chunk.wav": "It has a header with more in it than the plain one.",
    "bad/cut.wav": "It ends before the samples that its header promises.",
    "bad/text\nfile.wav": "sox cannot read it either: RIFF header not found",
    "bad/empty.wav": "The file is empty.",
}
MENDED = [name for name in BAD if not re.search("cut|text|empty", name)]


def write(path, nsamples, start=0, channels=1, rate=16000, width=2, hush=0):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    data = SPEECH[2 * start:2 * (start + nsamples)]
    data = data[:2002] + bytes(2 * hush) + data[2002 + 2 * hush:]
    if width == 3:
        data = b"".join(b"\0" + data[i:i + 2] for i in range(0, len(data), 2))
    with wave.open(path, "wb") as file:
        file.setparams((channels, width, rate, 0, "NONE", ""))
        file.writeframes(data)


def text(path, content):
    with open(path, "w", encoding="utf-8") as file:
        file.write(content)


def makegood(folder, count):
    names = list(STRANGE) + [f"voice{i % 7}/utt{i:03}.wav" for i in range(count - len(STRANGE))]
    for number, name in enumerate(names):
        write(os.path.join(folder, name), 1500 + 13 * number, 150 * number % 30000)
    return names


def makebad(folder):
    bad = os.path.join(folder, "bad")
    write(bad + "/rat[e].wav", 4000, 20000, channels=2)
    write(bad + "/rate.wav", 4000, 20000, rate=44100)
    write(bad + "/b*.wav", 4000, 20000, channels=2, rate=8000)
    write(bad + "/bits.wav", 4000, 20000, width=3)
    for name, change in (("chunk", lambda b: b[:36] + b"LIST\4\0\0\0note" + b[36:]),
                         ("cut", lambda b: b[:3000])):
        path = f"{bad}/{name}.wav"
        write(path, 4000, 20000)
        with open(path, "rb") as file:
            content = change(file.read())
        with open(path, "wb") as file:
            file.write(content)
    text(bad + "/text\nfile.wav", "no recording at all")
    text(bad + "/empty.wav", "")


def results(folder):
    """Contents of all result files by name; unfinished ones would be among them."""
    found = {}
    for place, folders, files in os.walk(folder):
        if WORK in folders:
            folders.remove(WORK)
        for name in files:
            path = os.path.join(place, name)
            if name not in ("nalveo16-corpus.tsv", "nalveo16-corpus.json"):
                try:
                    with open(path, "rb") as file:
                        found[os.path.relpath(path, folder)] = file.read()
                except FileNotFoundError:
                    pass  # an unfinished one, which has got its name meanwhile
    return found


def analyse(wav, stem, folder, *options):
    os.makedirs(os.path.dirname(os.path.join(folder, stem)), exist_ok=True)
    names = [os.path.join(folder, f"{stem}.{kind}") for kind in KINDS]
    return subprocess.run(["nalveo16", wav, *names, "--ccord=20", *options], check=True,
                          stdout=subprocess.PIPE).stdout


class Corpora(unittest.TestCase):
    """A test with a folder for recordings and one for results."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="nalveo16 corpus ")
        self.addCleanup(shutil.rmtree, self.folder)
        self.input = os.path.join(self.folder, "in")
        self.output = os.path.join(self.folder, "out")

    def command(self, *options):
        return ["nalveo16-corpus", self.input, self.output, *options, "--", "--ccord=20"]

    def run_corpus(self, *options, **more):
        run = subprocess.run(self.command(*options), stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, check=False, **more)
        return run.returncode, run.stdout.decode(errors="surrogateescape")

    def run_patched(self, code, *options):
        """The same with a part of the program replaced."""
        code = f"""
import importlib.machinery, os, sys
importlib.machinery.SourceFileLoader("tool", {shutil.which("nalveo16-corpus")!r}).load_module()
from nalveocorpus import commandline, recordings, results, state
{code}
sys.argv[1:] = {self.command(*options)[1:]!r}
sys.exit(commandline.main(""))
"""
        run = subprocess.run(["/usr/bin/python3", "-W", "ignore", "-c", code], text=True,
                             stdout=subprocess.PIPE, check=False)
        return run.returncode, run.stdout

    def table(self):
        with open(self.output + "/nalveo16-corpus.tsv", encoding="utf-8",
                  errors="surrogateescape", newline="") as file:
            rows = list(csv.DictReader(file, delimiter="\t", quoting=csv.QUOTE_NONE))
        return {row["file"]: row for row in rows}

    def interrupt(self, kill):
        """Starts a run, waits for a third of its results and kills it."""
        with subprocess.Popen(self.command("-j", "2"), start_new_session=True,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
            while process.poll() is None and len(results(self.output)) < 100:
                time.sleep(0.002)
            self.assertIsNone(process.poll(), "the run was over before it could be killed")
            kill(process.pid)
        return process.returncode
