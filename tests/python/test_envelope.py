"""What cepstra mean, against signals whose spectrum is known, at every rate."""

import numpy as np
import pytest

import nalveo

RESONANCES = ((600, 110), (1300, 140), (2600, 190), (3600, 250))  # centre and bandwidth, Hz
LEVEL = 0.02


def amplitude(f):
    """Of the harmonic at f Hz: a cascade of resonances over a floor of a hundredth."""
    gain = 1.0
    for centre, width in RESONANCES:
        gain = gain * (centre**2 + width**2 / 4) / np.sqrt(
            ((f - centre)**2 + width**2 / 4) * ((f + centre)**2 + width**2 / 4))
    return LEVEL * (gain + 0.01)


def voice(fs, f0, band, breath=0.0):
    """A second of harmonics up to a band's end, and noise of the envelope's shape above it."""
    t = np.arange(int(fs)) / fs
    k = np.arange(1, int((band - 1e-9) // f0) + 1)
    x = (amplitude(k * f0)[:, None] * np.cos(2 * np.pi * f0 * np.outer(k, t)
                                             - 0.03 * (k**2)[:, None])).sum(axis=0)
    f = np.fft.rfftfreq(t.size, 1 / fs)
    noise = np.fft.rfft(np.random.default_rng(1).standard_normal(t.size))
    noise *= np.where(f > band, amplitude(f) / 2 / np.sqrt(f0) * np.sqrt(fs), 0)
    return x + breath * np.fft.irfft(noise, t.size)


@pytest.mark.parametrize("fs, hop_length, alpha", [
    (8000, 40, 0.32), (16000, 80, 0.42), (22050, 110, 0.47), (24000, 120, 0.48),
    (44100, 220, 0.57), (48000, 240, 0.58)])
@pytest.mark.parametrize("f0", (115.0, 215.0))
def test_truth_at_every_rate(fs, hop_length, alpha, f0):
    band = 2500 if fs == 8000 else 5000
    breathy = nalveo.analyze(voice(fs, f0, band, breath=1), fs, hop_length=hop_length)
    assert breathy.alpha == alpha
    inner = slice(20, 180)
    assert np.abs(1200 * np.log2(breathy.f0[inner] / f0)).max() < 2  # cents
    # A line of noise above the band may pass for a harmonic, hence the upper quartiles.
    low, quarter, half = np.percentile(breathy.mvf[inner], (5, 25, 50))
    assert band - f0 < low and quarter < 1.2 * band and half < 1.3 * band

    full = voice(fs, f0, fs / 2)
    harmonics = f0 * np.arange(1, min(fs / 2 - f0, 7000) // f0)
    truth = 20 * np.log10(amplitude(harmonics) / 2 / np.sqrt(f0))
    # The windows of method 3 are short enough to let the position of the pulses through.
    for method, most in ((0, 0.5), (1, 0.5), (2, 0.5), (3, 1.5), (4, 0.8)):
        if method == 2 and fs > 24000:
            continue  # takes ten seconds
        analysis = nalveo.analyze(full, fs, hop_length=fs // 20, method=method)
        levels = nalveo.envelope(analysis.mcep, fs, nfft=8192, unit="db")
        bins = np.arange(4097) * fs / 8192
        errors = [np.interp(harmonics, bins, row) - truth for row in levels[5:15]]
        assert np.sqrt(np.mean(np.square(errors))) < most, method


def test_envelope_is_a_density_in_every_unit():
    f0 = 125.3
    analysis = nalveo.analyze(voice(16000, f0, 8000), 16000)
    density = nalveo.envelope(analysis.mcep, 16000)[100]
    assert density.shape == (513,)
    k = 5
    expected = amplitude(k * f0) / 2 / np.sqrt(f0)
    assert density[round(k * f0 / 16000 * 1024)] == pytest.approx(expected, rel=0.1)
    # Through a window of unit energy, a harmonic spreads to a squared fs / (4 f0).
    np.testing.assert_allclose(nalveo.mcep_to_spectrum(analysis.mcep, 16000)[100],
                               16000 * density**2, rtol=1e-12)
    log = nalveo.envelope(analysis.mcep, 16000, unit="log")[100]
    np.testing.assert_allclose(np.exp(log), density, rtol=1e-12)
    np.testing.assert_allclose(nalveo.envelope(analysis.mcep[100], 16000, unit="db"),
                               20 * np.log10(density), rtol=1e-12, atol=1e-12)
    plain = nalveo.analyze(voice(16000, f0, 8000), 16000, scale="plain")
    np.testing.assert_allclose(nalveo.envelope(plain.mcep, 16000, scale="plain")[100], density,
                               rtol=1e-9)


def test_spectrum_of_noise_is_its_variance():
    noise = 0.1 * np.random.default_rng(2).standard_normal(32000).clip(-5, 5)
    # The mean of the logarithm of noise: 10 log10(e) times Euler's constant below its power.
    for fs in (16000, 32000):
        mcep = nalveo.mcep(noise, fs, np.zeros(200 * noise.size // fs))
        level = np.mean(10 * np.log10(nalveo.mcep_to_spectrum(mcep, fs)))
        assert level == pytest.approx(-20 - 2.507, abs=0.2)
