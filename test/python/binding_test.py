"""Compares the package with numpy models and with the C headers."""
import contextlib
import copy
import ctypes
import gc
import inspect
import io
import os
import re
import resource
import shutil
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import pcm
from pcm import _native

ROOT = Path(__file__).parents[2]
PACKAGE = ROOT / "bindings/python"


def samples(frames, channels, seed=0):
    return np.random.default_rng(seed).uniform(-1, 1, (frames, channels)).astype(np.float32)


def references(packet):
    return ctypes.c_int32.from_address(int(_native.ffi.cast("intptr_t", packet._box[0])) + 24).value


# ---- The interface

HEADERS = "".join(path.read_text() for path in sorted(ROOT.glob("source/*/*.h")))


def prototypes(text, mark=""):
    text = re.sub(r"/\*.*?\*/|//[^\n]*", "", text, flags=re.S)
    text = re.sub(r"PCM_OBJECT_DECLARE\( (\w+), (\w+) \);",
                  r"PCM_API \1 *\2Retain( \1 *obj );\nPCM_API void \2Release( \1 *obj );", text)
    found = re.findall(rf"^{mark}(?!typedef)([\w ]+?[ *]+)(\w+)\(([^;{{}}]*)\);", text, re.M)
    return {name: " ".join((result.replace("static ", "") + "(" + parameters).split())
            for result, name, parameters in found}


def test_prototypes_and_constants_are_those_of_the_headers():
    of_headers = prototypes(HEADERS, "(?:PCM|KIT)_API ")
    for name, prototype in prototypes((PACKAGE / "pcm/interface.h").read_text()).items():
        assert name == "pcm___PacketOpenGap" or prototype == of_headers[name], name
    values = dict(re.findall(r"#define (PCM_ENCODING_\w+) \( \(PCM_ENCODING\)(\w+) \)", HEADERS))
    values.update(re.findall(r"(PCM_(?:FILTER|SRC)_TYPE_\w+) = (\d+)", HEADERS))
    del values["PCM_ENCODING_BASE_MASK"]
    kinds = {"ENCODING": pcm.Encoding, "FILTER_TYPE": pcm.FilterType, "SRC_TYPE": pcm.SrcType}
    ours = {f"PCM_{kind}_{name}": int(value) for kind, names in kinds.items()
            for name, value in names.__members__.items() if name != "SAMPLES"}
    assert ours == {name: int(value, 0) for name, value in values.items()}


def bound():
    """Every function that calls the library: its C name, itself, and the C types of what Python passes."""
    for holder in (pcm, *_native.Handle._classes.values()):
        for name, value in vars(holder).items():
            function = getattr(value, "fget", None) or getattr(value, "__func__", value)
            called = re.search(r"Calls (\w+)\.", function.__doc__ or "") if inspect.isfunction(function) else None
            if called:
                yield called[1], holder, name, function, not isinstance(value, staticmethod) and holder is not pcm


BOUND = list(bound())


def test_all_families_are_reachable():
    # Bound by hand, for blocks of kitMemAlloc or for writing through a pointer, which Python has no safe use for, the
    # kernels, which numpy has, and start-up and shut-down.
    left_out = re.compile(r".*(Retain|Release|Backing|Use|Startup|Shutdown)$|pcm___.*|pcmModule$|kit\w+"
                          r"|pcmPacketWriteChannelsSamples$|pcmPacketCreateFromSamplesCopy$")
    missing = set(prototypes(HEADERS, "(?:PCM|KIT)_API ")) - {row[0] for row in BOUND}
    assert {name for name in missing if not left_out.match(name)} == set()
    assert all("..." in inspect.getsource(inspect.unwrap(row[3])) for row in BOUND)


# ---- Errors

def test_a_contract_violation_raises_and_changes_nothing():
    packet = pcm.Packet.of(samples(3, 2))
    with pytest.raises(pcm.ContractError) as raised:
        packet.write_inner(2, packet, offset=0, frames=2)
    assert isinstance(raised.value, ValueError)
    assert str(raised.value) == "pcmPacketWriteInner: idx + frames <= (*pkt)->frames"
    assert raised.value.condition == "idx + frames <= (*pkt)->frames"
    assert np.array_equal(packet.view, samples(3, 2))


