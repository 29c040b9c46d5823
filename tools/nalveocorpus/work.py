"""The recordings of a run: what of them is to be done, and the report at the end."""

import collections
import heapq
import os
import sys

from . import results, table
from .run import Interrupted, Run, Stopped
from .settings import reason, shown

SHOWN = 5  # recordings that are named for the same warning


class Work:
    """The recordings that were found, and where their results go."""

    def __init__(self, found, folder, here, target, manifest):
        self._found, self._folder, self._here = found, folder, here
        self._target, self._manifest = target, manifest
        self._gone = []  # recordings that are no more, while their results are there

    def do(self, names, reader, jobs):
        """Does what is not finished of some recordings; the exit status."""
        here = self._here
        places = self._target.folders(names) | {here.output, here.folder}
        results.remove_remains(places, here.name)
        known = table.Known(here, names)
        for name in known.doubtful:
            self._target.remove(name)  # what stays is replaced
        todo = [name for name in names if not self._finished(name, known.line(name))]
        known.close()
        del known
        try:
            if todo:
                Run(self._folder, todo, jobs, reader, self._target, here,
                    self._manifest["settings"]).go()
            return self.report(todo, len(names) - len(todo))
        except (Interrupted, Stopped) as stop:
            self._table(wait=False)
            results.remove_remains(places, here.name)
            sys.stdout.flush()
            if isinstance(stop, Stopped):
                print(f"nalveo16-corpus: {reason(stop.__cause__)}.", file=sys.stderr)
                return 1
            interrupted()
            os._exit(130)  # threads at work in the library end with the process

    def _finished(self, name, line):
        """Whether a recording is as it was when its results were made, and these are there.

        One in another folder is another one, whatever its date and size, unless the file itself is
        the same: a corpus may be moved, or be elsewhere on another machine.
        """
        if line is None or line["status"] != "analysed":
            return False
        try:
            source = os.stat(os.path.join(self._folder, name))
        except OSError:
            return False
        return ((source.st_mtime_ns, source.st_size) == (line["mtime"], line["size"])
                and (line.get("folder", self._folder) == self._folder
                     or line["inode"] == source.st_ino)
                and self._target.finished(name, line))

    def _table(self, wait=True):
        """Writes the table; whether that went well."""
        try:
            table.write(self._here, self._lines(), self._manifest, wait)
            return True
        except OSError as error:
            print(f"nalveo16-corpus: the table could not be written: {reason(error)}.",
                  file=sys.stderr)
            return False

    def _lines(self):
        """What the table is to tell of all recordings, those that this run passes over and those
        that could not be found among them."""
        known = table.Known(self._here, self._found.files, others=True)
        lost, passed = self._found.lost, []
        for name in known.others:
            line = known.line(name)
            if line is None or name in lost:
                continue
            if os.path.lexists(os.path.join(self._folder, name)):
                passed.append(name)
            elif line["status"] == "analysed" and self._target.finished(name, line):
                self._gone.append(name)
        try:
            for name in heapq.merge(self._found.files, sorted([*passed, *lost], key=os.fsencode),
                                    key=os.fsencode):
                if name in lost:
                    yield {"file": name, "status": "failed", "warnings": [lost[name]]}
                else:
                    yield known.line(name) or {"file": name, "status": table.UNDONE}
        finally:
            known.close()

    def report(self, names, before):
        """Writes the table and says how it went; the exit status."""
        written = self._table()
        try:
            failed = self._tell(names, before)
            sys.stdout.flush()
        except BrokenPipeError:
            raise
        except OSError as error:
            print(f"nalveo16-corpus: the report could not be written: {reason(error)}.",
                  file=sys.stderr)
            silence()
            return 1
        return 1 if failed or not written else 0

    def _tell(self, names, before):
        """Says how some recordings went, what was passed over, and the counts; how many failed."""
        known = table.Known(self._here, names)
        done = failed = converted = 0
        warned = collections.Counter()
        for name in names:
            line = known.line(name)
            texts = line["warnings"] if line else []
            if self._finished(name, line):
                done += 1
                converted += line["converted"]
                warned.update(texts)
                texts = [text for text in texts if warned[text] <= SHOWN]
                word = "warned"
            else:
                failed += 1
                word = "FAILED"
                texts = texts or ["It ended without a word, or its host was out of reach."]
            if texts:
                tell(word, name, texts)
        known.close()
        for text, count in warned.items():
            if count > SHOWN:
                print(f"warned {count - SHOWN} more, which the table lists\n    {text}")
        for name, why in self._found.lost.items():
            tell("FAILED", name, [why])
        if self._gone:
            print(f"Results of recordings that are no more: {len(self._gone)}, the first of "
                  f"{shown(min(self._gone, key=os.fsencode))}")
        if self._found.passed_over():
            print(self._found.passed_over())
        if converted:
            print(f"Converted by sox: {converted}")
        failed += len(self._found.lost)
        counted = f"{before} finished before, " if before is not None else ""
        print(f"{done} {'analysed' if counted else 'finished'}, {counted}{failed} failed")
        return failed


def tell(word, name, texts):
    """What there is to say of a recording."""
    print(f"{word} {shown(name)}")
    for text in "\n".join(texts).splitlines():
        print(f"    {text}")


def interrupted():
    """Says so."""
    print("nalveo16-corpus: interrupted; the same command goes on from here.", file=sys.stderr)
    return 130


def silence():
    """What is printed from now on, and what is flushed at the end, goes nowhere."""
    os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
