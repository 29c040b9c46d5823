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
from .settings import explained, reason

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
SAVE = 30  # seconds from one wait for the disk to the next
TRIES = 3  # for a recording that changes while it is analysed
WARNINGS, LONGEST = 20, 1000  # kept of a file, and characters of each


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
        over = threading.Event()
        bar = Bar(self._count)
        try:
            for thread in self._start(over):
                while thread.is_alive():
                    thread.join(0.2)
                    bar.show(self.done)
            self._save()
        except Interrupted:
            for number in before:
                signal.signal(number, signal.SIG_IGN)
            self._stopped = True
            self._reader.stop()
            self._save()
            raise
        finally:
            over.set()
            bar.end()
        for number, handler in before.items():
            signal.signal(number, handler)
        if self._broken:
            raise Stopped(self._broken) from self._broken

    def _start(self, over):
        """Starts as many of the threads as the system allows, and returns those that work."""
        threads = []
        try:
            for number in range(self._jobs):
                thread = threading.Thread(target=self._work, args=(number,), daemon=True)
                thread.start()
                threads.append(thread)
            threading.Thread(target=self._keep_saving, args=(over,), daemon=True).start()
        except RuntimeError as error:
            if not threads:
                self._broken, self._stopped = error, True  # at a limit of the system or the user
        return threads

    def _keep_saving(self, over):
        while not self._stopped and not over.wait(SAVE):
            self._save()

    def _save(self):
        """Has the results so far put on disk."""
        try:
            self._state.save(self._results.systems)
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
        line = {"file": name, "folder": self._folder, "inode": None, "mtime": None, "size": None,
                "status": "failed", "warnings": []}
        try:
            source, recording, analysis = self._analysed(os.path.join(self._folder, name), line)
            line["warnings"] = _kept(recording.warnings + self._zeros(recording.samples))
            line.update(table.measure(recording, analysis))

            def confirm(stamps, sizes):
                if self._stopped:
                    raise OSError("the run was stopped")
                self._state.append({**line, "status": "analysed", "stamps": stamps, "sizes": sizes})
            self._results.write(name, analysis, source, thread, confirm)
        except Exception as error:
            if self._stopped:
                return
            line["warnings"] = _kept([_said(error)])
            if line["mtime"] is not None:
                # Whatever has its names is of another recording, or not whole.
                line["warnings"] += self._results.remove(name)
            self._state.append(line)

    def _analysed(self, path, line):
        """State of a recording on disk, its samples and their analysis."""
        for _ in range(TRIES):
            source = os.stat(path)
            line.update(inode=source.st_ino, mtime=source.st_mtime_ns, size=source.st_size)
            recording = self._reader.read(path)
            analysis = nalveo.analyze(recording.samples, recording.rate, **self._settings)
            now = os.stat(path)
            if (now.st_mtime_ns, now.st_size) == (source.st_mtime_ns, source.st_size):
                return source, recording, analysis
        raise Wrong("It changes while it is analysed.")

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


def _said(error):
    """Why a recording failed, for the user."""
    if isinstance(error, Wrong):
        return str(error)
    if isinstance(error, ValueError):
        return explained(error)
    if isinstance(error, OSError):
        return reason(error)
    if isinstance(error, MemoryError):
        return "Error: not enough memory to analyse it."
    return f"Error: {type(error).__name__}: {error}"


def _kept(warnings):
    """As many warnings, and as much of them, as people read and a cell of a table may hold."""
    kept = [text if len(text) <= LONGEST else text[:LONGEST] + " ..." for text in warnings]
    more = len(kept) - WARNINGS
    return kept[:WARNINGS] + ([f"And {more} more warnings."] if more > 0 else [])


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