@pytest.mark.parametrize("call, error", [
    (lambda: pcm.Packet(2).append(pcm.Queue(2)), TypeError),
    (lambda: pcm.Packet(2).append(pcm.Packet(2), 3), TypeError),
    (lambda: pcm.Packet(1.5), TypeError),
    (lambda: pcm.Packet(2**63), OverflowError),
    (lambda: pcm.Packet.of(np.zeros((1, 1, 1))), ValueError),
    (lambda: pcm.Tone(4).gather_samples(np.zeros(3)), TypeError),
    (lambda: pcm.Tone(4).gather_samples(pcm.Tone(4).gather(3).view), TypeError),
    (lambda: pcm.Queue(2).gather_samples(np.zeros(3, np.float32)), ValueError),
])
def test_errors_of_the_package(call, error):
    with pytest.raises(error):
        call()


# ---- Views

def test_views_do_not_change():
    packet = pcm.Packet.of(samples(100, 2))
    view = packet.view
    assert view.shape == (100, 2) and view.dtype == np.float32 and np.array_equal(view, samples(100, 2))
    assert references(packet) == 2 and view.ctypes.data == packet.view.ctypes.data
    for change in (lambda: packet.level_adjust(-6), lambda: packet.set_channels(3), lambda: packet.frames_extend(2),
                   lambda: packet.write_zero(0, 5), lambda: packet.del_leading(9), packet.clear):
        shown = packet.view
        before = shown.copy()
        change()
        assert np.array_equal(shown, before) and not np.array_equal(packet.view, before)
    row = view[7]
    del view, shown, packet
    gc.collect()
    others = [pcm.Packet.of(np.full((100, 2), i)) for i in range(200)]
    assert np.array_equal(row, samples(100, 2)[7]) and len(others) == 200
    with pytest.raises(ValueError):
        row.setflags(write=True)
    with pytest.raises(ValueError):
        row[0] = 1


def test_memory_is_released():
    packet, queue = pcm.Packet.of(np.zeros(500_000)), pcm.Queue(1)
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    for _ in range(100):
        encoded = packet.encode(pcm.Encoding.INT_32)
        queue.write(pcm.Packet.try_decode(pcm.try_convert(0, encoded, pcm.Encoding.INT_32), 0, 1))
        shared, view = copy.copy(packet), packet.view
        packet.write_zero(0, 1)
        queue.gather(500_000).append(shared)
        with pytest.raises(pcm.ContractError):
            queue.read()
        assert view.shape == (500_000, 1)
    # Each of the handles and buffers above holds 2 MB in each round.
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 100_000


# ---- Arguments and results of every function

BLOCK, SOURCE = samples(6, 3, 1), samples(5, 3, 2)


def silent(frames, channels=3):
    return np.zeros((frames, channels), np.float32)


EDITS = [
    ("write_inner", (1, SOURCE, 1, 2), np.vstack((BLOCK[:1], SOURCE[1:3], BLOCK[3:]))),
    ("insert_outer", (2, SOURCE, 1, 2), np.vstack((BLOCK[:2], SOURCE[[0, 3, 4]], BLOCK[2:]))),
    ("append_leading", (SOURCE, 4), np.vstack((BLOCK, SOURCE[:4]))),
    ("prepend_zero", (2,), np.vstack((silent(2), BLOCK))),
    ("del_trailing", (2,), BLOCK[:4]),
    ("set_frames", (8,), np.vstack((BLOCK, silent(2)))),
    ("write_channels", (1, 4, SOURCE, 0, 3, 2, 1), np.vstack((BLOCK[:4], [[BLOCK[4, 0], *SOURCE[3, :2]]], BLOCK[5:]))),
    ("frames_extend", (2,), np.stack((BLOCK, silent(6)), 1).reshape(12, 3)),
    ("level_adjust", (-20,), BLOCK * np.float32(0.1)),
]


