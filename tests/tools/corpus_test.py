#!/usr/bin/python3
"""nalveo16-corpus: whole results and nothing else, through failures, kills and resumption."""

import concurrent.futures
import csv
import json
import os
import re
import resource
import shlex
import shutil
import signal
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
           os.fsdecode(b"latin\xe9.wav"))
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
    with open(bad + "/text\nfile.wav", "w", encoding="ascii") as file:
        file.write("no recording at all")
    open(bad + "/empty.wav", "wb").close()


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


class CorpusTest(unittest.TestCase):
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

    def run_patched(self, code):
        """The same with a part of the program replaced."""
        code = f"""
import importlib.machinery, os, sys
importlib.machinery.SourceFileLoader("tool", {shutil.which("nalveo16-corpus")!r}).load_module()
from nalveocorpus import commandline, recordings, state
{code}
sys.argv[1:] = {self.command()[1:]!r}
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

    def test_killed_resumed_and_mended(self):
        good = makegood(self.input, 400)
        makebad(self.input)
        expected = os.path.join(self.folder, "expected")
        for name in good:
            self.assertEqual(analyse(os.path.join(self.input, name), name[:-4], expected), b"")
        expected_good = results(expected)
        self.assertEqual(len(expected_good), 3 * len(good))

        # No warning at all, then a polite one: what has a name must be whole, and must stay.
        for kill, status in ((lambda pid: os.killpg(pid, signal.SIGKILL), -signal.SIGKILL),
                             (lambda pid: os.kill(pid, signal.SIGTERM), 130)):
            shutil.rmtree(self.output, ignore_errors=True)
            self.assertEqual(self.interrupt(kill), status)
            before = {name: content for name, content in results(self.output).items()
                      if f"{WORK}." not in name}
            if status == 130:
                # The table is that of what was done.
                self.assertGreaterEqual(len(self.table()), len(before) // 3)
                self.assertEqual(before, results(self.output), "unfinished files are left")
            self.assertGreaterEqual(len(before), 90)
            self.assertLess(len(before), 3 * len(good))
            for name, content in before.items():
                self.assertEqual(content, expected_good[name], name)
            finished = {name: os.stat(os.path.join(self.output, name)).st_ino for name in
                        before if name.endswith(".mcc")}
            status, said = self.run_corpus()
            self.assertEqual(status, 1, said)
            self.assertEqual(results(self.output), expected_good)
            for name, inode in finished.items():
                self.assertEqual(os.stat(os.path.join(self.output, name)).st_ino, inode,
                                 f"{name} was done again")
        self.assertIn(f"{len(good) - len(finished)} analysed, {len(finished)} finished before, "
                      f"{len(BAD)} failed", said)

        # The table knows of both runs, and of the failures.
        rows = self.table()
        self.assertEqual(len(rows), len(good) + len(BAD) + 1)
        plain = rows[good[-1]]
        self.assertAlmostEqual(float(plain["seconds"]), (1500 + 13 * 399) / 16000, delta=1e-4)
        self.assertEqual((plain["status"], plain["rate"], plain["converted"]),
                         ("analysed", "16000", "no"))
        self.assertEqual(rows["bad/cut.wav"]["status"], "failed")
        self.assertEqual(rows["(all)"]["status"], f"{len(good)} analysed, {len(BAD)} failed")
        with open(self.output + "/nalveo16-corpus.json", encoding="ascii") as file:
            twin = json.load(file)
        self.assertEqual([row["file"] for row in twin["files"]],
                         sorted([*good, *BAD], key=os.fsencode))

        # Every failure with the reason and, if there is one, the remedy.
        self.assertEqual(said.count("FAILED"), len(BAD))
        for why in BAD.values():
            self.assertIn(why, said)
        remedies = re.findall(r"^    (sox -R -G .*)$", said, re.M)
        self.assertEqual(len(remedies), len(MENDED))
        for line in remedies:
            subprocess.run(["bash", "-c", line], check=True)
        for name in MENDED:
            stem = os.path.join(self.input, name[:-4])
            self.assertEqual(analyse(stem + ".16k.wav", name[:-4], expected), b"")
            os.remove(stem + ".16k.wav")

        subprocess.run(["sox", os.path.join(self.input, good[0]),
                        os.path.join(self.input, "lossless.flac")], check=True)
        for kind in KINDS:
            shutil.copy(os.path.join(expected, f"{good[0][:-4]}.{kind}"),
                        os.path.join(expected, f"lossless.{kind}"))
        subprocess.run(["sox", os.path.join(EXAMPLES, "sample.wav"), self.input + "/half.flac"],
                       check=True)
        os.truncate(self.input + "/half.flac", 20000)
        status, said = self.run_corpus("--convert")
        self.assertEqual(status, 1)
        self.assertRegex(said, "FAILED half.flac\n    sox FAIL ")
        self.assertIn(f"{len(MENDED) + 1} analysed, {len(good)} finished before, "
                      f"{len(BAD) - len(MENDED) + 1} failed", said)
        self.assertIn(f"Converted by sox: {len(MENDED) + 1}\n", said)
        self.assertIn("bad/b*.wav\n    Widened from 8000 Hz: there is nothing above 4000 Hz.", said)
        self.assertEqual(results(self.output), results(expected))

    def test_stale(self):
        """Results of a recording that was, or that are not what they were, are not finished."""
        write(self.input + "/a.wav", 4000)
        write(self.input + "/b.wav", 4000, 8000)
        self.assertEqual(self.run_corpus()[0], 0)
        whole = results(self.output)

        def again(finished):
            status, said = self.run_corpus()
            self.assertEqual(status, 0, said)
            self.assertIn(f"{2 - finished} analysed, {finished} finished before", said)
        again(2)
        # Another recording with an older date, as cp -p or rsync -a leave it.
        write(self.input + "/a.wav", 4000, 20000)
        os.utime(self.input + "/a.wav", (1e9, 1e9))
        again(1)
        self.assertNotEqual(results(self.output)["a.mcc"], whole["a.mcc"])
        # The same date, another length.
        write(self.input + "/a.wav", 5000)
        os.utime(self.input + "/a.wav", (1e9, 1e9))
        again(1)
        again(2)
        # A result that was cut, with its date kept; one that was removed; one that was copied here.
        stat = os.stat(self.output + "/b.lf0")
        os.truncate(self.output + "/b.lf0", 100)
        os.utime(self.output + "/b.lf0", ns=(stat.st_atime_ns, stat.st_mtime_ns))
        again(1)
        os.remove(self.output + "/b.mvf")
        again(1)
        os.utime(self.output + "/b.mcc")
        again(1)
        self.assertEqual(results(self.output)["b.lf0"], whole["b.lf0"])
        # A recording that is written to whenever it is read.
        self.output += " changing"
        status, said = self.run_patched("""
