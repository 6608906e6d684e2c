"""The package against numpy models, against the headers, and its conditions against those of the library itself."""
import contextlib
import copy
import ctypes
import faulthandler
import gc
import inspect
import io
import json
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

import numpy as np
import pytest

import pcm
from pcm import _native

ROOT = Path(__file__).parents[2]
PACKAGE = ROOT / "bindings/python"
MOST, LEAST, VAST = 2**63 - 1, -(2**63), 2**61


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


# ---- Conditions: what Python says of a call, and what the library says when it gets the same call unchecked

INTEGERS = (-1, 0, 1, 2, 3, 4, 5, 6, 7, MOST, LEAST, VAST)


def some_packet(rng):
    packet = pcm.Packet.of(samples(rng.choice((0, 1, 5, 6)), rng.choice((1, 2, 2))))
    return rng.choice((packet, packet, packet, pcm.Packet(2), pcm.Packet(VAST)))


def some_stream(rng, stream):
    for _ in range(rng.choice((0, 2))):
        stream.write(pcm.Packet.of(samples(rng.choice((0, 5)), 2)))
    return stream


MAKERS = {
    "PCM_PACKET": some_packet,
    "PCM_PACKET_QUEUE": lambda rng: some_stream(rng, pcm.Queue(2)),
    "PCM_FILTER_COEFFICIENTS": lambda rng: pcm.Coefficients(rng.randrange(7)),
    "PCM_FILTER": lambda rng: some_stream(rng, pcm.Filter(pcm.Coefficients.of([1, 2]), 2)),
    "PCM_SRC": lambda rng: some_stream(rng, pcm.Src.try_create(3, 2, 1, 2)),
    "PCM_TONE": lambda rng: pcm.Tone(4.5),
    "int64_t": lambda rng: rng.choice(INTEGERS),
    "uint64_t": lambda rng: rng.choice((0, 1, 3, 8, 0x88, 2**63)),
    "double": lambda rng: rng.choice((np.nan, np.inf, -np.inf, -1, 0, 0.5, 1, 2)),
    "KIT_BUFFER": lambda rng: bytes(rng.randrange(9)),
    "KIT_STRING": lambda rng: rng.choice(("", "PCM_ENCODING_INT_8", "PCM_SRC_TYPE_LINEAR")),
    "float": lambda rng: np.zeros(rng.choice((0, 2, 12, 40)), np.float32),
}


def make_call(name, function, is_method, seed):
    rng = random.Random(seed)
    args = []
    kinds = _native.parameters_of[name]
    arrays = False
    for i, (kind, parameter) in enumerate(kinds):
        if arrays and parameter in _native._sizes:
            continue
        arrays |= "float" in kind
        made = MAKERS[kind.replace("const ", "").strip(" *")](rng)
        may_be_none = "*" in kind and "float" not in kind and not (is_method and i == 0)
        args.append(None if may_be_none and rng.random() < 0.1 else made)
    return lambda: function(*args)


def child(run):
    """What a forked process writes to its error stream, and the signal that ended it."""
    with tempfile.TemporaryFile() as said:
        pid = os.fork()
        if pid == 0:
            code = 1
            try:
                faulthandler.disable()
                resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
                os.dup2(said.fileno(), 2)
                run()
                code = 0
            finally:
                os._exit(code)
        _, status = os.waitpid(pid, 0)
        said.seek(0)
        return said.read().decode(), os.WTERMSIG(status) if os.WIFSIGNALED(status) else os.WEXITSTATUS(status)


def verdicts(name, function, is_method, seeds):
    found = []
    for seed in seeds:
        call = make_call(name, function, is_method, seed)
        try:
            call()
            found.append(None)
        except pcm.ContractError as broken:
            found.append(broken.condition)
        except (ValueError, OverflowError):
            found.append("")
    os.write(2, json.dumps(found).encode())


def unchecked(name, function, is_method, seed):
    _native.checks.clear()
    make_call(name, function, is_method, seed)()


def test_conditions_are_those_of_the_library():
    reached = set()
    for name, holder, attribute, function, is_method in BOUND:
        if attribute == "__init__":
            function, is_method = holder, False
        seeds = range(50 * 2 ** len(_native.parameters_of[name]))
        said, status = child(lambda: verdicts(name, function, is_method, seeds))
        assert status == 0, f"{name} ends the process: {said}"
        tried = {}
        for seed, condition in zip(seeds, json.loads(said)):
            if condition:
                tried.setdefault(condition, [seed])[1:] = [seed]
        for condition, seed in [(condition, seed) for condition, ends in tried.items() for seed in ends]:
            said, status = child(lambda: unchecked(name, function, is_method, seed))
            # The library takes a size beyond 64 bits for the largest one, which no machine has.
            also = "memory" if condition == "KIT_INT_MUL_OK( count, size )" else condition
            theirs = re.sub(r"^\S+ (contract broken|out of memory): |\n$", "", said)
            assert status == signal.SIGABRT and theirs in (condition, also), (name, seed, condition, said)
        reached |= set(tried)
    conditions = set()
    for comment in re.findall(r"^    // (.*)", (PACKAGE / "pcm/interface.h").read_text(), re.M):
        pieces = (piece.rpartition(": ")[2] for piece in comment.split("; "))
        conditions |= {piece for piece in pieces if not re.match(r"\w+ = |(pcm|kit(?!Real))\w+\( .* \)$", piece)}
    needs_gigabytes = {f"KIT_INT_TO_SIGNED_LONG_CONV_OK( {name} )" for name in ("pktFrames", "outFrames")}
    assert conditions - reached <= needs_gigabytes | set(RARE) and reached <= conditions


