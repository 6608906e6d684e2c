"""Compares the package with NumPy models, also for calls that the library does not allow."""
import array
import copy
import ctypes
import doctest
import mmap
import os
import pickle
import random
import re
import subprocess
import sys
import sysconfig
import threading
from pathlib import Path

import numpy as np
import pytest

import pcm

ROOT = Path(__file__).parents[2]
PACKAGE = ROOT / "bindings/python"
BUILD = Path(os.environ["PCM_BUILD"])


def samples(frames, channels, seed=0):
    return np.random.default_rng(seed).uniform(-1, 1, (frames, channels)).astype(np.float32)


def test_docstrings(capsys):
    owners = [pcm, *(value for value in vars(pcm).values() if isinstance(value, type))]
    names = [(owner, name) for owner in owners for name in vars(owner) if not name.startswith("_")]
    examples = 0
    for owner, name in names:
        text = getattr(getattr(owner, name), "__doc__", None) or ""
        test = doctest.DocTestParser().get_doctest(text, {"pcm": pcm, "np": np}, name, None, 0)
        examples += bool(test.examples)
        assert doctest.DocTestRunner().run(test).failed == 0, capsys.readouterr().out
    assert examples > 100


# ---- Random calls, many of which the library does not allow

NUMBERS = [*range(-1, 7), 2**45, 2**62, 2**63 - 1, -2**63]


def part_of(name, source, offset, frames):
    """The frames of the source that a write or an insertion uses, and whether they exist."""
    kind = name.partition("_")[2]
    if kind == "zero":
        return np.zeros((max(0, min(frames, 99)), source.shape[1]), np.float32), 0 <= frames < 2**40
    if not kind:
        return source, True
    if kind in ("leading", "trailing"):
        offset = 0 if kind == "leading" else len(source) - frames
    valid = 0 <= offset and 0 <= frames and offset + frames <= len(source)
    if not valid:
        return source, False
    inner = slice(offset, offset + frames)
    return (np.delete(source, inner, 0) if kind == "outer" else source[inner]), True


def expected_edit(name, packet, idx, source, offset, frames):
    """The result of an edit, or None if the library does not allow it."""
    if name.startswith("del_"):
        kind = name[4:]
        idx = {"leading": 0, "trailing": len(packet) - frames}.get(kind, idx)
        if idx < 0 or frames < 0 or idx + frames > len(packet):
            return None
        return packet[idx:idx + frames] if kind == "outer" else np.delete(packet, slice(idx, idx + frames), 0)
    part, valid = part_of(name, packet[:0] if name.endswith("_zero") else source, offset, frames)
    idx = {"append": len(packet), "prepend": 0}.get(name.partition("_")[0], idx)
    end = idx + len(part) if name.startswith("write") else idx
    if not valid or idx < 0 or end > len(packet) or part.shape[1] != packet.shape[1]:
        return None
    return np.vstack((packet[:idx], part, packet[end:]))


EDITS = {**{f"{verb}{kind}": ("idx",) * (verb in ("write", "insert")) + arguments
            for verb in ("write", "insert", "append", "prepend")
            for kind, arguments in {"": ("source",), "_inner": ("source", "offset", "frames"),
                                    "_outer": ("source", "offset", "frames"), "_leading": ("source", "frames"),
                                    "_trailing": ("source", "frames"), "_zero": ("frames",)}.items()},
         "del_inner": ("idx", "frames"), "del_outer": ("idx", "frames"), "del_leading": ("frames",),
         "del_trailing": ("frames",)}


def test_misuse_changes_nothing(capfd):
    choice, failures = random.Random(5), 0
    for round in range(int(os.environ.get("PCM_ROUNDS", 4000))):
        arrays = [samples(choice.randrange(5), choice.choice((1, 2, 2, 2)), round + i) for i in range(2)]
        packets = [pcm.Packet(made) for made in arrays]
        source = choice.randrange(2)
        holder = copy.copy(packets[0]) if choice.random() < 0.5 else None
        queue = pcm.Queue(arrays[0].shape[1])
        queue.write(packets[0])
        if choice.random() < 0.5:
            del queue
        name = choice.choice(sorted(EDITS))
        values = {"idx": choice.choice(NUMBERS), "offset": choice.choice(NUMBERS), "frames": choice.choice(NUMBERS)}
        wanted = expected_edit(name, arrays[0], source=arrays[source], **values)
        values["source"] = packets[source]
        call = getattr(packets[0], name), [values[argument] for argument in EDITS[name]]
        if wanted is None:
            with pytest.raises((pcm.ContractError, MemoryError)):
                call[0](*call[1])
            wanted, failures = arrays[0], failures + 1
        else:
            call[0](*call[1])
        assert np.array_equal(packets[0].view, wanted), (name, values)
        assert np.array_equal(packets[1].view, arrays[1])
        assert holder is None or np.array_equal(holder.view, arrays[0])
    assert failures > round / 3
    if "LD_PRELOAD" in os.environ:  # the leak sanitizer, which also reports the interpreter's own leaks
        ctypes.CDLL(None).__lsan_do_recoverable_leak_check()
        assert "_pcm" not in capfd.readouterr().err


