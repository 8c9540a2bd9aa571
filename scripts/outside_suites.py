#!/usr/bin/env python3
"""Checks the pages with external suites: outside_suites.py TOOL [FOLDER [SUITE...]].

axe        axe-core: accessibility of every page in every state, wide and narrow, light and dark; and a walk
           through the controls of the desk by keyboard
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
CUES = ROOT / "examples/scenes/cues.json"
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
    """A sound server with a monitor and the back end "web", and a player with a desk that drives it. It
    records to `capture`, if given."""

    def __init__(self, tool, capture=None):
        self.processes, self.tool = [], tool
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            probe.bind(("127.0.0.1", 0))
            port = str(probe.getsockname()[1])
        here = ["--interface", "127.0.0.1"]
        log = self.start([tool, *(["record", capture] if capture else ["serve"]), "--scene", SCENE, "--backend", "silent", "--monitor",
                          "127.0.0.1:0", "--web", "--port", port, *here],
                         ["the monitor is at", "Web server", "TCP port"])
        self.monitor = re.search(r"monitor is at (\S+)/", log).group(1)
        self.web = "http://127.0.0.1:" + re.search(r"open ok: http://.*:(\d+)", log).group(1)
        self.desk, self.token = self.play(SCENE, "--loop", "--backend", "client:port=" + port, *here)

    def play(self, *arguments):
        """Another player with a desk; returns the desk's address without the token, and the token."""
        log = self.start([self.tool, "play", *arguments, "--desk", "0"], ["the desk is at"])
        return re.search(r"desk is at (\S+)(#token=\S+)", log).groups()

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
    with tempfile.TemporaryDirectory() as temporary, \
            Server(tool, f"{temporary}/session.orvelrec") as server:
        browser = Browser()
        try:
            time.sleep(1)  # so long is the capture that a player finds
            cues, cues_token = server.play(CUES, "--backend", "silent", "--armed")
            capture, capture_token = server.play(f"{temporary}/session.orvelrec", "--backend", "silent")
            monitor = (server.monitor + "/", set(), [wait_for_rows, wait_for_connection, choose_first])
            desk = [wait_for_rows, choose_first]
            pages = [
                monitor, (server.monitor + "/none", set(), []),
                (server.desk, set(), [*desk, wait_for_connection, wait_for_message]),
                (server.desk + server.token, set(), [*desk, wait_for_connection, set_by_hand, wait_for_picture]),
                (cues, set(), [wait_for_picture, wait_for_message]),
                (cues + cues_token, set(), [wait_for_picture]),
                (cues + cues_token, set(), [lambda browser: command(browser, "{ cue: 'flight' }", "playing"), *desk]),
                (cues + cues_token, set(), [lambda browser: command(browser, "{ cue: 'flight' }", "playing"),
                                            lambda browser: command(browser, "{ pause: true }", "paused"),
                                            choose_listener]),
                (capture + capture_token, set(), [wait_for_picture, *desk, wait_for_message]),
                (server.web + "/index.html", FIXED_PAGE, []),
                (server.web + "/log.html", set(), []), (server.web + "/Backends", set(), [])]
            for number, (url, allowed, steps) in enumerate(pages):
                for size in (WIDE, PHONE):
                    for dark in (False, True):
                        browser.resize(*size)
                        browser.set_dark(dark)
                        browser.open(url)
                        for step in steps:
                            step(browser)
                        browser.value(source + "; 0")
                        result = browser.value("axe.run()")
                        if not result["passes"]:
                            raise RuntimeError(f"axe found nothing to look at in {url}")
                        where = f"page {number}, {url} at {size[0]} px, {'dark' if dark else 'light'}"
                        findings += [
                            f"{where}: {rule['id']}: {rule['help']}: {[node['html'] for node in rule['nodes']][:3]}"
                            for rule in result["violations"] if rule["id"] not in allowed]
                        if steps:
                            findings += [f"{where}: by keyboard: {text}" for text in walk(browser)]
        finally:
            browser.close()
    return findings


def wait_until(browser, expression, problem, module=None):
    deadline = time.monotonic() + DEADLINE
    while not browser.value(expression, module):
        if time.monotonic() > deadline:
            raise RuntimeError(problem)
        time.sleep(0.1)


def wait_for_rows(browser):
    wait_until(browser, "document.querySelector('#emitters tbody tr') !== null", "the page shows no emitter")


def wait_for_connection(browser):
    wait_until(browser, "document.querySelector('#network tbody tr') !== null", "the page shows no connection")


def choose_first(browser):
    browser.value("choose(Number(document.querySelector('#emitters tbody tr').dataset.id))", "selection")


def choose_listener(browser):
    browser.value("choose(0)", "selection")


def wait_for_message(browser):
    wait_until(browser, "document.querySelector('.message').textContent !== ''", "the desk shows no message")


def wait_for_picture(browser):
    wait_until(browser, "document.querySelector('.deskbar .legend li') !== null", "the desk shows no picture")


def set_by_hand(browser):
    """Mutes the chosen emitter, and has a request refused."""
    wait_until(browser, "mayChange()", "the desk may not change anything", "deskLink")
    browser.value("change(Number(document.querySelector('.controls select').value), { mute: true }),"
                  " request({ save: '.json' })", "deskLink")
    wait_for_message(browser)


def command(browser, request, state):
    wait_until(browser, "mayControl()", "the desk may not control anything", "deskLink")
    browser.value(f"request({request})", "deskLink")
    wait_until(browser, f"state.state === '{state}'", f"the playback is not {state}", "deskLink")


# Numbers the controls that can be used now, and lists the numbers.
CONTROLS = """[...document.querySelectorAll('a[href], button, input, select, [tabindex="0"]')]
  .filter((e) => !e.disabled && e.checkVisibility()).map((e) => {
    window.controls_ = (window.controls_ || 0);
    if (!e.dataset.control) { window.controls_ += 1; e.dataset.control = window.controls_; }
    return e.dataset.control; })"""
FOCUSED = """(() => { const { dataset, outerHTML } = document.activeElement;
  return [dataset.control || '', getComputedStyle(document.activeElement).outlineStyle, outerHTML.slice(0, 100)];
})()"""


def walk(browser):
    """Presses Tab until every control has had the focus; returns those that have not, or do not show it."""
    usable = set(browser.value(CONTROLS))
    browser.value("document.activeElement.blur()")
    seen, problems = set(), []
    for _ in range(2 * len(usable) + 5):
        for kind in ("rawKeyDown", "keyUp"):
            browser.call("Input.dispatchKeyEvent", type=kind, key="Tab", code="Tab", windowsVirtualKeyCode=9)
        number, outline, html = browser.value(FOCUSED)
        if number and number not in seen and outline == "none":
            problems.append(f"the focus does not show: {html}")
        seen.add(number)
        if usable <= seen:
            break
    for number in usable & set(browser.value(CONTROLS)) - seen:
        problems.append("not reached: " + browser.value(
            f"document.querySelector('[data-control=\"{number}\"]').outerHTML.slice(0, 100)"))
    return problems


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
