"""A recording in rows of lanes on one time axis: waveform, spectrogram, envelopes, tracks."""

import math
import os
from dataclasses import dataclass
from typing import Callable

import numpy as np
from matplotlib import ticker
from matplotlib.lines import Line2D
from matplotlib.patches import Patch

from . import spectra, style
from .recording import FS, Wrong, escape

ROWS_A_PAGE = 3
LEAST = 0.45  # scale of lanes whose labels do not lie over each other
COLUMNS = 100  # of a track, for each inch
MARGINS = {"left": 0.85, "right": 0.95, "top": 0.75, "bottom": 0.5}  # inches
GAP, ROW_GAP = 0.07, 0.42  # inches between the lanes of a row, and between rows
FREQS = spectra.rows(400)


@dataclass
class Lane:
    """One strip of a row: draw(axes, view) fills it, and returns what a colour bar explains."""
    height: float  # inches, before scaling
    label: str
    draw: Callable


@dataclass
class View:
    """What one row shows: seconds start to end, of a row that could hold a few more."""
    start: float
    end: float
    columns: float  # for each second of a track
    first: int  # sample
    last: int  # sample, not included

    def crowded(self, tracks):
        """Whether a column holds several frames."""
        return self.columns * tracks.lframe < 0.5 * FS


def part(tracks, view, track):
    """What a row needs of a track, a second more on either side: times, lowest, median, highest.

    One value for each frame, or for each column of pixels if frames are more.
    """
    shift = tracks.lframe / FS
    begin = min(max(0, int((view.start - 1) / shift)), len(track) - 1)
    values = track[begin:int((view.end + 1) / shift) + 2]
    low, median, high = spectra.by_column(values, max(1, round(len(values) * shift * view.columns)))
    width = len(values) / len(median)
    return (begin + (np.arange(len(median)) + 0.5) * width - 0.5) * shift, low, median, high


def thinned(tracks, view, track):
    """Times and values of a track that may lie over a spectrogram, as it hides next to nothing.

    Frame by frame, the maximum voiced frequency would hatch the harmonics that it is about.
    """
    time, _, median, _ = part(tracks, view, track)
    shift = time[1] - time[0] if len(time) > 1 else 1
    return time, spectra.smoothed(median, round(10 / (view.columns * shift)))


def seconds_of(args, samples):
    """The span to be drawn, in s."""
    start, end = args.span or (0, math.inf)
    return start, min(end, len(samples) / FS)


def row_seconds(args, seconds):
    """Length of a row: short recordings in one, long ones in rows in which a syllable is seen."""
    if args.row:
        return min(args.row, seconds)
    return seconds if seconds <= 12 else 20 if seconds <= 60 else 30


# Lanes --------------------------------------------------------------------------------------------


def wave_lane(samples, peak):
    def draw(axes, view):
        part = samples[view.first:view.last]
        low, _, high = spectra.by_column(part, 12 * COLUMNS)
        time = (view.first + (np.arange(len(low)) + 0.5) * len(part) / len(low)) / FS
        if len(part) > len(low):
            axes.fill_between(time, low, high, color=style.WAVE_GREY, linewidth=0.4)
        else:
            axes.plot(time, low, color=style.WAVE_GREY, linewidth=0.8)
        axes.set_ylim(-1.05 * peak, 1.05 * peak)
        axes.set_yticks([0, peak], ["0", f"{peak:.2g}"])
    return Lane(0.5, "wave", draw)


def image(axes, levels, times, limits):
    """Levels [time x FREQS] as an image on a mel scale."""
    step = times[1] - times[0] if len(times) > 1 else 1 / FS
    height = spectra.mel(FS / 2)
    shown = axes.imshow(levels.T, origin="lower", aspect="auto", cmap=style.COLOURMAP,
                        vmin=limits[0], vmax=limits[1], interpolation="antialiased",
                        extent=(times[0] - step / 2, times[-1] + step / 2, 0, height))
    ticks = (0, 0.2, 0.5, 1, 2, 3, 4, 6, 8)
    axes.set_yticks(spectra.mel(1000 * np.array(ticks)), ["", *(f"{khz:g}" for khz in ticks[1:])])
    axes.set_ylim(0, height)
    return shown


