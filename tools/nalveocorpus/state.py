"""What a run keeps in OUT_DIR/.nalveo16-corpus: manifest, locks and journals.

The manifest has the settings and the version that all results were made with. A journal, one for
the whole corpus or for each slice, has a line of JSON for every recording that was done, appended
before its results get their names: what a run knows of those before it is what the journals tell
and the results bear out. Each line has its run's turn, a number above those of all runs before, so
that of two lines on a recording the newer one is known, whatever journals and clocks they are from.
"""

import fcntl
import json
import os
import re
import socket

FOLDER = ".nalveo16-corpus"
TEMPORARY = FOLDER + "."  # how the names of unfinished files begin
LINE = {"file", "mtime", "size", "status", "warnings"}  # what every line of a journal has


class Refused(Exception):
    """Why a run may not start, for the user."""


def own_mark():
    """What tells this process from all others on all machines."""
    return f"{socket.gethostname()}.{os.getpid()}"


class State:
    """The folder, as one run sees it."""

    def __init__(self, output, slice_name):
        self.folder = os.path.join(output, FOLDER)
        self.output = output
        self.name = slice_name  # "whole" or "3-of-8"
        os.makedirs(os.path.join(self.folder, "journal"), exist_ok=True)
        self._locks = []
        self._turn = 1  # above all that `entries` has met
        self._journal = None

    # Locks ----------------------------------------------------------------------------------------

    def lock(self):
        """Keeps other runs out: all of them, or all but other slices of as many."""
        with self._open("lock-gate") as gate:
            fcntl.flock(gate, fcntl.LOCK_EX)  # one at a time looks at the locks and takes its own
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
            fcntl.flock(file, kind | fcntl.LOCK_NB)
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
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                return True
        return False

    def _refuse(self, name):
        """Names the holder of a lock; where slices share it, one that is at work."""
        if name == "lock":
            slices = [other for other in sorted(os.listdir(self.folder)) if re.fullmatch(
                r"lock-\d+-of-\d+", other) and other != "lock-" + self.name and self._held(other)]
            name = (slices or [name])[0]
        with self._open(name) as file:
            file.seek(0)
            holder = file.read().strip() or "of unknown name"
        if name.startswith("lock-"):
            holder += ", slice " + name.removeprefix("lock-").replace("-of-", "/")
        raise Refused(f"another run is at work on {self.output}: {holder}.")

    # Manifest -------------------------------------------------------------------------------------

    def agree(self, manifest):
        """Writes the manifest, or compares it with the one that is there."""
        path = os.path.join(self.folder, "manifest.json")
        mine = json.dumps(manifest, indent=1, sort_keys=True) + "\n"
        made = os.path.join(self.folder, f"{TEMPORARY}{own_mark()}.manifest")
        try:
            with open(made, "w", encoding="ascii") as file:
                file.write(mine)
                file.flush()
                os.fsync(file.fileno())
            os.link(made, path)  # fails where another run was first
        except FileExistsError:
            try:
                with open(path, encoding="ascii") as file:
                    theirs = dict(json.load(file))
            except (ValueError, TypeError):
                raise Refused(f"{path} is damaged; remove {self.output} and begin anew.") from None
            if theirs != json.loads(mine):
                raise Refused(f"{self.output} holds results of {_differences(theirs, manifest)}; "
                              "take another folder, or remove the old one.") from None
        finally:
            if os.path.exists(made):
                os.unlink(made)

    def slices(self, count):
        """Remembers into how many slices the corpus is cut; with None, tells it."""
        path = os.path.join(self.folder, "slices")
        if count is None:
            try:
                with open(path, encoding="ascii") as file:
                    return int(file.read())
            except (OSError, ValueError):
                return None
        made = os.path.join(self.folder, f"{TEMPORARY}{own_mark()}.slices")
        with open(made, "w", encoding="ascii") as file:
            file.write(f"{count}\n")
        os.replace(made, path)
        return count

    # Journals -------------------------------------------------------------------------------------

    def journals(self):
        """Paths of all journals, the oldest lines first."""
        folder = os.path.join(self.folder, "journal")
        paths = [os.path.join(folder, name) for name in os.listdir(folder)]
        return sorted(paths, key=lambda path: (os.stat(path).st_mtime_ns, path))

    def entries(self):
        """(path of the journal, offset, line) of every whole line."""
        for path in self.journals():
            offset = 0
            with open(path, "rb") as file:
                for line in file:
                    if line.endswith(b"\n"):
                        try:
                            entry = json.loads(line)
                        except ValueError:
                            entry = None  # the rest of a line that a crash has cut
                        if entry is not None:
                            if not isinstance(entry, dict) or not LINE <= entry.keys():
                                raise Refused(f"{path} is damaged at byte {offset}; remove it, "
                                              "and its recordings are done again.")
                            self._turn = max(self._turn, entry.get("turn", 0) + 1)
                            yield path, offset, entry
                    offset += len(line)

    def append(self, entry):
        """Adds a line to this run's journal, in one write."""
        if self._journal is None:
            path = os.path.join(self.folder, "journal", self.name + ".jsonl")
            self._journal = os.open(path, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o666)
            if os.fstat(self._journal).st_size:
                os.write(self._journal, b"\n")  # ends a line that a crash has cut
        line = json.dumps({**entry, "turn": self._turn}).encode() + b"\n"
        if os.write(self._journal, line) != len(line):
            raise OSError("the journal could not be written")


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
