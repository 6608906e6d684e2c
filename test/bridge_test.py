#!/usr/bin/env python3
"""Calls the bridge with telephones in a network namespace of its own. Needs root."""
import cmath
import math
import os
import random
import re
import signal
import socket
import struct
import subprocess
import sys
import time
import unittest

from host import BIN, Error, Test, read, sox

ADDRESS, SKIPPED = "198.51.100.1", 77
FRAMES = 160  # 20 ms at 8 kHz
LEVEL = -15


def level_at(samples, hertz, rate):
    """The level of a tone in dB relative to a full-scale sine."""
    turn = -2j * math.pi * hertz / rate
    total = sum(sample * cmath.exp(turn * i) for i, sample in enumerate(samples))
    return 20 * math.log10(2 * abs(total) / len(samples) + 1e-9)


def samples_of(name):
    """The samples of a WAV file of 16-bit integers, with full scale at 1."""
    data = sox(name, "-t", "raw", "-e", "signed", "-b", 16, "-")
    return [sample / 32768 for sample, in struct.iter_unpack("<h", data)]


def alaw_tone(hertz, seconds):
    """Packets of 20 ms of a tone."""
    codes = sox("-n", "-r", 8000, "-t", "raw", "-e", "a-law", "-", "synth", seconds, "sine", hertz, "gain", LEVEL)
    return [codes[i:i + FRAMES] for i in range(0, len(codes), FRAMES)]


def rtp(sequence, payload, payload_type=8, ssrc=1):
    return struct.pack(">BBHII", 0x80, payload_type, sequence & 0xFFFF, sequence * FRAMES & 0xFFFFFFFF, ssrc) + payload


class Phone:
    """A caller that sends and receives packets itself."""

    def __init__(self, room="room"):
        self.sip = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.media = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        for each in self.sip, self.media:
            each.bind((ADDRESS, 0))
            each.settimeout(5)
        self.room, self.tag, self.sequence = room, f"{random.getrandbits(32)}", 0

    def request(self, method, number, to="", body=""):
        port = self.sip.getsockname()[1]
        lines = [f"{method} sip:{self.room}@{ADDRESS} SIP/2.0",
                 f"Via: SIP/2.0/UDP {ADDRESS}:{port};branch=z9hG4bK{self.tag}{method}", "Max-Forwards: 70",
                 f"From: <sip:test@{ADDRESS}>;tag={self.tag}", f"To: <sip:{self.room}@{ADDRESS}>{to}",
                 f"Call-ID: {self.tag}", f"CSeq: {number} {method}", f"Contact: <sip:test@{ADDRESS}:{port}>",
                 f"Content-Length: {len(body)}", *(["Content-Type: application/sdp"] if body else []), "", body]
        self.sip.sendto("\r\n".join(lines).encode(), (ADDRESS, 5060))

    def call(self, formats="8 0 101", rate=8000):
        """Returns the status of the call. Payload type 96 is L16 at the rate."""
        media = f"m=audio {self.media.getsockname()[1]} RTP/AVP {formats}"
        self.request("INVITE", 1, body="\r\n".join([
            "v=0", f"o=- 1 1 IN IP4 {ADDRESS}", "s=-", f"c=IN IP4 {ADDRESS}", "t=0 0", media,
            "a=rtpmap:101 telephone-event/8000", f"a=rtpmap:96 L16/{rate}", ""]))
        status = 100
        while status < 200:
            reply = self.sip.recv(4096).decode()
            status = int(reply.split()[1])
        self.to = re.search(r"^To:.*(;tag=\S+)", reply, re.M)[1]
        self.request("ACK", 1, self.to)
        if status == 200:
            self.peer = ADDRESS, int(re.search(r"m=audio (\d+)", reply)[1])
        return status

    def send(self, payload, **header):
        self.sequence += 1
        self.media.sendto(rtp(self.sequence, payload, **header), self.peer)

    def hear(self, *encoding):
        """All samples that were received."""
        self.media.setblocking(False)
        codes = b""
        try:
            while True:
                codes += self.media.recv(4096)[12:]
        except BlockingIOError:
            pass
        with open("heard.raw", "wb") as file:
            file.write(codes)
        sox("-t", "raw", *(encoding or ["-e", "a-law"]), "-r", 8000, "-c", 1, "heard.raw", "-b", 16, "heard.wav")
        return samples_of("heard.wav")

    def hang_up(self):
        self.request("BYE", 2, self.to)


