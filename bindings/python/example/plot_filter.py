#!/usr/bin/env python3
"""Limits a recording to the telephone band, plots both spectra and writes the result.

    plot_filter.py INPUT OUTPUT.wav PLOT.png
"""

import sys

import matplotlib
import numpy as np
import soundfile

import pcm

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402


def lowpass(packet: pcm.Packet, rate: int, cutoff: float, taps: int = 255) -> pcm.Packet:
    """Return the packet without what is above a frequency in hertz: a sinc with a Blackman window."""
    time = np.arange(taps) - taps // 2
    coefficients = np.sinc(2 * cutoff / rate * time) * np.blackman(taps)
    stream = pcm.Filter(pcm.Coefficients.of(coefficients / coefficients.sum()), packet.channels)
    stream.write(packet)
    return stream.gather()


def main(source: str, target: str, plot: str) -> None:
    samples, rate = soundfile.read(source, dtype="float32", always_2d=True)
    before = pcm.Packet(samples)
    after = lowpass(before, rate, 3400)

    figure, axes = pyplot.subplots(figsize=(8, 4))
    for label, packet in ("before", before), ("after", after):
        spectrum = np.abs(np.fft.rfft(packet.view[:, 0] * np.hanning(len(packet))))
        decibel = 20 * np.log10(spectrum / spectrum.max() + 1e-6)
        axes.plot(np.fft.rfftfreq(len(packet), 1 / rate), decibel, label=label)
    axes.set(xlabel="frequency in Hz", ylabel="level in dB", title="Low-pass filter at 3400 Hz")
    axes.legend()
    figure.savefig(plot)
    soundfile.write(target, after.view, rate)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit((__doc__ or "").strip())
    try:
        main(*sys.argv[1:])
    except (RuntimeError, OSError, ValueError) as error:
        sys.exit(f"plot_filter.py: {error}")
