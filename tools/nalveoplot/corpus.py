"""The picture of a corpus: how its files are distributed, and which ones stand apart."""

import csv
import math
import os
from dataclasses import dataclass
from typing import Callable

import numpy as np
from matplotlib import ticker
from matplotlib.gridspec import GridSpec

from . import style
from .recording import Wrong, escape

NAMED = 7  # outliers in each panel
TOTAL = "(all)"  # stands for a name in the table's last line


@dataclass
class Panel:
    """One histogram: a column of the table, the scale it is seen on, and what it is called."""
    column: str
    label: str
    least: float  # spread on that scale, so that equal files have no outliers
    form: str
    allowed: tuple
    scale: Callable = lambda values: values


PANELS = (
    Panel("level_db", "level (dB re full scale)", 0.5, "{:.1f} dB", (-200, 10)),
    Panel("voiced", "voiced frames (share)", 0.01, "{:.1%}", (0, 1)),
    Panel("f0_p50", "median f0 (Hz)", math.log(1.02), "{:.0f} Hz", (1, 8000), np.log),
)


def number(text, path, line, column, allowed):
    """Value of a cell, NaN if there is none."""
    if text is None or text.strip().lower() in ("", "-", "nan", "none"):
        return math.nan
    try:
        value = float(text)
        if allowed[0] <= value <= allowed[1]:
            return value
    except ValueError:
        pass
    raise Wrong(f"{path}, line {line}: {column} is {text}, but must be a number from {allowed[0]} "
                f"to {allowed[1]}, or empty.")


class Table:
    """What nalveo16-corpus wrote of its files.

    names   of all files, and which of them failed and were clipped
    values  by column: [files], NaN where there is none
    """

    def __init__(self, path):
        needed = ("file", "status", *(panel.column for panel in PANELS))
        self.names, self.failed, self.clipped, self.seconds = [], [], [], 0.0
        values = []
        try:
            with open(path, encoding="utf-8", errors="surrogateescape", newline="\n") as file:
                rows = csv.DictReader(file, delimiter="\t", quoting=csv.QUOTE_NONE)
                missing = [name for name in needed if name not in (rows.fieldnames or ())]
                if missing:
                    raise Wrong(f"{path} is no table of nalveo16-corpus: it has no column "
                                f"{missing[0]}.")
                for row in rows:
                    if row["file"] != TOTAL and row["status"] != "not done":
                        self._add(path, rows.line_num, row, values)
        except OSError as error:
            raise Wrong(f"could not read {path}: {error.strerror}.") from error
        except csv.Error as error:
            raise Wrong(f"could not read {path}: {error}.") from error
        if not self.names:
            raise Wrong(f"{path} tells of no files.")
        table = np.array(values)
        self.values = {panel.column: table[:, i] for i, panel in enumerate(PANELS)}

    def _add(self, path, line, row, values):
        name = escape(row["file"])
        self.names.append(name)
        if row["status"] != "analysed":
            self.failed.append(name)
        if number(row.get("clipped"), path, line, "clipped", (0, math.inf)) > 0:
            self.clipped.append(name)
        self.seconds += np.nan_to_num(
            number(row.get("seconds"), path, line, "seconds", (0, math.inf)))
        values.append([number(row[panel.column], path, line, panel.column, panel.allowed)
                       for panel in PANELS])


