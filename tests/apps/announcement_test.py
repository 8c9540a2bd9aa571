"""Servers and Open Sound Control as Avahi announces them: announcement_test.py TOOL.

Runs in namespaces of its own for networks, mounts and processes, with a D-Bus daemon and an Avahi daemon. Ends with 77
where these cannot be made."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

from tool_case import DEADLINE, LEFT, ToolCase

PROGRAMS = ["avahi-daemon", "avahi-browse", "dbus-daemon", "ip", "mount", "unshare"]
INSIDE = "ORVEL_TEST_INSIDE"
BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>system</type><listen>unix:path=/run/bus</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/></policy></busconfig>
"""
ADDRESS = "10.77.91.1"
BUS_ADDRESS = "unix:path=/run/bus"


def run(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True, timeout=DEADLINE).stdout


def make_network():
    """A network with this host alone, and a D-Bus daemon. Everything ends with the namespaces."""
    run("mount", "-t", "tmpfs", "none", "/run")
    for words in ("link set lo up", "tuntap add dev here mode tap", f"address add {ADDRESS}/24 dev here",
                  "link set here up"):
        run("ip", *words.split())
    pathlib.Path("/run/bus.conf").write_text(BUS, encoding="utf-8")
    pathlib.Path("/run/avahi.conf").write_text(
        "[server]\nhost-name=studio\nuse-ipv6=no\ndeny-interfaces=lo\n", encoding="utf-8")
    os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = BUS_ADDRESS
    run("dbus-daemon", "--config-file=/run/bus.conf", "--fork")


def announced():
    """{type: {(name, address, port, text)}}, as another program finds it."""
    out = run("avahi-browse", "--all", "--resolve", "--terminate", "--parsable", "--no-db-lookup", "--no-fail")
    found = {}
    for line in out.splitlines():
        if line.startswith("="):
            _, _, _, name, kind, _, _, address, port, text = line.split(";", 9)
            found.setdefault(kind, set()).add((name.replace("\\032", " "), address, port, text))
    return found


class Announcements(ToolCase):
    def serve(self, log, *arguments):
        process = self.background(log, "serve", "--scene", "scene.json", "--backend", "silent", "--port", "33700",
                                  *arguments, env={"DBUS_SYSTEM_BUS_ADDRESS": BUS_ADDRESS})
        self.wait_for_text(log, "serving")
        return process

    def wait_for_types(self, types):
        self.wait_for(lambda: set(announced()) == types, f"{types}, not {announced()}")

    def test_what_others_reach_is_announced_as_long_as_it_runs(self):
        self.scene(LEFT)
        self.run_tool("key", "new", "show.keys")
        self.serve("keys.log", "--key", "show.keys")
        self.serve("silent.log", "--open", "--no-announce", "--osc", "0.0.0.0:33711")
        self.serve("here.log", "--open", "--interface", "127.0.0.1", "--osc", "33721", "--osc-query", "33722")
        server = self.serve("open.log", "--open", "--osc", "0.0.0.0:33701", "--osc-query", "33702")
        # It waits for the daemon.
        run("avahi-daemon", "--daemonize", "--no-drop-root", "--no-chroot", "--no-rlimits", "--file=/run/avahi.conf")
        self.wait_for_types({"_orvel._tcp", "_osc._udp", "_oscjson._tcp"})
        port = re.search(r"TCP port (\d+)", self.read("open.log"))[1]
        found = announced()
        for kind, wanted in [("_orvel._tcp", port), ("_osc._udp", "33701"), ("_oscjson._tcp", "33702")]:
            self.assertEqual([entry[:3] for entry in found[kind]], [("Orvel on studio", ADDRESS, wanted)])
        self.assertIn("id=", next(iter(found["_orvel._tcp"]))[3])
        server.terminate()
        self.assertEqual(server.wait(DEADLINE), 0)
        self.wait_for_types(set())


if __name__ == "__main__":
    missing = [name for name in PROGRAMS if shutil.which(name) is None]
    if missing:
        print(f"skipped: {missing} not installed; scripts/install-deps.sh installs them")
        sys.exit(77)
    if INSIDE not in os.environ:
        sys.exit(subprocess.run(
            ["unshare", "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
             sys.executable, *sys.argv], env={**os.environ, INSIDE: "1"}, check=False).returncode)
    try:
        make_network()
    except (OSError, subprocess.CalledProcessError) as fault:
        print(f"skipped: no such network can be made here: {fault} {getattr(fault, 'stderr', '')}")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
