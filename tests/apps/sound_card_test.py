"""The tool on real sound servers without hardware, as an unprivileged user:
sound_card_test.py TOOL [unittest arguments]. What is heard is recorded from the server. The server is
killed while a scene plays, and started again."""

import array
import math
import os
import shutil
import signal
import subprocess
import sys
import time
import unittest

from tool_case import DEADLINE, LEFT, TOOL, ToolCase, changed

RATE = 44100
NOBODY = 65534
PROGRAMS = {
    "PulseAudio": ["pulseaudio", "pactl", "parec"],
    "Jack": ["jackd", "jack_lsp", "jack_capture"],
}


def missing(kind):
    return [program for program in PROGRAMS[kind] if shutil.which(program) is None]


def level(samples):
    """RMS in dB, full scale being 1."""
    mean = sum(s * s for s in samples) / max(1, len(samples))
    return 10 * math.log10(mean) if mean > 0 else -math.inf


class SoundServer(ToolCase):
    environment = {}

    def setUp(self):
        super().setUp()
        # Sound servers refuse root, or behave differently for it.
        self.as_user = []
        if os.geteuid() == 0:
            user = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"]
            if subprocess.run([*user, "test", "-x", TOOL], check=False).returncode == 0:
                self.as_user = user
        os.mkdir(self.path("run"), 0o700)
        self.scene(changed(LEFT, duration=1000, sources=[{**LEFT["sources"][0], "loop": True}]))
        for name in (".", "run", "scene.json") if self.as_user else ():
            os.chown(self.path(name), NOBODY, NOBODY)
        self.env = {"PATH": os.environ["PATH"], "HOME": self.folder,
                    "XDG_RUNTIME_DIR": self.path("run"),
                    **{name: value for name, value in os.environ.items() if "SAN_OPTIONS" in name}}
        self.env.update({name: value.format(folder=self.folder, pid=os.getpid())
                         for name, value in self.environment.items()})

    def begin(self, *command, **more):
        """Starts a program as the user, and ensures that it ends."""
        with open(self.path(command[0].split("/")[-1] + ".log"), "ab") as log:
            process = subprocess.Popen([*self.as_user, *command], cwd=self.folder, env=self.env,
                                       **{"stdout": log, "stderr": log, "stdin": subprocess.DEVNULL,
                                          **more})
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process):
        """JACK has room for eight servers, and a killed one keeps its place."""
        process.terminate()
        try:
            process.wait(DEADLINE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    def answers(self, *command):
        return subprocess.run([*self.as_user, *command], cwd=self.folder, env=self.env, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              timeout=DEADLINE).stdout.decode()

    def wait_for_sound(self):
        """Waits until the left channel sounds as it should, and the right one not at all."""
        self.record_until(lambda left, right: abs(level(left) + 9.03) < 0.5
                          and level(right) < -60)

    def check(self):
        server = self.start_server()
        player = self.begin(TOOL, "play", "scene.json", "--status")
        self.wait_for_sound()
        server.kill()
        server.wait()
        self.wait_for_text("orvel.log", "The sound device is lost")
        self.wait_for_text("orvel.log", "device absent")
        self.start_server()
        back = time.monotonic()
        self.wait_for_sound()
        print(f"sound was back {time.monotonic() - back:.1f} s after the server, "
              "with the time to record it")
        player.send_signal(signal.SIGINT)
        self.assertEqual(player.wait(DEADLINE), 1)  # not everything was heard
        log = self.read("orvel.log")
        self.assertRegex(log, r"device open \([^)]+\), latency \d+ ms")
        self.assertEqual(log.count("orvel: "), 1, log)
        self.assertNotIn("AL lib", log)


class PulseAudio(SoundServer):
    environment = {"PULSE_SERVER": "unix:{folder}/run/pulse/native", "ALSOFT_DRIVERS": "pulse"}

    def start_server(self):
        server = self.begin(
            "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=true",
            "-L", f"module-null-sink sink_name=test rate={RATE}",
            "-L", "module-native-protocol-unix")
        self.wait_for(lambda: "test.monitor" in self.answers("pactl", "list", "short", "sources"),
                      "PulseAudio")
        return server

    def record_until(self, fits):
        recorder = self.begin("parec", "-d", "test.monitor", "--format=s16le", f"--rate={RATE}",
                              "--channels=2", "--latency-msec=50", stdout=subprocess.PIPE)

        def hears():
            data = recorder.stdout.read(RATE // 5 * 4)
            samples = [s / 32768 for s in array.array("h", data[:len(data) // 4 * 4])]
            return fits(samples[::2], samples[1::2])
        self.wait_for(hears, "the sound")
        recorder.kill()
        recorder.wait()
        recorder.stdout.close()

    def test_a_scene_is_heard_again_when_the_server_returns(self):
        self.check()


class Jack(SoundServer):
    environment = {"JACK_DEFAULT_SERVER": "orvel{pid}", "JACK_NO_AUDIO_RESERVATION": "1",
                   "JACK_NO_START_SERVER": "1", "ALSOFT_DRIVERS": "jack"}

    def start_server(self):
        server = self.begin("jackd", "--no-realtime", "--name", self.env["JACK_DEFAULT_SERVER"],
                            "-d", "dummy", "-r", str(RATE), "-p", "256")
        self.wait_for(lambda: "system:playback_1" in self.answers("jack_lsp"), "JACK")
        return server

    def record_until(self, fits):
        def hears():
            if "alsoft" not in self.answers("jack_lsp"):
                return False
            name = f"{time.monotonic_ns()}.wav"
            self.answers("jack_capture", "-d", "0.3", "-p", "alsoft*", "-f", "wav", name)
            if not os.path.exists(self.path(name)):
                return False
            with open(self.path(name), "rb") as file:
                data = file.read()
            data = data[data.find(b"data") + 8:]
            samples = array.array("f", data[:len(data) // 8 * 8])
            return fits(samples[::2], samples[1::2])
        self.wait_for(hears, "the sound")

    def test_a_scene_is_heard_again_when_the_server_returns(self):
        self.check()


def with_own_shared_memory():
    """Starts this program again with an empty /dev/shm where that is permitted: what killed JACK servers
    have left there in other runs may keep new ones from starting."""
    shell = ["unshare", "--mount", "sh", "-c", 'mount -t tmpfs tmpfs /dev/shm && exec "$0" "$@"']
    if subprocess.run([*shell, "true"], check=False, stderr=subprocess.DEVNULL).returncode == 0:
        os.environ["ORVEL_TEST_OWN_SHM"] = "1"
        os.execvp(shell[0], [*shell, sys.executable, *sys.argv])


if __name__ == "__main__":
    if "ORVEL_TEST_OWN_SHM" not in os.environ:
        with_own_shared_memory()
    absent = missing(sys.argv[2].split(".")[0]) if len(sys.argv) > 2 else []
    if absent:
        print("skipped: " + ", ".join(absent) + " is missing; scripts/install-deps.sh installs it")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
