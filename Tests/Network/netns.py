"""Hosts on one machine: network namespaces joined by a bridge.

Needs root, or a user namespace of one's own (scripts/test-network makes one). Everything that is made here
carries the process id in its name and goes away with `Network.close()`.
"""

import itertools
import os
import pathlib
import shlex
import shutil
import signal
import subprocess
import tempfile

_serial = itertools.count()


def sh(*argv, check=True, timeout=30):
    """Runs a command to its end and returns its standard output."""
    done = subprocess.run([str(arg) for arg in argv], capture_output=True, text=True, timeout=timeout)
    if check and done.returncode != 0:
        raise RuntimeError(f"{shlex.join(map(str, argv))}: {done.stderr.strip() or done.returncode}")
    return done.stdout


class Host:
    """One machine of the network: a namespace with a link eth0, a host name and a machine id of its own."""

    def __init__(self, network, index, ipv4, ipv6):
        self.network = network
        self.index = index
        self.namespace = f"{network.prefix}h{index}"
        self.name = f"host{index}-{network.prefix}"
        self.port = f"p{index}"
        self.address = f"10.77.0.{index}"
        self._processes = []
        sh("ip", "netns", "add", self.namespace)
        self.ip("link", "set", "lo", "up", "multicast", "on")
        self.add_link(ipv4, ipv6)
        self._machine_id = network.place / f"machine-id-{index}"
        self._machine_id.write_text("%032x\n" % (0xFE000000 + os.getpid() * 256 + index))

    def add_link(self, ipv4=True, ipv6=True):
        bridge = self.network.bridge
        sh("ip", "link", "add", "eth0", "netns", self.namespace, "type", "veth",
           "peer", "name", self.port, "netns", bridge)
        sh("ip", "-n", bridge, "link", "set", self.port, "master", "br0", "up")
        self.sysctl("net.ipv6.conf.eth0.accept_dad", 0)
        self.sysctl("net.ipv6.conf.eth0.disable_ipv6", 0 if ipv6 else 1)
        if ipv4:
            self.ip("addr", "add", f"{self.address}/24", "dev", "eth0")
        self.ip("link", "set", "eth0", "up", "multicast", "on")
        if ipv4:
            self.ip("route", "replace", "224.0.0.0/4", "dev", "eth0")

    def remove_link(self):
        self.ip("link", "del", "eth0")

    def ip(self, *argv):
        return sh("ip", "-n", self.namespace, *argv)

    def sysctl(self, key, value):
        path = "/proc/sys/" + key.replace(".", "/")
        sh("ip", "netns", "exec", self.namespace, "sh", "-c", f"echo {value} >{path}")

    # Faults

    def partition(self):
        """Cuts the host off without its link losing the carrier."""
        sh("ip", "-n", self.network.bridge, "link", "set", self.port, "nomaster")

    def heal(self):
        sh("ip", "-n", self.network.bridge, "link", "set", self.port, "master", "br0")

    def link_down(self):
        self.ip("link", "set", "eth0", "down")

    def link_up(self):
        self.ip("link", "set", "eth0", "up")
        # Routes go with the link.
        sh("ip", "-n", self.namespace, "route", "replace", "224.0.0.0/4", "dev", "eth0", check=False)

    def firewall(self, *rule):
        """Adds an iptables rule inside the host."""
        return sh("ip", "netns", "exec", self.namespace, "iptables", "-w", "5", "-A", *rule)

    def lose_packets(self, probability):
        """Drops that part of what comes in, of every kind; 0 ends it."""
        for filter_of in ("iptables", "ip6tables"):
            sh("ip", "netns", "exec", self.namespace, filter_of, "-w", "5", "-F", "INPUT")
            if probability > 0:
                sh("ip", "netns", "exec", self.namespace, filter_of, "-w", "5", "-A", "INPUT", "-i", "eth0",
                   "-m", "statistic", "--mode", "random", "--probability", probability, "-j", "DROP")

    def block_multicast(self):
        """As in networks that keep their guests apart: no DNS-SD goes out, neither over IPv4 nor over IPv6."""
        for filter_of in ("iptables", "ip6tables"):
            sh("ip", "netns", "exec", self.namespace, filter_of, "-w", "5", "-A", "OUTPUT",
               "-p", "udp", "--dport", "5353", "-j", "DROP")

    # Processes

    def command(self, argv):
        """The command line that runs `argv` on this host, as one process with the host's own name."""
        prepare = (
            f"hostname {self.name}; "
            f"[ ! -e /etc/machine-id ] || mount --bind {self._machine_id} /etc/machine-id; "
            'exec "$@"'
        )
        return ["ip", "netns", "exec", self.namespace, "unshare", "--uts", "--mount", "--",
                "sh", "-c", prepare, "sh", *map(str, argv)]

    def popen(self, argv, **options):
        process = subprocess.Popen(self.command(argv), start_new_session=True, **options)
        self._processes.append(process)
        return process

    def run(self, argv, timeout=30, **options):
        return subprocess.run(self.command(argv), capture_output=True, text=True, timeout=timeout, **options)

    def close(self):
        for process in self._processes:
            if process.poll() is None:
                try:
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
                process.wait(timeout=10)
            for stream in (process.stdin, process.stdout, process.stderr):
                if stream is not None:
                    try:
                        stream.close()
                    except OSError:  # what was still to be written to a process that is gone
                        pass
        sh("ip", "netns", "del", self.namespace, check=False)


class Network:
    """`count` hosts at 10.77.0.1.. (and with link-local IPv6) on one bridge."""

    def __init__(self, count, ipv4=True, ipv6=True):
        self.prefix = f"fx{os.getpid()}n{next(_serial)}"
        self.bridge = f"{self.prefix}br"
        self.place = pathlib.Path(tempfile.mkdtemp(prefix=self.prefix))
        self.hosts = []
        try:
            sh("ip", "netns", "add", self.bridge)
            sh("ip", "-n", self.bridge, "link", "set", "lo", "up")
            sh("ip", "-n", self.bridge, "link", "add", "br0", "type", "bridge", "mcast_snooping", "0")
            sh("ip", "-n", self.bridge, "link", "set", "br0", "up")
            for index in range(1, count + 1):
                self.hosts.append(Host(self, index, ipv4, ipv6))
        except BaseException:
            self.close()
            raise

    def split(self, hosts):
        """Moves `hosts` to a network of their own, their links keeping the carrier."""
        sh("ip", "-n", self.bridge, "link", "add", "br1", "type", "bridge", "mcast_snooping", "0")
        sh("ip", "-n", self.bridge, "link", "set", "br1", "up")
        for host in hosts:
            sh("ip", "-n", self.bridge, "link", "set", host.port, "master", "br1")

    def join(self):
        """Undoes `split`."""
        for host in self.hosts:
            sh("ip", "-n", self.bridge, "link", "set", host.port, "master", "br0")
        sh("ip", "-n", self.bridge, "link", "del", "br1")

    def close(self):
        for host in self.hosts:
            host.close()
        sh("ip", "netns", "del", self.bridge, check=False)
        shutil.rmtree(self.place, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
