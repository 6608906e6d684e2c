#!/usr/bin/env python3
"""An RTP server that sends each caller's voice back, 6 dB quieter: 20 ms of A-law at 8 kHz in and out.

    echo_server.py [--host 127.0.0.1] [--port 4000]
"""

import argparse
import asyncio
import random
import struct
from typing import Dict, Tuple, cast

import pcm

PAYLOAD_TYPE_ALAW = 8
FRAMES = 160  # 20 ms
Address = Tuple[str, int]


class Caller:
    """The stream to one caller."""

    def __init__(self) -> None:
        self.queue = pcm.Queue()
        self.sequence, self.ssrc = random.getrandbits(16), random.getrandbits(32)
        self.timestamp = random.getrandbits(32)

    def next_packet(self) -> bytes:
        voice = self.queue.gather(FRAMES)
        voice.level_adjust(-6.0)
        header = struct.pack("!BBHII", 0x80, PAYLOAD_TYPE_ALAW, self.sequence, self.timestamp, self.ssrc)
        self.sequence = (self.sequence + 1) & 0xFFFF
        self.timestamp = (self.timestamp + FRAMES) & 0xFFFFFFFF
        return header + voice.encode(pcm.Encoding.G711_ALAW)


class EchoServer(asyncio.DatagramProtocol):
    def __init__(self) -> None:
        self.callers: Dict[Address, Caller] = {}

    def connection_made(self, transport: asyncio.BaseTransport) -> None:
        self.transport = cast(asyncio.DatagramTransport, transport)

    def datagram_received(self, data: bytes, address: Address) -> None:
        # The fixed header is followed by the contributing sources. Extensions and padding are not supported.
        start = 12 + 4 * (data[0] & 0xF) if data else 0
        if len(data) <= start or data[0] & 0xF0 != 0x80 or data[1] & 0x7F != PAYLOAD_TYPE_ALAW:
            return
        caller = self.callers.setdefault(address, Caller())
        caller.queue.write(pcm.Packet.decode(data[start:], pcm.Encoding.G711_ALAW))
        while caller.queue.frames >= FRAMES:
            self.transport.sendto(caller.next_packet(), address)


async def serve(host: str, port: int) -> None:
    loop = asyncio.get_running_loop()
    transport, _ = await loop.create_datagram_endpoint(EchoServer, local_addr=(host, port))
    print("listening on port", transport.get_extra_info("sockname")[1], flush=True)
    await asyncio.Event().wait()


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--host", default="127.0.0.1", help="address to listen on")
    parser.add_argument("--port", type=int, default=4000, help="UDP port; 0 chooses one")
    options = parser.parse_args()
    try:
        asyncio.run(serve(options.host, options.port))
    except KeyboardInterrupt:
        pass