# What chance doesn't find.
RARE = {
    "KIT_INT_ADD_OK( destFrameOffset, frames )":
        lambda packet: packet.write_channels(0, MOST, packet, 0, LEAST, 1, MOST),
    "sourceFrameOffset >= 0": lambda packet: packet.write_channels(0, 0, packet, 0, -1, 1, 0),
}


@pytest.mark.parametrize("condition", RARE)
def test_rare_conditions(condition):
    with pytest.raises(pcm.ContractError, match=re.escape(": " + condition)):
        RARE[condition](pcm.Packet(2))
    said, status = child(lambda: (_native.checks.clear(), RARE[condition](pcm.Packet(2))))
    assert status == signal.SIGABRT and said.endswith(f": {condition}\n")


def test_a_broken_contract_changes_nothing_and_tells_what_and_where():
    packet = pcm.Packet.of(samples(3, 2))
    with pytest.raises(pcm.ContractError) as raised:
        packet.write_inner(2, packet, offset=0, frames=2)
    assert isinstance(raised.value, ValueError)
    assert str(raised.value) == "pcmPacketWriteInner: idx + frames <= (*pkt)->frames"
    assert raised.value.condition == "idx + frames <= (*pkt)->frames"
    assert np.array_equal(packet.view, samples(3, 2))


@pytest.mark.parametrize("call, error", [
    (lambda: pcm.Packet(2).append(pcm.Queue(2)), TypeError),
    (lambda: pcm.Packet(2).append([1, 2]), TypeError),
    (lambda: pcm.Packet(2).append(), TypeError),
    (lambda: pcm.Packet(2).append(pcm.Packet(2), 3), TypeError),
    (lambda: pcm.Packet(1.5), TypeError),
    (lambda: pcm.Packet(2**63), OverflowError),
    (lambda: pcm.Src(), TypeError),
    (lambda: pcm.Packet.of(np.zeros((1, 1, 1))), ValueError),
    (lambda: pcm.Tone(4).gather_samples(np.zeros(3)), TypeError),
    (lambda: pcm.Tone(4).gather_samples(np.zeros(6, np.float32)[::2]), TypeError),
    (lambda: pcm.Tone(4).gather_samples(pcm.Tone(4).gather(3).view), TypeError),
    (lambda: pcm.Queue(2).gather_samples(np.zeros(3, np.float32)), ValueError),
])
def test_what_is_no_condition_of_the_library(call, error):
    with pytest.raises(error):
        call()


# ---- Views

def test_views_keep_what_they_show():
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


def test_a_view_is_one_reference_and_gives_it_back():
    packet = pcm.Packet.of([1, 2, 3])
    views = [packet.view[i:] for i in range(3)]
    other = copy.copy(packet)
    assert references(packet) == 5
    del views
    other.append(packet)
    assert references(packet) == references(other) == 1
    assert other.view[:, 0].tolist() == [1, 2, 3, 1, 2, 3] and packet.frames == 3
    assert np.asarray(packet).shape == (3, 1) and pcm.Packet(3).view.shape == (0, 3)


def test_nothing_is_lost():
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
    # Each of the handles and buffers above holds 2 MB a turn.
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 100_000


# ---- Against models: that every function gets its arguments and gives back its result

def snake(name):
    return re.sub("(?<!^)([A-Z])", r"_\1", name).lower()


@pytest.mark.parametrize("row", BOUND, ids=lambda row: row[0])
def test_parameters_stand_in_the_order_of_the_prototype(row):
    name, _, _, function, is_method = row
    kinds, block = _native.parameters_of[name], [kind for kind, _ in _native.parameters_of[name] if "float" in kind]
    expected = [snake(parameter) for _, parameter in kinds if not block or parameter not in _native._sizes]
    is_new = function.__name__ == "__init__"
    assert list(inspect.signature(function).parameters)[is_method:] == expected[is_method and not is_new:]


BLOCK, SOURCE = samples(6, 3, 1), samples(5, 3, 2)


