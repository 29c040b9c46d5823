"""The run: threads that take one recording after the other.

The library works outside the interpreter's lock, so that threads keep all cores busy. What a thread
was at when it is stopped is lost; what has a name is whole.
"""

import os
import signal
import sys
import threading
import time

import numpy as np

import nalveo
from nalveowav import Wrong

from . import table
from .settings import reason

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
SAVE = 30  # seconds from one wait for the disk to the next
TRIES = 3  # for a recording that changes while it is analysed


class Interrupted(Exception):
    """A signal asks the run to end."""


class Stopped(Exception):
    """What ended the run before its time, such as a journal on a full disk."""


class Run:
    """Analyses recordings below a folder into the results of another."""

    def __init__(self, folder, names, jobs, reader, results, state, settings):
        self._folder, self._names, self._count = folder, iter(names), len(names)
        self._reader, self._results, self._state, self._settings = reader, results, state, settings
        self._jobs = min(jobs, len(names))
        self._lock = threading.Lock()
        self._stopped = False
        self._broken = None  # why the run ends before its time
        self.done = 0

    def go(self):
        """Does it all. Raises `Interrupted` after a signal, `Stopped` when it cannot go on."""
        def stop(*_):
            raise Interrupted
        # What is ignored, as SIGHUP under nohup, stays so.
        before = {number: signal.signal(number, stop) for number in SIGNALS
                  if signal.getsignal(number) != signal.SIG_IGN}
        threads = [threading.Thread(target=self._work, args=(number,), daemon=True)
                   for number in range(self._jobs)]
        over = threading.Event()
        threading.Thread(target=self._keep_saving, args=(over,), daemon=True).start()
        bar = Bar(self._count)
        try:
            for thread in threads:
                thread.start()
            for thread in threads:
                while thread.is_alive():
                    thread.join(0.2)
                    bar.show(self.done)
        except Interrupted:
            for number in before:
                signal.signal(number, signal.SIG_IGN)
            self._stopped = True
            self._reader.stop()
            raise
        finally:
            over.set()
            bar.end()
        for number, handler in before.items():
            signal.signal(number, handler)
        self._save()
        if self._broken:
            raise Stopped(self._broken) from self._broken

    def _keep_saving(self, over):
        while not self._stopped and not over.wait(SAVE):
            self._save()

    def _save(self):
        """Has the results so far put on disk."""
        try:
            self._state.save(list(self._results.systems.values()))
        except OSError as error:
            self._broken, self._stopped = error, True

    def _work(self, thread):
        while not self._stopped:
            with self._lock:
                name = next(self._names, None)
            if name is None:
                return
            try:
                self._recording(name, thread)
            except Exception as error:
                # Not even the failure could be written down.
                self._broken, self._stopped = error, True
            self.done += 1

    def _recording(self, name, thread):
        """One recording, from its samples to its line in the journal."""
        path = os.path.join(self._folder, name)
        line = {"file": name, "mtime": None, "size": None, "status": "failed", "warnings": []}
        for _ in range(TRIES):
            try:
                source = os.stat(path)
                line.update(mtime=source.st_mtime_ns, size=source.st_size)
                recording = self._reader.read(path)
                analysis = nalveo.analyze(recording.samples, recording.rate, **self._settings)
                now = os.stat(path)
                if (now.st_mtime_ns, now.st_size) != (source.st_mtime_ns, source.st_size):
                    line["warnings"] = ["It changes while it is analysed."]
                    continue
                line["warnings"] = recording.warnings + self._zeros(recording.samples)
                line.update(table.measure(recording, analysis))

                def confirm(stamps, sizes):
                    if self._stopped:
                        raise OSError("the run was stopped")
                    self._state.append({**line, "status": "analysed", "stamps": stamps,
                                        "sizes": sizes})
                self._results.write(name, analysis, source, thread, confirm)
                return
            except (Wrong, ValueError) as error:
                line["warnings"] = [str(error)]
            except OSError as error:
                line["warnings"] = [reason(error)]
            except MemoryError:
                line["warnings"] = ["Error: not enough memory to analyse it."]
            except Exception as error:
                line["warnings"] = [f"Error: {type(error).__name__}: {error}"]
            break
        if not self._stopped:
            if line["mtime"] is not None:
                # Whatever has its names is of another recording, or not whole.
                line["warnings"] += self._results.remove(name)
            self._state.append(line)

    def _zeros(self, samples):
        """The analyser's warning about runs of equal samples."""
        longest = self._settings["zfill"]
        if longest == 0 or samples.size <= longest:
            return []
        # A run that is too long shows in every n-th sample, too; most recordings have none there.
        step = longest // 8 + 1
        if _longest_run(samples[::step]) < (longest + 1) // step:
            return []
        return ["Zeros have been filled with noise."] if _longest_run(samples) > longest else []


def _longest_run(samples):
    """Length of the longest run of equal samples."""
    ends = np.concatenate(([-1], np.flatnonzero(samples[1:] != samples[:-1]), [samples.size - 1]))
    return np.diff(ends).max()


class Bar:
    """Tells on a terminal how far the run is."""

    def __init__(self, count):
        self._count, self._began = count, time.monotonic()
        self._shown = sys.stderr.isatty()

    def show(self, done):
        """Renews the line."""
        if self._shown and done:
            left = (time.monotonic() - self._began) / done * (self._count - done)
            sys.stderr.write(f"\r{done} of {self._count}, {left / 60:.0f} min left  ")
            sys.stderr.flush()

    def end(self):
        """Clears the line."""
        if self._shown:
            sys.stderr.write("\r\33[K")
