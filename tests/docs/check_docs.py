"""check_docs.py SOURCE-TREE: checks the documentation against the tree.

Every link to a file must lead to one. A code block that follows a line
`<!-- from: FILE -->` must stand in that file as it is, indentation aside.
"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
faults = []
quotes = 0
links = 0


def squeezed(text):
    return [line.strip() for line in text.splitlines() if line.strip()]


def contains(lines, part):
    return any(lines[i : i + len(part)] == part for i in range(len(lines) - len(part) + 1))


pages = sorted([*root.glob("*.md"), *root.glob("docs/**/*.md"), *root.glob("bench/*.md")])
for page in pages:
    text = page.read_text()
    name = page.relative_to(root)
    for source, block in re.findall(r"<!-- from: (\S+) -->\n+```\w*\n(.*?)```", text, re.S):
        quotes += 1
        if not contains(squeezed((root / source).read_text()), squeezed(block)):
            faults.append(f"{name}: the block quoted from {source} does not stand there")
    for target in re.findall(r"\]\(([^)#\s]+)(?:#[^)]*)?\)", re.sub(r"```.*?```", "", text, flags=re.S)):
        if "://" in target:
            continue
        links += 1
        if not (page.parent / target).exists():
            faults.append(f"{name}: the link to {target} leads nowhere")

# The version stands in CMakeLists.txt; a released one has its section in the changelog.
version = re.search(r"project\(Orvel\s+VERSION (\d+\.\d+)(\.\d+)", (root / "CMakeLists.txt").read_text())
sections = re.findall(r"^## ([^\s,]+)", (root / "CHANGELOG.md").read_text(), re.M)
if sections[:2] != ["Unreleased", "".join(version.groups())]:
    faults.append(f"CHANGELOG.md: expected the sections Unreleased and {''.join(version.groups())} on top")
for page in [*pages, *root.glob("examples/*.py"), root / "packaging/CMakeLists.txt"]:
    for named in re.findall(r"liborvel(?:\.so\.)?(\d[\d.]*\d|\d)", page.read_text()):
        if named != version[1] and page.name != "CHANGELOG.md":
            faults.append(f"{page.relative_to(root)}: names the library of version {named}")

if not pages or not quotes or not links:
    faults.append("nothing was checked")
print("\n".join(faults) or f"{len(pages)} pages, {quotes} quotes, {links} links: all stand")
sys.exit(1 if faults else 0)
