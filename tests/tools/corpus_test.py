#!/usr/bin/python3
"""nalveo16-corpus: whole results and nothing else, through failures, kills and resumption."""

import concurrent.futures
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
import wave

EXAMPLES = os.path.join(os.path.dirname(__file__), "../../examples")
KINDS = ("lf0", "mcc", "mvf")
with wave.open(os.path.join(EXAMPLES, "sample.wav")) as sample:
    SPEECH = sample.readframes(sample.getnframes())

STRANGE = ("with space/a b.wav", "line\nbreak.wav", "ünï/cødé.wav", "-dash.wav", "{}.wav",
           "quote'\"$(x)`.wav", "%d*?.wav", "CAPS.WAV", "two.dots.wav", ".hidden.wav", "a\\nb.wav")
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


def write(path, nsamples, start=0, channels=1, rate=16000, width=2):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    data = SPEECH[2 * start:2 * (start + nsamples)]
    if width == 3:
        data = b"".join(b"\0" + data[i:i + 2] for i in range(0, len(data), 2))
    with wave.open(path, "wb") as file:
        file.setparams((channels, width, rate, 0, "NONE", ""))
        file.writeframes(data)


def makegood(folder, count):
    names = list(STRANGE) + [f"voice{i % 7}/utt{i:03}.wav" for i in range(count - len(STRANGE))]
    for number, name in enumerate(names):
        write(os.path.join(folder, name), 1500 + 13 * number, 150 * number)
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


def seconds(path):
    with wave.open(path) as file:
        return file.getnframes() / file.getframerate()


def results(folder):
    """Contents of all result files by name."""
    found = {}
    for place, folders, files in os.walk(folder):
        if ".nalveo16-corpus" in folders:
            folders.remove(".nalveo16-corpus")
        for name in files:
            path = os.path.join(place, name)
            with open(path, "rb") as file:
                found[os.path.relpath(path, folder)] = file.read()
    return found


def analyse(wav, stem, folder):
    os.makedirs(os.path.dirname(os.path.join(folder, stem)), exist_ok=True)
    names = [os.path.join(folder, f"{stem}.{kind}") for kind in KINDS]
    return subprocess.run(["nalveo16", wav, *names, "--ccord=20"], stdout=subprocess.PIPE,
                          check=True).stdout


class CorpusTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="nalveo16 corpus ")
        self.addCleanup(shutil.rmtree, self.folder)
        self.input = os.path.join(self.folder, "in")
        self.output = os.path.join(self.folder, "out")

    def command(self, *options):
        return ["nalveo16-corpus", self.input, self.output, *options, "--", "--ccord=20"]

    def run_corpus(self, *options):
        run = subprocess.run(self.command(*options), stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, check=False)
        return run.returncode, run.stdout.decode()

    def interrupt(self, kill):
        """Starts a run, waits for a third of its results and kills it."""
        with subprocess.Popen(self.command("-j", "2"), start_new_session=True,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
            while process.poll() is None and len(results(self.output)) < 200:
                time.sleep(0.01)
            self.assertIsNone(process.poll(), "the run was over before it could be killed")
            kill(process.pid)
        return process.returncode

    def test_killed_resumed_and_mended(self):
        good = makegood(self.input, 200 - len(BAD))
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
            time.sleep(1)  # a job that survived may still finish
            before = results(self.output)
            self.assertGreaterEqual(len(before), 200)
            self.assertLess(len(before), 3 * len(good))
            for name, content in before.items():
                self.assertEqual(content, expected_good[name], name)
            finished = {name: os.stat(os.path.join(self.output, name)).st_mtime_ns for name in
                        before if name.endswith(".mcc")}
            status, said = self.run_corpus()
            self.assertEqual(status, 1, said)
            self.assertEqual(results(self.output), expected_good)
            for name, written in finished.items():
                stat = os.stat(os.path.join(self.output, name))
                self.assertEqual(stat.st_mtime_ns, written, f"{name} was done again")
        self.assertIn(f"{len(good) - len(finished)} analysed, {len(finished)} finished before, "
                      f"{len(BAD)} failed", said)

        # Every failure with the analyser's words, the reason and, if there is one, the remedy.
        self.assertEqual(said.count("FAILED"), len(BAD))
        for name, why in BAD.items():
            path = os.path.join(self.input, name)
            self.assertIn(f"Error: could not open {path}.".replace("\n", "\n    "), said)
            self.assertIn(why, said)
        remedies = re.findall(r"^    (sox -R -G .*)$", said, re.M)
        self.assertEqual(len(remedies), len(MENDED))
        for line in remedies:
            subprocess.run(["bash", "-c", line], check=True)
        for name in MENDED:
            stem = os.path.join(self.input, name[:-4])
            self.assertAlmostEqual(seconds(stem + ".16k.wav"), seconds(stem + ".wav"), delta=1e-3)
            self.assertEqual(analyse(stem + ".16k.wav", name[:-4], expected), b"")
            os.remove(stem + ".16k.wav")
        # A recording that is newer than its results is not finished.
        os.utime(os.path.join(self.input, good[-1]))

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
        self.assertRegex(said, "FAILED half.flac\n    Error: could not open .*\n    sox FAIL ")
        self.assertIn(f"{len(MENDED) + 2} analysed, {len(good) - 1} finished before, "
                      f"{len(BAD) - len(MENDED) + 1} failed", said)
        self.assertEqual(results(self.output), results(expected))

    def test_analyser_that_dies(self):
        """Half a result is none, whether the analyser is killed, crashes or keeps silent."""
        tool = shutil.copy(shutil.which("nalveo16-corpus"), self.folder)
        with open(self.folder + "/nalveo16", "w", encoding="ascii") as file:
            file.write("""#!/bin/bash
echo half >"$2"; echo half >"$3"
case $1 in
*crash.wav) kill -SEGV $$ ;;
*silent.wav) exit 0 ;;
*slow.wav) touch "${0%/*}/begun"; sleep 60 ;;
esac
""")
        os.chmod(self.folder + "/nalveo16", 0o755)
        write(self.input + "/crash.wav", 100)
        write(self.input + "/silent.wav", 100)
        command = [tool, self.input, self.output]
        run = subprocess.run(command, stdout=subprocess.PIPE, check=False, text=True)
        self.assertEqual(run.returncode, 1)
        self.assertIn("FAILED crash.wav\n    nalveo16 ended with status 139.", run.stdout)
        self.assertIn("FAILED silent.wav\n    no results, and no message", run.stdout)
        write(self.input + "/slow.wav", 100)
        with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
            while not os.path.exists(self.folder + "/begun"):
                time.sleep(0.01)
            process.terminate()
            self.assertEqual(process.wait(timeout=50), 130)
        self.assertEqual(results(self.output), {})

    def test_slices_and_hosts(self):
        makegood(self.input, 40)
        # Another machine: this one, by a stand-in for ssh that keeps the environment back.
        remote = tempfile.mkdtemp(prefix="nalveo16-corpus-")
        self.addCleanup(shutil.rmtree, remote)
        with open(remote + "/ssh", "w", encoding="ascii") as file:
            file.write('#!/bin/bash\necho "$1" >>"${0%/*}/used"\nshift\n'
                       '[[ $1 != -- ]] || shift\nexec env -u NALVEO16_CORPUS bash -c "$*"\n')
        os.chmod(remote + "/ssh", 0o755)
        status, said = self.run_corpus("--hosts", f"1/{remote}/ssh there")
        self.assertEqual(status, 0, said)
        self.assertTrue(os.path.exists(remote + "/used"))
        whole = results(self.output)
        shutil.rmtree(self.output)
        with concurrent.futures.ThreadPoolExecutor() as pool:  # they start at the same time
            runs = list(pool.map(lambda part: self.run_corpus("--slice", part + "/3"), "123"))
        for status, said in runs:
            self.assertEqual(status, 0, said)
            analysed = int(re.search(r"^(\d+) analysed", said, re.M)[1])
            self.assertLess(analysed, len(whole) / 3 / 2)
        self.assertEqual(results(self.output), whole)

    def test_what_cannot_be_found(self):
        """A link to nothing or to itself is a failure; a date in the future is none."""
        write(self.input + "/a.wav", 2000)
        os.utime(self.input + "/a.wav", (4e9, 4e9))
        os.symlink("none", self.input + "/lost.wav")
        os.symlink("loop.wav", self.input + "/loop.wav")
        write(self.input + "/lossless.flac", 2000)
        for counts in "1 analysed, 0 finished before", "0 analysed, 1 finished before":
            status, said = self.run_corpus()
            self.assertEqual(status, 1)
            self.assertRegex(said, "FAILED to read .*loop.wav")
            self.assertIn("FAILED lost.wav\n    The link leads nowhere.", said)
            self.assertIn("which --convert takes: 1\n" + counts + ", 2 failed", said)

    def test_refusals(self):
        write(self.input + "/a.wav", 2000)
        os.mkdir(self.input + "/empty")
        fine = ["nalveo16-corpus", self.input, self.output]
        run = subprocess.run([fine[0], self.input + "/empty", self.output, "--", "--ccord=20"],
                             stderr=subprocess.DEVNULL, check=False)
        self.assertEqual(run.returncode, 2)
        subprocess.run(fine, check=True, stdout=subprocess.DEVNULL)
        write(self.input + "/b/x.wav", 2000)
        for command, why in (
                ([*fine, "--", "--ccord=20"], "holds results of other options: (none)"),
                ([*fine, "--", "--ccord=x"], "incorrect input arguments"),
                ([*fine, "--", "--f0load=1"], "--f0load does not go with a corpus"),
                ([*fine, "--ccord=20"], "options of nalveo16 stand behind --"),
                ([*fine, "--slice", "4/3"], "--slice must be between"),
                ([*fine, "--slice", "1/18446744073709551617"], "--slice must be as in 3/8"),
                ([*fine[:2], "/dev/null/none"], "could not create"),
                (["nalveo16-corpus", self.output, self.output], "there is no WAV file"),
                (["nalveo16-corpus", self.input + "/none", self.output], "there is no folder")):
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
