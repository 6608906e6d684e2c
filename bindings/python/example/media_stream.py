#!/usr/bin/env python3
"""A voice bot's media stream: mu-law at 8 kHz from the caller becomes 16-bit samples at 16 kHz for speech recognition,
and synthesized speech returns as mu-law.

    media_stream.py [--seconds 2]

prints how many streams one core sustains, here and with the functions that pcm.audioop provides.
"""

import argparse
import time
from typing import Optional, Tuple, Union

import pcm
from pcm import audioop

MULAW, INT_16 = pcm.Encoding.G711_MULAW, pcm.Encoding.INT_16
State = Tuple[int, Tuple[Tuple[int, int], ...]]
BLOCK = bytes(range(160))  # 20 ms of mu-law


class MediaStream:
    """One call. Both directions use the library's low-pass filter for 4 kHz, which delays the voice by 0.5 ms."""

    def __init__(self) -> None:
        lowpass = pcm.Coefficients(pcm.FilterType.LOWPASS_4000_AT_16000)
        self.from_caller, self.to_caller = pcm.Filter(lowpass), pcm.Filter(lowpass)

    def receive(self, mulaw: bytes) -> bytes:
        """Return 16-bit samples at 16 kHz, at the level of the call."""
        voice = pcm.Packet.decode(mulaw, MULAW)
        voice.frames_extend(2)
        self.from_caller.write(voice)
        wide = self.from_caller.read()
        wide *= 2.0  # extending halves the level
        return wide.encode(INT_16)

    def send(self, speech: bytes, decibel: float = -3.0) -> bytes:
        """Return mu-law for 16-bit samples at 16 kHz."""
        self.to_caller.write(pcm.Packet.decode(speech, INT_16))
        voice = self.to_caller.read()
        voice.frames_reduce(2)
        voice.level_adjust(decibel)
        return voice.encode(MULAW)


class AudioopStream:
    """The same with audioop, whose rate conversion interpolates linearly."""

    def __init__(self) -> None:
        self.up: Optional[State] = None
        self.down: Optional[State] = None

    def receive(self, mulaw: bytes) -> bytes:
        voice = audioop.ulaw2lin(mulaw, 2)
        wide, self.up = audioop.ratecv(voice, 2, 1, 8000, 16000, self.up)
        return wide

    def send(self, speech: bytes, factor: float = 0.708) -> bytes:
        voice, self.down = audioop.ratecv(speech, 2, 1, 16000, 8000, self.down)
        return audioop.lin2ulaw(audioop.mul(voice, 2, factor), 2)


def streams_per_core(stream: Union[MediaStream, AudioopStream], seconds: float) -> int:
    """Return how many streams of 20 ms blocks fit into the time of one core."""
    blocks, start = 0, time.perf_counter()
    while time.perf_counter() - start < seconds:
        for _ in range(100):
            stream.send(stream.receive(BLOCK))
        blocks += 100
    return int(blocks * 0.02 / (time.perf_counter() - start))


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=float, default=2, help="duration of each measurement")
    options = parser.parse_args()
    streams: Tuple[Union[MediaStream, AudioopStream], ...] = (MediaStream(), AudioopStream())
    for stream in streams:
        print(f"{type(stream).__name__}: {streams_per_core(stream, options.seconds)} streams per core")
