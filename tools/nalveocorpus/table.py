"""The table of a corpus: OUT_DIR/nalveo16-corpus.tsv and its twin in JSON, made of the journals."""

import fcntl
import json
import os

import numpy as np

from .state import TEMPORARY, own_mark

NAME = "nalveo16-corpus"
COLUMNS = ("file", "status", "seconds", "rate", "channels", "bits", "converted", "peak_db",
           "level_db", "clipped", "voiced", "f0_p5", "f0_p50", "f0_p95", "c0", "warnings")
TOTAL = "(all)"  # instead of a name, in the last line


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
           "clipped": int(np.count_nonzero(np.abs(samples) >= 32767 / 32768)),
           "voiced": round(f0.size / analysis.f0.size, 4)}
    for percent in (5, 50, 95):
        row[f"f0_p{percent}"] = (round(float(f0[round((f0.size - 1) * percent / 100)]), 1)
                                 if f0.size else None)
    row["c0"] = round(float(analysis.mcep[:, 0].mean()), 3)
    return row


def decibels(value, factor):
    """A ratio in dB, or nothing for nothing."""
    return round(factor * float(np.log10(value)), 2) if value > 0 else None


class Entry:
    """What is kept of a line of a journal: where it is, and what tells whether it still holds."""

    __slots__ = ("path", "offset", "turn", "mtime", "size", "stamps", "sizes")

    def __init__(self, path, offset, line):
        self.path, self.offset, self.turn = path, offset, line.get("turn", 0)
        self.mtime, self.size = line["mtime"], line["size"]
        self.stamps, self.sizes = tuple(line.get("stamps", ())), tuple(line.get("sizes", ()))


def index(state):
    """The last entry of every recording, by name."""
    last = {}
    for path, offset, line in state.entries():
        before = last.get(line["file"])
        if before is None or line.get("turn", 0) >= before.turn:
            last[line["file"]] = Entry(path, offset, line)
    return last


class Lines:
    """Reads single lines of journals."""

    def __init__(self):
        self._files = {}

    def read(self, entry):
        """The line of an entry."""
        if entry.path not in self._files:
            self._files[entry.path] = open(entry.path, "rb")
        file = self._files[entry.path]
        file.seek(entry.offset)
        return json.loads(file.readline())

    def close(self):
        for file in self._files.values():
            file.close()


def write(state, names, manifest):
    """Writes both forms of the table for the recordings in `names`."""
    with open(os.path.join(state.folder, "lock-table"), "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # the slice that is last sees what all have done
        entries, lines, total = index(state), Lines(), Total()
        stem = os.path.join(state.output, NAME)
        made = os.path.join(state.output, f"{TEMPORARY}{own_mark()}")
        try:
            with open(made + ".tsv", "w", encoding="utf-8", errors="surrogateescape") as tsv, open(
                    made + ".json", "w", encoding="ascii") as twin:
                tsv.write("\t".join(COLUMNS) + "\n")
                head = json.dumps(manifest, sort_keys=True)
                twin.write(f'{{"made_with": {head},\n"files": [')
                comma = "\n"
                for name in names:
                    if name not in entries:
                        continue
                    line = lines.read(entries[name])
                    row = {column: line.get(column) for column in COLUMNS}
                    total.add(row)
                    tsv.write("\t".join(map(_cell, row.values())) + "\n")
                    twin.write(comma + json.dumps(row))
                    comma = ",\n"
                tsv.write("\t".join(map(_cell, total.row().values())) + "\n")
                twin.write(f'],\n"total": {json.dumps(total.row())}}}\n')
            os.replace(made + ".tsv", stem + ".tsv")
            os.replace(made + ".json", stem + ".json")
        finally:
            lines.close()
            for ending in ".tsv", ".json":
                if os.path.exists(made + ending):
                    os.unlink(made + ending)


def _cell(value):
    if value is None:
        return ""
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, list):
        value = " | ".join(value)
    return str(value).replace("\\", "\\\\").replace("\t", "\\t").replace("\n", "\\n")


class Total:
    """Adds up the rows: sums, the highest peak, means over the seconds, medians of percentiles."""

    def __init__(self):
        self._files = self._failed = self._clipped = self._converted = self._warned = 0
        self._seconds = self._voiced = self._c0 = self._power = 0.0
        self._peak = None
        self._percentiles = {"f0_p5": [], "f0_p50": [], "f0_p95": []}

    def add(self, row):
        """Takes one more row in."""
        self._files += 1
        self._warned += bool(row["warnings"])
        if row["status"] != "analysed":
            self._failed += 1
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
        row.update(file=TOTAL, status=f"{self._files - self._failed} analysed, "
                   f"{self._failed} failed", seconds=round(self._seconds, 4),
                   converted=self._converted, peak_db=self._peak,
                   level_db=decibels(self._power / mean, 10), clipped=self._clipped,
                   voiced=round(self._voiced / mean, 4), c0=round(self._c0 / mean, 3),
                   warnings=f"{self._warned} files")
        for name, values in self._percentiles.items():
            row[name] = round(float(np.median(values)), 1) if values else None
        return row
