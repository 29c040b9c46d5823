"""Results: their names, whether they are finished, and writing them whole or not at all."""

import os

import numpy as np

import nalveo
from nalveowav import Wrong

from .state import TEMPORARY

# Kinds of result by layout: folder below OUT_DIR, ending, and what is in the file.
LAYOUTS = {
    "together": (("", ".lf0", "lf0"), ("", ".mvf", "mvf"), ("", ".mcc", "mcc")),
    "kinds": (("lf0", ".lf0", "lf0"), ("mvf", ".mvf", "mvf"), ("mgc", ".mgc", "mcc")),
    "npz": (("", ".npz", "npz"),),
}


class Results:
    """The results of every recording below the folder of a `State`."""

    def __init__(self, state, layout):
        self._kinds = [(os.path.join(state.output, folder, ""), ending, kind)
                       for folder, ending, kind in LAYOUTS[layout]]
        self._state = state
        self.systems = {}  # a folder of each file system that was written to, by its number

    def paths(self, name):
        """Paths of the results of a recording."""
        stem = os.path.splitext(name)[0]
        return [folder + stem + ending for folder, ending, _ in self._kinds]

    def folders(self, names):
        """All folders that results are in."""
        inner = {os.path.dirname(name) for name in names}
        return {os.path.join(folder, name) for folder, _, _ in self._kinds for name in inner}

    def finished(self, name, line):
        """Whether the results that a line of a journal tells of are there and as they were."""
        try:
            for path, stamp, size in zip(self.paths(name), line["stamps"], line["sizes"]):
                result = os.stat(path)
                if (result.st_mtime_ns, result.st_size) != (stamp, size):
                    return False
        except OSError:
            return False
        return True

    def remove(self, name):
        """Removes the results that a run has made of a recording; tells of those that cannot be
        removed."""
        said = []
        there = [path for path in self.paths(name) if os.path.lexists(path)]
        for path in there if there and self._state.made(name) else ():
            try:
                os.unlink(path)
            except FileNotFoundError:
                pass
            except OSError as error:
                said.append(f"An old result could not be removed: {path}: {error.strerror}.")
        return said

    def write(self, name, analysis, source, thread, confirm):
        """Writes all results beside their names, then renames them.

        The results carry the time of the recording `source`. `confirm` is called with their
        times, as their file systems keep them, and sizes once they are whole, before they get their
        names. Raises `Wrong` if a file that no run has made has one of these.
        """
        written = []
        try:
            for path, (_, _, kind) in zip(self.paths(name), self._kinds):
                folder = os.path.dirname(path)
                made = os.path.join(folder, f"{TEMPORARY}{self._state.name}.{thread}.{kind}")
                written.append((made, path))
                try:
                    _save(made, analysis, kind)
                except FileNotFoundError:
                    os.makedirs(folder, exist_ok=True)
                    _save(made, analysis, kind)
                os.utime(made, ns=(source.st_atime_ns, source.st_mtime_ns))
            states = [os.stat(made) for made, _ in written]
            for state, (made, _) in zip(states, written):
                self.systems.setdefault(state.st_dev, os.path.dirname(made))
            old = self._old(name, states)
            confirm([state.st_mtime_ns for state in states], [state.st_size for state in states])
            for path in old:  # first, so that new ones never stand beside them
                os.unlink(path)
            while written:
                os.replace(*written[0])
                del written[0]
        finally:
            for made, _ in written:
                try:
                    os.unlink(made)
                except OSError:
                    pass

    def _old(self, name, states):
        """Paths of the results of an earlier run.

        Results whose line in the journal a power failure has taken are nobody else's either: they
        are as the new ones, or empty.
        """
        there = [(path, new) for path, new in zip(self.paths(name), states)
                 if os.path.lexists(path)]
        if there and not self._state.made(name):
            for path, new in there:
                old = os.lstat(path)
                if old.st_size and (old.st_mtime_ns, old.st_size) != (new.st_mtime_ns, new.st_size):
                    raise Wrong(f"{path} is there already, and no run has made it; move it away, "
                                "or take another OUT_DIR.")
        return [path for path, _ in there]


def _save(path, analysis, kind):
    """Writes one kind of result."""
    if kind == "npz":
        nalveo.write(path, analysis)
        return
    values = {"lf0": lambda: nalveo.log_f0(analysis.f0), "mcc": lambda: analysis.mcep,
              "mvf": lambda: analysis.mvf}[kind]()
    with open(path, "wb", buffering=0) as file:
        view = memoryview(np.ascontiguousarray(values, "<f4")).cast("B")
        while view:
            view = view[file.write(view):]


def remove_remains(folders, slice_name):
    """Removes unfinished files of a slice, and of all that cannot be at work beside it: of a whole
    run, and of slices of another number."""
    beside = "-of-" + slice_name.partition("-of-")[2]
    for folder in folders:
        try:
            names = [entry.name for entry in os.scandir(folder) if entry.name.startswith(TEMPORARY)]
        except OSError:
            continue
        for name in names:
            owner = name.removeprefix(TEMPORARY).partition(".")[0]
            if owner == slice_name or not owner.endswith(beside):
                try:
                    os.unlink(os.path.join(folder, name))
                except OSError:
                    pass
