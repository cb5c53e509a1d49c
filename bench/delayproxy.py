#!/usr/bin/env python3
"""A far server on this machine: a TCP proxy that holds every chunk for half a round trip in
each direction before passing it on, in order and without limiting the throughput (the kernel
here has no netem).

    bench/delayproxy.py LISTEN_PORT TARGET_PORT ROUND_TRIP_MS

It listens on 127.0.0.1:LISTEN_PORT, forwards to 127.0.0.1:TARGET_PORT, and runs until killed.
"""
import asyncio
import sys
import time


async def pump(reader, writer, delay):
    # Chunks are stamped as they arrive and released when their time has come, so a stream
    # of chunks is delayed, not slowed.
    queue = asyncio.Queue()

    async def receive():
        while True:
            try:
                data = await reader.read(1 << 16)
            except ConnectionError:
                data = b""
            await queue.put((time.monotonic() + delay, data))
            if not data:
                return

    async def send():
        while True:
            due, data = await queue.get()
            wait = due - time.monotonic()
            if wait > 0:
                await asyncio.sleep(wait)
            if not data:
                writer.close()
                return
            writer.write(data)
            try:
                await writer.drain()
            except ConnectionError:
                return

    await asyncio.gather(receive(), send())


async def main(listen_port, target_port, round_trip_ms):
    delay = round_trip_ms / 2000.0

    async def serve(client_reader, client_writer):
        try:
            server_reader, server_writer = await asyncio.open_connection("127.0.0.1", target_port)
        except OSError:
            client_writer.close()
            return
        await asyncio.gather(pump(client_reader, server_writer, delay), pump(server_reader, client_writer, delay),
                             return_exceptions=True)

    server = await asyncio.start_server(serve, "127.0.0.1", listen_port)
    async with server:
        await server.serve_forever()


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    asyncio.run(main(int(sys.argv[1]), int(sys.argv[2]), float(sys.argv[3])))
