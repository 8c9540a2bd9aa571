"""A server and a player on two hosts, which are network namespaces joined by a cable that this test
makes: namespaces_test.py TOOL. Ends with 77 where namespaces cannot be made."""

import json
import os
import shutil
import subprocess
import sys
import unittest

from tool_case import DEADLINE, LEFT, ToolCase, changed, levels

HOSTS = [f"orvel{os.getpid()}{end}" for end in "ab"]  # names of the namespaces and of their ends
ADDRESSES = ["10.77.90.1", "10.77.90.2"]
LOOPED = changed(LEFT, sources=[{**LEFT["sources"][0], "loop": True}], duration=1000)


def run(*command):
    subprocess.run(command, check=True, capture_output=True, text=True, timeout=DEADLINE)


def make_hosts():
    for host in HOSTS:
        run("ip", "netns", "add", host)
    run("ip", "-n", HOSTS[0], "link", "add", HOSTS[0], "type", "veth", "peer", "name", HOSTS[1],
        "netns", HOSTS[1])
    for host, address in zip(HOSTS, ADDRESSES):
        run("ip", "-n", host, "address", "add", address + "/24", "dev", host)
        for link in (host, "lo"):
            run("ip", "-n", host, "link", "set", link, "up")


def remove_hosts():
    for host in HOSTS:
        subprocess.run(["ip", "netns", "delete", host], check=False, capture_output=True)


class TwoHosts(ToolCase):
    def on(self, host, log, *arguments):
        return self.background(log, *arguments, prefix=("ip", "netns", "exec", HOSTS[host]))

    def meet(self):
        scene = self.scene(LOOPED)
        server = self.on(0, "serve.log", "serve", "--scene", scene, "--render", "o.wav")
        self.wait_for_text("serve.log", "serving")
        self.on(1, "play.log", "play", scene, "--backend", "client")
        return server

    def hear_the_left(self, server):
        self.wait_for(lambda: os.times()[4] >= self.heard, "a second of sound")
        server.terminate()
        self.assertEqual(server.wait(DEADLINE), 0, self.read("serve.log"))
        left, right = levels(self.path("o.wav"))
        self.assertGreater(left, -30)
        self.assertGreater(left, right + 20)

    def test_a_cut_cable_is_noticed_on_both_ends_and_mended(self):
        server = self.meet()
        self.wait_for_text("play.log", f"server {ADDRESSES[0]}:", within=2)
        self.assertNotIn("127.0.0.1", self.read("play.log"))
        self.on(1, "list.log", "servers", "--json", "--seconds", "0.5").wait(DEADLINE)
        self.assertEqual([s["address"] for s in json.loads(self.read("list.log"))["servers"]],
                         ADDRESSES[:1])
        run("ip", "-n", HOSTS[0], "link", "set", HOSTS[0], "down")
        for log in ("play.log", "serve.log"):
            self.wait_for_text(log, "is gone", within=12)
        run("ip", "-n", HOSTS[0], "link", "set", HOSTS[0], "up")
        self.wait_for_text("play.log", "is connected", 2, within=8)
        self.heard = os.times()[4] + 1
        self.hear_the_left(server)

    def test_delay_and_loss_do_not_stop_it(self):
        for host in HOSTS:
            delayed = subprocess.run(
                ["tc", "-n", host, "qdisc", "add", "dev", host, "root", "netem", "delay", "100ms",
                 "loss", "5%"], check=False, capture_output=True, text=True)
            if delayed.returncode != 0:
                self.skipTest("this kernel has no netem: " + delayed.stderr.strip())
            self.addCleanup(run, "tc", "-n", host, "qdisc", "delete", "dev", host, "root")
        server = self.meet()
        self.wait_for_text("play.log", "is connected", within=10)
        self.heard = os.times()[4] + 2
        self.hear_the_left(server)
        self.assertNotIn("is gone", self.read("play.log").split("is connected")[0])


if __name__ == "__main__":
    if os.geteuid() != 0 or shutil.which("ip") is None:
        print("skipped: namespaces need root, and the program ip (package iproute2)")
        sys.exit(77)
    try:
        make_hosts()
    except subprocess.CalledProcessError as fault:
        remove_hosts()
        print(f"skipped: this machine lets nobody make namespaces: {fault.stderr.strip()}")
        sys.exit(77)
    try:
        unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
    finally:
        remove_hosts()
