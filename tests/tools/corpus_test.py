#!/usr/bin/python3
"""nalveo16-corpus: whole results and nothing else, through failures, kills and resumption."""

import concurrent.futures
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

from corpora import (BAD, EXAMPLES, KINDS, MENDED, SPEECH, WORK, Corpora, analyse, makebad,
                     makegood, results, text, write)


class CorpusTest(Corpora):
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
        restarted = "state.start_mark = lambda: 'start {}'\n"
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
        # A run that does not look at the recording makes nothing of it safe.
        write(self.input + "/c.wav", 4000, 16000)
        os.rename(self.input + "/b.wav", self.folder + "/b.wav")
        self.assertIn("1 analysed, 1 finished", self.run_patched(restarted.format(0))[1])
        os.rename(self.folder + "/b.wav", self.input + "/b.wav")
        os.remove(self.input + "/c.wav")
        # Nor does it matter that the old results cannot be removed.
        stay = "results.Results.remove = lambda *_: ['It stays.']\n"
        for number, counts in (1, "1 analysed, 1 finished"), (2, "0 analysed, 2 finished"):
            self.assertIn(counts, self.run_patched(restarted.format(number) + stay)[1])
            self.assertEqual({**results(self.output), **whole}, results(self.output))
        # Whoever waits for the disk at the end may be interrupted, too.
        shutil.rmtree(self.output)
        self.assertEqual(self.run_patched("""
save = state.State.save
def killed(self, systems):
    save(self, systems)
    os.kill(os.getpid(), 15)
state.State.save = killed
""")[0], 130)
        self.assertEqual(list(self.table()), ["a.wav", "b.wav", "(all)"])

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
        text(self.input + "/a.wav", "no recording at all")
        self.assertEqual(self.run_corpus()[0], 1)
        self.assertEqual(sorted(results(self.output)), ["b.lf0", "b.mcc", "b.mvf"])
        # What no run has made is neither replaced nor removed.
        write(self.input + "/own.wav", 4000)
        for name in "own.lf0", "new.lf0":
            text(f"{self.output}/{name}", "mine")
        os.rename(self.input + "/a.wav", self.input + "/new.wav")
        status, said = self.run_corpus()
        self.assertEqual(status, 1)
        self.assertRegex(said, "FAILED own.wav\n    .*/own.lf0 is there already, and no run")
        self.assertEqual([results(self.output)[name] for name in ("own.lf0", "new.lf0")],
                         2 * [b"mine"])
        # A journal that somebody has been at.
        text(self.output + f"/{WORK}/journal/whole.jsonl", "[]\n")
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
        text(self.output + "/there", "")
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
        text(self.input + "/notes.txt", "none")
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
        # Before the first slice begins, nobody else may start.
        text(remote + "/ssh", f'#!/bin/bash\n{shlex.join(self.command())} 2>>"${{0%/*}}/refused"\n'
             'shift\n[[ $1 != -- ]] || shift\nexec bash -c "$*"\n')
        os.chmod(remote + "/ssh", 0o755)
        os.mkdir(remote + "/.parallel")
        text(remote + "/.parallel/config", "--dry-run\n")
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
        # They start at the same time, in containers where they have the same number.
        code = """
import time
save, os.getpid = results._save, lambda: 1
results._save = lambda *arguments: (save(*arguments), time.sleep(0.01))
"""
        with concurrent.futures.ThreadPoolExecutor() as pool:
            runs = list(pool.map(lambda part: self.run_patched(code, "--slice", part + "/3"),
                                 "123"))
        analysed = [int(re.search(r"^(\d+) analysed, 0 finished before, 0 failed", said, re.M)[1])
                    for _, said in runs]
        self.assertEqual(sum(analysed), 40)
        self.assertTrue(all(analysed), "a slice is empty")
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
                write(self.input + "/! new.wav", 2000)
                self.assertEqual(self.run_corpus("--slice", "2/2")[0], 0)
                for options in ("--slice", "1/1"), ("--slice", "3/3"), ():
                    status, said = self.run_corpus(*options)
                    self.assertEqual(status, 2)
                    self.assertRegex(said, f"process {first.pid} on .*, slice 1/2")
            finally:
                os.kill(first.pid, signal.SIGCONT)
        self.assertEqual(first.returncode, 0)
        self.assertEqual(sum(name[0] != "!" for name in results(self.output)), 300)

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
            self.assertRegex(said, "FAILED loop.wav\n.*: Too many levels of symbolic links")
            self.assertRegex(said, "FAILED circle/\n.*: it leads back")
            self.assertIn("FAILED lost.wav\n    The link leads nowhere.", said)
            self.assertEqual(self.table()["(all)"]["status"], "1 analysed, 3 failed")
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
