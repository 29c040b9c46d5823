"""Colours, lines and outlines that the pictures share."""

import matplotlib
from matplotlib.patheffects import Normal, Stroke

# Colours that stay apart for colour-blind eyes (Okabe and Ito, "Color universal design", 2008).
BLUE, ORANGE, GREEN, PINK, SKY, VERMILION = (
    "#0072B2", "#E69F00", "#009E73", "#CC79A7", "#56B4E9", "#D55E00")
UNVOICED_GREY = "#E3E3E3"
WAVE_GREY = "#555555"
F0_COLOURS = (BLUE, VERMILION, SKY, PINK, ORANGE)
MVF_COLOURS = (GREEN, ORANGE, PINK, SKY, VERMILION)
COLOURMAP = "magma_r"

matplotlib.rcParams.update({
    "svg.hashsalt": "nalveo16-plot",  # instead of random names: the same input, the same file
    "svg.fonttype": "none",  # text stays text: it can be searched and edited
    "pdf.fonttype": 42,  # TrueType, embedded; journals refuse matplotlib's Type 3
    "ps.fonttype": 42,
    "axes.titlesize": 10,
    "axes.titlelocation": "left",
})


def fitting(text, inches, most):
    """Size in points at which the longest line of a text is not longer than that, if legible."""
    longest = max(map(len, text.split("\n")))
    return min(most, max(72 * inches / (0.6 * max(longest, 1)), 5))


def layered(number, count, width):
    """Line width of one of several tracks: what lies above leaves the first to be seen."""
    return width if count == 1 else 2.4 * width if number == 0 else 0.8 * width


def outline(width):
    """A white edge, by which a line can be told from any background."""
    return [Stroke(linewidth=width + 1.4, foreground="white"), Normal()]