def outliers(values, least):
    """Indices of the values that stand apart, the farthest first.

    Apart is what lies farther from the median than five standard deviations of the normal
    distribution that has the quartile on that side: of 10,000 files of such a distribution, not
    one. Apart is, too, what a gap of 0.3 of the range of the inner nine tenths parts from all but
    a hundredth of the files: where men and women speak, the quartiles are far from each other.
    """
    finite = np.flatnonzero(np.isfinite(values))
    if len(finite) < 5:
        return finite[:0]
    low, median, high = np.percentile(values[finite], (25, 50, 75))
    spread = np.where(values < median, median - low, high - median) / 0.6745
    distance = np.abs(values - median) / np.maximum(spread, least)
    apart = distance > 5
    if len(finite) >= 20:
        order = finite[np.argsort(values[finite])]
        inner = np.subtract(*np.percentile(values[finite], (95, 5)))
        gaps = np.flatnonzero(np.diff(values[order]) > max(0.3 * inner, 5 * least))
        outer = max(len(order) // 100, 3)
        for gap in gaps:
            if gap < outer:
                apart[order[:gap + 1]] = True
            if gap >= len(order) - 1 - outer:
                apart[order[gap + 1:]] = True
    far = np.flatnonzero(apart)
    return far[np.argsort(-distance[far], kind="stable")]


def shortened(name, longest=44):
    """A name whose end can be read."""
    return name if len(name) <= longest else "…" + name[1 - longest:]


def listed(names, most):
    """Some names, and how many there are besides."""
    more = [f"and {len(names) - most} more"] if len(names) > most else []
    return names[:most] + more


def draw_panel(axes, beside, panel, table):
    """A histogram with the files that stand apart in another colour, and their names beside it."""
    values = table.values[panel.column]
    scaled = panel.scale(values)
    finite = scaled[np.isfinite(scaled)]
    axes.set_xlabel(panel.label)
    axes.set_ylabel("files")
    beside.axis("off")
    if len(finite) == 0:
        axes.text(0.5, 0.5, "no values", ha="center", va="center", transform=axes.transAxes)
        return
    far = outliers(scaled, panel.least)
    margin = max(np.ptp(finite) / 100, panel.least)
    bins = min(max(20, round(2 * math.sqrt(len(finite)))), 80)
    edges = np.linspace(finite.min() - margin, finite.max() + margin, bins + 1)
    near = np.setdiff1d(np.flatnonzero(np.isfinite(scaled)), far)
    axes.hist([scaled[near], scaled[far]], edges, stacked=True,
              color=(style.BLUE, style.VERMILION))
    # A lone file among thousands is as high as a tenth of the axis.
    axes.set_yscale("log")
    axes.set_ylim(0.5, max(12, axes.get_ylim()[1]))
    axes.yaxis.set_major_formatter(ticker.FuncFormatter(lambda count, _: f"{count:g}"))
    axes.yaxis.set_minor_formatter(ticker.NullFormatter())
    if panel.scale is np.log:
        low, high = np.exp(edges[[0, -1]])
        ticks = (20, 30, 50, 70, 100, 150, 200, 300, 400, 500, 700, 1000, 2000, 4000)
        if high < 2 * low:
            ticks = ticker.MaxNLocator(6).tick_values(low, high)
        ticks = [hz for hz in ticks if low <= hz <= high]
        axes.set_xticks(np.log(ticks), [f"{hz:g}" for hz in ticks])
    quartiles = np.percentile(values[np.isfinite(values)], (5, 50, 95))
    axes.set_title("5, 50, 95 %: " + ", ".join(map(panel.form.format, quartiles)), fontsize=9,
                   parse_math=False)
    names = listed([f"{panel.form.format(values[index])}  {shortened(table.names[index])}"
                    for index in far], NAMED)
    beside.text(0, 1, "\n".join(names) or "no file stands apart", fontsize=8, va="top",
                color=style.VERMILION if names else "#555555", parse_math=False,
                transform=beside.transAxes)


def draw(figure, args, path):
    """The picture of the table in a file."""
    table = Table(path)
    width, height = figure.get_size_inches()
    remarks = [f"{word}: " + ", ".join(listed(list(map(shortened, names)), 3)) for word, names in
               (("failed", table.failed), ("clipped", table.clipped)) if names]
    grid = GridSpec(len(PANELS), 2, figure, width_ratios=(3, 2), left=0.8 / width,
                    right=1 - 0.1 / width, top=1 - (0.75 + 0.2 * len(remarks)) / height,
                    bottom=0.55 / height, hspace=0.65, wspace=0.05)
    for row, panel in enumerate(PANELS):
        draw_panel(figure.add_subplot(grid[row, 0]), figure.add_subplot(grid[row, 1]), panel, table)
    title = args.title or (f"{escape(os.path.basename(path))}: {len(table.names)} files, "
                           f"{table.seconds / 3600:.2f} h, {len(table.failed)} failed, "
                           f"{len(table.clipped)} clipped")
    figure.text(0.5, 1 - 0.12 / height, title, parse_math=False, fontsize=12, ha="center", va="top")
    for line, text in enumerate(remarks):
        figure.text(0.8 / width, 1 - (0.45 + 0.2 * line) / height, text, parse_math=False,
                    fontsize=8, va="top", color=style.VERMILION)
