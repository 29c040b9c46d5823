#!/usr/bin/python3
"""The page of nalveo16-plot --html, in a headless Chromium: loads, zooms, tells values, plays."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

import nalveo
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
from browser import Browser  # noqa: E402

SAMPLE = os.path.join(os.path.dirname(os.path.realpath(__file__)), "../../examples/sample.wav")
TIME = 0.9  # s, in a vowel
NAME = "a<b>&amp; @data@.wav"


def level(samples, hz):
    """Density in dB per Hz of 25 ms around TIME, by the definition of the transform."""
    centre = round(TIME * 16000)
    n = np.arange(-200, 201)
    window = np.cos(np.pi * n / 402) ** 2
    value = np.sum(samples[centre + n] * window * np.exp(-2j * np.pi * hz / 16000 * n))
    return 10 * np.log10(np.abs(value) ** 2 / np.sum(window**2) / 16000)


@unittest.skipUnless(shutil.which("chromedriver"), "needs Debian's chromium-driver")
class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="nalveo16 page ")
        os.chdir(cls.folder)
        shutil.copy(SAMPLE, NAME)
        cls.samples = np.fromfile(SAMPLE, "<i2")[22:] / 32768
        subprocess.run(["nalveo16", NAME, "f", "c", "v"], check=True)
        shutil.copy("f", "<!--<script>")
        subprocess.run(["nalveo16-plot", NAME, "--html", "page.html", "--lf0", "f", "--lf0",
                        "<!--<script>", "--mcc", "c", "--mvf", "v"], check=True)
        cls.browser = Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        shutil.rmtree(cls.folder)

    def setUp(self):
        self.browser.open("page.html")
        self.wait("return lanes.every((lane) => lane.canvas.width > 300)")

    def tearDown(self):
        # Reading a canvas back, as these tests do, is remarked upon; nothing else is.
        self.assertEqual([entry for entry in self.browser.log() if entry["source"] != "rendering"],
                         [])

    def wait(self, script):
        """Until a script returns something true."""
        until = time.monotonic() + 20
        while not (found := self.browser.run(script)):
            self.assertLess(time.monotonic(), until, script)
            time.sleep(0.1)
        return found

    def get(self, expression):
        return self.browser.run(f"return {expression}")

    def view(self):
        return self.get("[view.start, view.end]")

    def lane(self, name):
        """Left, top, width and height of the frame of a lane, in the window."""
        return self.browser.run("""
            const lane = lanes.find((lane) => lane.name === arguments[0]);
            lane.canvas.scrollIntoView({block: "nearest"});
            const box = lane.canvas.getBoundingClientRect();
            return [box.left + LEFT, box.top, width(), lane.height - lane.below];
            """.replace("arguments", "values"), name)

    def test_loads_whole(self):
        """All of it is there, and nothing was fetched."""
        self.assertRegex(self.get("document.title"),
                         rf"^{re.escape(NAME)}: 2\.79 s, \d+ % of frames voiced")
        np.testing.assert_allclose(self.view(), [0, 44580 / 16000])
        fetched = self.get("performance.getEntriesByType('resource').map((entry) => entry.name)")
        self.assertEqual([name for name in fetched if not name.startswith("data:")], [])
        # Every lane has something in it, the spectrogram many colours.
        counts = self.wait("""
            const counts = lanes.map((lane) => {
                const context = lane.canvas.getContext("2d");
                const {data} = context.getImageData(LEFT, 0, width(), lane.height - lane.below);
                return new Set(new Uint32Array(data.buffer)).size;
            });
            return counts[2] > 100 && counts""")
        self.assertTrue(all(count > 3 for count in counts), counts)

    def test_values_under_the_pointer(self):
        """The tracks' own values, and the level that the samples have there."""
        frame = round(TIME * 200)
        left, top, width, height = self.lane("spectrogram")
        end = self.view()[1]
        self.browser.point(left + TIME / end * width, top + 0.8 * height)
        said = self.wait("const said = element('values').textContent;"
                         "return /dB.*dB/.test(said) && said")
        # Pixels are 2.5 ms wide: the frame is right, or the next.
        found = re.match(r"([\d.]+) s · at ([\d.]+) Hz: spectrogram ([-\d.]+) dB, envelope "
                         r"([-\d.]+) dB · f0 \(f\) ([\d.]+) Hz · f0 \(<!--<script>\) \5 Hz · "
                         r"maximum voiced frequency ([\d.]+) Hz", said)
        when, hz, found_level, _, found_f0, found_mvf = map(float, found.groups())
        self.assertAlmostEqual(when, TIME, delta=0.003)
        self.assertAlmostEqual(found_f0, np.exp(np.fromfile("f", "<f4")[frame]), delta=2)
        self.assertAlmostEqual(found_mvf, np.fromfile("v", "<f4")[frame], delta=200)
        self.assertAlmostEqual(found_level, level(self.samples, hz), delta=4)
        # In an unvoiced stretch there is no f0.
        left, top, width, height = self.lane("f0")
        self.browser.point(left + 0.05 * width, top + height / 2)
        self.assertIn("f0 (f) - ", self.get("element('values').textContent"))

    def test_zooms_and_pans(self):
        """All lanes show the same stretch; what is under the pointer stays there."""
        left, top, width, height = self.lane("spectrogram")
        x, end = left + 0.25 * width, self.view()[1]
        self.browser.wheel(x, top + height / 2, -500)
        start, stop = self.wait("return view.end - view.start < 2.7 && [view.start, view.end]")
        self.assertLess(stop - start, 0.6 * end)
        self.assertAlmostEqual(start + 0.25 * (stop - start), 0.25 * end, delta=0.005)
        self.browser.drag(x, top + height / 2, 100)
        moved = self.view()
        self.assertAlmostEqual(moved[0], start - 100 / width * (stop - start), delta=0.005)
        self.assertAlmostEqual(moved[1] - moved[0], stop - start, delta=1e-6)
        # The grey of the unvoiced stretches moves along in the lane of f0.
        edges = self.browser.run("""
            await new Promise(requestAnimationFrame);
            const unvoiced = data.unvoiced.find(([, end]) => end > view.start && end < view.end);
            const lane = lanes.find((lane) => lane.name === "f0");
            const scale = window.devicePixelRatio || 1;
            const grey = (x) => lane.canvas.getContext("2d").getImageData(
                x * scale, 4 * scale, 1, 1).data[0] === 0xE3;
            return [grey(xOf(unvoiced[1]) - 2), grey(xOf(unvoiced[1]) + 3)];""")
        self.assertEqual(edges, [True, False])
        self.browser.click("#all")
        np.testing.assert_allclose(self.view(), [0, end])
        # No further than the recording, no closer than samples can be told apart.
        self.browser.wheel(x, top + height / 2, 5000)
        np.testing.assert_allclose(self.view(), [0, end])
        self.browser.run("for (let i = 0; i < 40; ++i) zoom(0.5)")
        self.assertAlmostEqual(np.diff(self.view())[0], 0.01)

    def test_plays(self):
        """The original, from the start of what is shown; again the button, and it stops."""
        self.browser.run("""
            show(0.5, 2);
            const start = AudioBufferSourceNode.prototype.start;
            AudioBufferSourceNode.prototype.start = function (...when) {
                window.started = when;
                this.playbackRate.value = 0.01;  // so that it outlasts this test on any machine
                start.apply(this, when);
            };
            window.places = [];  // of the line that shows what is being played
            new MutationObserver(() => {
                if (!element("playing").hidden) places.push(element("playing").offsetLeft);
            }).observe(element("playing"), {attributes: true});""")
        buttons = "data.sounds.map((sound) => sound.button.textContent)"
        heard = "Array.from(player.source.buffer.getChannelData(0))"
        self.assertEqual(self.get(buttons), ["▶ original", "▶ resynthesis"])
        self.browser.click("#sounds button")
        self.wait("return places.length > 5 && places[places.length - 1] > places[0]")
        self.assertEqual(self.get("started"), [0, 0.5, 1.5])
        self.assertEqual(self.get("player.source.buffer.sampleRate"), 16000)
        np.testing.assert_allclose(self.get(heard), self.samples, atol=1e-7)
        self.browser.click("#sounds button")
        self.assertTrue(self.get("player.source === null && element('playing').hidden"))
        # The resynthesis is what the package makes of the tracks.
        f, c, v = (np.fromfile(name, "<f4") for name in "fcv")
        made = nalveo.synthesize(nalveo.f0_from_log(f), c.reshape(-1, 40), v,
                                 length=len(self.samples))
        self.browser.click("#sounds button:nth-of-type(2)")
        np.testing.assert_allclose(self.get(heard), made, atol=2 / 32768)
        self.assertEqual(self.get(buttons), ["▶ original", "■ resynthesis"])
        self.browser.run("stop()")


if __name__ == "__main__":
    unittest.main()