@pytest.mark.parametrize("call", [
    lambda: pcm.Packet(0),
    lambda: pcm.Packet(np.zeros((3, 0))),
    lambda: pcm.Packet(1).set_frames(-1),
    lambda: pcm.Packet(2).create_from_with_channel_mask(0),
    lambda: pcm.Packet([1., 2., 3.]).frames_reduce(2),
    lambda: pcm.Queue(1).read(),
    lambda: pcm.Queue(1).gather(1),
    lambda: pcm.Queue(2).write(pcm.Packet(1)),
    lambda: pcm.Filter(pcm.Coefficients.of([1.]), 2).write(pcm.Packet(1)),
    lambda: pcm.Filter(pcm.Coefficients.of([1.] * 9), 2**62),
    lambda: pcm.Coefficients(7),
    lambda: pcm.Coefficients.of([]),
    lambda: pcm.Src.try_create(5, 1, 1),
    lambda: pcm.Tone(0),
    lambda: pcm.Tone(4).gather(-1),
])
def test_contract(call):
    with pytest.raises(ValueError) as raised:
        call()
    condition = raised.value.condition
    assert isinstance(raised.value, pcm.ContractError) and str(raised.value) == condition
    assert condition in (ROOT / (raised.value.file + ".cpp")).read_text().splitlines()[raised.value.line - 1]


# ---- Arguments

@pytest.mark.parametrize("error, call", [
    (TypeError, lambda: pcm.Packet(np.zeros(3, np.int16))),
    (TypeError, lambda: pcm.Packet(np.zeros(3, bool))),
    (TypeError, lambda: pcm.Packet(np.zeros(3, complex))),
    (TypeError, lambda: pcm.Packet(1.5)),
    (TypeError, lambda: pcm.Packet(2**63)),
    (TypeError, lambda: pcm.Packet.from_int(np.zeros(3, np.int64))),
    (TypeError, lambda: pcm.Packet(2).append(pcm.Queue(2))),
    (TypeError, lambda: pcm.Src()),
    (TypeError, lambda: pcm.Tone(4).gather_samples(np.zeros(3))),
    (TypeError, lambda: pickle.dumps(pcm.Tone(4))),
    (TypeError, lambda: copy.deepcopy(pcm.Src.try_create(0, 1, 1))),
    (TypeError, lambda: hash(pcm.Packet(1))),
    (ValueError, lambda: pcm.Packet(np.zeros((1, 1, 1)))),
    (ValueError, lambda: pcm.Packet.decode(b"123", pcm.Encoding.INT_16)),
    (ValueError, lambda: pcm.Src(pcm.SrcType.LINEAR, 1, 257)),
    (ValueError, lambda: pcm.Queue(2).gather_samples(np.zeros(3, np.float32))),
    (ValueError, lambda: pcm.Queue(2).gather_samples(np.zeros((2, 3), np.float32))),
    (ValueError, lambda: pcm.Tone(4).gather_samples(pcm.Tone(4).gather(3).view)),
    (ValueError, lambda: pcm.encoding_from_string("INT_17")),
    (ValueError, lambda: pcm.filter_type_from_string("none")),
    (ValueError, lambda: pcm.src_type_from_string("")),
    (BufferError, lambda: pcm.Tone(4).gather_samples(b"1234")),
    (IndexError, lambda: pcm.Packet(1)[0]),
    (IndexError, lambda: pcm.Packet(1).channels[1]),
])
def test_errors_of_arguments(error, call):
    with pytest.raises(error):
        call()


