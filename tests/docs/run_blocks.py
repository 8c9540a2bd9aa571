"""run_blocks.py SOURCE-TREE TOOL COMPILER INCLUDE-FOLDERS...: runs the commands of README and docs/.

Commands of the tool are run, those of the build are held against presets, scripts and benchmarks, C++
is compiled, scenes are checked, and pictures that have a scene beside them are drawn again. All in a
network of its own, with nothing but the loopback interface; where that cannot be had, ends with 77.
"""
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

root, tool, compiler, *includes = sys.argv[1:]
root = pathlib.Path(root)
LOOPBACK_UP = ["ip", "link", "set", "lo", "up"]
if "ORVEL_ALONE" not in os.environ:
    for unshare in (["unshare", "-n"], ["unshare", "-rn"]):
        if shutil.which("unshare") and shutil.which("ip") and not subprocess.run(
                [*unshare, *LOOPBACK_UP], capture_output=True, check=False).returncode:
            os.environ["ORVEL_ALONE"] = "yes"
            os.execvp("unshare", [*unshare, sys.executable, *sys.argv])
    print("skipped: no network namespace can be made here (unshare, ip)")
    sys.exit(77)
subprocess.run(LOOPBACK_UP, check=True)
os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = "disabled:"  # Avahi's, which a namespace does not keep out

PRELUDE = "".join(f"#include <{name}.h>\n" for name in (
    "Corvid/PolledWebServer", "Corvid/WebPageRedirection", "Corvid/EscapeHtml", "Orvel/Backend",
    "Orvel/Emitter", "Orvel/Log", "Orvel/OALLoopbackBackend", "Orvel/Server", "Orvel/SoundFile", "Orvel/Source",
    "Orvel/VoicesBackend", "Orvel/World")) + "void f(Orvel::World& world, Corvid::ProtocolHTTP::Reply& reply) {\n"
done = {"commands": 0, "C++": 0, "scenes": 0, "pictures": 0}
faults = []
presets = json.loads((root / "CMakePresets.json").read_text())


def run(command, text=None):
    result = subprocess.run(command, cwd=work, input=text, capture_output=True, text=True,
                            errors="replace", timeout=60, check=False)
    return "" if result.returncode == 0 else f"exit code {result.returncode}: {result.stderr}"


def count(kind, what, fault):
    done[kind] += 1
    if fault:
        faults.append(f"{what}: {fault}")


def of_the_tool(words):
    if words[1] in ("serve", "play", "record"):  # for a moment
        if "--seconds" in words:
            words[words.index("--seconds") + 1] = "0.2"
        else:
            words += ["--seconds", "0.2"]
    if words[1] == "record":
        (work / words[2]).unlink(missing_ok=True)  # created by another page; existing files are not replaced
    if words[1:3] == ["key", "new"] and (work / words[3]).exists():
        return ""  # on another page
    text = None
    if "|" in words:  # into a player
        del words[words.index("|"):]
    if "<" in words:
        at = words.index("<")
        text = (work / words[at + 1]).read_text()
        del words[at:at + 2]
    return run([tool, *(path for word in words[1:]
                        for path in (sorted(work.glob(word)) if "*" in word else [word]))], text)


def of_the_build(words):
    """An error message for a preset, or its folder, that does not exist."""
    names = [words[i + 1].removeprefix("build/") for i, word in enumerate(words)
             if word in ("--preset", "--install")]
    known = {preset["name"] for key, group in presets.items() if key.endswith("Presets")
             for preset in group}
    return "" if names and known.issuperset(names) else f"there is no preset {names}"


def of_a_program(path):
    if path.startswith("build/bench/bench/"):
        path = path.removeprefix("build/bench/") + ".cpp"
    good = path.endswith(".cpp") and (root / path).exists() or os.access(root / path, os.X_OK)
    return "" if good else "there is no such program"


def command_fault(words):
    if words[0] == "orvel":
        return of_the_tool(words)
    if words[0] in ("cmake", "ctest"):
        return of_the_build(words)
    if words[0] == "oscsend":
        return run([word.replace(":9000", ":9001") for word in words])
    if words[0] == "valgrind":
        words = [word for word in words[1:] if not word.startswith("-")]
    return of_a_program(words[0])


def same_picture(*pictures):
    """Processors may round differently, by up to a pixel."""
    number = r"-?\d+(?:\.\d+)?"
    one, other = (re.sub(number, "0", picture) for picture in pictures)
    return one == other and all(abs(float(x) - float(y)) <= 1 for x, y in zip(
        *(re.findall(number, picture) for picture in pictures)))


with tempfile.TemporaryDirectory() as name:
    work = pathlib.Path(name)
    shutil.copytree(root / "examples", work / "examples")
    shutil.copytree(root / "docs/images", work / "docs/images")
    shutil.copy(root / "examples/scenes/first.json", work / "scene.json")
    for folder in ("out", "voices"):
        (work / folder).mkdir()
    faults += filter(None, [run([tool, "render", "scene.json", "voices/left.wav"])])
    shutil.copy(work / "voices/left.wav", work / "out.wav")
    server = subprocess.Popen([tool, "serve", "--backend", "silent", "--osc", "9001"], cwd=work,
                              stderr=subprocess.PIPE, text=True)
    server.stderr.readline()  # it serves
    subprocess.run([tool, "key", "new", "show.keys"], cwd=work, check=True, capture_output=True)
    keyed = subprocess.Popen([tool, "serve", "--backend", "silent", "--key", "show.keys"], cwd=work,
                             stderr=subprocess.DEVNULL)
    try:
        for page in sorted([*root.glob("*.md"), *root.glob("docs/*.md"), *root.glob("bench/*.md")]):
            text = page.read_text()
            for quoted, language, block in re.findall(
                    r"(<!-- from: \S+ -->\n+)?^```(\w*)\n(.*?)^```", text, re.S | re.M):
                where = f"{page.relative_to(root)}"
                if quoted or language in ("text", "hex", "python"):  # run_tutorial.py runs Python
                    continue
                if language == "sh":
                    for line in block.replace("\\\n", " ").splitlines():
                        for command in re.split(r"&&", line):
                            if words := shlex.split(command, comments=True):
                                count("commands", f"{where}: {command.strip()}", command_fault(words))
                elif language == "cpp":
                    count("C++", where, run([compiler, "-std=c++20", "-fsyntax-only", "-xc++", "-",
                                             *("-I" + folder for folder in includes)],
                                            PRELUDE + block + "}\n"))
                elif language == "json":
                    (work / "block.json").write_text(block)
                    count("scenes", where, run([tool, "check", "block.json"]))
                else:
                    faults.append(f"{where}: a block of the language \"{language}\": quote it, or "
                                  "say \"text\" if there is nothing to run")
    finally:
        for process in (server, keyed):
            process.terminate()
            process.communicate(timeout=10)
    for picture in sorted((root / "docs/images").glob("*.json")):
        drawn = work / (picture.stem + ".svg")
        kept = picture.with_suffix(".svg").read_text()
        command = ["render", picture, "drawn.wav", "--plot", drawn] if "RMS" in kept else [
            "plot", picture, drawn]
        fault = run([tool, *command])
        if not fault and not same_picture(kept, drawn.read_text()):
            fault = f"not what the tool draws; draw it again: orvel {command[0]} {picture.name} ..."
        count("pictures", f"docs/images/{picture.stem}.svg", fault)

faults += [f"there were no {kind}" for kind, count in done.items() if not count]
print("\n".join(faults) or ", ".join(f"{count} {kind}" for kind, count in done.items()) + ": all work")
sys.exit(1 if faults else 0)