def silent(frames, channels=3):
    return np.zeros((frames, channels), np.float32)


def mean(array):
    return ((array[:, 0] + array[:, 1] + array[:, 2]) * np.float32(1 / 3))[:, None]


# A word's arguments behind the source, and the frames of the source that it names.
WORDS = {"": ((), SOURCE), "_inner": ((1, 2), SOURCE[1:3]), "_outer": ((1, 2), SOURCE[[0, 3, 4]]),
         "_leading": ((4,), SOURCE[:4]), "_trailing": ((4,), SOURCE[1:]), "_zero": ((2,), silent(2))}
# A verb's index, and the frames of the packet before and behind, which begins `over` frames further on.
VERBS = {"write": ((1,), 1, True), "insert": ((2,), 2, False), "append": ((), 6, False), "prepend": ((), 0, False)}
EDITS = {verb + word: (idx + ((SOURCE,) if word != "_zero" else ()) + more,
                       np.concatenate((BLOCK[:at], piece, BLOCK[at + over * len(piece):])))
         for verb, (idx, at, over) in VERBS.items() for word, (more, piece) in WORDS.items()} | {
    "del_inner": ((1, 2), BLOCK[[0, 3, 4, 5]]), "del_outer": ((1, 2), BLOCK[1:3]), "del_leading": ((2,), BLOCK[2:]),
    "del_trailing": ((2,), BLOCK[:4]), "clear": ((), BLOCK[:0]), "set_channels": ((2,), BLOCK[:, :2]),
    "set_frames": ((8,), np.vstack((BLOCK, silent(2)))),
    "write_channels": ((1, 4, SOURCE, 0, 3, 2, 1), np.vstack((BLOCK[:4], [[BLOCK[4, 0], *SOURCE[3, :2]]], BLOCK[5:]))),
    "channels_adjust_replace_with_downmix": ((2,), np.repeat(mean(BLOCK), 2, 1)),
    "channels_adjust_expand_with_downmix": ((4,), np.hstack((BLOCK, mean(BLOCK)))),
    "frames_extend": ((2,), np.stack((BLOCK, silent(6)), 1).reshape(12, 3)), "frames_reduce": ((3,), BLOCK[::3]),
    "level_adjust_linear_gain": ((0.3,), BLOCK * np.float32(0.3)),
    "level_adjust": ((-20,), BLOCK * np.float32(0.1))}


@pytest.mark.parametrize("name", EDITS)
def test_editing(name):
    args, expected = EDITS[name]
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
    vast = pcm.Packet(VAST)
    vast.channels_adjust_expand_with_downmix(VAST)
    assert (vast.channels, vast.frames) == (VAST, 0)


def test_encodings():
    codes = np.arange(-32768, 32768).astype("<i2")
    packet = pcm.Packet.try_decode(codes, pcm.Encoding.INT_16, 2)
    assert packet is not None and np.array_equal(packet.view.ravel(), codes.astype(np.float32) / 32768)
    assert packet.encode(pcm.Encoding.INT_16 | pcm.Encoding.BIG_ENDIAN) == codes.astype(">i2").tobytes()
    assert packet.encode(pcm.Encoding.FLOAT_32) == packet.encode(0) == packet.view.tobytes()
    padded = pcm.Encoding.INT_24 | pcm.Encoding.PACK_32 | pcm.Encoding.PAD_BEFORE
    expected = (codes.astype("<i4") << 16).tobytes()
    assert packet.encode(padded) == pcm.try_convert(padded, codes.tobytes(), pcm.Encoding.INT_16) == expected
    assert pcm.Packet.try_decode(bytearray(5), pcm.Encoding.INT_24, 1) is None
    assert pcm.try_convert(0, b"", 0) is None and pcm.Packet(2).encode(8) == b""
    assert pcm.Packet.try_decode(b"", 8, 2).frames == 0
    assert pcm.encoding_sizeof_sample(padded) == 4 and pcm.encoding_sizeof_frame(padded, 3) == 12
    text = "PCM_ENCODING_INT_16 | PCM_ENCODING_UNSIGNED"
    assert pcm.encoding_to_string(0x88) == text and pcm.encoding_from_string(text) == 0x88
    assert pcm.encoding_normalize(0xC | 0x300) == 0x104
    for kind, prefix in ((pcm.FilterType, "filter"), (pcm.SrcType, "src")):
        for member in kind:
            name = f"PCM_{prefix.upper()}_TYPE_{member.name}"
            assert getattr(pcm, f"{prefix}_type_to_string")(member) == name
            assert getattr(pcm, f"{prefix}_type_from_string")(name) == member
        assert getattr(pcm, f"{prefix}_type_from_string")("none") == -1