def test_encodings():
    codes = np.arange(-32768, 32768).astype("<i2")
    packet = pcm.Packet.try_decode(codes, pcm.Encoding.INT_16, channels=2)
    assert np.array_equal(packet.view.ravel(), codes.astype(np.float32) / 32768)
    for values in (codes, codes.astype(">i2"), (codes.astype(np.int32) + 32768).astype(np.uint16)):
        assert np.array_equal(pcm.Packet.from_int(values).view.ravel(), packet.view.ravel())
    assert packet.encode(pcm.Encoding("INT_16 | BIG_ENDIAN")) == codes.astype(">i2").tobytes()
    assert pcm.encoding_from_string("PCM_ENCODING_INT_16|UNSIGNED") is pcm.Encoding.INT_16 | pcm.Encoding.UNSIGNED
    for flag in pcm.Encoding:
        assert pcm.encoding_to_string(pcm.Encoding.INT_8 | flag).endswith(pcm.encoding_to_string(
            pcm.encoding_normalize(pcm.Encoding.INT_8 | flag))[-6:])
    memory = mmap.mmap(-1, 4)
    memory[:] = b"\0\x40\0\xc0"
    for source in (memory, bytearray(memory[:]), memoryview(memory[:]), array.array("h", [16384, -16384])):
        assert pcm.Packet.try_decode(source, pcm.Encoding.INT_16).view.ravel().tolist() == [0.5, -0.5]
    assert pcm.Packet.try_decode(b"12345", pcm.Encoding.INT_24) is None
    assert pcm.src_type_from_string("PCM_SRC_TYPE_LINEAR") is pcm.SrcType.LINEAR


# ---- Packets as Python objects

def test_slices_and_operators():
    block = samples(6, 2)
    for at in (slice(1, 3), slice(-2, None), slice(None, None, 2), slice(None, None, -1), slice(4, 2)):
        assert np.array_equal(pcm.Packet(block)[at].view, block[at])
    for frames in (1, 2, 4):
        packet, part = pcm.Packet(block), samples(frames, 2, 1)
        packet[1:3] = part
        assert np.array_equal(packet.view, np.vstack((block[:1], part, block[3:])))
        del packet[1:1 + frames]
        assert packet == pcm.Packet(np.delete(block, slice(1, 3), 0))
    packet = pcm.Packet(block)
    assert packet + packet == pcm.Packet(np.vstack((block, block))) and packet != pcm.Packet(block[:, :1])
    assert 0.5 * packet == packet * 0.5 == pcm.Packet(block * np.float32(0.5)) and packet == pcm.Packet(block)
    packet.channels[1] = packet.channels[0]
    assert np.array_equal(packet.view[:, 1], block[:, 0]) and packet.channels == 2 and len(list(packet)) == 6
    for made in (packet, pcm.Packet(3), pcm.Coefficients.of([0.5, 1]), packet.channels):
        for copied in (pickle.loads(pickle.dumps(made)), copy.deepcopy(made)):
            assert np.array_equal(getattr(copied, "view", copied), getattr(made, "view", made))
    assert repr(packet) == "<pcm.Packet: 6 frames x 2 channels>"


def test_views():
    packet = pcm.Packet(samples(100, 2))
    for make in (lambda: packet.view, lambda: np.asarray(packet), lambda: np.asarray(memoryview(packet))):
        view = make()
        assert view.shape == (100, 2) and view.dtype == np.float32 and not view.flags.writeable
        assert np.shares_memory(view, packet.view)
        with pytest.raises(ValueError):
            view.setflags(write=True)
        before = view.copy()
        packet *= -0.5
        assert np.array_equal(view, before) and np.array_equal(packet.view, before * np.float32(-0.5))
    shared = copy.copy(packet)
    writable = packet.mutable_view
    writable[0] = 1
    with pytest.raises(BufferError):
        packet.append_zero(1)
    kept = copy.copy(packet)
    memoryview(writable)[1, 0] = 1
    del writable
    packet.append_zero(1)
    assert shared.view[0, 0] != 1 and packet.view[0, 0] == packet.view[1, 0] == 1 != kept.view[1, 0]
    assert np.array(packet, np.float64).dtype == np.float64


def takings(stream):
    """All frames of a stream, by each of the functions that take some."""
    into, added = np.ones((7, 2), np.float32), np.ones((7, 2), np.float32)
    pieces = [stream.gather(20).view, into, added]
    stream.gather_samples(into)
    stream.gather_samples_add(added)
    added -= 1
    return np.concatenate((*pieces, stream.gather().view))