read = recordings.read_plain
def touched(path):
    samples = read(path)
    os.utime(path)
    return samples
recordings.read_plain = touched
""")
        self.assertEqual(status, 1)
        self.assertEqual(said.count("It changes while it is analysed."), 2)
        self.assertEqual(results(self.output), {})

    def test_power_failure(self):
        """What may not have reached the disk before the machine started anew is done again."""
        restarted = "state.start_mark = lambda: 'start {}'"
        write(self.input + "/a.wav", 4000)
        self.assertEqual(self.run_corpus()[0], 0)
        write(self.input + "/b.wav", 4000, 8000)
        # The disk has not got that yet.
        self.run_patched("state.State.save = lambda self, _: self.append({'safe': 0})")
        whole = results(self.output)
        stat = os.stat(self.output + "/b.mcc")
        with open(self.output + "/b.mcc", "wb") as file:
            file.write(bytes(stat.st_size))
        os.utime(self.output + "/b.mcc", ns=(stat.st_atime_ns, stat.st_mtime_ns))
        for number, counts in enumerate(("1 analysed, 1 finished", "0 analysed, 2 finished")):
            self.assertIn(counts, self.run_patched(restarted.format(number))[1])
            self.assertEqual(results(self.output), whole)

    def test_replaced(self):
        """The table has the newest line of all journals; what fails has no results left."""
        lengths = {"a": 4000, "b": 4000}

        def replace(name, nsamples):
            lengths[name] = nsamples
            write(f"{self.input}/{name}.wav", nsamples)
            os.utime(f"{self.input}/{name}.wav", (nsamples, nsamples))
        for name, options in ("a", ()), ("b", ()), ("a", ("--slice", "1/1")), ("b", ()):
            replace(name, lengths[name] + 800)
            self.assertEqual(self.run_corpus(*options)[0], 0)
        rows = self.table()
        for name, nsamples in lengths.items():
            self.assertEqual(float(rows[name + ".wav"]["seconds"]), nsamples / 16000)
        with open(self.input + "/a.wav", "w", encoding="ascii") as file:
            file.write("no recording at all")
        self.assertEqual(self.run_corpus()[0], 1)
        self.assertEqual(sorted(results(self.output)), ["b.lf0", "b.mcc", "b.mvf"])
        # A journal that somebody has been at.
        with open(self.output + f"/{WORK}/journal/whole.jsonl", "w", encoding="ascii") as file:
            file.write("[]\n")
        status, said = self.run_corpus()
        self.assertEqual(status, 2)
        self.assertRegex(said, r"^nalveo16-corpus: .*/whole.jsonl is damaged at byte 0; remove it")

    def test_full_disk_and_other_file_systems(self):
        """A write that fails leaves no result; one on another file system is as good."""
        write(self.input + "/there/a.wav", 4000)
        write(self.input + "/long.wav", len(SPEECH) // 2)
        other = tempfile.mkdtemp(dir="/dev/shm", prefix="nalveo16-corpus-")
        self.addCleanup(shutil.rmtree, other)
        os.mkdir(self.output)
        os.symlink(other, self.output + "/there")

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000))
        status, said = self.run_corpus(preexec_fn=limit)
        self.assertEqual(status, 1)
        self.assertIn("FAILED long.wav\n    File too large", said)
        self.assertIn("1 analysed, 0 finished before, 1 failed", said)
        self.assertEqual({name for name in results(self.output) if "long" in name}, set())
        self.assertEqual(sorted(os.listdir(other)), ["a.lf0", "a.mcc", "a.mvf"])
        self.assertEqual(self.run_corpus()[0], 0)
        # Where a folder of results cannot be made.
        shutil.rmtree(self.output)
        os.mkdir(self.output)
        open(self.output + "/there", "wb").close()
        status, said = self.run_corpus()
        self.assertEqual(status, 1)
        self.assertIn("FAILED there/a.wav\n", said)

    def test_any_recording(self):
        sample = os.path.join(EXAMPLES, "sample.wav")
        os.makedirs(self.input)

        def sox(*arguments):
            subprocess.run(["sox", "-R", *arguments], check=True, cwd=self.input)
        sox(sample, "wide.ogg", "rate", "22050")
        sox(sample, "left.wav", "remix", "1", "0")
        sox("-D", sample, "rate.wav", "rate", "24000")
        sox("-n", "-r", "44100", "-b", "16", "loud.wav", "synth", "1", "square", "441",
            "gain", "-n")
        with open(self.input + "/notes.txt", "w", encoding="ascii") as file:
            file.write("none")
        status, said = self.run_corpus()
        self.assertEqual(status, 1)
        self.assertIn("Passed over: 1 .ogg, 1 .txt. --convert would take 1 of them.", said)
        status, said = self.run_corpus("--convert")
        self.assertEqual(status, 0, said)
        self.assertRegex(said, r"loud.wav\n(    .*\n)*    Lowered by 1\.\d+ dB, level and c")
        self.assertEqual(said.count("Lowered"), 1)
        self.assertIn("left.wav\n    Channel 2 is silent; --channel takes another.", said)
        rows = self.table()
        left = rows["left.wav"]
        self.assertEqual((left["channels"], left["converted"]), ("2", "yes"))
        self.assertEqual(rows["wide.ogg"]["rate"], "22050")
        loud = float(rows["rate.wav"]["level_db"])
        self.assertAlmostEqual(float(left["level_db"]), loud - 6.02, delta=0.1)
        # As many equal samples as the analyser warns of, and one fewer. Five files are named.
        for number in range(160, 167):
            name = f"{number}.wav"
            write(self.input + "/" + name, 3000 + number, hush=number)
            warned = analyse(self.input + "/" + name, name[:-4], self.folder)
            self.assertEqual(b"zeros" in warned, number > 160)
        said = self.run_corpus("--convert")[1]
        self.assertRegex(said, r"\A(warned 16[1-5].wav\n    Zeros have been filled with .*\n){5}"
                         r"warned 1 more, which the table lists\n    Zeros .*\n.*\n7 analysed")
        # One channel as it is: the samples of the recording itself.
        for name in "wide.ogg", "rate.wav", "loud.wav", *(f"{n}.wav" for n in range(160, 167)):
            os.remove(os.path.join(self.input, name))
        shutil.rmtree(self.output)
        self.assertEqual(self.run_corpus("--channel", "1")[0], 0)
        analyse(sample, "left", self.folder + "/expected")
        self.assertEqual(results(self.output), results(self.folder + "/expected"))
        status, said = self.run_corpus("--channel", "1", "--layout", "kinds")
        self.assertEqual(status, 2)
        self.assertIn("holds results of other settings (layout together)", said)

    def test_layouts_and_rates(self):
        sample = os.path.join(EXAMPLES, "sample.wav")
        os.makedirs(self.input + "/a")
        subprocess.run(["sox", "-R", sample, self.input + "/a/x.wav", "rate", "24000"], check=True)
        kinds, npz = self.folder + "/kinds", self.folder + "/npz"
        for output, options in (kinds, ["--layout", "kinds"]), (npz, ["--npz"]):
            subprocess.run(["nalveo16-corpus", self.input, output, "--rate", "native", *options],
                           check=True, stdout=subprocess.DEVNULL)
        self.assertEqual(set(results(kinds)), {"lf0/a/x.lf0", "mgc/a/x.mgc", "mvf/a/x.mvf"})
        code = """