class Bridge(Test):
    program = ("bridge",)

    def setUp(self):
        super().setUp()
        self.children = []
        self.addCleanup(self.stop)

    def phone(self):
        phone = Phone()
        self.addCleanup(phone.sip.close)
        self.addCleanup(phone.media.close)
        return phone

    def start(self, *command, log="log"):
        with open(log, "wb") as file:
            self.children.append(subprocess.Popen(list(map(str, command)), stdout=file, stderr=subprocess.STDOUT))
        return self.children[-1]

    def stop(self):
        for child in self.children:
            child.kill()
            child.wait()

    def bridge(self, *options):
        child = self.start(f"{BIN}/bridge", "--listen", f"{ADDRESS}:5060", *options, log="bridge.log")
        for _ in range(100):
            time.sleep(.02)
            if subprocess.run(["ss", "-Hlun", "sport", "=", "5060"], stdout=subprocess.PIPE, check=True).stdout:
                return child
        return self.fail(read("bridge.log"))

    def end(self, child):
        child.send_signal(signal.SIGTERM)
        self.assertEqual(child.wait(5), 0, read("bridge.log"))

    def test_softphones(self):
        bridge = self.bridge("--record", "room.wav", "--threads", 2)
        tones = 700, 1100, 1500
        for number, hertz in enumerate(tones):
            os.makedirs(f"{number}/heard")
            sox("-n", "-r", 8000, "-b", 16, f"{number}/tone.wav", "synth", 9, "sine", hertz, "gain", LEVEL)
            with open(f"{number}/config", "w", encoding="ascii") as file:
                file.write(f"sip_listen {ADDRESS}:{5070 + 10 * number}\naudio_player aubridge,{number}\n"
                           f"audio_source aufile,{number}/tone.wav\naudio_alert aubridge,{number}\n"
                           f"snd_path {number}/heard\nmodule_path /usr/lib/baresip/modules\n")
                for name in "account", "menu", "g711", "aufile", "aubridge", "sndfile":
                    file.write(f"module {name}.so\n")
            with open(f"{number}/accounts", "w", encoding="ascii") as file:
                file.write(f"<sip:{number}@{ADDRESS}>;regint=0\n")
            open(f"{number}/contacts", "w", encoding="ascii").close()
            self.start("baresip", "-4", "-f", number, "-t", 7, "-e", f"/dial sip:room@{ADDRESS}", log=f"{number}/log")
        for phone in self.children[1:]:
            phone.wait(15)
        self.end(bridge)
        for number, own in enumerate(tones):
            heard = [name for name in os.listdir(f"{number}/heard") if name.endswith("-dec.wav")]
            self.assertEqual(len(heard), 1, read(f"{number}/log"))
            samples = samples_of(f"{number}/heard/{heard[0]}")[-24000:-8000]
            for hertz in tones:
                level = level_at(samples, hertz, 8000)
                if hertz == own:
                    self.assertLess(level, LEVEL - 40)
                else:
                    self.assertAlmostEqual(level, LEVEL, delta=.5)
        mix = samples_of("room.wav")
        middle = len(mix) // 2
        for hertz in tones:
            self.assertAlmostEqual(level_at(mix[middle:middle + 16000], hertz, 16000), LEVEL, delta=.5)

    def test_many_short_calls(self):
        bridge = self.bridge("--status")
        subprocess.run(["sipp", "-sn", "uac", f"{ADDRESS}:5060", "-i", ADDRESS, "-s", "busy", "-m", "100", "-r", "50",
                        "-d", "1000", "-nostdin", "-timeout", "20s"], check=True, capture_output=True, timeout=25)
        time.sleep(1.2)
        self.end(bridge)
        callers = [int(count) for count in re.findall(rb"callers (\d+)", read("bridge.log"))]
        self.assertGreater(max(callers), 20)
        self.assertEqual(callers[-1], 0)

    def test_lossy_stream(self):
        bridge, phone = self.bridge("--record", "room.wav"), self.phone()
        self.assertEqual(phone.call(), 200)
        start = time.monotonic()
        arrivals = []
        for number, payload in enumerate(alaw_tone(1000, 4)):
            if self.random.random() >= .05:
                arrivals.append((number / 50 + self.random.uniform(0, .06), rtp(number, payload)))
        for due, packet in sorted(arrivals):  # jitter of up to three packets also changes their order
            time.sleep(max(0, start + due - time.monotonic()))
            phone.media.sendto(packet, phone.peer)
        seconds = time.monotonic() - start
        self.end(bridge)
        mix = samples_of("room.wav")
        self.assertAlmostEqual(len(mix) / 16000, seconds, delta=.04)
        self.assertLess(max(map(abs, mix)), 1.1 * 10 ** (LEVEL / 20))
        self.assertAlmostEqual(level_at(mix[16000:48000], 1000, 16000), LEVEL, delta=1.5)

    def test_hostile_packets_and_keys(self):
        bridge, phone, listener = self.bridge("--status"), self.phone(), self.phone()
        self.assertEqual((phone.call(), listener.call()), (200, 200))
        junk = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        junk.bind((ADDRESS, 0))
        self.addCleanup(junk.close)
        tone = alaw_tone(1000, 3)
        mute = struct.pack(">BBH", 10, 0x80, 800)
        for number, payload in enumerate(tone):
            phone.send(payload)
            listener.send(b"\xD5" * FRAMES)
            for data in (b"", b"\x80", b"\x80\x08" + bytes(9), self.random.randbytes(400), rtp(number, b""),
                         rtp(number + 9000, bytes(FRAMES), ssrc=2), rtp(number, bytes(1601)), rtp(number, bytes(2000)),
                         rtp(number, bytes(FRAMES), payload_type=3), rtp(number, b"\x0b", payload_type=101)):
                junk.sendto(data, phone.peer)
                junk.sendto(data, (ADDRESS, 5060))
            if number == 100:
                for _ in range(3):  # a key is sent several times
                    listener.hear()
                    phone.media.sendto(rtp(phone.sequence, mute, payload_type=101), phone.peer)
            if number == 90:
                before = listener.hear()
            time.sleep(.02)
        after = listener.hear()
        self.assertAlmostEqual(level_at(before[-8000:], 1000, 8000), LEVEL, delta=.5)
        self.assertLess(level_at(after[-4000:], 1000, 8000), LEVEL - 40)
        phone.media.sendto(rtp(phone.sequence, struct.pack(">BBH", 11, 0, 0), payload_type=101), phone.peer)
        self.assertIn(b"BYE", phone.sip.recv(4096))
        self.end(bridge)
        self.assertNotIn(b"rejected", read("bridge.log"))

    def test_limits(self):
        sox("-n", "-r", 22050, "-c", 2, "-b", 16, "play.wav", "synth", 2, "sine", 900, "gain", LEVEL)
        bridge = self.bridge("--callers", 1, "--play", "play.wav")
        phone = self.phone()
        self.assertEqual([self.phone().call("3"), phone.call(), self.phone().call()], [488, 200, 486])
        time.sleep(1.5)
        self.assertAlmostEqual(level_at(phone.hear()[4000:8000], 900, 8000), LEVEL, delta=.5)
        phone.hang_up()
        time.sleep(.2)
        self.assertEqual(self.phone().call(), 200)
        self.check_errors([
            Error(f"--listen {ADDRESS}:5060", f"cannot listen on {ADDRESS}:5060: Address already in use"),
            Error("--listen nowhere", "cannot listen on nowhere: use ADDRESS:PORT"),
            Error("--rate 9000", "use 8000, 16000 or 48000"),
            Error("--record mix.mp3", "unknown file extension"),
            Error("--play none.wav", "cannot open none.wav"),
        ])
        self.end(bridge)

    def test_wideband(self):
        bridge = self.bridge()
        speaker, listeners = self.phone(), {rate: self.phone() for rate in (16000, 44100, 48000)}
        self.assertEqual(speaker.call(), 200)
        for rate, listener in listeners.items():
            self.assertEqual(listener.call("96 8", rate), 200)
        for payload in alaw_tone(1000, 1):
            speaker.send(payload)
            for rate, listener in listeners.items():
                listener.send(bytes(rate // 50 * 2), payload_type=96)
            time.sleep(.02)
        for rate, listener in listeners.items():
            heard = listener.hear("-e", "signed", "-b", 16, "-B")
            self.assertAlmostEqual(len(heard) / rate, 1, delta=.3)
            self.assertAlmostEqual(level_at(heard[rate // 2:rate * 4 // 5], 1000, rate), LEVEL, delta=.5)
        self.end(bridge)

    def test_load(self):
        self.assertRegex(self.ok("--load", 10), r"^10 parties: \d+ ns per party and tick of 20 ms, \d+ parties per core\n$")


def main():
    if "IN_NAMESPACE" in os.environ:
        for command in ("link set lo up", "link add veth0 type veth peer name veth1",
                        f"addr add {ADDRESS}/24 dev veth0", "link set veth0 up", "link set veth1 up"):
            subprocess.run(["ip", *command.split()], check=True)
        unittest.main()
    missing = [name for name in ("unshare", "ip", "ss", "baresip", "sipp")
               if subprocess.run(["which", name], stdout=subprocess.DEVNULL, check=False).returncode]
    if missing or subprocess.run(["unshare", "-n", "true"], check=False).returncode:
        print("skipped: needs the right to create network namespaces, and", ", ".join(missing) or "nothing else")
        sys.exit(SKIPPED)
    os.environ["IN_NAMESPACE"] = "1"
    os.execvp("unshare", ["unshare", "-n", sys.executable, "-B", *sys.argv])


if __name__ == "__main__":
    main()
