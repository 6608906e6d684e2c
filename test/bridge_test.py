#!/usr/bin/env python3
"""Calls bridge with baresip, sipp and a phone in Python, in a network namespace that has no other network."""
import cmath
import math
import os
import re
import select
import signal
import socket
import struct
import subprocess
import sys
import threading
import time
import unittest
from collections import namedtuple
from pathlib import Path

from host import BIN, Error, Test, floats, sox

ADDRESS = "198.51.100.1"
SOFTPHONE = Path(__file__).resolve().parent.parent / "script/softphone"
ALAW_SILENCE = b"\xd5" * 160
LOUD = b"\x2a"
MUTE, LEAVE = 10, 11

# A softphone: its tone, its codec as baresip names it, and the rate of the codec.
Softphone = namedtuple("Softphone", "room hertz codec rate")
SOFTPHONES = [
    Softphone("two", 1000, "PCMA", 8000),
    Softphone("two", 1700, "PCMU", 8000),
    Softphone("three", 800, "PCMA", 8000),
    Softphone("three", 1300, "PCMU", 8000),
    Softphone("three", 2200, "L16/16000/1", 16000),
    Softphone("wide", 600, "L16/44100/1", 44100),
    Softphone("wide", 1100, "L16/48000/1", 48000),
]
ERRORS = [
    Error("bridge --listen 198.51.100.1", "is not of the form ADDRESS:PORT"),
    Error("bridge --listen 203.0.113.9:5060", "cannot listen on 203.0.113.9:5060: Cannot assign requested address"),
    Error("bridge --record mix.mov", "unknown file extension"),
    Error("bridge --record -", "standard output has the messages"),
    Error("bridge --record none/%.wav", "cannot write none/room.wav: No such file"),
    Error("bridge --play none.wav", "cannot open none.wav: No such file"),
    Error("bridge --play tone.wav --record tone.wav", "it is also the file that --play reads"),
    Error("bridge --rate 44100", "44100"),
    Error("bridge --quality good --load 1", "unknown quality"),
]
HOSTILE = {
    "empty": b"",
    "truncated header": b"\x80\x08\x00",
    "truncated sources": b"\x8f\x08" + bytes(10),
    "truncated extension": b"\x90\x08" + bytes(10) + b"\x00\x01\xff\xff",
    "another version": b"\x40\x08" + bytes(170),
    "no payload": b"\x80\x08" + bytes(10),
    "padding longer than the packet": b"\xa0\x08" + bytes(9) + b"\xff" * 161,
    "another payload type": b"\x80\x7f" + bytes(170),
    "empty event": b"\x80\x65" + bytes(10),
    "more than 200 ms": b"\x80\x08" + bytes(10) + LOUD * 1601,
}


def alaw(samples):
    """Encodes floats."""
    return convert(struct.pack(f"<{len(samples)}f", *samples), "f32", "al")


def decode_alaw(data):
    return floats(convert(data, "al", "f32"))


def convert(data, kind, wanted):
    command = ["sox", "-D", "-t", kind, "-r", "8000", "-c", "1", "-", "-t", wanted, "-"]
    return subprocess.run(command, input=data, capture_output=True, check=True).stdout


def tone(hertz, seconds, level=-15, rate=8000):
    peak = 10 ** (level / 20)
    return [peak * math.sin(2 * math.pi * hertz * i / rate) for i in range(round(seconds * rate))]


def packets(data):
    return [data[i:i + 160] for i in range(0, len(data), 160)]


def level(samples, hertz, rate):
    """The peak level of a tone in dB, in a Hann window."""
    weights = [1 - math.cos(2 * math.pi * (i + .5) / len(samples)) for i in range(len(samples))]
    value = sum(w * s * cmath.exp(-2j * math.pi * hertz * i / rate) for i, (w, s) in enumerate(zip(weights, samples)))
    return 20 * math.log10(abs(value) * 2 / len(samples) + 1e-9)


