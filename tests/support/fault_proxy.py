#!/usr/bin/python3
"""A TCP proxy on loopback that injects one network fault, for tests.

    fault_proxy.py --target PORT --fault KIND [--command X] [--bytes N]
                   [--direction up|down] [--interval SECONDS]
                   [--record FILE] [--record-down FILE]

Listens on a free loopback port, prints "PORT <n>" on stdout once it accepts
connections, and forwards each connection to 127.0.0.1:PORT until its standard
input closes or it gets SIGTERM. "up" is client to server, "down" server to
client. The fault, for every connection:

  none            forward only
  cut-command     after the client's line X has been forwarded, close both
                  sides at once; the server's answer to X never arrives
  stall-command   after the client's line X has been forwarded, forward
                  nothing more either way but keep both sockets open
  cut-bytes       close both sides once N bytes went the --direction way
                  (the N bytes are delivered, nothing after them)
  drip            the server's bytes go out one at a time, --interval apart
  corrupt         byte N (from 0) of the --direction stream leaves with its
                  bits flipped; for TLS records

A line matches X when it equals X or starts with X and a blank or a colon, in
any case ("MAIL" matches "MAIL FROM: <a>", "." only the end of the text).
Lines are only seen in the clear: after STARTTLS no command matches.
--record appends everything the client sent, as forwarded, to FILE, and
--record-down what the server sent; their sizes give offsets for a later run.
"""

import argparse
import asyncio
import signal
import socket
import sys
import threading


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def matches(line, command):
    line, command = line.upper(), command.upper()
    return line == command or line.startswith(command + b" ") or line.startswith(command + b":")


class Link:
    """One client connection and its server connection."""

    def __init__(self, args, client_reader, client_writer):
        self.args = args
        self.client_reader = client_reader
        self.client_writer = client_writer
        self.server_writer = None
        self.stalled = False
        self.up_count = 0
        self.down_count = 0
        self.pending = b""
        self.down_task = None

    def close(self):
        for writer in (self.client_writer, self.server_writer):
            if writer is not None and not writer.is_closing():
                writer.close()

    def cut_by_bytes(self, direction, count, data):
        """The part of `data` still allowed before a byte-count cut, and whether it cuts."""
        if self.args.fault != "cut-bytes" or self.args.direction != direction:
            return data, False
        left = self.args.bytes - count
        return (data[:max(left, 0)], len(data) >= left)

    def command_seen(self, data):
        """True once a whole line of `data` (with what came before) matches the command."""
        self.pending += data
        *lines, self.pending = self.pending.split(b"\r\n")
        return any(matches(line, self.args.command.encode()) for line in lines)

    async def up(self, server_writer):
        record = open(self.args.record, "ab") if self.args.record else None
        try:
            while not self.stalled:
                data = await self.client_reader.read(65536)
                if not data:
                    break
                data = self.corrupt("up", self.up_count, data)
                data, cut = self.cut_by_bytes("up", self.up_count, data)
                self.up_count += len(data)
                if record:
                    record.write(data)
                    record.flush()
                server_writer.write(data)
                await server_writer.drain()
                if cut:
                    self.close()
                    return
                if self.args.fault in ("cut-command", "stall-command") and self.command_seen(data):
                    if self.args.fault == "cut-command":
                        self.close()
                        return
                    self.stalled = True
                    self.down_task.cancel()
            if not self.stalled and server_writer.can_write_eof():
                server_writer.write_eof()
        except (ConnectionError, OSError):
            self.close()
        finally:
            if record:
                record.close()

    async def down(self, server_reader):
        try:
            while not self.stalled:
                data = await server_reader.read(65536)
                if not data or self.stalled:
                    break
                await self.send_down(data)
                if self.client_writer.is_closing():
                    return
            if not self.stalled:
                self.close()
        except (ConnectionError, OSError):
            self.close()

    def corrupt(self, direction, count, data):
        if self.args.fault != "corrupt" or self.args.direction != direction:
            return data
        if not count <= self.args.bytes < count + len(data):
            return data
        at = self.args.bytes - count
        return data[:at] + bytes([data[at] ^ 0xFF]) + data[at + 1:]

    async def send_down(self, data):
        fault = self.args.fault
        if self.args.record_down:
            with open(self.args.record_down, "ab") as record:
                record.write(data)
        data = self.corrupt("down", self.down_count, data)
        data, cut = self.cut_by_bytes("down", self.down_count, data)
        self.down_count += len(data)
        if fault == "drip":
            for i in range(len(data)):
                self.client_writer.write(data[i:i + 1])
                await self.client_writer.drain()
                await asyncio.sleep(self.args.interval)
        else:
            self.client_writer.write(data)
            await self.client_writer.drain()
        if cut:
            self.close()

    async def run(self):
        try:
            server_reader, self.server_writer = await asyncio.open_connection("127.0.0.1", self.args.target)
        except OSError:
            self.close()
            return
        self.down_task = asyncio.ensure_future(self.down(server_reader))
        try:
            await self.up(self.server_writer)
            try:
                await self.down_task
            except asyncio.CancelledError:
                pass
            if self.stalled:
                # Held open, silent, until the client gives up.
                while await self.client_reader.read(65536):
                    pass
        finally:
            self.down_task.cancel()
            self.close()


async def serve(args, port, stop):
    links = set()

    async def accept(reader, writer):
        task = asyncio.current_task()
        links.add(task)
        try:
            await Link(args, reader, writer).run()
        finally:
            links.discard(task)

    server = await asyncio.start_server(accept, "127.0.0.1", port)
    print("PORT %d" % port, flush=True)
    await stop.wait()
    server.close()
    for task in list(links):
        task.cancel()
    await asyncio.gather(*links, return_exceptions=True)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--target", type=int, required=True)
    ap.add_argument("--fault", default="none",
                    choices=["none", "cut-command", "stall-command", "cut-bytes", "drip", "corrupt"])
    ap.add_argument("--command", default="")
    ap.add_argument("--bytes", type=int, default=0)
    ap.add_argument("--direction", choices=["up", "down"], default="down")
    ap.add_argument("--interval", type=float, default=1.0)
    ap.add_argument("--record")
    ap.add_argument("--record-down")
    ap.add_argument("--port", type=int, default=0)
    args = ap.parse_args()
    if args.fault.endswith("-command") and not args.command:
        ap.error("--fault %s needs --command" % args.fault)

    loop = asyncio.new_event_loop()
    stop = asyncio.Event()

    def request_stop():
        loop.call_soon_threadsafe(stop.set)

    signal.signal(signal.SIGTERM, lambda *_: request_stop())
    threading.Thread(target=lambda: (sys.stdin.read(), request_stop()), daemon=True).start()
    loop.run_until_complete(serve(args, args.port or free_port(), stop))
    loop.close()


if __name__ == "__main__":
    main()
