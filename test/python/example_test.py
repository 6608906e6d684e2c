"""The example programs of the package, run as their users do."""
import os
import socket
import struct
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import pcm

EXAMPLES = Path(__file__).parents[2] / "bindings/python/example"


def run(name, *arguments):
    return subprocess.run([sys.executable, EXAMPLES / name, *map(str, arguments)], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=60)


def test_echo_server_examples():
    server = subprocess.Popen([sys.executable, EXAMPLES / "echo_server.py", "--port", "0"], stdout=subprocess.PIPE, text=True)
    try:
        address = "127.0.0.1", int(server.stdout.readline().split()[-1])
        line = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        line.settimeout(5)
        tone = pcm.Tone(8).gather(480)
        payload = tone.encode(pcm.Encoding.G711_ALAW)
        for broken in (b"", b"\x80", b"\x80\x08", b"\x8f\x08" + bytes(20), b"\x80\x00" + bytes(170), bytes(200)):
            line.sendto(broken, address)
        for number in range(3):
            line.sendto(struct.pack("!BBHII", 0x80, 8, number, 160 * number, 7) + payload[160 * number:][:160], address)
        packets = [line.recv(2000) for _ in range(3)]
        headers = [struct.unpack("!BBHII", packet[:12]) for packet in packets]
        assert all((b[2] - a[2]) % 2**16 == 1 and (b[3] - a[3]) % 2**32 == 160 for a, b in zip(headers, headers[1:]))
        heard = pcm.Packet.decode(b"".join(packet[12:] for packet in packets), pcm.Encoding.G711_ALAW)
        assert np.abs(heard.view - tone.view * 10 ** (-6 / 20)).max() < 0.03
    finally:
        server.terminate()
        assert server.wait(5) is not None
        line.close()


def test_media_stream_examples():
    done = run("media_stream.py", "--seconds", "0.2")
    assert done.returncode == 0 and done.stdout.count("streams per core") == 2, done.stdout
    sys.path.insert(0, str(EXAMPLES))
    from media_stream import MediaStream
    stream = MediaStream()
    tone = pcm.Tone(8).gather(800) * 0.5
    wide = [stream.receive(block) for block in np.split(np.frombuffer(tone.encode(pcm.Encoding.G711_MULAW), np.uint8), 5)]
    assert [len(block) for block in wide] == [640] * 5
    level = np.abs(np.frombuffer(b"".join(wide), "<i2")[64:] / 32768).max()
    assert abs(level - 0.5) < 0.03
    back = pcm.Packet.decode(b"".join(map(stream.send, wide)), pcm.Encoding.G711_MULAW)
    assert len(back) == 800 and abs(np.abs(back.view[64:]).max() - 0.5 * 10 ** (-3 / 20)) < 0.03


def test_plot_examples(tmp_path):
    soundfile = pytest.importorskip("soundfile")
    source, target, plot = (tmp_path / name for name in ("in.wav", "out.wav", "plot.png"))
    low, high = pcm.Tone(24).gather(48000) * 0.25, pcm.Tone(6).gather(48000) * 0.25  # 2 and 8 kHz
    soundfile.write(source, low.view + high.view, 48000)
    assert run("plot_filter.py", source, target, plot).returncode == 0
    filtered = soundfile.read(target)[0][300:]
    assert abs(np.abs(filtered).max() - 0.25) < 0.005 and plot.read_bytes().startswith(b"\x89PNG")
    missing = run("plot_filter.py", tmp_path / "none.wav", target, plot)
    assert missing.returncode == 1 and "none.wav" in missing.stdout and "Traceback" not in missing.stdout
