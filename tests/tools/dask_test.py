#!/usr/bin/python3
"""examples/dask/corpus.py on a cluster of two workers, one of which is killed in the middle of a
slice: its slice ends with it, the other worker does the rest of it, and nothing is missing."""

import contextlib
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import wave

from distributed import Client

EXAMPLES = os.path.realpath(os.path.join(os.path.dirname(__file__), "../../examples"))
SCRIPT = os.path.join(EXAMPLES, "dask/corpus.py")
OPTIONS = ["--", "--f0acc=5"]
SLICES = 8  # of two workers of one thread
FILES = 6  # in each of them, more or less
LIMIT = 300  # seconds, of which a busy machine may need most


def slice_of(worker):
    """Process and name of the slice that a worker does, or None."""
    try:
        for task in os.listdir(f"/proc/{worker}/task"):
            with open(f"/proc/{worker}/task/{task}/children", encoding="ascii") as file:
                for child in file.read().split():
                    with open(f"/proc/{child}/cmdline", encoding="utf-8") as line:
                        words = line.read().split("\0")
                    if "--slice" in words:
                        return int(child), words[words.index("--slice") + 1]
    except OSError:
        pass  # it ended while it was looked at
    return None


class DaskTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="nalveo16-dask.")
        self.addCleanup(scratch.cleanup)
        self.folder = scratch.name
        os.mkdir(os.path.join(self.folder, "corpus"))
        with wave.open(os.path.join(EXAMPLES, "sample.wav")) as file:
            speech = file.readframes(file.getnframes())
        for number in range(FILES * SLICES):  # 6 s each, so that a slice takes a while
            with wave.open(os.path.join(self.folder, f"corpus/utt {number:02}.wav"), "wb") as file:
                file.setparams((1, 2, 16000, 0, "NONE", ""))
                file.writeframes((speech[500 * number:] + 2 * speech)[:192000])

    def start(self, *command):
        """Starts a process that ends with the test."""
        process = subprocess.Popen(command, cwd=self.folder, stdout=subprocess.PIPE, text=True,
                                   stderr=subprocess.STDOUT)

        def end():
            process.kill()
            process.communicate()
        self.addCleanup(end)
        return process

    def journal(self, part):
        """How many files of a slice are done."""
        path = os.path.join(self.folder, "features/.nalveo16-corpus/journal",
                            part.replace("/", "-of-") + ".jsonl")
        if not os.path.exists(path):
            return 0
        with open(path, "rb") as file:
            return sum(len(line) > 1 for line in file)

    def until(self, found):
        """What a function finds, as soon as it finds something."""
        last = time.monotonic() + LIMIT
        while not (value := found()):
            self.assertLess(time.monotonic(), last, "it took too long")
            time.sleep(0.02)
        return value

    def test_lost_worker(self):
        file = os.path.join(self.folder, "scheduler.json")
        self.start("dask-scheduler", "--scheduler-file", file, "--host", "127.0.0.1", "--port", "0",
                   "--no-dashboard")
        self.until(lambda: os.path.exists(file) and os.path.getsize(file))
        workers = [self.start("dask-worker", "--scheduler-file", file, "--no-nanny", "--nthreads",
                              "1", "--no-dashboard", "--local-directory",
                              os.path.join(self.folder, name)) for name in ("one", "two")]
        # Both must be there when the slices are counted.
        with Client(scheduler_file=file, timeout=LIMIT) as client:
            client.wait_for_workers(2, timeout=LIMIT)
        run = self.start(sys.executable, SCRIPT, file, "corpus", "features", *OPTIONS)

        def in_the_middle():
            """The first worker's slice, held, with some of its files done and some not."""
            self.assertIsNone(run.poll(), "the run ended before a worker could be killed")
            found = slice_of(workers[0].pid)
            if found and self.journal(found[1]) > 0:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(found[0], signal.SIGSTOP)
                    if self.journal(found[1]) == 1:
                        return found
                    os.kill(found[0], signal.SIGCONT)
            return None
        process, part = self.until(in_the_middle)
        workers[0].kill()
        workers[0].wait(LIMIT)
        os.kill(process, signal.SIGCONT)
        self.until(lambda: not os.path.exists(f"/proc/{process}"))

        said, _ = run.communicate(timeout=LIMIT)
        self.assertEqual(run.returncode, 0, said)
        self.assertRegex(said, rf"{SLICES} of {SLICES} slices went well\n\Z")
        # The rest of the slice was left to do, and was done.
        again = re.search(rf"Slice {part}:\n(\d+) analysed, (\d+) finished before, 0 failed\n",
                          said)
        self.assertIsNotNone(again, said)
        self.assertGreater(int(again[1]), 0, said)
        self.assertGreater(int(again[2]), 0, said)

        subprocess.run(["nalveo16-corpus", "corpus", "plain", *OPTIONS], cwd=self.folder,
                       check=True, stdout=subprocess.PIPE, timeout=LIMIT)
        subprocess.run(["diff", "-r", "--exclude=.nalveo16-corpus", "features", "plain"],
                       cwd=self.folder, check=True)

        # What fails on all workers fails the run.
        run = self.start(sys.executable, SCRIPT, file, "nothing", "features")
        said, _ = run.communicate(timeout=LIMIT)
        self.assertEqual(run.returncode, 1, said)
        self.assertEqual(said.count("there is no folder"), SLICES // 2, said)
        self.assertIn(f"0 of {SLICES // 2} slices went well\n", said)


if __name__ == "__main__":
    unittest.main()
