"""Servers with keys: keys_test.py TOOL"""

import os
import shutil
import socket
import subprocess
import unittest
import urllib.error
import urllib.request

from remote_case import RemoteCase
from tool_case import DEADLINE, LEFT, free_port


class Keys(RemoteCase):
    def secrets(self, path):
        return {words[3]: (words[1], words[4]) for words in
                (line.split() for line in self.read(path).splitlines()) if words[0] == "key"}

    def test_a_key_file_says_who_drives_who_watches_and_who_is_gone(self):
        scene = self.scene(LEFT)
        self.run_tool("key", "new", "show.keys")
        for name, right in [("desk", "drive"), ("foyer", "watch")]:
            self.run_tool("key", "grant", "show.keys", name, "--right", right,
                          "--output", name + ".key")
            self.assertEqual(os.stat(self.path(name + ".key")).st_mode & 0o777, 0o600)
        for arguments, fault, code in [
                (["new", "show.keys"], "File exists; add a key with orvel key grant show.keys", 1), (["new", "no/show.keys"], "No such", 1),
                (["grant", "show.keys", "desk"], "revoke it first", 1),
                (["revoke", "show.keys", "nobody"], "no key with the name", 1),
                (["grant", "show.keys"], "add the NAME", 2)]:
            self.assertIn(fault, self.run_tool("key", *arguments, code=code)[1])
        port = free_port(socket.SOCK_STREAM)
        self.serve("serve.log", "--scene", scene, "--backend", "silent", "--tcp-port", port,
                   "--key", "show.keys")
        here = ["--port", self.port, *self.here, "--seconds", "0.3"]
        self.assertIn(port, self.run_tool("servers", *here, env={"ORVEL_KEY": "foyer.key"})[0])
        self.assertIn("--key FILE", self.run_tool("servers", *here, code=1)[1])
        desk = self.play("desk.log", scene, "--loop", "--key", "desk.key")
        self.wait_for_text("serve.log", "client desk at 127.0.0.1:")
        _, err = self.finish(self.start("play", scene, "--backend", "client:port=" + self.port,
                                        *self.here, "--key", "foyer.key"), 1)
        self.assertIn("its key may only watch; client desk at", err)
        if shutil.which("openssl"):
            identity, secret = self.secrets("show.keys")["owner"]
            client = subprocess.Popen(
                ["openssl", "s_client", "-connect", "127.0.0.1:" + port, "-tls1_3", "-quiet",
                 "-psk", secret, "-psk_identity", identity], stdin=subprocess.PIPE,
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            self.assertEqual(client.stdout.read(8), b"ORVELNET")
            client.stdin.close()
            client.stdout.close()
            client.wait(DEADLINE)
        self.run_tool("key", "revoke", "show.keys", "desk")
        self.wait_for_text("serve.log", "its key is not valid any more")
        self.wait_for_text("desk.log", "is gone")
        self.assertNotIn("desk", self.run_tool("key", "list", "show.keys")[0])
        os.chmod(self.path("show.keys"), 0o644)
        self.assertIn("chmod 600", self.run_tool("serve", "--key", "show.keys", code=1)[1])
        desk.kill()

    def test_without_keys_only_this_machine_reaches_it(self):
        port = free_port(socket.SOCK_STREAM)
        self.serve("serve.log", "--backend", "silent", "--tcp-port", port)
        self.wait_for_text("serve.log", "only this machine reaches it")
        socket.create_connection(("127.0.0.1", int(port))).close()
        with self.assertRaises(OSError):
            socket.create_connection(("127.0.0.2", int(port)))
        for arguments in (["--osc", "0.0.0.0:0"], ["--interface", "none0"]):
            self.assertIn("--open", self.run_tool("serve", "--backend", "silent", *arguments,
                                                  "--seconds", "0.1", code=2)[1])

    def test_a_monitor_beyond_this_machine_needs_its_token(self):
        self.background("log", "serve", "--backend", "silent", "--port", self.port, *self.here,
                        "--monitor", "0.0.0.0:0")
        self.wait_for_text("log", "?token=")
        address = self.read("log").partition("monitor is at ")[2].split()[0]
        place, _, token = address.partition("?token=")
        place = "http://127.0.0.1:" + place.rpartition(":")[2]

        def ask(url, **headers):
            opener = urllib.request.build_opener(urllib.request.HTTPCookieProcessor())
            with opener.open(urllib.request.Request(url, headers=headers), timeout=DEADLINE) as page:
                return page.url, page.read()

        for url, headers in [(place, {}), (place + "api/scene?token=" + token[:-1], {}),
                             (place, {"Authorization": "Bearer x"}), (place, {"Cookie": "orvel-"})]:
            with self.assertRaises(urllib.error.HTTPError) as fault:
                ask(url, **headers)
            self.assertEqual(fault.exception.code, 401)
            fault.exception.close()
        url, page = ask(place + "?token=" + token)
        self.assertEqual(url, place)
        self.assertIn(b"<html", page)
        self.assertIn(b"emitters", ask(place + "api/scene", Authorization="Bearer " + token)[1])


if __name__ == "__main__":
    import sys
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
