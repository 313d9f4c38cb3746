"""A WebSocket peer made of Python's `websockets`, driven by one JSON object a line, as foreign_socket.js is.

    {"do": "dial", "socket": NAME, "url": URL, "origin"?: TEXT, "deflate"?: BOOLEAN}
    {"do": "serve", "server": NAME, "hostName": TEXT, "name": TEXT, "upgrade"?: "never" or a status}
    {"do": "send", "socket": NAME, "text": TEXT, "count"?: N}      "{n}" in the text becomes 0, 1, 2 ...
    {"do": "sendSize", "socket": NAME, "size": BYTES, "binary"?: BOOLEAN}
    {"do": "fragments", "socket": NAME, "texts": [TEXT, ...]}      one message, a ping behind each fragment
    {"do": "close", "socket": NAME, "code": N, "reason": TEXT}
    {"do": "halfClose" | "pause" | "resume", "socket": NAME}       pause: nothing is read from the network

Events: "serving" (server, port), "open" (socket, extensions; server and path when it was accepted), "refused"
(socket, status), "failed" (socket, error), "text" (socket, text), "sent" (socket, pongs) once a sending command
is done, "closed" (socket, code, reason). Sockets that a server accepts are called SERVER/1, SERVER/2 ...
"""

import asyncio
import http
import itertools
import json
import logging
import sys

import websockets

sockets = {}
turns = {}


def say(event, **members):
    print(json.dumps({"event": event, **members}), flush=True)


async def use(name, connection, **members):
    sockets[name] = connection
    turns[name] = asyncio.Lock()
    say("open", socket=name, extensions=[extension.name for extension in connection.extensions], **members)
    try:
        async for text in connection:
            say("text", socket=name, text=text)
    except websockets.ConnectionClosed:
        pass
    await connection.wait_closed()
    say("closed", socket=name, code=connection.close_code, reason=connection.close_reason)


async def dial(socket, url, origin=None, deflate=False):
    try:
        connection = await websockets.connect(url, origin=origin, compression="deflate" if deflate else None,
                                              max_size=None, ping_interval=None)
    except websockets.InvalidStatusCode as refusal:
        return say("refused", socket=socket, status=refusal.status_code)
    except (OSError, websockets.WebSocketException, asyncio.TimeoutError) as failure:
        return say("failed", socket=socket, error=repr(failure))
    await use(socket, connection)


async def serve(server, hostName, name, upgrade=None):
    count = itertools.count(1)
    record = {}

    async def answer(path, headers):
        if path == "/service":
            return http.HTTPStatus.OK, [("Content-Type", "application/json")], json.dumps(record).encode()
        if upgrade == "never":
            await asyncio.Future()
        return None if upgrade is None else (http.HTTPStatus(upgrade), [], b"no socket here")

    async def accepted(connection, path):
        await use(f"{server}/{next(count)}", connection, server=server, path=path)

    listener = await websockets.serve(accepted, "127.0.0.1", 0, process_request=answer, max_size=None,
                                      ping_interval=None)
    port = listener.sockets[0].getsockname()[1]
    record.update(serviceId=f"{hostName}:{port}", hostName=hostName, port=port, name=name)
    say("serving", server=server, port=port)


async def send(socket, text, count=1):
    for number in range(count):
        await sockets[socket].send(text.replace("{n}", str(number)))
    say("sent", socket=socket, pongs=0)


async def send_size(socket, size, binary=False):
    await sockets[socket].send(bytes(size) if binary else "x" * size)
    say("sent", socket=socket, pongs=0)


async def fragments(socket, texts):
    pongs = []

    async def pieces():
        for text in texts:
            yield text
            pongs.append(await sockets[socket].ping())

    await sockets[socket].send(pieces())
    await asyncio.gather(*pongs)
    say("sent", socket=socket, pongs=len(pongs))


async def close(socket, code, reason):
    await sockets[socket].close(code, reason)


SENDING = {"send": send, "sendSize": send_size, "fragments": fragments, "close": close}
IMMEDIATE = {"halfClose": "write_eof", "pause": "pause_reading", "resume": "resume_reading"}


async def perform(do, **members):
    if do in IMMEDIATE:
        return getattr(sockets[members["socket"]].transport, IMMEDIATE[do])()
    if do not in SENDING:
        return await {"dial": dial, "serve": serve}[do](**members)
    # What is sent on one socket keeps its order.
    async with turns[members["socket"]]:
        try:
            await SENDING[do](**members)
        except websockets.ConnectionClosed:
            pass  # "closed" tells


async def main():
    logging.getLogger("websockets").setLevel(logging.CRITICAL + 1)
    commands = asyncio.StreamReader(limit=64 << 20)
    await asyncio.get_running_loop().connect_read_pipe(lambda: asyncio.StreamReaderProtocol(commands), sys.stdin)
    running = set()

    def done(task):
        running.discard(task)
        task.result()  # a failure is to be seen on stderr

    async for line in commands:
        task = asyncio.create_task(perform(**json.loads(line)))
        running.add(task)
        task.add_done_callback(done)


asyncio.run(main())