import sys
import numpy as np
npz = np.load(sys.argv[1] + "/a/x.npz")
lf0 = np.fromfile(sys.argv[2] + "/lf0/a/x.lf0", "<f4")
f0 = np.where(lf0 > -1e9, np.exp(lf0), 0)
assert npz["fs"] == 24000 and npz["alpha"] == 0.48 and npz["hop_length"].tolist() == [120, 1]
assert np.allclose(npz["f0"], f0, rtol=1e-6) and 558 <= len(f0) <= 559
assert np.array_equal(npz["mcep"].astype("<f4"),
                      np.fromfile(sys.argv[2] + "/mgc/a/x.mgc", "<f4").reshape(-1, 40))
assert 110 < np.median(f0[f0 > 0]) < 120
"""
        subprocess.run(["/usr/bin/python3", "-c", code, npz, kinds], check=True)

    def test_slices_and_hosts(self):
        self.input += " {} {.}{#}"  # to GNU parallel, these are not just names
        makegood(self.input, 40)
        # Another machine: this one, by a stand-in for ssh. A user's own settings of GNU parallel
        # have no say.
        remote = tempfile.mkdtemp(prefix="nalveo16-corpus-")
        self.addCleanup(shutil.rmtree, remote)
        with open(remote + "/ssh", "w", encoding="ascii") as file:
            # Before the first slice begins, nobody else may start.
            again = shlex.join(self.command())
            file.write(f'#!/bin/bash\n{again} 2>>"${{0%/*}}/refused"\n'
                       'shift\n[[ $1 != -- ]] || shift\nexec bash -c "$*"\n')
        os.chmod(remote + "/ssh", 0o755)
        os.mkdir(remote + "/.parallel")
        with open(remote + "/.parallel/config", "w", encoding="ascii") as file:
            file.write("--dry-run\n")
        environment = {**os.environ, "HOME": remote, "PARALLEL": "--dry-run"}
        # What another machine, out of reach, was to do is done by the one that is there.
        status, said = self.run_corpus("--hosts", f"2/{remote}/ssh there,{remote}/none there",
                                       env=environment)
        self.assertEqual(status, 0, said)
        self.assertIn("40 finished, 0 failed", said)
        with open(remote + "/refused", encoding="utf-8") as file:
            self.assertIn("with --hosts", file.readline())
        whole = results(self.output)
        self.assertEqual(len(whole), 120)
        rows = self.table()
        shutil.rmtree(self.output)
        with concurrent.futures.ThreadPoolExecutor() as pool:  # they start at the same time
            runs = list(pool.map(lambda part: self.run_corpus("--slice", part + "/3"), "123"))
        for status, said in runs:
            self.assertEqual(status, 0, said)
            analysed = int(re.search(r"^(\d+) analysed", said, re.M)[1])
            self.assertLess(analysed, len(whole) / 3 / 2)
        self.assertEqual(results(self.output), whole)
        self.assertEqual(self.table(), rows)

    def test_one_at_a_time(self):
        """Two runs on one folder: one is refused, by its settings or by the lock."""
        for number in range(100):
            write(f"{self.input}/{number}.wav", 20000, 200 * number)
        commands = [[*self.command(), "--lframe=160"], [*self.command(), "--lframe=120"]]
        processes = [subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                      text=True) for command in commands]
        said = [process.communicate()[0] for process in processes]
        self.assertEqual(sorted(process.returncode for process in processes), [0, 2], said)
        self.assertIn("holds results of other settings (hop_length 1", "".join(said))
        shutil.rmtree(self.output)
        with subprocess.Popen(self.command(), stdout=subprocess.DEVNULL) as first:
            while not results(self.output):
                time.sleep(0.002)
            status, said = self.run_corpus("--slice", "1/2")
            self.assertIn(f"another run is at work on {os.path.realpath(self.output)}: "
                          f"process {first.pid} on ", said)
            self.assertEqual(status, 2)
        self.assertEqual(first.returncode, 0)
        # Slices: of another count none may start, and the one that is named is at work still.
        shutil.rmtree(self.output)
        with subprocess.Popen(self.command("--slice", "1/2"), stdout=subprocess.DEVNULL) as first:
            while not results(self.output):
                time.sleep(0.002)
            os.kill(first.pid, signal.SIGSTOP)
            try:
                self.assertEqual(self.run_corpus("--slice", "2/2")[0], 0)
                for options in ("--slice", "1/1"), ("--slice", "3/3"), ():
                    status, said = self.run_corpus(*options)
                    self.assertEqual(status, 2)
                    self.assertRegex(said, f"process {first.pid} on .*, slice 1/2")
            finally:
                os.kill(first.pid, signal.SIGCONT)
        self.assertEqual(first.returncode, 0)

    def test_what_cannot_be_found(self):
        """A link to nothing or to itself is a failure; a date in the future is none."""
        write(self.input + "/a.wav", 2000)
        os.utime(self.input + "/a.wav", (4e9, 4e9))
        os.symlink("none", self.input + "/lost.wav")
        os.symlink("loop.wav", self.input + "/loop.wav")
        os.symlink(".", self.input + "/circle")
        for counts in "1 analysed, 0 finished before", "0 analysed, 1 finished before":
            status, said = self.run_corpus()
            self.assertEqual(status, 1)
            self.assertRegex(said, "FAILED to read .*loop.wav: Too many levels of symbolic links")
            self.assertRegex(said, "FAILED to read .*circle: it leads back")
            self.assertIn("FAILED lost.wav\n    The link leads nowhere.", said)
            self.assertIn(counts + ", 3 failed", said)

    def test_refusals(self):
        write(self.input + "/a.wav", 2000)
        os.mkdir(self.input + "/empty")
        fine = ["nalveo16-corpus", self.input, self.output]
        subprocess.run([*fine, "--", "--zfill=100", "--F0MIN=70"], check=True,
                       stdout=subprocess.DEVNULL)
        # Defaults are spelled out, and the order is nothing.
        subprocess.run([*fine, "--", "--f0min=70", "--ccord=39", "--zfill=100"], check=True,
                       stdout=subprocess.DEVNULL)
        write(self.input + "/b/x.wav", 2000)
        for command, why in (
                (fine, "holds results of other settings (f0_floor 70.0, zfill 100)"),
                ([*fine, "--", "--ccord=x"], "'x' is no whole number"),
                ([*fine, "--", "--ccord=512"], "order is 512; it must be a whole number from 0"),
                ([*fine, "--", "--f0load=1"], "--f0load does not go with a corpus"),
                ([*fine, "--ccord=20"], "options of nalveo16 stand behind --"),
                ([*fine, "--slice", "4/3"], "must be between 1/3 and 3/3"),
                ([*fine, "--slice", "1/18446744073709551617"], "must be as in 3/8"),
                ([*fine, "-j", "0"], "must be a number above 0"),
                ([*fine[:2], "/dev/null/none"], "could not create"),
                ([fine[0], self.input + "/empty", self.output], "there is no recording"),
                ([fine[0], self.input + "/none", self.output], "there is no folder")):
            run = subprocess.run(command, stderr=subprocess.PIPE, stdout=subprocess.PIPE,
                                 check=False)
            self.assertEqual((run.returncode, run.stdout), (2, b""), command)
            self.assertIn(why, run.stderr.decode())
        write(self.input + "/a.WAV", 2000)
        run = subprocess.run(fine, stderr=subprocess.PIPE, check=False)
        self.assertEqual(run.returncode, 2)
        self.assertIn(b"a.WAV and a.wav would have the same results", run.stderr)


if __name__ == "__main__":
    unittest.main()
