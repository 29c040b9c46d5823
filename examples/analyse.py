#!/usr/bin/python3
"""From a recording to f0, envelopes and maximum voiced frequency, and to a picture of them.

    analyse.py IN.wav [PICTURE.png]

Made to be read and changed: editors such as Spyder or VS Code run its cells one by one.
"""

# %% Read a recording: mono, 16 bits, at any rate from 8000 to 96000 Hz
import sys
import wave

import matplotlib
import numpy as np

import nalveo

recording = sys.argv[1] if len(sys.argv) > 1 else "sample.wav"
with wave.open(recording) as file:
    fs = file.getframerate()
    x = np.frombuffer(file.readframes(file.getnframes()), np.int16)

# %% Analyse it, with a frame every 5 ms or as close as samples allow
analysis = nalveo.analyze(x, fs, hop_length=round(0.005 * fs), refine=3)
f0, mcep, mvf = analysis
times = analysis.temporal_positions
voiced = f0 > 0
print(f"{times[-1]:.2f} s, {voiced.mean():.0%} voiced")
if voiced.any():
    print(f"f0 {np.percentile(f0[voiced], 5):.0f} to {np.percentile(f0[voiced], 95):.0f} Hz, "
          f"median {np.median(f0[voiced]):.0f} Hz")

# %% What the cepstra keep of the spectrum, in dB
level = nalveo.envelope(mcep, fs, analysis.alpha, unit="db")

# %% Draw it
if len(sys.argv) > 2:
    matplotlib.use("Agg")
import matplotlib.pyplot as plt  # pylint: disable=wrong-import-position

figure, (top, middle, bottom) = plt.subplots(3, 1, sharex=True, figsize=(9, 7),
                                             constrained_layout=True)
top.plot(np.arange(x.size) / fs, x / 32768, linewidth=0.4)
top.set_ylabel("amplitude")
middle.imshow(level.T, origin="lower", aspect="auto", vmin=level.max() - 70,
              extent=(0, times[-1], 0, fs / 2000))
middle.plot(times, np.where(mvf > 0, mvf, np.nan) / 1000, color="white", linewidth=0.8)
middle.set_ylabel("envelope and maximum\nvoiced frequency, kHz")
bottom.plot(times, np.where(voiced, f0, np.nan))
bottom.set_ylabel("f0, Hz")
bottom.set_xlabel("time, s")
if len(sys.argv) > 2:
    figure.savefig(sys.argv[2])
else:
    plt.show()
