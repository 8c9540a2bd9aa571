#!/usr/bin/env bash
# Runs clang-tidy over the library, the tool and the examples. Prints the findings and fails if there are
# any. A file with a known fault comes first: if clang-tidy does not report that, its checks are off.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/tidy
cmake --preset tidy >/dev/null

if clang-tidy --quiet --warnings-as-errors='*' tests/tree/tidy_fault.cpp -- -std=c++20 >/dev/null 2>&1; then
    echo "tidy: clang-tidy has not found the fault in tests/tree/tidy_fault.cpp" >&2
    exit 1
fi

# The files of a target are read together, in the batches of the unity build: most of the time goes into
# the headers that they share. The static analyser's shallow mode takes a fifth of the time.
arguments=(-p "$build" --quiet --warnings-as-errors='*' --checks=-bugprone-suspicious-include)
for option in -analyzer-config mode=shallow; do
    arguments+=(--extra-arg=-Xclang "--extra-arg=$option")
done
log=$(mktemp)
trap 'rm -f "$log"' EXIT
failed=0
python3 - "$build/compile_commands.json" <<'PY' |
import json
import os
import sys

ours = ("Config", "Corvid", "Orvel", "Show", "Vessa", "apps", "examples")
with open(sys.argv[1], encoding="utf-8") as file:
    files = {os.path.relpath(entry["file"]) for entry in json.load(file)}
print("\n".join(sorted(f for f in files if f.split(os.sep)[0] in ours or "/Unity/" in f)))
PY
    xargs -P "$(nproc)" -n 1 clang-tidy "${arguments[@]}" >"$log" 2>/dev/null || failed=1
sort -u "$log" | grep -E ': (warning|error): ' || true
if [ "$failed" -ne 0 ]; then
    echo "tidy: clang-tidy has findings, see above" >&2
    exit 1
fi
echo "tidy: clang-tidy has no findings"