def test_streams():
    signal, taps = samples(60, 2) / 4, samples(5, 1)[:, 0]
    filtered = np.stack([np.convolve(signal[:, c].astype(float), taps)[:60] for c in range(2)], axis=1)
    set_ = pcm.Coefficients.of(taps)
    assert np.array_equal(set_.view, taps) and set_.create_from().length == 5
    assert pcm.Coefficients(pcm.FilterType.LOWPASS_4000_AT_16000).length == 16
    for stream, expected in (pcm.Queue(2), signal), (pcm.Filter(set_, 2), filtered):
        for begin, end in (0, 10), (10, 10), (10, 60):
            stream.write(pcm.Packet.of(signal[begin:end]))
        assert (stream.frames, stream.packets, stream.channels) == (60, 3, 2)
        other, shared = stream.create_from(), copy.copy(stream)
        into, added = np.ones((7, 2), np.float32), np.ones((7, 2), np.float32)
        pieces = [stream.read().view, stream.gather(20).view, into, added]
        stream.gather_samples(into)
        stream.gather_samples_add(added)
        added -= 1
        assert np.abs(np.concatenate((*pieces, stream.read().view)) - expected).max() < 1e-6
        shared.clear() if expected is signal else shared.reset()
        assert (stream.frames, other.frames, shared.frames) == (0, 60, 0)
    assert stream.coefficients.length == 5
    src, direct = (pcm.Src.try_create(pcm.SrcType.ZERO_ORDER_HOLD, 16000, 8000, channels=2) for _ in range(2))
    for each in src, direct:
        each.write(pcm.Packet.of(signal))
    assert (src.packets, src.channels, src.type) == (1, 2, 3)
    assert (src.read_frame_rate, src.write_frame_rate) == (16000, 8000) and 110 < src.frames <= 120
    into, added = np.ones((7, 2), np.float32), np.ones((7, 2), np.float32)
    pieces = [src.gather(9).view, into, added]
    src.gather_samples(into)
    src.gather_samples_add(added)
    added -= 1
    whole = direct.read().view
    assert np.abs(np.concatenate((*pieces, src.read().view)) - whole).max() < 1e-6
    assert set(whole[:, 0]) <= set(signal[:, 0])
    direct.write(pcm.Packet.of(signal))
    direct.reset()
    assert direct.packets == 0
    assert pcm.Src.frame_rate_check_compatibility(16000, 8000) is True
    assert pcm.Src.frame_rate_check_compatibility(1, 257) is False and pcm.Src.try_create(0, 1, 257, 1) is None


def test_generators():
    n = np.arange(300)
    a, b = (np.sin(2 * np.pi / period * n) for period in (8000 / 440, 7.25))

    def tones():
        return pcm.Tone.try_create_with_frequency(8000, 440), pcm.Tone(7.25)
    for gather, into, add, model in (
            (lambda _, t, *n: t.gather(*n), lambda _, t, *n: t.gather_samples(*n),
             lambda _, t, *n: t.gather_samples_add(*n), b),
            (pcm.dual_tone_gather, pcm.dual_tone_gather_samples, pcm.dual_tone_gather_samples_add, (a + b) / 2),
            (pcm.modulated_tone_gather, pcm.modulated_tone_gather_samples, pcm.modulated_tone_gather_samples_add,
             a * b)):
        replaced, added = np.ones(300, np.float32), np.ones(300, np.float32)
        into(*tones(), replaced)
        add(*tones(), added)
        for made in gather(*tones(), 300).view[:, 0], replaced, added - 1:
            assert np.abs(made - model).max() < 2e-6
    block = np.zeros(8192, np.float32)
    table = np.sort(pcm.noise_gather(8192).view[:, 0])
    for fill in pcm.noise_gather_samples_add, pcm.noise_gather_samples:
        fill(block)
        assert np.array_equal(np.sort(block), table) and -1 <= table[0] < -.9 < .9 < table[-1] <= 1
    before = block.copy()
    pcm.level_adjust_samples(block, 6.0)
    assert np.array_equal(block, before * np.float32(10 ** 0.3))
    pcm.level_adjust_linear_gain_samples(block, 0.5)
    assert np.array_equal(block, before * np.float32(10 ** 0.3) / 2)
    pcm.silence_gather_samples(block[:8000])
    assert not block[:8000].any() and block[8000:].all() and np.array_equal(pcm.silence_gather(7).view, silent(7, 1))
    assert pcm.decibel_to_gain(20) == 10 and pcm.decibel_from_gain(0.1) == -20


# ---- What is written about it

@pytest.mark.parametrize("page", [PACKAGE / "README.md", ROOT / "docs/audioop.md"], ids=lambda page: page.stem)
def test_pages_print_what_they_say(page):
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
    result = subprocess.run(["mypy", "--strict", "--cache-dir=/dev/null", str(PACKAGE / "pcm")], stdout=subprocess.PIPE)
    assert result.returncode == 0, result.stdout.decode()
