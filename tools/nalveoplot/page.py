"""The interactive page: one file with all its data, which needs no network.

Spectrogram and envelopes are images with a palette, in tiles and at several resolutions, of which
the page draws what is looked at; a colour tells the level. Tracks and sounds stand in it as they
are, so that it shows and plays them without loss.
"""

import base64
import html
import io
import json
import os
import re

import matplotlib
import numpy as np
from PIL import Image

from . import overview, spectra, style
from .recording import FS, Wrong, resynthesis, tell

ROWS = 256  # of the images
SHADES = 128  # half a decibel each, about
TILE = 2048  # columns
COARSER = 8  # columns of one resolution that are one of the next


def encoded(values):
    return base64.b64encode(values).decode()


def palette():
    """Red, green, blue of each shade; all are different, so that a colour tells its level."""
    shades = np.linspace(0, 1, SHADES)
    return (255 * matplotlib.colormaps[style.COLOURMAP](shades)[:, :3]).round().astype(np.uint8)


def shades_of(levels, limits):
    """Levels in dB as numbers of shades."""
    place = (levels - limits[0]) / (limits[1] - limits[0]) * (SHADES - 1)
    return np.clip(np.round(place), 0, SHADES - 1).astype(np.uint8)


def tile(shades, first):
    """A .png of some columns, [columns x ROWS]; the highest frequency comes first."""
    image = Image.fromarray(np.ascontiguousarray(shades.T[::-1]), "P")
    image.putpalette(palette().tobytes())
    file = io.BytesIO()
    image.save(file, "PNG")
    return {"first": first, "columns": len(shades), "data": encoded(file.getvalue())}


def pyramid(name, columns, step, levels_of, limits, lines=False):
    """An image at all its resolutions; levels_of gives the levels of an array of columns."""
    shades = np.concatenate([
        shades_of(levels_of(np.arange(first, min(first + TILE, columns))), limits)
        for first in range(0, columns, TILE)])
    levels = []
    while True:
        levels.append({"step": step, "columns": len(shades), "tiles": [
            tile(shades[first:first + TILE], first) for first in range(0, len(shades), TILE)]})
        if len(shades) <= TILE:
            return {"name": name, "levels": levels, "lines": lines}
        # A column is centred on its time: the first of a coarser image keeps its place.
        edge = np.pad(shades, ((COARSER // 2, -len(shades) % COARSER + COARSER // 2), (0, 0)),
                      mode="edge")
        edge = edge[:len(edge) // COARSER * COARSER]
        shades = edge.reshape(-1, COARSER, ROWS).mean(axis=1).round().astype(np.uint8)
        step *= COARSER


def track(name, values, colour):
    return {"name": name, "colour": colour, "data": encoded(values.astype("<f4"))}


def tracks_of(tracks, kind, word, colours):
    """The tracks of a kind, named by their files if there are several."""
    found, names = getattr(tracks, kind), tracks.names["lf0" if kind == "f0" else kind]
    return [track(word if len(found) == 1 else f"{word} ({name})", values,
                  colour) for values, name, colour in zip(found, names, colours)]


def sound(name, samples):
    """Sixteen bits of it; made quieter as a whole if it goes beyond full scale."""
    within = np.minimum(samples / max(np.abs(samples).max(), 1), 32767 / 32768)
    whole = np.round(within * 32768).astype("<i2")
    return {"name": name, "data": encoded(whole)}


def contents(args, samples, tracks, again):
    """What the page shows, as it stands in it."""
    seconds = len(samples) / FS
    start, end = overview.seconds_of(args, samples)
    shift = tracks.lframe / FS
    freqs = spectra.rows(ROWS)
    limits = overview.levels_between(samples, 0, len(samples))
    loudest = max(min(float(np.abs(one).max()), 1.0) for one in (samples, again)
                  if one is not None)
    # Every other column of minutes of sound: the page stays below six megabytes for each.
    every = 1 if seconds <= 120 else 2
    step = every * min(tracks.lframe, 80)
    images = [pyramid("spectrogram", -(-len(samples) // step), step / FS,
                      lambda columns: spectra.spectrogram(samples, columns * step, freqs),
                      limits, lines=True)]
    if args.resynth:
        images.append(pyramid("resynthesis", -(-len(again) // step), step / FS,
                              lambda columns: spectra.spectrogram(again, columns * step, freqs),
                              limits))
    for index, name in enumerate(tracks.names["mcc"]):
        images.append(pyramid(
            "envelope" if len(tracks.cc) == 1 else name,
            -(-tracks.nframes // every), every * shift,
            lambda columns, index=index: overview.envelope_levels(
                samples, tracks, index, every * columns, freqs), limits))
    f0limits = overview.f0_limits(tracks, 0, seconds) if tracks.f0 else (60, 500)
    return {
        "fs": FS, "seconds": seconds, "shift": shift, "view": [start, end], "rows": ROWS,
        "tile": TILE, "limits": limits, "peak": loudest or 1.0,
        "palette": [int(colour) for colour in palette().astype(int) @ (65536, 256, 1)],
        "images": images,
        "sounds": [sound("original", samples)]
        + ([] if again is None else [sound("resynthesis", again)]),
        "f0": tracks_of(tracks, "f0", "f0", style.F0_COLOURS),
        "mvf": tracks_of(tracks, "mvf", "maximum voiced frequency", style.MVF_COLOURS),
        "f0limits": f0limits, "f0ticks": overview.f0_steps(*f0limits),
        "unvoiced": overview.unvoiced_spans(tracks) if tracks.f0 else [],
    }


def write(path, args, samples, tracks, again):
    """The page as a file; again: the resynthesis, or None, where it is made if it can be."""
    if again is None and tracks.f0 and tracks.cc:
        try:
            again = resynthesis(tracks)
        except Wrong as error:
            tell(f"Note: {error}")

    def part(name):
        with open(os.path.join(os.path.dirname(__file__), name), encoding="utf-8") as file:
            return file.read()
    title = args.title or overview.describe(samples, tracks, 0, len(samples) / FS)
    # Nothing in the data can end the script that holds it.
    data = json.dumps(contents(args, samples, tracks, again), allow_nan=False)
    parts = {"title": html.escape(title), "style": part("page.css").strip(),
             "script": part("drawing.js") + part("page.js").strip(),
             "data": data.replace("<", "\\u003c")}
    text = re.sub("@([a-z]+)@", lambda match: parts[match[1]], part("page.html"))
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
