"""What a run keeps in OUT_DIR/.nalveo16-corpus: manifest, locks and journals.

The manifest has the settings and the version that all results were made with. A journal, one for
the whole corpus or for each slice, has a line of JSON for every recording that was done, appended
before its results get their names: what a run knows of those before it is what the journals tell
and the results bear out. Each line has its run's turn, a number above those of all runs before, so
that of two lines on a recording the newer one is known, whatever journals and clocks they are from.

What is written reaches the disk when the system sees fit. Now and then, and at its end, a run waits
for that and adds a line {"safe": offset, "from": offset}: the results of its own lines between the
two are on disk. Each line has a mark of its machine's start, too. Where there was another start
since and no such line tells of it, the power may have failed in between, and the results be names
without content.

Names of unfinished files hold the name of the slice. Its lock makes them unique: a number of a
process would not do, for it may be that of another in a container that bears the same host name.
"""

import ctypes
import fcntl
import json
import os
import re
import socket
import threading

FOLDER = ".nalveo16-corpus"
TEMPORARY = FOLDER + "."  # how the names of unfinished files begin
LINE = {"file", "mtime", "size", "status", "warnings"}  # what every line of a journal has


class Refused(Exception):
    """Why a run may not start, for the user."""


def start_mark():
    """What tells this start of this machine from all others."""
    try:
        with open("/proc/sys/kernel/random/boot_id", encoding="ascii") as file:
            return file.read(8)
    except OSError:
        return None


def lock(file, kind):
    """Locks an open file. Raises `BlockingIOError` when another run has it and `kind` is not to
    wait."""
    try:
        fcntl.flock(file, kind)
    except BlockingIOError:
        raise
    except OSError as error:
        raise Refused(f"{file.name} could not be locked: {error.strerror}. Take an OUT_DIR on a "
                      "file system that knows flock.") from error


