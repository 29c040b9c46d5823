#!/usr/bin/python3
"""nalveo16-plot: pictures that show what is there, and no picture of what does not fit."""

import filecmp
import importlib.machinery
import importlib.util
import os
import shutil
import subprocess
import tempfile
import unittest
import wave

import matplotlib.image
import numpy as np

SAMPLE = os.path.join(os.path.dirname(__file__), "../../examples/sample.wav")
PLOT = shutil.which("nalveo16-plot")
loader = importlib.machinery.SourceFileLoader("plot", PLOT)
plot = importlib.util.module_from_spec(importlib.util.spec_from_loader("plot", loader))
loader.exec_module(plot)

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


def colours(path):
    pixels = (255 * matplotlib.image.imread(path)[:, :, :3]).round().astype(int)
    return {f"#{pixel:06X}" for pixel in np.unique(pixels @ (65536, 256, 1))}


class PlotTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nalveo16 plot ")
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        shutil.copy(SAMPLE, "sample.wav")

    @staticmethod
    def run_plot(*arguments, output="out.png"):
        return subprocess.run([PLOT, *arguments, "-o", output], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False, text=True)

    def test_envelope_is_that_of_the_signal(self):
        """Harmonics count with half their amplitude over root f0, noise with its density."""
        harmonics = F0 * np.arange(2, 58)
        expected = 20 * np.log10(amplitude(harmonics) / 2 / np.sqrt(F0))
        write("voice.wav", voice())
        write("noise.wav", noise())
        for options in ((), ("--htsscale=0",), ("--alpha=0.2", "--ccord=50"), ("--ccmeth=4",)):
            args = plot.parse(["x", "-o", "x.png", *options])
            for name in ("voice", "noise"):
                args.wave = name + ".wav"
                tracks = plot.Tracks(args, 16000, **plot.analyse(args, "."))
                if name == "voice":
                    np.testing.assert_allclose(tracks.f0[20:-20], F0, rtol=1e-3)
                    levels = tracks.envelope([100], harmonics)[0]
                    self.assertLess(np.abs(levels - expected).max(), 0.5, options)
                else:
                    # The logarithm of a periodogram is 2.5 dB below its mean, on average.
                    levels = tracks.envelope(np.flatnonzero(~tracks.voiced()), harmonics)
                    density = 20 * np.log10(0.05 / np.sqrt(16000)) - 2.5
                    self.assertAlmostEqual(levels.mean(), density, delta=1, msg=options)

    def test_spectrum_meets_the_envelope(self):
        """In the picture of a frame, the peaks of harmonics have the level of the density."""
        freqs, levels = plot.frame_spectrum(voice(), 8000, F0)
        for h in (3, 20, 50):
            peak = levels[np.abs(freqs - h * F0) < 20].max()
            self.assertAlmostEqual(peak, 20 * np.log10(amplitude(h * F0) / 2 / np.sqrt(F0)),
                                   delta=0.3)

    def test_pictures(self):
        """Each shows the lines that it should, in their colours, and no others."""
        write("noise $x_1.wav", noise())
        write("one.wav", [0.1])
        write("silence.wav", np.zeros(4000))
        shutil.copy("sample.wav", "grüße.wav")
        subprocess.run(["nalveo16", "sample.wav", "f", "c", "v", "--lframe=160", "--ccord=24"],
                       check=True)
        with open("sample.wav", "rb") as file:
            content = file.read()
        with open("odd.wav", "wb") as file:  # no RIFF size, and three bytes more of format
            file.write(content[:4] + bytes(4) + content[8:16] + b"\x13\0\0\0" + content[20:36]
                       + b"abc" + content[36:])
        line = {plot.BLUE, plot.GREEN}
        for arguments, present, absent in (
                (("sample.wav",), {*line, plot.UNVOICED_GREY}, set()),
                (("grüße.wav", "--span", "0.8", "1", "--title", "$a_b^"), line, set()),
                (("noise $x_1.wav",), {plot.UNVOICED_GREY}, line),
                (("odd.wav", "--span", "0", "1e9"), {*line, plot.UNVOICED_GREY}, set()),
                (("one.wav",), {plot.UNVOICED_GREY}, line),
                (("silence.wav",), {plot.UNVOICED_GREY}, line),
                (("sample.wav", "--lf0", "f", "--lframe=160"), {plot.BLUE}, {plot.GREEN}),
                (("sample.wav", "--mvf", "v", "--mcc", "c", "--lframe=160", "--ccord=24"),
                 {plot.GREEN}, {plot.BLUE}),
                (("sample.wav", "--frame", "0.9"), {plot.VERMILION}, line),
                (("sample.wav", "--frame", "0.9", "--compare"),
                 {plot.VERMILION, plot.BLUE, plot.PINK}, set()),
                (("sample.wav", "--frame", "0.01"), {plot.VERMILION}, line)):
            run = self.run_plot(*arguments)
            self.assertEqual(run.returncode, 0, (arguments, run.stdout))
            found = colours("out.png")
            self.assertLessEqual(present, found, arguments)
            self.assertFalse(absent & found, arguments)
            os.remove("out.png")

    def test_same_picture_again(self):
        for ending in "png", "pdf", "svg":
            for name in "a.", "b.":
                run = self.run_plot("sample.wav", "--span", "0.8", "1", output=name + ending)
                self.assertEqual(run.returncode, 0, run.stdout)
            self.assertTrue(filecmp.cmp("a." + ending, "b." + ending, shallow=False), ending)

    def test_refusals(self):
        """What does not fit gives its reason, with the value that would, and no picture."""
        subprocess.run(["nalveo16", "sample.wav", "f", "c", "v", "--lframe=160", "--ccord=24"],
                       check=True)
        np.fromfile("f", "<f4")[:200].tofile("short")
        np.fromfile("f", "<f4")[:-1].tofile("shorter")
        np.fromfile("c", "<f4")[:-25].tofile("shortcc")
        np.exp(np.fromfile("f", "<f4")).tofile("hertz")
        shutil.copy("c", "odd")
        with open("odd", "ab") as file:
            file.write(b"x")
        fits = ("--lframe=160", "--ccord=24")
        subprocess.run(["sox", "sample.wav", "-r", "8000", "narrow.wav"], check=True)
        for arguments, status, why in (
                (("--lf0", "f"), 1, "It would fit --lframe=160."),
                (("--mcc", "c", "--lframe=160"), 1, "It would fit --ccord=24."),
                (("--lf0", "shorter", *fits), 1, "say --partial"),
                (("--mcc", "shortcc", *fits), 1, "say --partial"),
                (("--lf0", "shorter", "--mvf", "v", "--partial", *fits), 1, "the tracks before it"),
                (("--lf0", "hertz", *fits), 1, "is no track of log f0"),
                (("--lf0", "v", *fits), 1, "is no track of log f0"),
                (("--mvf", "f", *fits), 1, "is no track of maximum voiced frequency"),
                (("--mcc", "odd", *fits), 1, "not a whole number of floats"),
                (("--mcc", "none", *fits), 1, "could not read none"),
                (("--frame", "3"), 1, "there is no frame at 3 s"),
                (("--span", "0", "inf"), 2, "finite times"),
                (("--frame", "nan"), 2, "finite times"),
                (("--frame", "1e305"), 2, "finite times"),
                (("--frame", "1", "--span", "0", "1"), 2, "--span has no effect"),
                (("--span", "2.8", "3"), 1, "there is nothing to draw from 2.8 s on"),
                (("--ccord=5000",), 1, "nalveo16 says: Error: ccord is 5000, but must be"),
                (("--mcc", "c", "--ccmeth=2"), 2, "--ccmeth has no effect"),
                (("--alpha=1",), 2, "alpha between -1 and 1")):
            run = self.run_plot("sample.wav", *arguments)
            self.assertEqual(run.returncode, status, (arguments, run.stdout))
            self.assertIn(why, " ".join(run.stdout.split()))
            self.assertFalse(os.path.exists("out.png"))
        self.assertIn("8000 Hz", self.run_plot("narrow.wav").stdout)
        self.assertIn("must end in .png", self.run_plot("sample.wav", output="picture").stdout)
        os.truncate("narrow.wav", 30)
        self.assertIn("could not open narrow.wav", self.run_plot("narrow.wav").stdout)
        os.truncate("sample.wav", 3001)
        self.assertIn("could not open sample.wav", self.run_plot("sample.wav").stdout)
        shutil.copy(SAMPLE, "sample.wav")
        run = self.run_plot("sample.wav", "--lf0", "short", "--lframe=160", "--partial")
        self.assertEqual(run.returncode, 0, run.stdout)


if __name__ == "__main__":
    unittest.main()
