"""The picture of one frame: its spectrum, and envelopes over it."""

import os

import numpy as np
from matplotlib.backends.backend_agg import FigureCanvasAgg

from . import spectra, style
from .recording import FS, Wrong, escape


def distinct(envelopes, number, nfft):
    """(label, levels) of the envelopes of a frame, those that are the same drawn as one.

    envelopes  list of (label, tracks, index of the cepstra in them)
    """
    drawn = []
    for label, tracks, index in envelopes:
        levels = spectra.envelope(tracks.cc[index][number], tracks, nfft)
        for labels, others in drawn:
            if np.allclose(levels, others, rtol=0, atol=0.001):
                labels.append(label)
                break
        else:
            drawn.append(([label], levels))
    return [("\n= ".join(labels), levels) for labels, levels in drawn]


def draw(figure, args, samples, tracks, envelopes, again=None):
    """One frame, with an envelope over it for each (label, tracks, index) of envelopes.

    again  samples of the resynthesis, or None
    """
    number = round(args.frame * FS / tracks.lframe)
    if not 0 <= number < tracks.nframes:
        raise Wrong(f"there is no frame at {args.frame:g} s: they are at 0 to "
                    f"{tracks.time[-1]:g} s.")
    f0 = np.nan_to_num(tracks.f0[0][number]) if tracks.f0 else 0.0
    freqs, levels = spectra.frame_spectrum(samples, number * tracks.lframe, f0)

    axes = figure.add_subplot()
    axes.plot(freqs / 1000, levels, color="#777777", linewidth=0.9,
              label="spectrum, harmonics scaled to density" if f0 else "spectrum")
    if again is not None:
        axes.plot(freqs / 1000, spectra.frame_spectrum(again, number * tracks.lframe, f0)[1],
                  color=style.SKY, linewidth=0.9, label="resynthesis")
    shown = distinct(envelopes, number, 2 * len(freqs) - 2)
    styles = ((style.VERMILION, "-"), (style.BLUE, "--"), (style.GREEN, "-."),
              (style.PINK, (0, (6, 1))), (style.ORANGE, ":"))
    for (label, envelope), (colour, dashes) in zip(shown, styles):
        axes.plot(freqs / 1000, envelope, color=colour, label=label, linestyle=dashes,
                  linewidth=1.9)
    top = max([levels.max()] + [envelope.max() for _, envelope in shown])
    for track, colour in zip(tracks.mvf, ("black", *style.MVF_COLOURS)):
        if np.isfinite(track[number]):
            axes.axvline(track[number] / 1000, color=colour, linewidth=1, linestyle=(0, (2, 2)),
                         label=f"maximum voiced frequency, {track[number]:.0f} Hz")
    axes.set_ylim(top - 75, top + 6)
    axes.set_xlim(0, FS / 2000)
    axes.set_xlabel("Frequency (kHz)")
    axes.set_ylabel("Level (dB re full scale, per Hz)")
    axes.grid(color="#DDDDDD", linewidth=0.5)
    # Below the axes, where there is nothing that it could cover.
    lines, labels = axes.get_legend_handles_labels()
    legend = figure.legend(lines, labels, loc="lower center", fontsize=9, ncols=2, frameon=False)
    for text in legend.get_texts():
        text.set_parse_math(False)
    below = legend.get_window_extent(FigureCanvasAgg(figure).get_renderer()).y1 / figure.dpi
    width, height = figure.get_size_inches()
    if height - below < 2:
        raise Wrong(f"--size is too small: this picture needs {below + 2:.1f} inches of height.")
    figure.subplots_adjust(left=0.8 / width, right=1 - 0.2 / width, top=1 - 0.4 / height,
                           bottom=(below + 0.5) / height)
    state = f", f0 {f0:.1f} Hz" if f0 else ", unvoiced" if tracks.f0 else ""
    name = escape(os.path.basename(tracks.wave))
    title = f"{name}: frame {number} at {tracks.time[number]:.3f} s{state}"
    axes.set_title(args.title or title, parse_math=False, loc="center",
                   fontsize=style.fitting(args.title or title, width - 0.3, 12))
