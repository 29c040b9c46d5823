"""Results: their names, whether they are finished, and writing them whole or not at all."""

import io
import os

import numpy as np

import nalveo

from .state import TEMPORARY, own_mark

# Kinds of result by layout: folder below OUT_DIR, ending, and what is in the file.
LAYOUTS = {
    "together": (("", ".lf0", "lf0"), ("", ".mvf", "mvf"), ("", ".mcc", "mcc")),
    "kinds": (("lf0", ".lf0", "lf0"), ("mvf", ".mvf", "mvf"), ("mgc", ".mgc", "mcc")),
    "npz": (("", ".npz", "npz"),),
}


class Results:
    """The results of every recording below one folder."""

    def __init__(self, output, layout, order):
        self._order = order
        self._kinds = [(os.path.join(output, folder), ending, kind)
                       for folder, ending, kind in LAYOUTS[layout]]

    def paths(self, name):
        """Paths of the results of a recording."""
        stem = os.path.splitext(name)[0]
        if stem.endswith("/") or not stem:  # a name such as .wav
            stem = name
        return [os.path.join(folder, stem + ending) for folder, ending, _ in self._kinds]

    def folders(self, names):
        """All folders that results are in."""
        return {os.path.dirname(path) for name in names for path in self.paths(name)}

    def finished(self, name, entry):
        """Whether the results that a journal tells of are there, whole and of this recording."""
        if entry is None or entry.stamp is None:
            return False
        try:
            for path, size in zip(self.paths(name), entry.sizes):
                result = os.stat(path)
                if result.st_mtime_ns != entry.stamp or result.st_size != size:
                    return False
        except OSError:
            return False
        return True

    def write(self, name, analysis, source, thread, confirm):
        """Writes all results beside their names, then renames them.

        The results carry the time of the recording `source`. `confirm` is called with the stamp and
        the sizes once they are whole, before they get their names.
        """
        written = []
        try:
            for path, (_, _, kind) in zip(self.paths(name), self._kinds):
                content = _content(analysis, kind, self._order)
                folder = os.path.dirname(path)
                made = os.path.join(folder, f"{TEMPORARY}{own_mark()}.{thread}.{kind}")
                try:
                    descriptor = os.open(made, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o666)
                except FileNotFoundError:
                    os.makedirs(folder, exist_ok=True)
                    descriptor = os.open(made, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o666)
                written.append((made, path, len(content)))
                try:
                    view = memoryview(content)
                    while view:
                        view = view[os.write(descriptor, view):]
                    os.utime(descriptor, ns=(source.st_atime_ns, source.st_mtime_ns))
                    stamp = os.fstat(descriptor).st_mtime_ns  # as this file system keeps it
                finally:
                    os.close(descriptor)
            confirm(stamp, [size for _, _, size in written])
            while written:
                made, path, _ = written[0]
                os.replace(made, path)
                del written[0]
        finally:
            for made, _, _ in written:
                try:
                    os.unlink(made)
                except OSError:
                    pass


def _content(analysis, kind, order):
    """The bytes of a result."""
    if kind == "npz":
        buffer = io.BytesIO()
        np.savez(buffer, f0=analysis.f0, mcep=analysis.mcep, mvf=analysis.mvf, fs=analysis.fs,
                 hop_length=analysis.hop_length, alpha=analysis.alpha, order=order,
                 scale=analysis.scale)
        return buffer.getvalue()
    values = {"lf0": lambda: nalveo.log_f0(analysis.f0), "mcc": lambda: analysis.mcep,
              "mvf": lambda: analysis.mvf}[kind]()
    return np.ascontiguousarray(values, "<f4").tobytes()


def remove_remains(folders, everything):
    """Removes unfinished files of runs that were killed: of this machine's, or of all."""
    host, own = own_mark().rsplit(".", 1)
    for folder in folders:
        try:
            entries = [entry.name for entry in os.scandir(folder)
                       if entry.name.startswith(TEMPORARY)]
        except OSError:
            continue
        for name in entries:
            maker, process = name.removeprefix(TEMPORARY).rsplit(".", 3)[0:2]
            if everything or (maker == host and process != own and not _alive(process)):
                try:
                    os.unlink(os.path.join(folder, name))
                except OSError:
                    pass


def _alive(process):
    try:
        os.kill(int(process), 0)
    except ProcessLookupError:
        return False
    except (OSError, ValueError):
        pass
    return True