def spectrum_lane(samples, tracks, limits, columns, label="spectrogram", lines=True):
    def draw(axes, view):
        step = max(20, -(-(view.last - view.first) // columns))
        centres = np.arange(view.first, view.last, step)
        shown = image(axes, spectra.spectrogram(samples, centres, FREQS), centres / FS, limits)
        if not lines:
            return shown
        for number, (mvf, colour) in enumerate(zip(tracks.mvf, style.MVF_COLOURS)):
            time, line = thinned(tracks, view, mvf)
            axes.plot(time, spectra.mel(line), color=colour, linewidth=1.1,
                      path_effects=style.outline(1.1) if number == 0 else None)
        for number, (f0, colour) in enumerate(zip(tracks.f0, style.F0_COLOURS)):
            time, line = thinned(tracks, view, f0) if view.crowded(tracks) else (tracks.time, f0)
            width = style.layered(number, len(tracks.f0), 1.2)
            axes.plot(time, spectra.mel(line), color=colour, linewidth=width,
                      path_effects=style.outline(width) if number == 0 else None)
        return shown
    return Lane(2.3, f"{label}\nkHz, mel scale", draw)


def envelope_levels(samples, tracks, index, frames, freqs):
    """Levels in dB, [frames x freqs]."""
    levels = spectra.at(freqs, spectra.envelope(tracks.cc[index][frames], tracks, 2048))
    # Cepstra of digital silence describe the faint noise with which the analyser fills it.
    levels[spectra.silent(samples, frames * tracks.lframe)] = spectra.SILENCE
    return levels


def envelope_lane(samples, tracks, index, limits, columns):
    def draw(axes, view):
        frames = np.arange(view.first // tracks.lframe,
                           min(tracks.nframes, view.last // tracks.lframe + 1))
        if len(frames) == 0:
            return None
        frames = frames[::-(-len(frames) // columns)]
        return image(axes, envelope_levels(samples, tracks, index, frames, FREQS),
                     tracks.time[frames], limits)
    name = tracks.names["mcc"][index] if len(tracks.cc) > 1 else ""
    return Lane(2.0, f"envelope {name}\nkHz, mel scale", draw)


def mvf_lane(tracks):
    def draw(axes, view):
        for number, (mvf, colour) in enumerate(zip(tracks.mvf, style.MVF_COLOURS)):
            time, low, median, high = part(tracks, view, mvf / 1000)
            axes.fill_between(time, low, high, step="mid", color=colour, alpha=0.3, linewidth=0)
            axes.plot(time, median, color=colour, marker=".",
                      linewidth=style.layered(number, len(tracks.mvf), 0.9),
                      markersize=1 if view.crowded(tracks) else 2)
        axes.set_ylim(0, FS / 2000)
        axes.set_yticks((0, 4, 8))
        axes.grid(axis="y", color="#BBBBBB", linewidth=0.5)
    return Lane(0.8, "max. voiced\nkHz", draw)


def f0_limits(tracks, start, end):
    """Lowest and highest f0 of the axis, at least a ninth more than an octave apart."""
    inside = (tracks.time >= start) & (tracks.time <= end)
    f0 = np.concatenate([track[inside & np.isfinite(track)] for track in tracks.f0])
    low, high = (f0.min(), f0.max()) if len(f0) else (60, 500)
    centre = math.sqrt(low * high)
    return min(low / 1.12, centre / 1.5), max(high * 1.12, centre * 1.5)


def f0_steps(lowest, highest):
    """Round frequencies in Hz for the ticks of the axis."""
    steps = [hz for hz in (20, 30, 40, 50, 60, 80, 100, 120, 150, 200, 250, 300, 400, 500, 600, 800,
                           1000, 1500, 2000, 3000, 4000, 6000) if lowest <= hz <= highest]
    while len(steps) > 6:
        steps = steps[::2]
    return steps


def unvoiced_spans(tracks):
    """(start, end) in s of the stretches without f0."""
    half = tracks.lframe / FS / 2
    unvoiced = np.isnan(tracks.f0[0])
    edges = np.flatnonzero(np.diff(np.concatenate(([0], unvoiced.astype(int), [0]))))
    return [(tracks.time[a] - half, tracks.time[b - 1] + half)
            for a, b in zip(edges[::2], edges[1::2])]


def f0_lane(tracks, lowest, highest):
    steps = f0_steps(lowest, highest)
    unvoiced = unvoiced_spans(tracks)

    def draw(axes, view):
        axes.broken_barh([(begin, end - begin) for begin, end in unvoiced
                          if end >= view.start and begin <= view.end],
                         (lowest, highest - lowest), color=style.UNVOICED_GREY, linewidth=0,
                         zorder=0)
        size = 1 if view.crowded(tracks) else 2 if view.columns * tracks.lframe < 2 * FS else 4
        for number, (f0, colour) in enumerate(zip(tracks.f0, style.F0_COLOURS)):
            # A dot per frame keeps lone voiced frames visible.
            time, low, median, high = part(tracks, view, f0)
            axes.fill_between(time, low, high, step="mid", color=colour, alpha=0.3, linewidth=0)
            axes.plot(time, median, color=colour, marker=".", markersize=size,
                      linewidth=style.layered(number, len(tracks.f0), 1.2))
        axes.set_yscale("log")
        axes.set_ylim(lowest, highest)
        axes.yaxis.set_major_locator(ticker.FixedLocator(steps))
        axes.yaxis.set_major_formatter(ticker.FormatStrFormatter("%d"))
        axes.yaxis.set_minor_locator(ticker.NullLocator())
        axes.grid(axis="y", color="#BBBBBB", linewidth=0.5)
    return Lane(1.3, "f0\nHz", draw)


# Pages --------------------------------------------------------------------------------------------


def describe(samples, tracks, start, end):
    """The recording in a line; the figures are those of the span that is drawn."""
    seconds = len(samples) / FS
    text = f"{escape(os.path.basename(tracks.wave))}: "
    text += (f"{seconds:.2f} s" if (start, end) == (0, seconds) else
             f"{start:.2f} to {end:.2f} s of {seconds:.2f} s")
    if tracks.f0:
        f0 = tracks.f0[0][(tracks.time >= start) & (tracks.time <= end)]
        voiced = f0[np.isfinite(f0)]
        text += f", {100 * len(voiced) / max(len(f0), 1):.0f} % of frames voiced"
        if len(voiced):
            text += f", median f0 {np.median(voiced):.0f} Hz"
    return text


def explain(figure, tracks, start, end):
    """The legend, above all lanes; nothing is below it."""
    entries = []
    for kind, word, colours in (("f0", "f0", style.F0_COLOURS),
                                ("mvf", "maximum voiced frequency", style.MVF_COLOURS)):
        found, names = getattr(tracks, kind), tracks.names["lf0" if kind == "f0" else kind]
        for track, name, colour in zip(found, names, colours):
            if np.isfinite(track).any():
                text = word if len(found) == 1 else f"{word}: {name}"
                entries.append((Line2D([], [], color=colour, linewidth=1.8), text))
    inside = (tracks.time >= start) & (tracks.time <= end)
    if tracks.f0 and np.isnan(tracks.f0[0][inside]).any():
        entries.append((Patch(color=style.UNVOICED_GREY), "unvoiced"))
    if entries:
        width, height = figure.get_size_inches()
        size = style.fitting("".join(f"{text:>10}      " for _, text in entries), width, 9)
        legend = figure.legend(*zip(*entries), loc="upper center", ncols=len(entries),
                               fontsize=size, frameon=False, borderpad=0,
                               bbox_to_anchor=(0.5, 1 - 0.45 / height))
        for text in legend.get_texts():
            text.set_parse_math(False)


def levels_between(samples, first, last):
    """The palest and the darkest level of a picture of some samples, the last not included."""
    centres = np.unique(np.linspace(first, last - 1, 3000).astype(int))
    return spectra.level_range(spectra.spectrogram(samples, centres, FREQS[::4]))


def make_lanes(samples, tracks, start, end, columns, again):
    """The lanes of every row, with axes that all rows share; again: the resynthesis, or None."""
    first, last = int(start * FS), min(int(end * FS) + 1, len(samples))
    if first >= last or first // tracks.lframe >= tracks.nframes:
        raise Wrong(f"there is nothing to draw from {start:g} s on.")
    limits = levels_between(samples, first, last)
    lanes = [wave_lane(samples, np.abs(samples[first:last]).max() or 1.0),
             spectrum_lane(samples, tracks, limits, columns)]
    if again is not None:
        lanes.append(spectrum_lane(again, tracks, limits, columns, "resynthesis", lines=False))
    lanes += [envelope_lane(samples, tracks, index, limits, columns)
              for index in range(len(tracks.cc))]
    lanes += [mvf_lane(tracks)] if tracks.mvf else []
    lanes += [f0_lane(tracks, *f0_limits(tracks, start, end))] if tracks.f0 else []
    return lanes


def fill_row(figure, lanes, view, box, scale):
    """Draws one row below the height box[1] of the page; the box is in inches."""
    left, top, width, page_width, page_height = box
    drawn = []
    for number, lane in enumerate(lanes):
        height = lane.height * scale
        axes = figure.add_axes((left / page_width, (top - height) / page_height,
                                width / page_width, height / page_height))
        top -= height + GAP
        shown = lane.draw(axes, view)
        if shown is not None:
            drawn.append((axes, shown))
        axes.set_xlim(view.start, view.end)
        axes.set_ylabel(lane.label, fontsize=style.fitting(lane.label, height, 8),
                        parse_math=False)
        axes.yaxis.set_label_coords(-0.42 / width, 0.5)
        axes.tick_params(labelsize=8, labelbottom=number == len(lanes) - 1)
        axes.tick_params(axis="y", labelsize=min(8, 14 * scale))
    return drawn, axes


def pages(new_figure, args, samples, tracks, dpi, again=None):
    """Yields (figure, number of the page, number of pages)."""
    start, end = seconds_of(args, samples)
    seconds = row_seconds(args, end - start)
    nrows = max(1, math.ceil((end - start) / seconds - 1e-9)) if seconds > 0 else 1
    npages = -(-nrows // ROWS_A_PAGE)
    width, height = args.size or (min(max(10, end - start), 14), None)
    inner = width - MARGINS["left"] - MARGINS["right"]
    lanes = make_lanes(samples, tracks, start, end, min(round(inner * dpi), 6000),
                       again)
    here = min(nrows, ROWS_A_PAGE)
    fixed = (MARGINS["top"] + MARGINS["bottom"] + here * (len(lanes) - 1) * GAP
             + (here - 1) * ROW_GAP)
    natural = sum(lane.height for lane in lanes) * here
    scale = 1 if nrows == 1 else 0.75
    if height is None:
        height = fixed + scale * natural
    scale = (height - fixed) / natural
    if scale < LEAST - 1e-9 or inner < 1:
        raise Wrong(f"--size is too small: {len(lanes)} lanes in {here} row(s) need at least "
                    f"{math.ceil(10 * (fixed + LEAST * natural)) / 10:g} inches of height and 3 of "
                    "width.")
    for page in range(npages):
        figure = new_figure((width, height))
        title = args.title or describe(samples, tracks, start, end)
        title += f" (page {page + 1} of {npages})" if npages > 1 else ""
        figure.text(0.5, 1 - 0.12 / height, title, parse_math=False, ha="center", va="top",
                    fontsize=style.fitting(title, width - 0.3, 12))
        explain(figure, tracks, start, end)
        top = height - MARGINS["top"]
        for row in range(page * ROWS_A_PAGE, min((page + 1) * ROWS_A_PAGE, nrows)):
            begin = start + row * seconds
            view = View(begin, begin + seconds,
                        inner * COLUMNS / seconds, int(begin * FS),
                        min(int(min(begin + seconds, end) * FS) + 1, len(samples)))
            drawn, axes = fill_row(figure, lanes, view,
                                   (MARGINS["left"], top, inner, width, height), scale)
            if row == page * ROWS_A_PAGE:
                low = drawn[-1][0].get_position().y0
                colours = figure.add_axes((1 - (MARGINS["right"] - 0.12) / width, low,
                                           0.13 / width, drawn[0][0].get_position().y1 - low))
                bar = figure.colorbar(drawn[0][1], cax=colours, extend="both")
                bar.set_label("dB re full scale, per Hz", fontsize=8)
                bar.ax.tick_params(labelsize=8)
            top -= scale * natural / here + (len(lanes) - 1) * GAP + ROW_GAP
        axes.set_xlabel("Time (s)", fontsize=9)
        yield figure, page + 1, npages
