#!/usr/bin/python3
"""nalveo16-plot: pictures that show what is there, and no picture of what does not fit."""

import contextlib
import filecmp
import io
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import wave

import matplotlib.image
import numpy as np
from matplotlib.figure import Figure

SAMPLE = os.path.join(os.path.dirname(__file__), "../../examples/sample.wav")
PLOT = shutil.which("nalveo16-plot")
HERE = os.path.dirname(os.path.realpath(PLOT))
sys.path[:0] = [HERE, os.path.join(HERE, "../share/nalveo16")]

from nalveoplot import commandline, frame, overview, page, recording, spectra, style  # noqa: E402
from nalveoplot.options import parse  # noqa: E402

PALE = (252, 253, 191)  # the palest of the colour map
F0 = 130.0  # Hz
GAINS = (0.0, -20.0)  # of the harmonics, dB, at 0 and at 8000 Hz; a line between them


def write(path, samples):
    with wave.open(path, "wb") as file:
        file.setparams((1, 2, 16000, 0, "NONE", ""))
        file.writeframes(np.round(32768 * np.asarray(samples)).astype("<i2").tobytes())


def amplitude(hz):
    return 0.01 * 10 ** (np.interp(hz, (0, 8000), GAINS) / 20)


def voice():
    """A second of harmonics of known amplitudes, all the way up."""
    time = np.arange(16000) / 16000
    return sum(amplitude(h * F0) * np.cos(2 * np.pi * h * F0 * time + h * h) for h in range(1, 62))


def noise():
    return 0.05 * np.random.default_rng(1).standard_normal(16000)


def pixels(path):
    return (255 * matplotlib.image.imread(path)[:, :, :3]).round().astype(int) @ (65536, 256, 1)


def colours(path):
    return {f"#{pixel:06X}" for pixel in np.unique(pixels(path))}


def texts(path):
    """Texts of an .svg, which stay texts."""
    return re.findall(r"<text[^>]*>([^<]*)</text>", pathlib.Path(path).read_text("utf-8"))


def pages_in(path):
    return len(re.findall(rb"/Type /Page\b", pathlib.Path(path).read_bytes()))


def box_of(axes, image):
    """Rows and columns of a page's pixels that lie well inside of axes."""
    box = axes.get_position()
    height, width = image.shape
    return (slice(round(height * (1 - box.y1)) + 2, round(height * (1 - box.y0)) - 2),
            slice(round(width * box.x0) + 2, round(width * box.x1) - 6))


def analysed(*arguments):
    """What a recording's picture is drawn from: options, samples and tracks."""
    args = parse([*arguments, "-o", "x.png"])
    samples = recording.read_recording(args.wave[0])
    return args, samples, recording.analyse(args, args.wave[0], samples)


def first_page(args, samples, tracks, *again):
    pages = overview.pages(lambda size: Figure(figsize=size), args, samples, tracks, 100, *again)
    return next(pages)[0]


class PlotTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nalveo16 plot ")
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        shutil.copy(SAMPLE, "sample.wav")

    def plot(self, *arguments, output="out.png", status=0):
        """What the program says, run within this one, which spares the start of matplotlib."""
        said = io.StringIO()
        with contextlib.redirect_stderr(said), contextlib.redirect_stdout(said), \
                self.assertRaises(SystemExit) as end:
            commandline.main([*arguments, "-o", output])
        self.assertEqual(end.exception.code, status, (arguments, said.getvalue()))
        return said.getvalue()

    def test_levels_are_those_of_the_signal(self):
        """Harmonics count with half their amplitude over root f0, however cepstra are made."""
        harmonics = F0 * np.arange(2, 58)
        expected = 20 * np.log10(amplitude(harmonics) / 2 / np.sqrt(F0))
        write("voice.wav", voice())
        for options in ((), ("--htsscale=0",), ("--alpha=0.2", "--ccord=50"), ("--ccmeth=4",)):
            *_, tracks = analysed("voice.wav", *options)
            np.testing.assert_allclose(tracks.f0[0][20:-20], F0, rtol=1e-3)
            levels = spectra.at(harmonics, spectra.envelope(tracks.cc[0][[100]], tracks, 8192))
            self.assertLess(np.abs(levels[0] - expected).max(), 0.5, options)
        # The peaks of a frame's spectrum meet its envelope.
        freqs, levels = spectra.frame_spectrum(voice(), 8000, F0)
        for hz, level in zip(harmonics, expected):
            self.assertAlmostEqual(levels[np.abs(freqs - hz) < 20].max(), level, delta=0.3)

    def test_pictures(self):
        """Each shows the lines that it should, in their colours, and no others."""
        write("noise $x_1.wav", noise())
        write("one.wav", [0.1])
        write("silence.wav", np.zeros(4000))
        shutil.copy("sample.wav", "grüße.wav")
        subprocess.run(["nalveo16", "sample.wav", "f", "c", "v", "--lframe=160", "--ccord=24"],
                       check=True)
        content = pathlib.Path("sample.wav").read_bytes()
        pathlib.Path("odd.wav").write_bytes(  # no RIFF size, and three bytes more of format
            content[:4] + bytes(4) + content[8:16] + b"\x13\0\0\0" + content[20:36] + b"abc"
            + content[36:])
        line = {style.BLUE, style.GREEN}
        for arguments, present, absent in (
                (("sample.wav",), {*line, style.UNVOICED_GREY}, set()),
                (("grüße.wav", "--span", "0.8", "1", "--title", "$a_b^"), line, set()),
                (("noise $x_1.wav",), {style.UNVOICED_GREY}, line),
                (("odd.wav", "--span", "0", "1e9"), {*line, style.UNVOICED_GREY}, set()),
                (("one.wav",), {style.UNVOICED_GREY}, line),
                (("silence.wav",), {style.UNVOICED_GREY}, line),
                (("sample.wav", "--lf0", "f", "--lframe=160"), {style.BLUE}, {style.GREEN}),
                (("sample.wav", "--lf0", "f", "--lf0", "f", "--lframe=160"),
                 {style.BLUE, style.VERMILION}, {style.GREEN}),
                (("sample.wav", "--mvf", "v", "--mcc", "c", "--lframe=160", "--ccord=24"),
                 {style.GREEN}, {style.BLUE}),
                (("sample.wav", "--frame", "0.9"), {style.VERMILION}, line),
                (("sample.wav", "--frame", "0.9", "--compare"),
                 {style.VERMILION, style.BLUE, style.PINK}, set()),
                (("sample.wav", "--frame", "0.01"), {style.VERMILION}, line)):
            self.plot(*arguments)
            found = colours("out.png")
            self.assertLessEqual(present, found, arguments)
            self.assertFalse(absent & found, arguments)
            os.remove("out.png")

    def test_same_picture_again(self):
        for name in "ab":
            subprocess.run([PLOT, "sample.wav", "--span", "0.8", "1", "-o", name + ".png", "-o",
                            name + ".pdf", "-o", name + ".svg"], check=True)
        for ending in "png", "pdf", "svg":
            self.assertTrue(filecmp.cmp("a." + ending, "b." + ending, shallow=False), ending)
        content = pathlib.Path("a.pdf").read_bytes()
        self.assertIn(b"/FontFile2", content)  # TrueType, embedded
        self.assertNotIn(b"/Type3", content)

    def test_tracks_hide_nothing(self):
        """What lies over the spectrogram covers next to nothing of it, however long a row is."""
        subprocess.run(["sox", *["sample.wav"] * 20, "minute.wav"], check=True)
        for options in ((), ("--row", "60"), ("--span", "0.7", "1.1")):
            args, samples, tracks = analysed("minute.wav", *options)
            images = []
            for _ in "with", "without":
                figure = first_page(args, samples, tracks)
                figure.savefig("x.png", dpi=100)
                images.append(pixels("x.png"))
                tracks.mvf = tracks.f0 = [np.full(tracks.nframes, np.nan)]
            rows, columns = box_of(figure.axes[1], images[0])
            changed = (images[0] != images[1])[rows, columns]
            self.assertGreater(changed.mean(), 0.005, options)
            self.assertLess(changed.mean(), 0.06, options)

    def test_columns(self):
        """Median and range of a column are those of its values; a smoothed line has no comb."""
        track = np.random.default_rng(1).uniform(500, 8000, 1000)
        track[::3] = np.nan
        track[400:500] = np.nan
        low, median, high = spectra.by_column(track, 70)
        for column in range(70):
            values = track[column * 1000 // 70:(column + 1) * 1000 // 70]
            values = values[np.isfinite(values)]
            if len(values):
                self.assertEqual((low[column], median[column], high[column]),
                                 (values.min(), np.median(values), values.max()))
            else:
                self.assertTrue(np.isnan([low[column], median[column], high[column]]).all())
        np.testing.assert_array_equal(spectra.by_column(track, 5000)[1], track)
        comb = np.where(np.arange(400) % 2, 800.0, 7000.0)
        self.assertLess(np.abs(np.diff(spectra.smoothed(comb, 20))).max(), 700)
        self.assertTrue(np.isnan(spectra.smoothed(track, 20)[420:480]).all())

    def test_silence_is_pale(self):
        write("silence.wav", np.zeros(16000))
        self.plot("silence.wav")
        image = pixels("out.png")
        for axes in first_page(*analysed("silence.wav")).axes[1:3]:
            rows, columns = box_of(axes, image)
            shown = image[rows, columns].ravel()[:, None] >> np.array([16, 8, 0]) & 255
            self.assertLess(np.abs(shown - PALE).max(), 3)

    def test_titles_and_legends(self):
        """The title's figures are those of the span; legends stand beside the curves."""
        subprocess.run(["nalveo16", "sample.wav", "f", "c"], check=True)
        lf0 = np.fromfile("f", "<f4")[200:401]
        f0 = np.exp(lf0[lf0 > 0])
        for tracks in (), ("--lf0", "f"):
            self.plot("sample.wav", "--span", "1", "2", *tracks, output="x.svg")
            self.assertIn("sample.wav: 1.00 to 2.00 s of 2.79 s, "
                          f"{100 * len(f0) / 201:.0f} % of frames voiced, "
                          f"median f0 {np.median(f0):.0f} Hz", texts("x.svg"))
        # All methods treat an unvoiced frame alike: one line, with five names.
        for time, names in (("0.01", 1), ("0.9", 5)):
            self.plot("sample.wav", "--frame", time, "--compare", output="x.svg")
            found = texts("x.svg")
            self.assertEqual(sum("SEEVOC" in text for text in found), 1, found)
            self.assertEqual(sum(bool(re.match(r"\d: ", text)) for text in found), names, found)
        figure = Figure(figsize=(10, 5.5))
        args, samples, tracks = analysed("sample.wav", "--frame", "0.9")
        frame.draw(figure, args, samples, tracks,
                   [(f"{n}\n" * 3, recording.analyse(args, "x", samples, n), 0) for n in range(5)])
        figure.savefig("x.png")
        legend = figure.legends[0].get_window_extent()
        self.assertLess(legend.y1, figure.axes[0].get_tightbbox().y0)

    def test_pages_and_sizes(self):
        """Long recordings go over several rows and pages, several recordings to their own files."""
        for output, pages in (("out.png", 3), ("out.svg", 3), ("out.pdf", 1)):
            said = self.plot("sample.wav", "--row", "0.4", "--dpi", "50", "--size", "6", "13",
                             output=output)
            names = sorted(name for name in os.listdir() if name.endswith(output[-4:]))
            stem, ending = os.path.splitext(output)
            self.assertEqual(names, [output] if pages == 1 else
                             [f"{stem}-{page + 1}{ending}" for page in range(pages)])
            self.assertEqual("out-1" in said, pages > 1)
        self.assertEqual(pixels("out-2.png").shape, (650, 300))
        self.assertEqual(pages_in("out.pdf"), 3)

        os.mkdir("pictures")
        os.mkdir("other")
        shutil.copy("sample.wav", "other/sample.wav")
        shutil.copy("sample.wav", "second.wav")
        pathlib.Path("broken.wav").write_text("no sound at all")
        said = self.plot("broken.wav", "sample.wav", "second.wav", "--span", "0", "1",
                         "-o", "all.pdf", output="pictures", status=1)
        self.assertIn("Error: could not open broken.wav", said)
        self.assertEqual(sorted(os.listdir("pictures")), ["sample.png", "second.png"])
        self.assertEqual(pages_in("all.pdf"), 2)
        self.assertIn("would both be drawn in pictures/sample.png", self.plot(
            "sample.wav", "other/sample.wav", output="pictures", status=1))
        run = subprocess.run([PLOT, "sample.wav", "--show"], check=False, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                             env={name: value for name, value in os.environ.items()
                                  if name not in ("DISPLAY", "WAYLAND_DISPLAY")})
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stdout, "^Error: --show finds no display")
        self.assertEqual(self.plot("sample.wav", output="none/x.png", status=1),
                         "Error: could not create none/x.png: there is no folder none.\n")
        self.assertFalse([name for name in os.listdir() if name.startswith(".")])

    def test_no_picture_is_lost(self):
        """Neither to that of another recording nor to an input; links and permissions stay."""
        os.mkdir("o")
        os.mkdir("o2")
        subprocess.run(["sox", "sample.wav", "a-1.wav", "trim", "0.8", "0.3"], check=True)
        for waves in ("a-1.wav", "sample.wav"), ("sample.wav", "a-1.wav"):
            shutil.copy("sample.wav", "a.wav")
            waves = [name.replace("sample", "a") for name in waves]
            said = self.plot(*waves, "--row", "0.5", "--dpi", "50", output="o", status=1)
            self.assertIn("would both be drawn in o/a-1.png", said)
            self.assertEqual(os.listdir("o"), ["a-1.png"])
            self.plot("a-1.wav", "--row", "0.5", "--dpi", "50", output="o2")
            self.assertTrue(filecmp.cmp("o/a-1.png", "o2/a-1.png", shallow=False))
            os.remove("o/a-1.png")
        pathlib.Path("o/real.png").touch()
        os.chmod("o/real.png", 0o640)
        os.symlink("o/real.png", "link.png")
        self.plot("a-1.wav", output="link.png")
        self.assertTrue(os.path.islink("link.png"))
        self.assertEqual(os.stat("o/real.png").st_mode & 0o777, 0o640)
        self.assertEqual(pixels("o/real.png").ndim, 2)
        os.symlink("a-1.wav", "in.png")
        self.assertIn("in.png is what is to be drawn",
                      self.plot("in.png", output="in.png", status=1))
        self.assertTrue(filecmp.cmp("in.png", "a-1.wav", shallow=False))

    def test_tracks_of_one_name(self):
        """Their folders tell them apart, in the legend and beside their lanes."""
        for folder in "one", "two":
            os.mkdir(folder)
            subprocess.run(["nalveo16", "sample.wav", folder + "/f", folder + "/c"], check=True)
        self.plot("sample.wav", "--lf0", "one/f", "--lf0", "two/f", "--mcc", "one/c", "--mcc",
                  "two/c", output="x.svg")
        found = " ".join(texts("x.svg"))
        for name in "f0: one/f", "f0: two/f", "envelope one/c", "envelope two/c":
            self.assertIn(name, found)
        self.assertEqual(recording.short_names(["p/a/x", "p/b/x", "q/b/x"]),
                         ["p/a/x", "p/b/x", "q/b/x"])
        self.assertEqual(recording.short_names(["p/x", "p/y", "p/x"]), ["x", "y", "x"])

    def test_other_recordings(self):
        """What sox reads is converted, and a line says from what; the rest is refused."""
        subprocess.run(["sox", "sample.wav", "-r", "44100", "-c", "2", "-b", "24", "music.flac"],
                       check=True)
        content = pathlib.Path("sample.wav").read_bytes()
        pathlib.Path("chunk.wav").write_bytes(content[:36] + b"LIST\4\0\0\0abcd" + content[36:])
        for name, what in (("music.flac", "44100 Hz, 2 channels, 24 bits"),
                           ("chunk.wav", "another kind of file")):
            self.assertIn(f"Note: {name} was converted by sox from {what} to mono, 16000 Hz, 16",
                          self.plot(name, "--title", "T"))
        np.testing.assert_array_equal(recording.read_recording("chunk.wav"),
                                      recording.read_recording("sample.wav"))
        music = recording.read_recording("music.flac")
        self.assertLess(np.abs(music[1000:40000]
                               - recording.read_recording("sample.wav")[1000:40000]).max(), 0.02)
        os.remove("out.png")
        pathlib.Path("text.wav").write_text("no sound at all")
        os.truncate("music.flac", 30000)
        for name in "text.wav", "music.flac":
            self.assertIn(f"could not open {name}", self.plot(name, status=1))
            self.assertFalse(os.path.exists("out.png"))

    def test_resynthesis(self):
        """It stands below the original, and has its levels where there is sound."""
        args, samples, tracks = analysed("sample.wav", "--resynth")
        figure = first_page(args, samples, tracks, recording.resynthesis(tracks))
        self.assertEqual(figure.axes[2].get_ylabel().split()[0], "resynthesis")
        original, again = (axes.images[0].get_array().data for axes in figure.axes[1:3])
        self.assertGreater(np.abs(original - again).max(), 1)  # noise, at least, is different
        loud = original > original.max() - 30
        self.assertLess(np.abs(np.median((again - original)[loud])), 2)
        self.assertGreater(np.corrcoef(original.ravel(), again.ravel())[0, 1], 0.9)
        # The page's waves, of which either may be the louder one, fit their lane.
        for gain in 0.5, 3, 100:
            peak = page.contents(args, samples, tracks, gain * samples)["peak"]
            self.assertEqual(peak, min(max(gain, 1) * np.abs(samples).max(), 1))
        subprocess.run(["nalveo16", "sample.wav", "f", "c"], check=True)
        self.assertIn("needs f0 and cepstra",
                      self.plot("sample.wav", "--lf0", "f", "--resynth", status=1))
        self.plot("sample.wav", "--frame", "0.9", "--resynth", output="x.svg")
        self.assertIn("resynthesis", texts("x.svg"))

    def test_corpus(self):
        """The bad files of a collection are named, the others are not."""
        rng = np.random.default_rng(1)
        count = 3000
        f0 = np.where(np.arange(count) % 2, rng.normal(115, 8, count), rng.normal(205, 14, count))
        table = {"level_db": rng.normal(-26, 2, count), "f0_p50": f0,
                 "voiced": np.clip(rng.normal(0.5, 0.05, count), 0, 1)}
        for column, index, value in (("level_db", 7, -60), ("voiced", 8, 0.01), ("f0_p50", 9, 420)):
            table[column][index] = value
        columns = ["file", "seconds", *table, "clipped", "status"]

        def line(index):
            values = [f"{table[column][index]:.4f}" for column in table]
            return [f"{index:05}$_$.wav", "3.6", *values, str(int(index == 10)), "analysed"]
        lines = [columns, *map(line, range(count)), ["bad.wav", *[""] * 5, "could not open"],
                 ["(all)", "10800", *[""] * 4, "3000 analysed, 1 failed"]]

        def store(name, changed):
            pathlib.Path(name).write_text("".join("\t".join(line) + "\n" for line in changed))
        store("table.tsv", lines)
        self.assertEqual(self.plot("--corpus", "table.tsv", output="x.svg"), "")
        found = texts("x.svg")
        self.assertIn("table.tsv: 3001 files, 3.00 h, 1 failed, 1 clipped", found)
        self.assertEqual([text for text in found if ".wav" in text], [
            "-60.0 dB  00007$_$.wav", "1.0%  00008$_$.wav", "420 Hz  00009$_$.wav",
            "failed: bad.wav", "clipped: 00010$_$.wav"])
        for changed, why in (([line[:3] + line[4:] for line in lines], "it has no column f0_p50"),
                             ([columns, ["a", "1", "-20", "100", "55", "0", "analysed"]],
                              "line 2: voiced is 55, but must be a number from 0 to 1"),
                             ([columns], "tells of no files")):
            store("wrong.tsv", changed)
            self.assertIn(why, self.plot("--corpus", "wrong.tsv", output="wrong.png", status=1))
            self.assertFalse(os.path.exists("wrong.png"))

    def test_refusals(self):
        """What does not fit gives its reason, with the value that would, and no picture."""
        subprocess.run(["nalveo16", "sample.wav", "f", "c", "v", "--lframe=160", "--ccord=24"],
                       check=True)
        np.fromfile("f", "<f4")[:200].tofile("short")
        np.fromfile("f", "<f4")[:-1].tofile("shorter")
        np.exp(np.fromfile("f", "<f4")).tofile("hertz")
        np.zeros(5, np.int8).tofile("odd")
        fits = ("--lframe=160", "--ccord=24")
        for arguments, status, why in (
                (("--lf0", "f"), 1, "It would fit --lframe=160."),
                (("--mcc", "c", "--lframe=160"), 1, "It would fit --ccord=24."),
                (("--lf0", "shorter", *fits), 1, "say --partial"),
                (("--lf0", "shorter", "--mvf", "v", "--partial", *fits), 1, "the tracks before it"),
                (("--lf0", "hertz", *fits), 1, "is no track of log f0"),
                (("--mvf", "f", *fits), 1, "is no track of maximum voiced frequency"),
                (("--mcc", "odd", *fits), 1, "not a whole number of floats"),
                (("--mcc", "none", *fits), 1, "could not read none"),
                (("--frame", "3"), 1, "there is no frame at 3 s"),
                (("--frame", "1", "--lf0", "f", "--lf0", "f"), 2, "name one --lf0"),
                (("--lf0", "f") * 6, 2, "6 times --lf0"),
                (("--mvf", "v") * 6, 2, "6 times --mvf"),
                (("--frame", "1", *("--mcc", "c") * 6), 2, "6 times --mcc"),
                (("--ccmeth=7",), 1, "ccmeth is 7; it must be from 0 to 4."),
                (("--size", "6", "4"), 1, "need at least 4.7 inches of height"),
                (("--span", "0", "nan"), 2, "finite times"),
                (("--frame", "1e305"), 2, "finite times"),
                (("--frame", "1", "--span", "0", "1"), 2, "--span has no effect"),
                (("--span", "2.8", "3"), 1, "there is nothing to draw from 2.8 s on"),
                (("--ccord=5000",), 1, "ccord is 5000; it must be a whole number from 0 to 511"),
                (("--f0min=900",), 1, "f0min is 900 and f0max 500 Hz"),
                (("--mcc", "c", "--ccmeth=2"), 2, "--ccmeth has no effect"),
                (("--alpha=1",), 2, "alpha between -1 and 1"),
                (("--size", "3", "3", "--row", "0.9"), 1, "--size is too small"),
                (("--row", "0"), 2, "--row must be"),
                (("--dpi", "1"), 2, "--dpi must be"),
                (("other.wav", "--lf0", "f"), 2, "are of one recording"),
                (("--corpus", "f"), 2, "draws the table alone"),
                (("other.wav",), 2, "out.png cannot hold several recordings")):
            said = self.plot("sample.wav", *arguments, status=status)
            self.assertIn(why, " ".join(said.split()))
            self.assertFalse(os.path.exists("out.png"))
        self.assertIn("must end in .png", self.plot("sample.wav", output="picture", status=2))
        pathlib.Path("matplotlib.py").write_text("raise ImportError('No module named matplotlib')")
        run = subprocess.run([PLOT, "sample.wav", "-o", "out.png"], check=False, text=True,
                             stderr=subprocess.PIPE, env={**os.environ, "PYTHONPATH": "."})
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stderr, "^Error: No module named matplotlib.*python3-matplotlib.\n$")
        os.truncate("sample.wav", 3001)
        self.assertIn("could not open sample.wav", self.plot("sample.wav", status=1))
        shutil.copy(SAMPLE, "sample.wav")
        self.plot("sample.wav", "--lf0", "short", "--lframe=160", "--partial")


if __name__ == "__main__":
    unittest.main()
