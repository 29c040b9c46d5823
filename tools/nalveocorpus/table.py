"""The table of a corpus: OUT_DIR/nalveo16-corpus.tsv and its twin in JSON, made of the journals."""

import array
import collections
import fcntl
import json
import math
import os

import numpy as np

from .state import TEMPORARY, lock

NAME = "nalveo16-corpus"
COLUMNS = ("file", "status", "seconds", "rate", "channels", "bits", "converted", "peak_db",
           "level_db", "clipped", "voiced", "f0_p5", "f0_p50", "f0_p95", "c0", "warnings")
FULL = 32767 / 32768  # full scale
TOTAL = "(all)"  # instead of a name, in the last line
UNDONE = "not done"  # status of a recording whose turn has not come
ESCAPED = str.maketrans({"\\": r"\\", "\t": r"\t", "\n": r"\n", "\r": r"\r"})
OFFSETS = (1 << 48) - 1


def measure(recording, analysis):
    """What the table tells of a recording that was analysed."""
    samples = recording.samples
    peak = max(samples.max(), -samples.min())
    power = np.dot(samples, samples) / samples.size
    f0 = np.sort(analysis.f0[analysis.f0 > 0])
    rate, channels, bits = recording.source
    row = {"seconds": round(samples.size / recording.rate, 4), "rate": rate, "channels": channels,
           "bits": bits, "converted": recording.converted, "peak_db": decibels(peak, 20),
           "level_db": decibels(power, 10),
           "clipped": int(np.count_nonzero(np.abs(samples) >= FULL)) if peak >= FULL else 0,
           "voiced": round(f0.size / analysis.f0.size, 4)}
    for percent in (5, 50, 95):
        row[f"f0_p{percent}"] = (round(float(f0[round((f0.size - 1) * percent / 100)]), 1)
                                 if f0.size else None)
    row["c0"] = round(float(analysis.mcep[:, 0].mean()), 3)
    return row


def decibels(value, factor):
    """A ratio in dB, or nothing for nothing."""
    return round(factor * math.log10(value), 2) if value > 0 else None


class Known:
    """What the journals tell of some recordings: their newest lines, read when they are asked for.

    doubtful  names of those whose results may not have reached the disk before a power failure
    others    names that the journals tell of besides, if they are asked for
    """

    FILES = 200  # journals that are open at a time

    def __init__(self, state, names, others=False):
        self._paths, self._files, self.others = state.journals(), {}, []
        # Turn, number of the journal and offset in one number: that of the newest line is largest.
        self._newest = dict.fromkeys(names, -1)
        doubtful = {}
        for number, path in enumerate(self._paths):
            unsafe = {}
            for offset, line in state.lines(path):
                if "safe" in line:
                    unsafe = {mark: name for mark, name in unsafe.items()
                              if not line.get("from", 0) <= mark & OFFSETS < line["safe"]}
                    continue
                name = line["file"]
                if name not in self._newest:
                    if not others:
                        continue
                    self.others.append(name)
                mark = line.get("turn", 0) << 80 | number << 48 | offset
                self._newest[name] = max(self._newest.get(name, -1), mark)
                if state.doubtful(line):
                    unsafe[mark] = name
            doubtful.update(unsafe)
        self.doubtful = {name for mark, name in doubtful.items() if self._newest[name] == mark}

    def line(self, name):
        """The newest line of a recording; None if there is none that can be relied on."""
        mark = self._newest[name]
        if mark < 0 or name in self.doubtful:
            return None
        path = self._paths[mark >> 48 & 0xffffffff]
        if path not in self._files:
            if len(self._files) == self.FILES:
                self.close()
            self._files[path] = open(path, "rb")
        file = self._files[path]
        file.seek(mark & OFFSETS)
        return json.loads(file.readline())

    def close(self):
        """Closes the journals."""
        for file in self._files.values():
            file.close()
        self._files.clear()


def write(state, lines, manifest, wait=True):
    """Writes both forms of the table.

    Parameters
    ----------
    lines : iterable of dict
        A line for each row. It is begun when nobody else is at the table, so that the slice that is
        last sees what all have done.
    wait : bool
        Whether to wait for another slice that writes it; else, nothing is done meanwhile.
    """
    with open(os.path.join(state.folder, "lock-table"), "w", encoding="ascii") as file:
        try:
            lock(file, fcntl.LOCK_EX | (0 if wait else fcntl.LOCK_NB))
        except BlockingIOError:
            return
        stem = os.path.join(state.output, NAME)
        made = os.path.join(state.output, f"{TEMPORARY}{state.name}")
        try:
            with open(made + ".tsv", "w", encoding="utf-8", errors="surrogateescape") as tsv, open(
                    made + ".json", "w", encoding="ascii") as twin:
                _fill(tsv, twin, lines, manifest)
            for ending in ".tsv", ".json":
                os.replace(made + ending, stem + ending)
        finally:
            for ending in ".tsv", ".json":
                if os.path.exists(made + ending):
                    os.unlink(made + ending)


def _fill(tsv, twin, lines, manifest):
    total, comma = Total(), "\n"
    tsv.write("\t".join(COLUMNS) + "\n")
    twin.write(f'{{"made_with": {json.dumps(manifest, sort_keys=True)},\n"files": [')
    for line in lines:
        row = {column: line.get(column) for column in COLUMNS}
        total.add(row)
        tsv.write("\t".join(map(_cell, row.values())) + "\n")
        twin.write(comma + json.dumps(row))
        comma = ",\n"
    tsv.write("\t".join(map(_cell, total.row().values())) + "\n")
    twin.write(f'],\n"total": {json.dumps(total.row())}}}\n')
    for file in tsv, twin:
        file.flush()
        os.fsync(file.fileno())


def _cell(value):
    if value is None:
        return ""
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, list):
        value = " | ".join(value)
    return str(value).translate(ESCAPED)


class Total:
    """Adds up the rows: sums, the highest peak, means over the seconds, medians of percentiles."""

    def __init__(self):
        self._status = collections.Counter(analysed=0, failed=0)
        self._clipped = self._converted = self._warned = 0
        self._seconds = self._voiced = self._c0 = self._power = 0.0
        self._peak = None
        self._percentiles = {name: array.array("d") for name in ("f0_p5", "f0_p50", "f0_p95")}

    def add(self, row):
        """Takes one more row in."""
        self._status[row["status"]] += 1
        self._warned += bool(row["warnings"])
        if row["status"] != "analysed":
            return
        seconds = row["seconds"]
        self._seconds += seconds
        self._clipped += row["clipped"]
        self._converted += row["converted"]
        self._voiced += seconds * row["voiced"]
        self._c0 += seconds * row["c0"]
        if row["level_db"] is not None:
            self._power += seconds * 10 ** (row["level_db"] / 10)
            self._peak = max(row["peak_db"], self._peak if self._peak is not None else -np.inf)
        for name, values in self._percentiles.items():
            if row[name] is not None:
                values.append(row[name])

    def row(self):
        """The last line of the table."""
        mean = self._seconds or 1.0
        row = dict.fromkeys(COLUMNS)
        row.update(file=TOTAL, seconds=round(self._seconds, 4),
                   status=", ".join(f"{count} {status}" for status, count in self._status.items()),
                   converted=self._converted, peak_db=self._peak,
                   level_db=decibels(self._power / mean, 10), clipped=self._clipped,
                   voiced=round(self._voiced / mean, 4), c0=round(self._c0 / mean, 3),
                   warnings=f"{self._warned} files")
        for name, values in self._percentiles.items():
            row[name] = round(float(np.median(values)), 1) if values else None
        return row