class Phone:
    """Calls a room with PCMA. Keeps the payloads that it has received, their times, and the SIP messages."""
    count = 0
    open = True

    def __init__(self, room, port=5060):
        Phone.count += 1
        self.sip, self.rtp = (socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2))
        self.sip.settimeout(5)
        self.sip.bind((ADDRESS, 40000 + Phone.count))
        self.rtp.bind((ADDRESS, 41000 + 2 * Phone.count))
        self.room, self.port, self.tag, self.cseq = room, port, "", 0
        self.heard, self.times, self.messages, self.sent = [], [], [], {}
        self.source, self.sequence = os.getrandom(4), 1000
        self.send_sip("INVITE", f"v=0\r\no=- 1 1 IN IP4 {ADDRESS}\r\ns=-\r\nc=IN IP4 {ADDRESS}\r\nt=0 0\r\n"
                      f"m=audio {self.rtp.getsockname()[1]} RTP/AVP 8 101\r\na=rtpmap:101 telephone-event/8000\r\n")
        answer = self.sip.recv(9999).decode()
        self.status = int(answer.split()[1])
        self.tag = re.search(r"(?m)^To: .*?(;tag=[^\s;]+)", answer)[1]
        self.send_sip("ACK")
        self.start = time.monotonic()
        if self.status == 200:
            self.bridge = (ADDRESS, int(re.search(r"m=audio (\d+)", answer)[1]))
        self.listener = threading.Thread(target=self.listen)
        self.listener.start()

    def close(self):
        self.open = False
        self.listener.join()
        self.sip.close()
        self.rtp.close()

    def send_sip(self, method, body=""):
        self.cseq += method == "BYE"
        port = self.sip.getsockname()[1]
        kind = "Content-Type: application/sdp\r\n" if body else ""
        self.sip.sendto((
            f"{method} sip:{self.room}@{ADDRESS} SIP/2.0\r\n"
            f"Via: SIP/2.0/UDP {ADDRESS}:{port};branch=z9hG4bK{method}{port}\r\n"
            f"From: <sip:me@{ADDRESS}>;tag=1\r\nTo: <sip:{self.room}@{ADDRESS}>{self.tag}\r\nCall-ID: {port}\r\n"
            f"CSeq: {self.cseq} {method}\r\nContact: <sip:me@{ADDRESS}:{port}>\r\nMax-Forwards: 70\r\n{kind}"
            f"Content-Length: {len(body)}\r\n\r\n{body}").encode(), (ADDRESS, self.port))

    def listen(self):
        while self.open:
            ready = select.select([self.sip, self.rtp], [], [], .1)[0]
            if self.rtp in ready:
                self.heard.append(self.rtp.recv(2048)[12:])
                self.times.append(time.monotonic())
            if self.sip in ready:
                message = self.sip.recv(9999).decode()
                self.messages.append(message.split()[0])
                if message.startswith("BYE"):
                    self.end = time.monotonic()
                    headers = re.findall(r"(?m)^(?:Via|From|To|Call-ID|CSeq): .*\n", message)
                    answer = "SIP/2.0 200 OK\r\n" + "".join(headers) + "Content-Length: 0\r\n\r\n"
                    self.sip.sendto(answer.encode(), (ADDRESS, self.port))

    def packet(self, payload, kind=8, sequence=None):
        sequence = self.sequence if sequence is None else sequence
        return struct.pack(">BBHI", 0x80, kind, sequence & 0xFFFF, sequence * 160 & 0xFFFFFFFF) + self.source + payload

    def send(self, payload, kind=8):
        self.rtp.sendto(self.packet(payload, kind), self.bridge)
        self.sent[payload] = time.monotonic()
        self.sequence += 1

    def talk(self, payloads):
        """Sends a packet every 20 ms."""
        begin = time.monotonic()
        for i, payload in enumerate(payloads):
            time.sleep(max(0, begin + i * .02 - time.monotonic()))
            self.send(payload)

    def delay(self, payload, listener):
        """The time from the sending of a payload until another phone has received it."""
        return listener.times[listener.heard.index(payload)] - self.sent[payload]

    def press(self, event):
        for end in 0, 0, 0x80:
            self.rtp.sendto(self.packet(struct.pack(">BBH", event, end | 10, 800), 101), self.bridge)

    def samples(self, begin, end):
        """What the phone has heard, between two times in seconds."""
        return decode_alaw(b"".join(self.heard[round(begin * 50):round(end * 50)]))

    def hang_up(self):
        self.send_sip("BYE")


def talk_at_once(*talks):
    threads = [threading.Thread(target=phone.talk, args=[payloads]) for phone, payloads in talks]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


