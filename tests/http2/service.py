#!/usr/bin/env python3
"""An event service that speaks HTTP/2 over TLS and makes difficulties. Prints its port.

Usage: service.py reset|goaway|dies|upstream CERTIFICATE KEY SEEN
  dies      takes a hundred requests on a connection, answers some and breaks off
  reset     refuses some requests, and breaks off others that it has taken
  goaway    ends a connection after a hundred requests, whatever came behind them
  upstream  speaks HTTP/1.1 without TLS, and answers after 100 ms
Each event that it takes is a line of SEEN: its identifier.
"""

import asyncio
import json
import socket
import ssl
import struct
import sys

import h2.config
import h2.connection
import h2.errors
import h2.events

CONFIG = json.dumps({"app_id": "app-1", "sdk_enabled": True, "values": [], "lockWindows": {}})
ACCEPTED = json.dumps({"status": "success", "message": "ok"})
LAST = 100 if sys.argv[1] == "goaway" else None  # of a connection
mode, certificate, key, seen_file = sys.argv[1:]
seen = open(seen_file, "w", buffering=1)
taken = 0


def answer(path, body):
    global taken
    if path.endswith("/ios/config"):
        return CONFIG
    taken += 1
    seen.write(json.loads(body)["event_id"] + "\n")
    return ACCEPTED


class Connection(asyncio.Protocol):
    def connection_made(self, transport):
        self.transport = transport
        self.bodies = {}
        self.paths = {}
        self.requests = 0
        self.answered = 0
        self.h2 = h2.connection.H2Connection(h2.config.H2Configuration(client_side=False))
        self.h2.initiate_connection()
        self.flush()

    def flush(self):
        self.transport.write(self.h2.data_to_send())

    def data_received(self, data):
        if self.answered == LAST:
            return
        for event in self.h2.receive_data(data):
            if isinstance(event, h2.events.RequestReceived):
                self.paths[event.stream_id] = dict(event.headers)[b":path"].decode()
                self.bodies[event.stream_id] = b""
            elif isinstance(event, h2.events.DataReceived):
                self.bodies[event.stream_id] += event.data
                self.h2.acknowledge_received_data(event.flow_controlled_length, event.stream_id)
            elif isinstance(event, h2.events.StreamEnded):
                self.request(event.stream_id)
        self.flush()

    def request(self, stream):
        self.requests += 1
        if mode == "reset" and self.requests % 11 == 0:
            self.h2.reset_stream(stream, h2.errors.ErrorCodes.REFUSED_STREAM)
            return
        if LAST and self.requests > LAST:
            return
        if mode == "dies" and self.requests == 100:
            sock = self.transport.get_extra_info("socket")
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))  # with a reset
            self.transport.abort()
            return
        text = answer(self.paths[stream], self.bodies[stream]).encode()
        broken = mode == "reset" and self.requests % 7 == 0
        asyncio.get_running_loop().call_later(0.02, self.respond, stream, None if broken else text)

    def respond(self, stream, text):
        if self.transport.is_closing():
            return
        if text is None:
            self.h2.reset_stream(stream, h2.errors.ErrorCodes.INTERNAL_ERROR)
            self.flush()
            return
        self.h2.send_headers(stream, [(":status", "200"), ("content-length", str(len(text)))])
        self.h2.send_data(stream, text, end_stream=True)
        self.answered += 1
        if self.answered == LAST:
            self.h2.close_connection(last_stream_id=2 * LAST - 1)
            asyncio.get_running_loop().call_later(0.05, self.transport.close)
        self.flush()


async def upstream(reader, writer):
    try:
        while head := await reader.readuntil(b"\r\n\r\n"):
            lines = head.decode().split("\r\n")
            length = [line.split(":")[1] for line in lines if line.lower().startswith("content-length:")]
            body = await reader.readexactly(int(length[0])) if length else b""
            text = answer(lines[0].split()[1], body)
            await asyncio.sleep(0.1)
            writer.write(f"HTTP/1.1 200 OK\r\nContent-Length: {len(text)}\r\n\r\n{text}".encode())
    except (asyncio.IncompleteReadError, ConnectionError):
        writer.close()


async def main():
    loop = asyncio.get_running_loop()
    if mode == "upstream":
        server = await asyncio.start_server(upstream, "127.0.0.1", 0)
    else:
        tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        tls.load_cert_chain(certificate, key)
        tls.set_alpn_protocols(["h2"])
        server = await loop.create_server(Connection, "127.0.0.1", 0, ssl=tls)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


asyncio.run(main())