@pytest.mark.parametrize("name, args, expected", EDITS, ids=[row[0] for row in EDITS])
def test_editing(name, args, expected):
    packet, given = pcm.Packet.of(BLOCK), pcm.Packet.of(SOURCE)
    holder, view = copy.copy(packet), packet.view
    getattr(packet, name)(*[given if arg is SOURCE else arg for arg in args])
    assert np.array_equal(packet.view, expected) and np.array_equal(given.view, SOURCE)
    assert np.array_equal(holder.view, BLOCK) and np.array_equal(view, BLOCK)


def test_packets_from_packets():
    packet = pcm.Packet.of(BLOCK)
    total = (BLOCK[:, 0] + BLOCK[:, 1] + BLOCK[:, 2])[:, None]
    assert np.array_equal(packet.create_from_with_channels(2).view, np.hstack((total, total)))
    assert np.array_equal(packet.create_from_with_channel_mask(0b101).view, BLOCK[:, [0, 2]])
    assert packet.create_from_with_channels(3).view.ctypes.data == packet.view.ctypes.data
    assert packet.create_from().view.ctypes.data != packet.view.ctypes.data
    packet.append(packet)
    assert np.array_equal(packet.view, np.vstack((BLOCK, BLOCK)))
    assert str(packet).startswith("PCM_PACKET") and repr(packet) == "<pcm.Packet of 12 frames x 3 channels>"


def test_encodings():
    codes = np.arange(-32768, 32768).astype("<i2")
    packet = pcm.Packet.try_decode(codes, pcm.Encoding.INT_16, 2)
    assert packet is not None and np.array_equal(packet.view.ravel(), codes.astype(np.float32) / 32768)
    assert packet.encode(pcm.Encoding.INT_16 | pcm.Encoding.BIG_ENDIAN) == codes.astype(">i2").tobytes()
    padded = pcm.Encoding.INT_24 | pcm.Encoding.PACK_32 | pcm.Encoding.PAD_BEFORE
    assert pcm.try_convert(padded, codes.tobytes(), pcm.Encoding.INT_16) == (codes.astype("<i4") << 16).tobytes()
    assert pcm.Packet.try_decode(bytearray(5), pcm.Encoding.INT_24, 1) is None
    assert pcm.try_convert(0, b"", 0) is None and pcm.Packet(2).encode(8) == b""
    assert pcm.encoding_sizeof_frame(padded, 3) == 12
    text = "PCM_ENCODING_INT_16 | PCM_ENCODING_UNSIGNED"
    assert pcm.encoding_to_string(0x88) == text and pcm.encoding_from_string(text) == 0x88
    assert pcm.filter_type_to_string(pcm.FilterType(0)) == "PCM_FILTER_TYPE_LOWPASS_4000_AT_16000"
    assert pcm.src_type_from_string("PCM_SRC_TYPE_LINEAR") == pcm.SrcType.LINEAR
    assert pcm.src_type_from_string("none") == -1


def takings(stream):
    """All frames of a stream, by each of the functions that take some."""
    into, added = np.ones((7, 2), np.float32), np.ones((7, 2), np.float32)
    pieces = [stream.gather(20).view, into, added]
    stream.gather_samples(into)
    stream.gather_samples_add(added)
    added -= 1
    return np.concatenate((*pieces, stream.read().view))


def test_queues_and_filters():
    signal, taps = samples(60, 2) / 4, samples(5, 1)[:, 0]
    filtered = np.stack([np.convolve(signal[:, c].astype(float), taps)[:60] for c in range(2)], axis=1)
    coefficients = pcm.Coefficients.of(taps)
    assert np.array_equal(coefficients.view, taps) and coefficients.create_from().length == 5
    for stream, expected in (pcm.Queue(2), signal), (pcm.Filter(coefficients, 2), filtered):
        stream.write(pcm.Packet.of(signal))
        assert (stream.frames, stream.packets, stream.channels) == (60, 1, 2)
        other, shared = stream.create_from(), copy.copy(stream)
        assert np.abs(takings(stream) - expected).max() < 1e-6
        shared.clear() if expected is signal else shared.reset()
        assert (stream.frames, other.frames, shared.frames) == (0, 60, 0)


