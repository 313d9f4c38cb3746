"""A WebSocket server of the `websockets` library whose paths each behave in one way."""

import asyncio

import websockets


async def serve(connection):
    path = connection.path
    if path == "/echo":
        async for message in connection:
            await connection.send(message)
    elif path == "/fragments":
        await connection.send(part for part in ("one ", "two ", "", "thr\u00e9e"))
        await connection.wait_closed()
    elif path == "/ping":
        pong = await connection.ping(b"are you there")
        await asyncio.wait_for(pong, 10)
        await connection.send("pong received")
        await connection.wait_closed()
    elif path == "/close":
        await connection.close(4321, "enough \u2713")
    elif path == "/binary":
        await connection.send(b"\x00\x01")
        await connection.wait_closed()
        print(f"ended {connection.close_code}", flush=True)
    elif path == "/oversize":
        await connection.send("x" * (2 << 20))
        await connection.wait_closed()
        print(f"ended {connection.close_code}", flush=True)
    elif path == "/told":
        await connection.wait_closed()
        print(f"ended {connection.close_code} {connection.close_reason}", flush=True)
    elif path == "/extensions":
        await connection.send(repr([extension.name for extension in connection.extensions]))
        await connection.wait_closed()
    elif path == "/count":
        count = 0
        async for message in connection:
            if message != f"burst {count}":
                await connection.close(4000, f"out of order at {count}")
                return
            count += 1
            if count == 1000:
                await connection.send("all there")


async def main():
    # The default offers permessage-deflate to whoever asks for it.
    server = await websockets.serve(serve, "127.0.0.1", 0, max_size=None)
    print(server.sockets[0].getsockname()[1], flush=True)
    await asyncio.Future()


asyncio.run(main())
