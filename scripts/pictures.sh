#!/usr/bin/env bash
# Draws the pictures of README and docs anew from the sample recording, into docs/ or the folder
# that is named. Needs nalveo16 and its companions on the path, and Debian's chromium-driver.
set -euo pipefail
folder=$(realpath -- "${1:-$(dirname "${BASH_SOURCE[0]}")/../docs}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."

nalveo16-plot examples/sample.wav -o "$folder/speech.png"
nalveo16-plot examples/sample.wav -o "$folder/envelopes.png" --frame 0.9 --compare
nalveo16-plot examples/sample.wav --resynth --html "$folder/page.html"
PYTHONPATH=tests/tools /usr/bin/python3 -B - "$folder/page" <<'END'
import sys
from browser import Browser
browser = Browser(1150, 1000)
browser.open(sys.argv[1] + ".html")
browser.run("show(0.4, 1.2); await new Promise((done) => setTimeout(done, 1000))")
browser.point(500, 300)
browser.run("await new Promise((done) => setTimeout(done, 1000))")
browser.screenshot(sys.argv[1] + ".png")
browser.close()
END
rm "$folder/page.html"
# A palette makes them several times smaller; maximum coverage keeps the colours of the lines.
/usr/bin/python3 - "$folder"/{speech,envelopes,page}.png <<'END'
import sys
from PIL import Image
for name in sys.argv[1:]:
    image = Image.open(name).convert("RGB")
    image.quantize(256, Image.Quantize.MAXCOVERAGE).save(name, optimize=True)
END
