"""server_example.py EXAMPLE TOOL: the example's sound server is heard when the tool plays a scene to
it, both on the loopback interface. OpenAL writes what it plays to a file."""

import array
import json
import os
import pathlib
import socket
import subprocess
import sys
import tempfile

example, tool = sys.argv[1:]
SCENE = {
    "orvel": 1, "duration": 2,
    "sources": [{"id": 1, "tone": {"seconds": 1.5}}],  # the server's own source 1 is a voice
    "emitters": [{"id": 2, "source": 1, "position": [-2, 0, 0], "state": "play",
                  "hull": {"minBack": 2, "minFront": 2}}],
}
with tempfile.TemporaryDirectory() as name, socket.socket(type=socket.SOCK_DGRAM) as probe:
    folder = pathlib.Path(name)
    probe.bind(("127.0.0.1", 0))
    port = str(probe.getsockname()[1])
    probe.close()
    (folder / "scene.json").write_text(json.dumps(SCENE))
    (folder / "alsoft.conf").write_text("[general]\nchannels = stereo\nsample-type = int16\n"
                                        f"[wave]\nfile = {folder}/heard.wav\n")
    server = subprocess.Popen([example, "127.0.0.1", port], env={
        **os.environ, "ALSOFT_DRIVERS": "wave", "ALSOFT_CONF": str(folder / "alsoft.conf")})
    try:
        played = subprocess.run([tool, "play", folder / "scene.json", "--interface", "127.0.0.1",
                                 "--backend", "client:port=" + port], timeout=30, check=False)
    finally:
        server.terminate()
        ended = server.wait(10)
    # The file's header is not complete, because nobody closed it.
    data = (folder / "heard.wav").read_bytes().partition(b"data")[2][4:]
    samples = array.array("h", data[:len(data) // 4 * 4])

left, right = (sum(s * s for s in samples[channel::2]) for channel in (0, 1))
print(f"exit codes {played.returncode} and {ended}, energy left {left}, right {right}")
sys.exit(0 if played.returncode == 0 and left > 10 ** 9 and left > 4 * right else 1)
