"""check_man.py TOOL FOLDER: every command has a manual page, which has exactly the options of the
command's --help, and is well-formed as far as mandoc can tell. The tool takes the parameters of back
ends that the page on them names, and no others."""

import pathlib
import re
import shutil
import subprocess
import sys

tool, folder = sys.argv[1], pathlib.Path(sys.argv[2])
faults = []


def help_of(*command):
    return subprocess.run([tool, *command, "--help"], capture_output=True, text=True, timeout=30,
                          check=True).stdout


commands = re.findall(r"^  (\w+) ", help_of().partition("Subcommands:")[2], re.M)
pages = {page.stem: page.read_text() for page in folder.glob("*.1")}
wanted = {"orvel": []} | {"orvel-" + command: [command] for command in commands}
for name in sorted(wanted.keys() ^ pages.keys()):
    faults.append(f"{name}: {'has no page' if name in wanted else 'a page of no command'}")
options = 0
for name in sorted(wanted.keys() & pages.keys()):
    told = set(re.findall(r"^  (?:-\w,)?(--[\w-]+)", help_of(*wanted[name]), re.M))
    written = {f"--{option}" for line in re.findall(r"^\.It (Fl.*)", pages[name], re.M)
               for option in re.findall(r"Fl \\-([\w-]+)", line)}
    faults += [f"{name}: {option} stands only in {'--help' if option in told else 'the page'}"
               for option in sorted(told ^ written)]
    options += len(told & written)
faults += [f"orvel: the page does not name {command}" for command in commands
           if f".It Cm {command}\n" not in pages.get("orvel", "")]
listed = subprocess.run([tool, "kinds", "--verbose"], capture_output=True, text=True, check=True).stdout
taken = set()
for line in listed.splitlines():
    if line.startswith("    "):
        name, values, usual = re.split(r"  +", line.strip())[:3]
        numbers = re.search(r"\d+ to \d+", values)
        if name != "labels":
            taken.add((kind, name, usual.replace("empty", "none"), numbers[0] if numbers else ""))
    else:
        kind = line.split()[0]
documented = set()
for kind, name, usual, meaning in re.findall(
        r"^\| (\w+)(?: \(of the tool\))? \| `(\w+)` \| ([^|]*) \| (.*) \|",
        (folder.parent / "parameters.md").read_text(), re.M):
    numbers = re.search(r"\d+ to \d+", meaning)
    usual = re.split("[;,]", usual)[0].replace("every one", "none").replace("empty", "none")
    documented.add((kind, name, usual, numbers[0] if numbers else ""))
faults += [f"{kind}: {name} ({usual}, {numbers}) stands only in "
           f"{'`orvel kinds --verbose`' if (kind, name, usual, numbers) in taken else 'parameters.md'}"
           for kind, name, usual, numbers in sorted(taken ^ documented)]
if shutil.which("mandoc"):
    lint = subprocess.run(["mandoc", "-Tlint", "-Wwarning", *sorted(folder.glob("*.1"))],
                          capture_output=True, text=True, timeout=30, check=False)
    faults += lint.stdout.splitlines()
if len(commands) < 5 or not options:
    faults.append("next to nothing was checked")
print("\n".join(faults) or f"{len(pages)} pages, {options} options: as --help tells")
sys.exit(1 if faults else 0)
