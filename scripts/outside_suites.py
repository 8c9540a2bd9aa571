#!/usr/bin/env python3
"""Checks the pages with external suites: outside_suites.py TOOL [FOLDER [SUITE...]].

axe        axe-core: accessibility of every page, wide and narrow, light and dark
promtool   "promtool check metrics" of /metrics
slowhttp   slowhttptest: slow clients, which must lock nobody out
osc        clients of Open Sound Control: npm's osc, osc-js and node-osc, and python3-liblo

What is not installed is fetched into FOLDER (build/outside), by npm or by apt-get, which
puts nothing on the system. Exits with 77 if a suite cannot be had. There is no suite for the conformance
of HTTP/1.1 servers among Debian's packages or npm's; the tests of the web server hold it to RFC 9112.
"""
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import urllib.request

from browser import Browser, find_chromium

AXE = "axe-core@4.14.1"
OSC_CLIENTS = {"osc": "2.4.5", "osc-js": "2.4.1", "node-osc": "11.7.1"}
ROOT = pathlib.Path(__file__).resolve().parent.parent
SCENE = ROOT / "examples/scenes/voices.json"
DEADLINE = 30
WIDE, PHONE = (1200, 900), (390, 844, True)

# The index page's markup and style sheet are fixed, for programs that read them.
FIXED_PAGE = {"color-contrast", "html-has-lang", "landmark-one-main", "region"}


class Unavailable(Exception):
    """A suite or one of its dependencies is unavailable."""


def fetch(command, folder):
    folder.mkdir(parents=True, exist_ok=True)
    try:
        run = subprocess.run(command, cwd=folder, capture_output=True, text=True, timeout=120,
                             check=False)
    except FileNotFoundError as error:
        raise Unavailable(f"{command[0]} is not installed") from error
    except subprocess.TimeoutExpired as error:
        raise Unavailable(f"no answer to {' '.join(command)}") from error
    if run.returncode != 0:
        raise Unavailable(f"{' '.join(command)}: {' '.join(run.stderr.splitlines()[:3])}")


def program(name, package, folder):
    """The path of a program, from the Debian package if it is not installed."""
    if shutil.which(name):
        return shutil.which(name)
    path = folder / package / "usr/bin" / name
    if not path.exists():
        with tempfile.TemporaryDirectory() as download:
            fetch(["apt-get", "download", "-qq", package], pathlib.Path(download))
            archive = next(pathlib.Path(download).glob("*.deb"))
            fetch(["dpkg-deb", "-x", str(archive), str(path.parents[2])], folder)
    return str(path)


class Server:
    """A sound server with a monitor and the back end "web", and a player with a desk that drives it."""

    def __init__(self, tool):
        self.processes = []
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            probe.bind(("127.0.0.1", 0))
            port = str(probe.getsockname()[1])
        here = ["--interface", "127.0.0.1"]
        log = self.start([tool, "serve", "--scene", SCENE, "--backend", "silent", "--monitor",
                          "127.0.0.1:0", "--web", "--port", port, *here],
                         ["the monitor is at", "Web server", "TCP port"])
        self.monitor = re.search(r"monitor is at (\S+)/", log).group(1)
        self.web = "http://127.0.0.1:" + re.search(r"open ok: http://.*:(\d+)", log).group(1)
        log = self.start([tool, "play", SCENE, "--loop", "--backend", "client:port=" + port,
                          "--desk", "0", *here], ["the desk is at"])
        self.desk = re.search(r"desk is at (\S+)#", log).group(1)
        self.token = re.search(r"#(token=\S+)", log).group(1)

    def start(self, command, expected):
        process = subprocess.Popen(command, stderr=subprocess.PIPE, text=True)
        self.processes.append(process)
        log = ""
        while not all(text in log for text in expected):
            line = process.stderr.readline()
            if not line:
                self.__exit__()
                raise RuntimeError(f"{command} has ended:\n{log}")
            log += line
        return log

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.processes:
            process.kill()
            process.wait()
            process.stderr.close()


def axe(tool, folder):
    if find_chromium() is None:
        raise Unavailable("Chromium is not installed")
    script = folder / "node_modules/axe-core/axe.min.js"
    if not script.exists():
        fetch(["npm", "install", "--no-save", "--ignore-scripts", "--no-audit", "--no-fund",
               "--fetch-retries=0", "--prefix", str(folder), AXE], folder)
    source = script.read_text(encoding="utf-8")
    findings = []
    with Server(tool) as server:
        browser = Browser()
        try:
            for url, allowed in [(server.monitor + "/", set()), (server.monitor + "/none", set()),
                                 (server.desk, set()), (server.desk + "#" + server.token, set()),
                                 (server.web + "/index.html", FIXED_PAGE),
                                 (server.web + "/log.html", set()), (server.web + "/Backends", set())]:
                for size in (WIDE, PHONE):
                    for dark in (False, True):
                        browser.resize(*size)
                        browser.set_dark(dark)
                        browser.open(url)
                        if url == server.monitor + "/" or url.startswith(server.desk):
                            wait_for_rows(browser)
                        if url.startswith(server.desk):
                            set_by_hand(browser, "#" in url)
                        browser.value(source + "; 0")
                        result = browser.value("axe.run()")
                        if not result["passes"]:
                            raise RuntimeError(f"axe found nothing to look at in {url}")
                        findings += [
                            f"{url} at {size[0]} px, {'dark' if dark else 'light'}: {rule['id']}: "
                            f"{rule['help']}: {[node['html'] for node in rule['nodes']][:3]}"
                            for rule in result["violations"] if rule["id"] not in allowed]
        finally:
            browser.close()
    return findings