def test_streams():
    signal, taps = samples(60, 2) / 4, samples(5, 1)[:, 0]
    filtered = np.stack([np.convolve(signal[:, c].astype(float), taps)[:60] for c in range(2)], axis=1)
    for stream, expected in (pcm.Queue(2), signal), (pcm.Filter(pcm.Coefficients.of(taps), channels=2), filtered):
        stream.write(pcm.Packet(signal[:30]))
        stream.write(pcm.Packet(signal[30:]))
        copies = [stream.create_from(), copy.copy(stream), copy.deepcopy(stream)]
        assert np.abs(takings(stream) - expected).max() < 1e-6
        for copied in copies:
            assert np.abs(np.concatenate([packet.view for packet in copied]) - expected).max() < 1e-6
            assert copied.frames == 0
    src = pcm.Src.try_create(pcm.SrcType.ZERO_ORDER_HOLD, read_frame_rate=16000, write_frame_rate=8000, channels=2)
    src.write(pcm.Packet(signal))
    assert src.type is pcm.SrcType.ZERO_ORDER_HOLD and set(takings(src)[:27, 0]) <= set(signal[:, 0])
    both = pcm.dual_tone_gather(pcm.Tone(8), pcm.Tone(6), 300).view[:, 0]
    assert np.abs(both - sum(np.sin(2 * np.pi / period * np.arange(300)) for period in (8, 6)) / 2).max() < 2e-6


def test_threads_and_fork():
    shared, queue = pcm.Packet(samples(30_000, 1)), pcm.Queue(1)

    def work():
        for _ in range(40):
            queue.write(shared)
            shared.level_adjust_linear_gain(-1)
            own = copy.copy(shared)
            own.append(shared)
            queue.gather(queue.packets and 20_000)
            assert np.array_equal(np.abs(own.view), np.abs(np.vstack((block, block))))

    block = samples(30_000, 1)
    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert queue.frames == 4 * 40 * 10_000
    child = os.fork()
    if not child:
        os._exit(len(shared.encode(pcm.Encoding.INT_8)) == 30_000 and pcm.noise_gather(9).frames)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 9


# ---- Types and installation

def run(*command, **options):
    done = subprocess.run([*map(str, command)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    assert done.returncode == 0, done.stdout
    return done.stdout


def test_types(tmp_path):
    for page in [PACKAGE / "README.md", ROOT / "README.md", *ROOT.glob("docs/*.md")]:
        for number, block in enumerate(re.findall(r"```python\n(.*?)```", page.read_text(), re.S)):
            (tmp_path / f"{page.parent.name}_{page.stem.lower()}_{number}.py").write_text(block)
    examples = [PACKAGE / "example" / name for name in ("echo_server.py", "media_stream.py")]
    run("mypy", "--config-file", PACKAGE / "mypy.ini", "--cache-dir", tmp_path / "cache", PACKAGE / "pcm",
        *sorted(tmp_path.glob("*.py")), *examples, env={**os.environ, "MYPYPATH": str(PACKAGE)})
    # The metaclass of pybind11, and a method that exists from Python 3.12 on.
    (tmp_path / "allowed").write_text(
        r"pcm\.(_pcm\.)?(Coefficients|Filter|Packet|Queue|Src|Tone)" "\n" r"pcm\.(_pcm\.)?Packet\.__buffer__" "\n" r"pcm\._types\.Packet" "\n")
    run(sys.executable, "-m", "mypy.stubtest", "pcm", "--mypy-config-file", PACKAGE / "mypy.ini", "--allowlist", "allowed",
        "--ignore-unused-allowlist", env={**os.environ, "PYTHONPATH": str(BUILD / "python")}, cwd=tmp_path)


def test_wheel(tmp_path):
    run(sys.executable, "-m", "venv", "--system-site-packages", tmp_path)
    run(tmp_path / "bin/pip", "install", "--no-build-isolation", "--no-deps", "--no-index", PACKAGE,
        env={**os.environ, "CMAKE_ARGS": "-DCMAKE_CXX_FLAGS_RELEASE='-O0 -DNDEBUG'"})
    code = "import pcm, pcm.audioop; print(pcm.__version__, pcm.__file__, len(pcm.audioop.alaw2lin(b'1', 2)))"
    folder = Path(sysconfig.get_path("platlib", vars={"base": tmp_path, "platbase": tmp_path}, scheme="venv"))
    environment = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    said = run(tmp_path / "bin/python", "-OO", "-c", code, env=environment, cwd=tmp_path)
    assert said == f"{pcm.__version__} {folder}/pcm/__init__.py 2\n"
    assert str(folder) in run("ldd", *folder.glob("pcm/_pcm.*.so")) and "libstdc" not in run("ldd", *folder.glob("pcm/_pcm.*.so"))