class Bridge(Test):
    @classmethod
    def setUpClass(cls):
        cls.silent_bridge = subprocess.Popen([f"{BIN}/pcm-bridge", "--listen", f"{ADDRESS}:5062"], stdout=subprocess.PIPE)
        cls.addClassCleanup(cls.silent_bridge.communicate)
        cls.addClassCleanup(cls.silent_bridge.kill)
        cls.silent_bridge.stdout.readline()
        cls.silent_phone = Phone("room", 5062)
        cls.addClassCleanup(cls.silent_phone.close)

    def phone(self, room):
        phone = Phone(room)
        self.addCleanup(phone.close)
        return phone

    def start(self, *options):
        command = [f"{BIN}/pcm-bridge", "--listen", f"{ADDRESS}:5060", *map(str, options)]
        bridge = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(bridge.stdout.close)
        self.addCleanup(bridge.stderr.close)
        self.addCleanup(bridge.wait)
        self.addCleanup(bridge.kill)
        self.assertEqual(bridge.stdout.readline(), f"listening on {ADDRESS}:5060\n")
        return bridge

    def stop(self, bridge, number=signal.SIGTERM):
        bridge.send_signal(number)
        out, err = bridge.communicate(timeout=5)
        self.assertEqual((bridge.returncode, err), (0, ""))
        return out

    def random_packets(self, count):
        return [bytes(self.random.randrange(256) for _ in range(160)) for _ in range(count)]

    def test_softphones(self):
        """Each phone hears the others at their level and not itself."""
        bridge = self.start("--threads", 2, "--status")
        phones = []
        for i, phone in enumerate(SOFTPHONES):
            sox("-n", "-r", phone.rate, "-b", 16, f"tone{i}.wav", "synth", 9, "sine", phone.hertz, "gain", -15)
            command = [SOFTPHONE, f"phone{i}", f"{ADDRESS}:{5100 + 10 * i}", phone.codec, f"tone{i}.wav",
                       f"sip:{phone.room}@{ADDRESS}", "4"]
            phones.append(subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
            self.addCleanup(phones[-1].wait)
            self.addCleanup(phones[-1].kill)
        for process in phones:
            process.wait(timeout=20)
        status = r"callers 7, rooms 3, packets late \d+, lost \d+, concealed \d+, load \d+\.\d %"
        self.assertRegex(self.stop(bridge), status)
        for i, phone in enumerate(SOFTPHONES):
            dump = next(Path(f"phone{i}").glob("dump-*-dec.wav"))
            heard = floats(sox(dump, "-t", "f32", "-", "trim", 2, 1))
            for other in SOFTPHONES:
                with self.subTest(phone=phone, other=other):
                    if other.room == phone.room and other != phone:
                        self.assertAlmostEqual(level(heard, other.hertz, phone.rate), -15, delta=.5)
                    else:
                        self.assertLess(level(heard, other.hertz, phone.rate), -60)

    def test_calls_that_come_and_go(self):
        bridge = self.start("--callers", 30, "--status")
        command = ["sipp", "-sn", "uac", "-s", "room", f"{ADDRESS}:5060", "-i", ADDRESS, "-p", "5090", "-mi", ADDRESS,
                   "-m", "100", "-r", "40", "-l", "30", "-d", "500", "-nostdin", "-timeout", "20"]
        subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True, timeout=25)
        time.sleep(1.1)
        self.assertIn("callers 0, rooms 0", self.stop(bridge).splitlines()[-1])

    def test_exact_levels_and_keys(self):
        bridge = self.start()
        speaker, listener = self.phone("room"), self.phone("room")
        talk_at_once((speaker, [ALAW_SILENCE] * 25), (listener, [ALAW_SILENCE] * 25))  # while the room signals them
        speaker.sequence -= 20000  # as if the phone had started again
        for muted in False, True, False:
            speech = self.random_packets(50)
            talk_at_once((speaker, speech), (listener, self.random_packets(50)))
            time.sleep(.2)
            heard = set(speech) & set(listener.heard)
            self.assertEqual(len(heard), 0) if muted else self.assertGreater(len(heard), 45)
            self.assertFalse(set(speech) & set(speaker.heard))
            speaker.press(MUTE)
            speaker.sequence += 1
        listener.press(LEAVE)
        time.sleep(.2)
        self.assertIn("BYE", listener.messages)
        self.stop(bridge, signal.SIGINT)
        self.assertIn("BYE", speaker.messages)

    def test_lost_late_and_reordered_packets(self):
        bridge, count = self.start("--record", "mix.wav", "--status"), 300
        phone = self.phone("room")
        sent = [(i * .02 + self.random.uniform(0, .06), i, payload)
                for i, payload in enumerate(packets(alaw(tone(1000, count * .02)))) if self.random.random() > .05]
        for when, i, payload in sorted(sent):
            time.sleep(max(0, phone.start + when - time.monotonic()))
            phone.rtp.sendto(phone.packet(payload, 8, 65500 + i), phone.bridge)
        time.sleep(max(0, phone.start + count * .02 - time.monotonic()))
        phone.hang_up()
        time.sleep(1)
        self.assertFalse(os.path.exists("mix.wav"))
        late, lost, concealed = map(int, re.findall(r"late (\d+), lost (\d+), concealed (\d+)", self.stop(bridge))[-1])
        missing = count - len(sent)
        self.assertIn(lost - late, range(missing - 3, missing + 10))  # the last ones cannot be noticed
        self.assertIn(concealed, range(missing - 3, missing + 25))
        mix = floats(sox("mix.wav", "-t", "f32", "-"))
        self.assertAlmostEqual(len(mix) / 8000, count * .02, delta=.04)
        self.assertLess(max(map(abs, mix)), 1)
        self.assertAlmostEqual(level(mix[4000:-4000], 1000, 8000), -15, delta=1.5)
        peaks = [max(map(abs, mix[at:at + 160])) for at in range(1600, len(mix) - 1600, 160)]
        self.assertGreater(min(peaks), 10 ** (-15 / 20) / 33)  # no gap, not even after five lost packets in a row

    def test_delay_after_an_interruption(self):
        bridge = self.start()
        speaker, listener = self.phone("room"), self.phone("room")
        speaker.talk([ALAW_SILENCE] * 50)
        time.sleep(.3)
        for payload in self.random_packets(15):
            speaker.send(payload)
        before, after = self.random_packets(20), self.random_packets(250)
        speaker.talk(before + after)
        time.sleep(.3)
        self.assertGreater(min(speaker.delay(payload, listener) for payload in before if payload in listener.heard), .2)
        self.assertLess(max(speaker.delay(payload, listener) for payload in after[-9:-4]), .15)
        self.stop(bridge)

    def test_hostile_packets(self):
        bridge = self.start("--callers", 3)
        speaker, listener, hostile = (self.phone("room") for _ in range(3))
        self.assertEqual(self.phone("room").status, 486)
        self.assertEqual(self.phone("../room").status, 404)
        talk_at_once(*((phone, [ALAW_SILENCE] * 25) for phone in (speaker, listener)))
        for _ in range(10):
            hostile.send(LOUD * 1601)  # more than 200 ms
        time.sleep(.4)
        self.assertLess(max(map(abs, decode_alaw(b"".join(listener.heard[-20:])))), .01)
        hostile.press(MUTE)
        hostile.source = bytes(4)  # that of the packets in HOSTILE
        time.sleep(.6)
        speech = self.random_packets(100)
        talking = threading.Thread(target=speaker.talk, args=[speech])
        talking.start()
        begin = time.monotonic()
        while talking.is_alive():
            for packet in HOSTILE.values():
                hostile.rtp.sendto(packet, hostile.bridge)
                hostile.rtp.sendto(packet, speaker.bridge)  # a second source
                hostile.sip.sendto(packet, (ADDRESS, 5060))
            jump = self.random.randrange(1 << 16)
            hostile.rtp.sendto(hostile.packet(ALAW_SILENCE, 8, jump), hostile.bridge)
            hostile.rtp.sendto(hostile.packet(self.random.randbytes(160), 8, jump), speaker.bridge)
            time.sleep(.005)
        time.sleep(.2)
        self.assertGreater(len(set(speech) & set(listener.heard)), 90)
        times = [t for t in listener.times if t > begin]
        self.assertLess(max(b - a for a, b in zip(times, times[1:])), .1)
        self.stop(bridge)

    def test_played_file_and_signals(self):
        sox("-n", "-r", 44100, "-c", 2, "tone.wav", "synth", 1, "sine", 1500, "gain", -15)
        bridge = self.start("--play", "tone.wav", "--rate", 16000)
        phone = self.phone("room")
        phone.talk([ALAW_SILENCE] * 75)
        self.assertAlmostEqual(level(phone.samples(.5, .8), 1500, 8000), -15, delta=.2)
        for begin, hertz in (.02, 523), (.12, 659), (1.04, 392):  # joins, is alone
            self.assertAlmostEqual(level(phone.samples(begin, begin + .08), hertz, 8000), -24, delta=2)
        self.stop(bridge)

    def test_without_media(self):
        """Ends a call after 30 s. Runs last and in parallel to the other tests."""
        phone = self.silent_phone
        while "BYE" not in phone.messages and time.monotonic() < phone.start + 31:
            time.sleep(.1)
        self.assertAlmostEqual(phone.end - phone.start, 30.2, delta=.4)

    def test_load(self):
        report = self.ok("bridge", "--load", 10)
        self.assertRegex(report, r"^10 callers in a room of 8000 Hz: .* \d{3,} callers per core\n$")

    def test_errors(self):
        sox("-n", "-r", 8000, "tone.wav", "synth", 1, "sine", 500)
        self.check_errors(ERRORS)


def enter_namespace():
    """Restarts the test in a separate network namespace."""
    command = ["unshare", "--net", *([] if os.geteuid() == 0 else ["--map-root-user"])]
    if subprocess.run([*command, "true"], stderr=subprocess.DEVNULL, check=False).returncode:
        print("bridge test skipped: unshare may not create a network namespace")
        sys.exit()
    os.environ["BRIDGE_NAMESPACE"] = "1"
    os.execvp("unshare", [*command, sys.executable, "-B", *sys.argv])


if __name__ == "__main__":
    if "BRIDGE_NAMESPACE" not in os.environ:
        enter_namespace()
    for line in "link set lo up", "link add bridge0 type veth peer name bridge1", \
            f"address add {ADDRESS}/24 dev bridge0", "link set bridge0 up", "link set bridge1 up":
        subprocess.run(["ip", *line.split()], check=True)
    unittest.main()
