"""What the tests of whole nodes among foreign peers share: the peers as child processes, and messages."""

import json
import os
import sys
import tempfile
import time
import uuid

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "Apps"))

from command_process import Child, Node  # noqa: E402

LANGUAGES = {
    "Python": ("/usr/bin/python3", os.path.join(HERE, "foreign_socket.py")),
    # Where Debian puts its modules, for a node that did not come from Debian.
    "Node": ("env", "NODE_PATH=/usr/share/nodejs", "node", os.path.join(HERE, "foreign_socket.js")),
}
MEMBERS = {"id", "type", "subject", "message", "userInfo", "timestamp", "from", "port", "serviceSessionId"}
FOREIGN_DEVICE = "F0F0F0F0F0F040F0A0F0F0F0F0F0F0F0"


def message(kind=0, **members):
    """A message as a peer would send it."""
    return {"id": str(uuid.uuid4()).upper(), "type": kind, "subject": "", "message": "", "userInfo": {},
            "timestamp": int(time.time() * 1000), "from": FOREIGN_DEVICE, "port": 16654, "serviceSessionId": "",
            **members}


class Foreign(Child):
    """foreign_socket.py or foreign_socket.js."""

    def __init__(self, language):
        super().__init__(LANGUAGES[language], stderr=None)

    def do(self, what, **members):
        self.send({"do": what, **members})

    def dial(self, url, **options):
        """A connected socket."""
        return Socket(self, self.attempt(url, "open", **options)["socket"])

    def serve(self, label, upgrade=None):
        """A peer that can be looked up: it serves a record of its own."""
        server = f"FOREIGN-{label}"
        options = {} if upgrade is None else {"upgrade": upgrade}
        self.do("serve", server=server, hostName=f"{server}.LOCAL.", name=f"{label}0DEVICE-MTI=/FOREIGN {label}",
                **options)
        return Server(self, server, self.wait("serving", lambda event: event["server"] == server)["port"])

    def attempt(self, url, outcome, **options):
        """Dials, and expects `outcome`, whose event it returns."""
        name = str(uuid.uuid4())
        self.do("dial", socket=name, url=url, **options)
        return self.wait(outcome, lambda event: event["socket"] == name)


class Socket:
    """One socket of a foreign process. Texts are taken one after another."""

    def __init__(self, process, name):
        self.process = process
        self.name = name
        self._taken = 0

    def do(self, what, **members):
        self.process.do(what, socket=self.name, **members)

    def send(self, text, **members):
        self.do("send", text=text if isinstance(text, str) else json.dumps(text), **members)

    def wait(self, event, matches=lambda event: True, timeout=20):
        return self.process.wait(event, lambda value: value.get("socket") == self.name and matches(value), timeout)

    def next_text(self, timeout=20):
        """The next text that nobody has taken, as it came."""
        position = -1

        def is_next(_):
            nonlocal position
            position += 1
            return position == self._taken

        text = self.wait("text", is_next, timeout)["text"]
        self._taken += 1
        return text

    def next_message(self, timeout=20):
        return json.loads(self.next_text(timeout))

    def next_post(self, timeout=20):
        """The next message but for the node's word of its offers, which comes some seconds after it connected."""
        while True:
            message = self.next_message(timeout)
            if not message.get("subject", "").endswith("CapabilityNotif"):
                return message

    def closed(self, timeout=20):
        event = self.wait("closed", timeout=timeout)
        return event["code"], event["reason"]


class Server:
    """A listening peer of a foreign process."""

    def __init__(self, process, name, port):
        self.process = process
        self.name = name
        self.address = f"127.0.0.1:{port}"
        self.service_id = f"{name}.LOCAL.:{port}"

    def accepted(self, number=1, timeout=20):
        """The socket that was accepted as the `number`th, and the path it was asked for with."""
        name = f"{self.name}/{number}"
        path = self.process.wait("open", lambda event: event["socket"] == name, timeout)["path"]
        return Socket(self.process, name), path


class LoggedNode(Node):
    """A node that knows only the peers it is told of, with its log lines at hand."""

    def __init__(self, *options, peers=(), **settings):
        self._log = tempfile.TemporaryFile()
        for peer in peers:
            options += ("--peer", peer.address)
        super().__init__(*options, discovery="off", stderr=self._log, **settings)

    def __exit__(self, *unused):
        """However its peers behaved, it is still there, and ends cleanly when it is told to."""
        try:
            status, log = self.terminate(), self.log()
            if status != 0 or "Sanitizer" in log:
                raise AssertionError(f"the node ended with {status}:\n{log[-4000:]}")
        finally:
            super().__exit__()
            self._log.close()

    def log(self):
        return os.pread(self._log.fileno(), 64 << 20, 0).decode()

    def _memory(self, key):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith(key + ":")) << 10

    def resident_bytes(self):
        return self._memory("VmRSS")

    def assert_memory_below(self, limit):
        """Of the whole life of the process. A sanitizer's own memory says nothing."""
        most = self._memory("VmHWM")
        if not os.environ.get("FERROX_SANITIZE") and most > limit:
            raise AssertionError(f"{most >> 20} MiB were resident, more than {limit >> 20} MiB")

    def open_descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def observe(self, name, **members):
        result = self.ask("observe", name=name, **members)
        assert result["ok"], result

    def post(self, name, **members):
        result = self.ask("post", name=name, **members)
        assert result["ok"], result
        return result

    def wait_peer(self, event, server, matches=lambda event: True, timeout=20):
        """A connection event about a foreign server."""
        return self.wait(event, lambda value: value["userInfo"]["frxId"] == server.service_id and matches(value),
                         timeout)

    def notification(self, name, matches=lambda event: True, timeout=20):
        return self.wait("notification", lambda event: event["name"] == name and matches(event), timeout)

    def notifications(self, name, count, timeout=150):
        """The first `count` of that name."""
        found = []

        def enough(event):
            if event["name"] == name:
                found.append(event)
            return len(found) == count

        self.wait("notification", enough, timeout)
        return found
