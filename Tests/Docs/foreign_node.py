"""A peer made of Python's `websockets` and `zeroconf`, which shares no code with ours."""

import asyncio
import http
import json
import logging
import queue
import socket
import threading

import websockets
from zeroconf import IPVersion, ServiceBrowser, ServiceInfo, ServiceListener, Zeroconf

TYPE = "_ferrox._tcp.local."
PATIENCE = 60

# The check that a node makes opens connections and says nothing on them.
logging.getLogger("websockets").setLevel(logging.CRITICAL)


class ForeignNode:
    """Accepts WebSockets and serves its record."""

    def __init__(self, record):
        self.record = record
        self.requests = queue.Queue()
        self._texts = queue.Queue()
        self._seen = []
        self._loop = asyncio.new_event_loop()
        self._thread = threading.Thread(target=self._loop.run_forever, daemon=True)
        self._accepted = None
        self._server = None

    def __enter__(self):
        self._thread.start()
        self._server = self._do(self._serve())
        return self

    def __exit__(self, *unused):
        self._server.close()
        self._do(self._server.wait_closed())
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join(timeout=PATIENCE)
        self._loop.close()

    def _do(self, work):
        return asyncio.run_coroutine_threadsafe(work, self._loop).result(timeout=PATIENCE)

    async def _serve(self):
        return await websockets.serve(self._accept, "127.0.0.1", self.record["port"], process_request=self._answer,
                                      compression=None, server_header=None)

    async def _answer(self, path, headers):
        self.requests.put((path, list(headers.raw_items())))
        if path == "/service":
            return http.HTTPStatus.OK, {"Content-Type": "application/json"}, json.dumps(self.record).encode()
        return None

    async def _accept(self, connection, _path=None):
        self._accepted = connection
        try:
            async for text in connection:
                self._texts.put(text)
        except websockets.ConnectionClosed:
            pass

    def send(self, text):
        """Over the socket that the node opened."""
        self._do(self._accepted.send(text))

    def wait_for(self, matches):
        """The text of the first message that matches, of those already seen or yet to come."""
        for text in self._seen:
            if matches(json.loads(text)):
                return text
        while True:
            text = self._texts.get(timeout=PATIENCE)
            self._seen.append(text)
            if matches(json.loads(text)):
                return text

    def exchange(self, uri, texts_with_answers):
        """Opens a socket to the node; sends each text and, where one is due, waits for its answer."""
        async def talk():
            async with websockets.connect(uri, compression=None) as connection:
                answers = []
                for text, is_answered in texts_with_answers:
                    await connection.send(text)
                    answers.append(await asyncio.wait_for(connection.recv(), PATIENCE) if is_answered else None)
                return answers
        return self._do(talk())


class Announcement:
    """An instance announced on loopback, and the TXT records that others announce there."""

    def __init__(self, name, host, port):
        self.records = queue.Queue()
        self._zeroconf = Zeroconf(interfaces=["127.0.0.1"], ip_version=IPVersion.V4Only)
        self._info = ServiceInfo(TYPE, f"{name}.{TYPE}", port=port, server=host,
                                 addresses=[socket.inet_aton("127.0.0.1")], properties={})
        self._browser = ServiceBrowser(self._zeroconf, TYPE, _Reporter(self.records))

    def __enter__(self):
        self._zeroconf.register_service(self._info)
        return self

    def __exit__(self, *unused):
        self._zeroconf.unregister_service(self._info)
        self._zeroconf.close()


class _Reporter(ServiceListener):
    def __init__(self, records):
        self._records = records

    def _report(self, zeroconf, kind, name):
        info = zeroconf.get_service_info(kind, name, 3000)
        if info is not None:
            txt = {key.decode(): (value or b"").decode() for key, value in info.properties.items()}
            self._records.put({"name": name.removesuffix("." + TYPE), "host": info.server, "port": info.port,
                               "txt": txt})

    def add_service(self, zeroconf, kind, name):
        self._report(zeroconf, kind, name)

    def update_service(self, zeroconf, kind, name):
        self._report(zeroconf, kind, name)

    def remove_service(self, zeroconf, kind, name):
        pass
