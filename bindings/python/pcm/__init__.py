"""PCM audio in memory: packets of 32-bit float frames, encodings, queues, filters, rate conversion, generators.

Functions and methods are those of the C library under their own names, in snake case and without `pcm` and the type:
`pcmPacketInsertInner` is `Packet.insert_inner`. Counts are in frames, samples are float32 with full scale 1.0.

A call that breaks a condition of the library raises ContractError and changes nothing. Objects can be used from several
threads; two calls on one object take turns. After a fork, both processes can use their objects.
"""

from ._pcm import *  # noqa: F403
from ._pcm import __version__ as __version__
from ._types import Encoding, FilterType, SrcType

__all__ = [
    "Coefficients", "ContractError", "Encoding", "Filter", "FilterType", "Packet", "Queue", "Src", "SrcType", "Tone",
    "decibel_from_gain", "decibel_to_gain", "dual_tone_gather", "dual_tone_gather_samples",
    "dual_tone_gather_samples_add", "encoding_from_string", "encoding_normalize", "encoding_sizeof_frame",
    "encoding_sizeof_sample", "encoding_to_string", "filter_type_from_string", "filter_type_to_string",
    "level_adjust_linear_gain_samples", "level_adjust_samples", "modulated_tone_gather",
    "modulated_tone_gather_samples", "modulated_tone_gather_samples_add", "noise_gather", "noise_gather_samples",
    "noise_gather_samples_add", "silence_gather", "silence_gather_samples", "src_type_from_string",
    "src_type_to_string", "try_convert",
]
