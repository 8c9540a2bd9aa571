"""Hosts joined by a link that delays, loses and silences packets.

The hosts are network namespaces, the link's ends TUN devices whose packets a thread of this process
relays; so it needs root, /dev/net/tun and the program ip, but no module of the kernel.
"""

import contextlib
import fcntl
import heapq
import os
import random
import select
import struct
import subprocess
import threading
import time

TUNSETIFF = 0x400454CA
IFF_TUN, IFF_NO_PI = 0x0001, 0x1000


class LossyLink:
    """Use with `with`. Unless `silent` is set, each packet passes after `delay` and up to `jitter`
    seconds, with which packets overtake each other; the fraction `loss` is lost. With a `rate`, in
    bytes a second, at most 32 KiB wait for it, each way. All may be changed at any time."""

    def __init__(self, hosts=2):
        # And the names of the ends.
        self.hosts = [f"orvel{os.getpid()}{'abcdefgh'[i]}" for i in range(hosts)]
        self.addresses = [f"10.77.90.{i + 1}" for i in range(hosts)]
        self.cut = set()  # hosts whose packets are lost
        self.delay, self.jitter, self.loss, self.rate, self.silent = 0.0, 0.0, 0.0, None, False
        self._tuns, self._closing = [], False
        self._thread = threading.Thread(target=self._relay)

    def command(self, host, clock=0):
        """The prefix of a command that runs on a host, with its clock ahead by so many seconds."""
        ahead = ("unshare", "--time", "--monotonic", str(clock)) if clock else ()
        return ("ip", "netns", "exec", self.hosts[host], *ahead)

    def __enter__(self):
        """Raises OSError or subprocess.CalledProcessError where such a link cannot be made."""
        try:
            for host, address in zip(self.hosts, self.addresses):
                self._tuns.append(os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK))
                fcntl.ioctl(self._tuns[-1], TUNSETIFF,
                            struct.pack("16sH22x", host.encode(), IFF_TUN | IFF_NO_PI))
                for words in (f"netns add {host}", f"link set {host} netns {host}",
                              f"-n {host} address add {address}/24 dev {host}",
                              f"-n {host} link set {host} up", f"-n {host} link set lo up"):
                    subprocess.run(["ip", *words.split()], check=True, capture_output=True,
                                   text=True)
        except BaseException:
            self._remove()
            raise
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._closing = True
        self._thread.join()
        self._remove()

    def _remove(self):
        for tun in self._tuns:
            os.close(tun)  # the device goes with it
        for host in self.hosts:
            subprocess.run(["ip", "netns", "delete", host], check=False, capture_output=True)

    def _relay(self):
        with contextlib.suppress(OSError):  # a network does not wait for the hosts' processors
            os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(1))
        waiting, number = [], 0  # (when it is due, number, end, packet)
        free = dict.fromkeys(self._tuns, 0.0)  # when the line is free
        while not self._closing:
            pause = waiting[0][0] - time.monotonic() if waiting else 0.05
            for tun in select.select(self._tuns, [], [], min(max(pause, 0), 0.05))[0]:
                packet, leaves = os.read(tun, 65536), time.monotonic()
                if self.rate:
                    leaves = max(leaves, free[tun]) + len(packet) / self.rate
                full = self.rate and leaves - time.monotonic() > 32768 / self.rate
                if self.silent or full or random.random() < self.loss:
                    continue
                free[tun] = leaves
                due = leaves + self.delay + random.uniform(0, self.jitter)
                number += 1
                source = self._tuns.index(tun)
                to = packet[19] - 1 if packet[16:19] == bytes([10, 77, 90]) else None
                for host, other in enumerate(self._tuns):
                    if host != source and to in (None, host) and not {host, source} & self.cut:
                        heapq.heappush(waiting, (due, number, other, packet))
                        number += 1
            while waiting and waiting[0][0] <= time.monotonic():
                os.write(*heapq.heappop(waiting)[2:])
