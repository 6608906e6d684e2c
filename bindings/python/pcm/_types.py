"""The enumerations of the package, and the channels of a packet."""

from __future__ import annotations

import enum
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    from . import Packet

__all__ = ["Channels", "Encoding", "FilterType", "SrcType"]


class Encoding(enum.IntFlag):
    """The encoding of samples in bytes: a base, and flags that change its defaults. Any integer can be used instead.

    `Encoding("INT_16 | BIG_ENDIAN")` finds flags by their names, with or without the prefix of the C names.
    """

    SAMPLES = 0
    G711_ALAW = 0x1
    G711_MULAW = 0x2
    INT_8 = 0x4
    INT_16 = 0x8
    INT_24 = 0x10
    INT_32 = 0x20
    FLOAT_32 = 0x40
    UNSIGNED = 0x80
    BIG_ENDIAN = 0x100
    LITTLE_ENDIAN = 0x200
    PAD_BEFORE = 0x400
    PAD_AFTER = 0x800
    PACK_16 = 0x1000
    PACK_24 = 0x2000
    PACK_32 = 0x4000
    PACK_40 = 0x8000
    PACK_48 = 0x10000
    PACK_56 = 0x20000
    PACK_64 = 0x40000

    @classmethod
    def _missing_(cls, value: object) -> Any:
        if not isinstance(value, str):
            return super()._missing_(value)
        word = cls.SAMPLES
        for name in value.split("|"):
            flag = name.strip()
            if flag.startswith("PCM_ENCODING_"):
                flag = flag[len("PCM_ENCODING_"):]
            if flag not in cls.__members__:
                raise ValueError(f"unknown name: {name.strip()!r}")
            word |= cls[flag]
        return word


class FilterType(enum.IntEnum):
    """The built-in low-pass filters, by cut-off frequency and frame rate in hertz."""

    LOWPASS_4000_AT_16000 = 0
    LOWPASS_4000_AT_24000 = 1
    LOWPASS_4000_AT_48000 = 2
    LOWPASS_6000_AT_24000 = 3
    LOWPASS_6000_AT_48000 = 4
    LOWPASS_8000_AT_48000 = 5
    LOWPASS_12000_AT_48000 = 6


class SrcType(enum.IntEnum):
    """The types of rate converters: windowed sinc of three qualities, hold, and linear interpolation."""

    SINC_BEST_QUALITY = 0
    SINC_MEDIUM_QUALITY = 1
    SINC_FASTEST = 2
    ZERO_ORDER_HOLD = 3
    LINEAR = 4


class Channels(int):
    """The number of channels of a packet. `packet.channels[i]` is a packet of one of them, and can be assigned."""

    _packet: Packet

    def __new__(cls, packet: Packet, count: int) -> Channels:
        channels = super().__new__(cls, count)
        channels._packet = packet
        return channels

    def __len__(self) -> int:
        return int(self)

    def _index(self, channel: int) -> int:
        if not -len(self) <= channel < len(self):
            raise IndexError("channel out of range")
        return channel % len(self)

    def __getitem__(self, channel: int) -> Packet:
        made = type(self._packet)(1)
        made.set_frames(self._packet.frames)
        made.write_channels(0, 0, self._packet, self._index(channel), 0, 1, self._packet.frames)
        return made

    def __setitem__(self, channel: int, source: Packet) -> None:
        self._packet.write_channels(self._index(channel), 0, source, 0, 0, 1, self._packet.frames)

    def __reduce__(self) -> tuple[Any, ...]:
        return int, (int(self),)
