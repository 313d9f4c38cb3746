#!/usr/bin/env python3
"""A node driven from Python, with nothing but the standard library: `ferrox run --json` is a child process that is
told one JSON object a line and tells one a line.

  drive.py FERROX [OPTION...]      the command, and options for its `run`

It answers the first peer that says "Hello", lists what the peers offer, and ends.
"""

import asyncio
import itertools
import json
import sys


class Node:
    """`ferrox run --json`; to be made with `start`."""

    @classmethod
    async def start(cls, command, *options):
        node = cls()
        node.process = await asyncio.create_subprocess_exec(
            command, "run", "--json", *options, stdin=asyncio.subprocess.PIPE, stdout=asyncio.subprocess.PIPE,
            limit=16 << 20)  # a listing of many peers is a long line
        node.refs = itertools.count()
        node.results = {}
        node.events = asyncio.Queue()
        node.reading = asyncio.create_task(node._read())
        return node

    async def _read(self):
        async for line in self.process.stdout:
            event = json.loads(line)
            if event["event"] == "result" and event.get("ref") in self.results:
                self.results.pop(event["ref"]).set_result(event)
            else:
                self.events.put_nowait(event)
        for waiting in self.results.values():
            waiting.cancel()
        self.events.put_nowait(None)

    async def ask(self, cmd, **members):
        """Sends a command and waits for its result."""
        ref = next(self.refs)
        self.results[ref] = asyncio.get_running_loop().create_future()
        answer = self.results[ref]
        self.process.stdin.write(json.dumps({"cmd": cmd, "ref": ref, **members}).encode() + b"\n")
        await self.process.stdin.drain()
        result = await answer
        if not result["ok"]:
            raise RuntimeError(f"{cmd}: {result['error']}")
        return result

    async def each_event(self):
        while (event := await self.events.get()) is not None:
            yield event


async def hear_hello(node):
    """Until somebody has said it and can be answered: who posts reaches those that it is connected to."""
    connected = hello = False
    async for event in node.each_event():
        if event["event"] == "started":
            print(f"runs on port {event['port']}", flush=True)
        elif event["event"] == "connected":
            connected = True
            print(f"connected to {event['userInfo']['frxId']}", flush=True)
        elif event["event"] == "notification":
            hello = True
            print(f"hello from {event['sender']}: {json.dumps(event['userInfo'].get('text'))}", flush=True)
        if connected and hello:
            return
    raise RuntimeError(f"ferrox ended by itself, with status {await node.process.wait()}")


async def main(command, *options):
    node = await Node.start(command, "--observe", "Hello", *options)
    await hear_hello(node)
    await node.ask("post", name="Hello", userInfo={"text": "Hello from Python"})
    listed = (await node.ask("list"))["result"]
    for capability, peers in listed.items():
        for offers in peers.values():
            for offer in offers:
                print(f"{capability}: {json.dumps(offer['name'])} {offer['url']}", flush=True)
    await node.ask("quit")
    await node.reading
    return await node.process.wait()


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    try:
        sys.exit(asyncio.run(main(*sys.argv[1:])))
    except (OSError, RuntimeError) as error:
        sys.exit(f"drive.py: {error}")
