"""The DNS-SD layer alone on a host (Tests/Platform/DNSSD/dnssd_probe.cpp), and the system's daemon for it."""

import os
import signal
import subprocess
import time
import unittest

from netns import Network
from node import ForeignPeer, JsonProcess, on_bus

BUILD = os.environ.get("FERROX_BUILD", os.path.join(os.path.dirname(__file__), "../../build/release"))
PROBE = os.environ.get("FERROX_PROBE", os.path.join(BUILD, "Tests/Platform/DNSSD/dnssd_probe"))


class Probe(JsonProcess):
    def __init__(self, host, *options, backend="embedded", bus=None):
        super().__init__(host, [*on_bus(bus), PROBE, "--backend", backend, *options])

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def publish(self, name, port, *txt):
        self.send(" ".join(["publish", name, str(port), *txt]))

    def wait_for(self, event, name=None, timeout=8, **members):
        def matches(seen):
            return (seen["event"] == event and (name is None or seen.get("name") == name)
                    and all(seen.get(key) == value for key, value in members.items()))
        return self.wait(f"{event} {name or ''} {members or ''}", matches, timeout)

    def never_about(self, event, name, seconds):
        self.never(f"{event} {name}", lambda seen: seen["event"] == event and seen.get("name") == name, seconds)

    def addresses_of(self, host_name, timeout_ms=3000):
        self.send(f"resolve {host_name} {timeout_ms}")
        return self.wait_for("addresses", host_name, timeout=timeout_ms / 1000 + 2)

    def quit(self):
        self.send("quit")
        self.wait_for("ended")
        return self.process.wait(timeout=5)


class Daemon:
    """avahi-daemon on one host, with a message bus of its own."""

    BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
     "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
    <busconfig>
      <type>system</type>
      <listen>unix:path={path}</listen>
      <auth>EXTERNAL</auth>
      <policy context="default">
        <allow user="*"/> <allow own="*"/> <allow send_destination="*"/> <allow receive_sender="*"/>
      </policy>
    </busconfig>
    """
    SERVER = """[server]
    use-ipv4=yes
    use-ipv6=yes
    [publish]
    publish-workstation=no
    publish-hinfo=no
    """

    def __init__(self, host):
        self.host = host
        self.bus = host.network.place / f"bus-{host.index}"
        self._bus_config = host.network.place / f"bus-{host.index}.conf"
        self._config = host.network.place / f"avahi-{host.index}.conf"
        self._bus_config.write_text(self.BUS.format(path=self.bus))
        self._config.write_text("\n".join(line.strip() for line in self.SERVER.splitlines()))
        self._popen(["dbus-daemon", "--nofork", f"--config-file={self._bus_config}"])
        deadline = time.monotonic() + 5
        while not self.bus.exists():
            if time.monotonic() > deadline:
                raise AssertionError("the message bus did not start")
            time.sleep(0.02)

    def _popen(self, argv):
        return self.host.popen(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def start(self):
        script = ("mount -t tmpfs tmpfs /run && mkdir /run/avahi-daemon && exec env "
                  f"DBUS_SYSTEM_BUS_ADDRESS=unix:path={self.bus} avahi-daemon -f {self._config} "
                  "--no-drop-root --no-chroot --no-rlimits")
        self.process = self._popen(["sh", "-c", script])
        self._wait_until_owned()

    def _wait_until_owned(self):
        """Until the daemon answers on the bus."""
        ask = [*on_bus(self.bus), "dbus-send", "--system",
               "--print-reply", "--dest=org.freedesktop.Avahi", "/", "org.freedesktop.Avahi.Server.GetState"]
        deadline = time.monotonic() + 8
        while self.host.run(ask).returncode != 0:
            if time.monotonic() > deadline:
                raise AssertionError("the discovery daemon did not start")
            time.sleep(0.05)

    def stop(self):
        self.process.terminate()
        self.process.wait(timeout=5)

    def kill(self):
        self.process.kill()
        self.process.wait(timeout=5)

    def freeze(self):
        self.process.send_signal(signal.SIGSTOP)

    def thaw(self):
        self.process.send_signal(signal.SIGCONT)


def published_name(probe):
    names = [event["name"] for event in probe.events if event["event"] == "published"]
    return names[-1] if names else None


class ProbeCase(unittest.TestCase):
    hosts = 2
    ipv4 = True
    ipv6 = True

    def setUp(self):
        self.network = Network(self.hosts, ipv4=self.ipv4, ipv6=self.ipv6)
        self.addCleanup(self.network.close)

    def host(self, number):
        return self.network.hosts[number - 1]

    def probe(self, number, *options, **more):
        probe = Probe(self.host(number), *options, **more)
        probe.wait_for("started")
        return probe

    def settled_names(self, *probes, timeout=8):
        """The names under which the probes are published once no two are the same. Which of two contestants
        gives way is up to the stacks."""
        deadline = time.monotonic() + timeout
        while True:
            for probe in probes:
                probe.never("end", lambda event: event["event"] == "ended", 0.1)
            names = [published_name(probe) for probe in probes]
            if None not in names and len(set(names)) == len(names):
                return names
            if time.monotonic() > deadline:
                raise AssertionError(f"the names stay contested: {names}")

    def foreign(self, number, *argv):
        return ForeignPeer(self.host(number), argv[0], self.host(number).address, *argv[1:])
