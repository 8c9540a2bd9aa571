#!/usr/bin/env bash
# Checks the format of every tracked C++ file below the given folder. Exits with 77 if it cannot.
set -euo pipefail
cd "$1"

skip() {
    echo "SKIPPED: $1"
    exit 77
}
command -v clang-format >/dev/null || skip "clang-format is not installed"
command -v git >/dev/null || skip "git is not installed"
git rev-parse --is-inside-work-tree >/dev/null 2>&1 || skip "no git work tree"

mapfile -d '' files < <(git ls-files -z -- '*.cpp' '*.h')
existing=()
for file in "${files[@]}"; do
    [ ! -f "$file" ] || existing+=("$file")
done
[ ${#existing[@]} -gt 0 ] || skip "no C++ file is tracked here"
clang-format --dry-run -Werror "${existing[@]}"
echo "${#existing[@]} files are in order"