def wait_for_rows(browser):
    """Waits until the page shows emitters and the player's connection, and selects an emitter."""
    deadline = time.monotonic() + DEADLINE
    while not browser.value("document.querySelector('#emitters tbody tr') !== null &&"
                            " document.querySelector('#network tbody tr') !== null"):
        if time.monotonic() > deadline:
            raise RuntimeError("the monitor shows no emitter or no connection")
        time.sleep(0.1)
    browser.value("choose(Number(document.querySelector('#emitters tbody tr').dataset.id))", "selection")


def set_by_hand(browser, allowed):
    """Waits for the controls; with the token, mutes the chosen emitter and has a request refused."""
    deadline = time.monotonic() + DEADLINE
    wanted = "document.querySelector('.message').textContent !== ''"
    while not browser.value(wanted):
        if allowed:
            browser.value("mayChange() && (change(chosen(), { mute: true }), request({ save: '.json' }))"
                          .replace("chosen()", "Number(document.querySelector('.controls select').value)"),
                          "deskLink")
        if time.monotonic() > deadline:
            raise RuntimeError("the desk shows no message")
        time.sleep(0.1)


def promtool(tool, folder):
    checker = program("promtool", "prometheus", folder)
    with Server(tool) as server:
        with urllib.request.urlopen(server.monitor + "/metrics", timeout=DEADLINE) as answer:
            metrics = answer.read()
    run = subprocess.run([checker, "check", "metrics"], input=metrics, capture_output=True, timeout=60,
                         check=False)
    lines = (run.stdout + run.stderr).decode().splitlines()
    return lines or ([] if run.returncode == 0 else [f"promtool ended with {run.returncode}"])


def slowhttp(tool, folder):
    client = program("slowhttptest", "slowhttptest", folder)
    findings = []
    with Server(tool) as server:
        for mode in ["-H", "-B", "-X"]:  # slow headers, slow bodies, and slowly read answers
            run = subprocess.run(
                [client, mode, "-c", "300", "-r", "300", "-l", "6", "-i", "2", "-p", "3", "-u",
                 server.monitor + "/api/scene"], capture_output=True, text=True, timeout=60, check=False)
            said = re.sub(r"\x1b\[[0-9;]*m", "", run.stdout)
            if set(re.findall(r"service available: *(\w+)", said)) != {"YES"}:
                findings.append(f"slowhttptest {mode}: {said[-500:]}")
    return findings


PYTHON_CLIENT = """
import sys, liblo
server = liblo.Server(int(sys.argv[2]))
server.add_method("/adm/obj/11/gain", "f", lambda path, values: print(path, *values))
target = liblo.Address("127.0.0.1", int(sys.argv[1]))
server.send(target, "/adm/obj/11/gain", 0.25)
server.send(target, "/adm/obj/11/gain")
server.recv(10000)
"""


def osc(tool, folder):
    if not all((folder / "node_modules" / name).exists() for name in OSC_CLIENTS):
        fetch(["npm", "install", "--no-save", "--ignore-scripts", "--no-audit", "--no-fund", "--omit=optional",
               "--fetch-retries=0", "--prefix", str(folder),
               *(f"{name}@{version}" for name, version in OSC_CLIENTS.items())], folder)
    program("python3-liblo", "python3-liblo", folder)  # no program, but unpacked alike
    liblo = folder / "python3-liblo/usr/lib/python3/dist-packages"
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        reply = str(probe.getsockname()[1])
    findings = []
    player = subprocess.Popen(
        [tool, "play", SCENE, "--backend", "silent", "--osc", "0", "--osc-reply-port", reply],
        stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    try:
        said = next((line for line in player.stderr if "Open Sound Control at" in line), "")
        port = re.search(r":(\d+)$", said.strip())[1]
        clients = [["node", str(ROOT / "scripts/osc_clients.js"), str(folder / "node_modules"), name]
                   for name in OSC_CLIENTS] + [[sys.executable, "-c", PYTHON_CLIENT]]
        for client in clients:
            run = subprocess.run([*client, port, reply], capture_output=True, text=True, timeout=60, check=False,
                                 env={**os.environ, "PYTHONPATH": str(liblo)})
            if run.stdout.split() != ["/adm/obj/11/gain", "0.25"]:
                findings.append(f"{client[-1][:40]}: {run.stdout} {run.stderr[-500:]}")
    finally:
        player.terminate()
        player.wait()
        player.stderr.close()
    return findings


SUITES = {"axe": axe, "promtool": promtool, "slowhttp": slowhttp, "osc": osc}


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    tool = os.path.abspath(sys.argv[1])
    folder = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else ROOT / "build/outside").resolve()
    code = 0
    for name in sys.argv[3:] or SUITES:
        try:
            findings = SUITES[name](tool, folder)
        except Unavailable as reason:
            print(f"{name}: skipped: {reason}")
            code = code or 77
            continue
        print(f"{name}: {len(findings) or 'no'} findings", *findings, sep="\n    ")
        code = 1 if findings else code
    sys.exit(code)


if __name__ == "__main__":
    main()