class State:
    """The folder, as one run sees it."""

    def __init__(self, output, slice_name):
        self.folder = os.path.join(output, FOLDER)
        self.output = output
        self.name = slice_name  # "whole", "3-of-8" or, where others do these, "hosts-of-8"
        os.makedirs(os.path.join(self.folder, "journal"), exist_ok=True)
        self._locks = []
        self._turn = 1  # above all that `lines` has met
        self._start = start_mark()
        self._journal, self._begin, self._lock = None, 0, threading.Lock()
        self._made = None  # names without their endings, once they are asked for

    # Locks ----------------------------------------------------------------------------------------

    def enter(self, manifest):
        """Makes sure of the settings, then keeps other runs out: all of them, or all but other
        slices of as many."""
        with self._open("lock-gate") as gate:
            lock(gate, fcntl.LOCK_EX)  # one at a time looks around and takes its own
            self._agree(manifest)
            if self.name == "whole":
                self._take("lock", fcntl.LOCK_EX)
                return
            self._take("lock-" + self.name, fcntl.LOCK_EX)
            self._take("lock", fcntl.LOCK_SH)
            mine = "lock-of-" + self.name.partition("-of-")[2]
            for name in os.listdir(self.folder):
                if name.startswith("lock-of-") and name != mine and self._held(name):
                    self._refuse("lock")
            self._take(mine, fcntl.LOCK_SH)

    def _open(self, name):
        return open(os.path.join(self.folder, name), "a+", encoding="ascii")

    def _take(self, name, kind):
        file = self._open(name)
        try:
            lock(file, kind | fcntl.LOCK_NB)
        except BlockingIOError:
            self._refuse(name)
        if kind == fcntl.LOCK_EX:
            file.truncate(0)
            file.write(f"process {os.getpid()} on {socket.gethostname()}\n")
            file.flush()
        self._locks.append(file)

    def _held(self, name):
        with self._open(name) as file:
            try:
                lock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                return True
        return False

    def _refuse(self, name):
        """Names the holder of a lock; where slices share it, one that is at work."""
        if name == "lock":
            slices = [other for other in sorted(os.listdir(self.folder)) if re.fullmatch(
                r"lock-\w+-of-\d+", other) and other != "lock-" + self.name and self._held(other)]
            name = (slices or [name])[0]
        with self._open(name) as file:
            file.seek(0)
            holder = file.read().strip() or "of unknown name"
        part, _, parts = name.removeprefix("lock-").partition("-of-")
        if parts:
            holder += ", with --hosts" if part == "hosts" else f", slice {part}/{parts}"
        raise Refused(f"another run is at work on {self.output}: {holder}.")

    # Manifest -------------------------------------------------------------------------------------

    def _agree(self, manifest):
        """Writes the manifest, or compares it with the one that is there."""
        path = os.path.join(self.folder, "manifest.json")
        try:
            with open(path, encoding="ascii") as file:
                theirs = dict(json.load(file))
        except FileNotFoundError:
            self._write("manifest.json", json.dumps(manifest, indent=1, sort_keys=True))
            return
        except (ValueError, TypeError):
            raise Refused(f"{path} is damaged; remove {self.output} and begin anew.") from None
        if theirs != json.loads(json.dumps(manifest)):
            raise Refused(f"{self.output} holds results of {_differences(theirs, manifest)}; "
                          "take another folder, or remove the old one.") from None

    def slices(self, count):
        """Remembers into how many slices the corpus is cut; with None, tells it."""
        if count is not None:
            self._write("slices", str(count))
            return count
        try:
            with open(os.path.join(self.folder, "slices"), encoding="ascii") as file:
                return int(file.read())
        except (OSError, ValueError):
            return None

    def _write(self, name, text):
        """A small file, whole even when the power fails."""
        made = os.path.join(self.folder, f"{TEMPORARY}{self.name}.{name}")
        with open(made, "w", encoding="ascii") as file:
            file.write(text + "\n")
            file.flush()
            os.fsync(file.fileno())
        os.replace(made, os.path.join(self.folder, name))

    # Journals -------------------------------------------------------------------------------------

    def journals(self):
        """Paths of all journals, the oldest lines first."""
        folder = os.path.join(self.folder, "journal")
        paths = [os.path.join(folder, name) for name in os.listdir(folder)]
        return sorted(paths, key=lambda path: (os.stat(path).st_mtime_ns, path))

    def lines(self, path):
        """(offset, line) of every whole line of a journal."""
        offset = 0
        with open(path, "rb") as file:
            for text in file:
                try:
                    line = json.loads(text) if text.endswith(b"\n") else None
                except ValueError:
                    line = None  # the rest of a line that a crash has cut
                if line is not None:
                    if not isinstance(line, dict) or not (LINE <= line.keys() or "safe" in line):
                        raise Refused(f"{path} is damaged at byte {offset}; remove it, and its "
                                      "recordings are done again.")
                    self._turn = max(self._turn, line.get("turn", 0) + 1)
                    yield offset, line
                offset += len(text)

    def doubtful(self, line):
        """Whether a power failure may have come between a line's results and the disk."""
        return line.get("start", self._start) != self._start

    def made(self, name):
        """Whether a journal tells of results of a recording, be it one with another ending."""
        with self._lock:
            if self._made is None:
                self._made = {os.path.splitext(line["file"])[0] for path in self.journals()
                              for _, line in self.lines(path) if line.get("status") == "analysed"}
        return os.path.splitext(name)[0] in self._made

    def append(self, line):
        """Adds a line to this run's journal, in one write."""
        text = json.dumps({**line, "turn": self._turn, "start": self._start}).encode() + b"\n"
        with self._lock:
            if self._journal is None:
                path = os.path.join(self.folder, "journal", self.name + ".jsonl")
                self._journal = os.open(path, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o666)
                self._begin = os.fstat(self._journal).st_size
                if self._begin:
                    os.write(self._journal, b"\n")  # ends a line that a crash has cut
            if os.write(self._journal, text) != len(text):
                raise OSError("the journal could not be written")
            if self._made is not None and line.get("status") == "analysed":
                self._made.add(os.path.splitext(line["file"])[0])

    def save(self, systems):
        """Waits until file systems, a folder of each, have all that was written on disk; after
        that, this run's lines so far are safe. The system goes on with other writes meanwhile."""
        if self._journal is None:
            return
        size = os.fstat(self._journal).st_size  # before the folders, which lines after it add to
        for folder in list(systems.values()):
            place = os.open(folder, os.O_RDONLY)
            try:
                if ctypes.CDLL(None, use_errno=True).syncfs(place) != 0:
                    raise OSError(ctypes.get_errno(), "what was written did not reach the disk",
                                  folder)
            finally:
                os.close(place)
        self.append({"safe": size, "from": self._begin})


def _differences(theirs, mine):
    """Which settings another manifest has otherwise."""
    found = []
    for part in sorted(theirs.keys() | mine.keys()):
        there, here = theirs.get(part), mine.get(part)
        if isinstance(there, dict) and isinstance(here, dict):
            found += [f"{name} {there.get(name)}" for name in sorted(there.keys() | here.keys())
                      if there.get(name) != here.get(name)]
        elif there != here:
            found.append(f"{part} {there}")
    return "other settings (" + ", ".join(found) + ")"