def test_rate_conversion():
    signal = samples(60, 2)
    src = pcm.Src.try_create(pcm.SrcType.ZERO_ORDER_HOLD, 16000, 8000, channels=2)
    src.write(pcm.Packet.of(signal))
    assert (src.packets, src.channels, src.type) == (1, 2, 3)
    assert (src.read_frame_rate, src.write_frame_rate) == (16000, 8000) and 110 < src.frames <= 120
    assert set(takings(src)[:27, 0]) <= set(signal[:, 0])
    src.write(pcm.Packet.of(signal))
    src.reset()
    assert src.packets == 0
    assert pcm.Src.frame_rate_check_compatibility(16000, 8000) is True
    assert pcm.Src.frame_rate_check_compatibility(1, 257) is False and pcm.Src.try_create(0, 1, 257, 1) is None


def test_generators():
    a, b = (np.sin(2 * np.pi / period * np.arange(300)) for period in (8000 / 440, 7.25))
    tones = pcm.Tone.try_create_with_frequency(8000, 440), pcm.Tone(7.25)
    into, added = np.ones(300, np.float32), np.ones(300, np.float32)
    tones[0].gather_samples(into)
    pcm.Tone(7.25).gather_samples_add(added)
    assert np.abs(into - a).max() < 2e-6 and np.abs(added - 1 - b).max() < 2e-6
    assert np.abs(pcm.dual_tone_gather(pcm.Tone(8000 / 440), tones[1], 300).view[:, 0] - (a + b) / 2).max() < 2e-6
    table = np.sort(pcm.noise_gather(8192).view[:, 0])
    assert -1 <= table[0] < -.9 < .9 < table[-1] <= 1
    pcm.level_adjust_samples(into, 6.0)
    pcm.silence_gather_samples(into[:200])
    assert not into[:200].any() and np.allclose(into[200:], a[200:] * 10 ** 0.3, atol=1e-5)
    assert pcm.decibel_to_gain(20) == 10 and pcm.decibel_from_gain(0.1) == -20


# ---- Documentation, installation and types

@pytest.mark.parametrize("page", [PACKAGE / "README.md", ROOT / "docs/audioop.md"], ids=lambda page: page.stem)
def test_examples_print_their_output(page):
    blocks = re.findall(r"```python\n(.*?)```(?:\n+prints\n+```text\n(.*?)```)?", page.read_text(), re.S)
    assert blocks
    for code, output in blocks:
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            exec(code, {})
        assert printed.getvalue() == output


@pytest.mark.skipif("PCM_BUILD" not in os.environ, reason="no build to install from")
def test_installed_package(tmp_path):
    build = Path(os.environ["PCM_BUILD"])
    subprocess.run(["cmake", "--install", build, "--prefix", tmp_path, "--component", "python"], check=True,
                   stdout=subprocess.DEVNULL)
    installed = tmp_path / "lib/python3/dist-packages"
    files = {path.relative_to(installed).as_posix() for path in installed.rglob("*") if path.is_file()}
    assert files == {f"pcm/{name}" for name in ("__init__.py", "_native.py", "audioop.py", "interface.h", "py.typed")}
    host = "import pcm; print(pcm.__file__, pcm.Packet(2).channels)"
    found = subprocess.run([sys.executable, "-c", host], stdout=subprocess.PIPE, check=True, cwd=tmp_path,
                           env={"PYTHONPATH": str(installed), "LD_LIBRARY_PATH": str(build / "lib")})
    assert found.stdout.decode() == f"{installed}/pcm/__init__.py 2\n"


@pytest.mark.skipif(not shutil.which("mypy"), reason="no mypy")
def test_types():
    command = ["mypy", "--config-file", PACKAGE / "mypy.ini", "--cache-dir=/dev/null", PACKAGE / "pcm"]
    result = subprocess.run(command, stdout=subprocess.PIPE)
    assert result.returncode == 0, result.stdout.decode()
