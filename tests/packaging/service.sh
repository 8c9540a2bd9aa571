#!/usr/bin/env bash
# service.sh CMAKE BUILD-FOLDER: checks that systemd accepts the installed service without warnings,
# that its attack surface is small, and that it is installed where systemd and its settings are
# looked for.
set -euo pipefail
cmake=$1 build=$2
command -v systemd-analyze >/dev/null || { echo "skipped: there is no systemd-analyze (package systemd)"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
"$cmake" --install "$build" --prefix "$prefix" --component tool >/dev/null
"$cmake" --install "$build" --prefix "$prefix" --component runtime >/dev/null
unit=$prefix/lib/systemd/system/orvel.service

grep -qF "ExecStart=\"$prefix/bin/orvel\" serve" "$unit"
[ -f "$(sed -n 's/^EnvironmentFile=-//p' "$unit")" ]
"$prefix/bin/orvel" serve --help >/dev/null
# Without the check of the manual page, because man may not be installed.
said=$(systemd-analyze verify --man=no "$unit" 2>&1 | grep -F orvel || true)
if [ -n "$said" ]; then
    echo "systemd-analyze verify: $said"
    exit 1
fi
# 0 is safest, 100 is unrestricted; systemd calls a service above 20 "medium".
systemd-analyze security --offline=true --threshold=20 --no-pager "$unit" | tail -n 2
