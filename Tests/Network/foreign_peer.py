"""A DNS-SD peer that shares no code with ours (python3-zeroconf). One JSON object a line on stdout.

    foreign_peer.py browse ADDRESS                     reports added, updated and removed instances
    foreign_peer.py publish ADDRESS NAME PORT          publishes an instance, and answers TCP on the port
                                                       ("unpublish" on stdin says goodbye)
"""

import json
import socket
import sys
import threading

from zeroconf import IPVersion, ServiceBrowser, ServiceInfo, ServiceListener, Zeroconf

TYPE = "_ferrox._tcp.local."


def say(**members):
    print(json.dumps(members), flush=True)


def text_of(properties):
    return {key.decode(): (value or b"").decode("utf-8", "replace") for key, value in properties.items()}


class Reporter(ServiceListener):
    def _report(self, event, zeroconf, kind, name):
        info = zeroconf.get_service_info(kind, name, 3000)
        members = {"event": event, "name": name[: -len(TYPE) - 1]}
        if info is not None:
            members.update(port=info.port, server=info.server, txt=text_of(info.properties),
                           addresses=info.parsed_addresses())
        say(**members)

    def add_service(self, zeroconf, kind, name):
        self._report("added", zeroconf, kind, name)

    def update_service(self, zeroconf, kind, name):
        self._report("updated", zeroconf, kind, name)

    def remove_service(self, zeroconf, kind, name):
        say(event="removed", name=name[: -len(TYPE) - 1])


def accept_for_ever(port):
    listener = socket.create_server(("", port))
    while True:
        listener.accept()[0].close()


def main(mode, address, *rest):
    zeroconf = Zeroconf(interfaces=[address], ip_version=IPVersion.V4Only)
    if mode == "browse":
        ServiceBrowser(zeroconf, TYPE, Reporter())
        say(event="browsing")
        sys.stdin.read()
    elif mode == "publish":
        name, port = rest[0], int(rest[1])
        threading.Thread(target=accept_for_ever, args=(port,), daemon=True).start()
        info = ServiceInfo(TYPE, f"{name}.{TYPE}", port=port, server="foreign.local.",
                           addresses=[socket.inet_aton(address)],
                           properties={"DeviceId": "F0F0", "App": "Foreign", "Bad": b"\xff\xfe"})
        zeroconf.register_service(info)
        say(event="published")
        for line in sys.stdin:
            if line.strip() == "unpublish":
                zeroconf.unregister_service(info)
                say(event="unpublished")
    zeroconf.close()


main(*sys.argv[1:])
