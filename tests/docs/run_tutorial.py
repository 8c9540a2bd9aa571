"""run_tutorial.py PAGE: runs a page's Python blocks in order, as one program in an empty folder.

Quoted blocks, which follow a line `<!-- from: FILE -->`, are left out. A line `print(...)  # text` must
print that text.
"""
import contextlib
import io
import os
import pathlib
import re
import sys
import tempfile

page = pathlib.Path(sys.argv[1]).resolve()
text = page.read_text()
program = ["" for line in text.splitlines()]  # the lines keep their numbers
for block in re.finditer(r"(?<!-->\n)^```python\n(.*?)^```", text, re.S | re.M):
    first = text[:block.start(1)].count("\n")
    lines = block[1].splitlines()
    program[first:first + len(lines)] = lines
expected = [match[1] for line in program if (match := re.search(r"^\s*print\(.*\)  # (.*)$", line))]

printed = io.StringIO()
with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(printed):
    os.chdir(folder)
    exec(compile("\n".join(program), str(page), "exec"), {"__name__": "__main__"})
    os.chdir("/")
found = printed.getvalue().splitlines()
if not expected or found != expected:
    sys.exit(f"{page.name} prints\n  " + "\n  ".join(found) + "\nexpected\n  " + "\n  ".join(expected))
print(f"{len(expected)} results of {page.name}, all as written")
