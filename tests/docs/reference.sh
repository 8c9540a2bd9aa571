#!/usr/bin/env bash
# reference.sh DOXYGEN DOXYFILE: checks that Doxygen reports no problem in the public headers, and
# that every class, structure and enumeration in them is documented. Members may be
# self-explanatory.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
{
    cat "$2"
    printf '%s\n' "OUTPUT_DIRECTORY = $work" WARN_IF_UNDOCUMENTED=YES WARN_AS_ERROR=NO
} | "$1" - >"$work/log" 2>&1
said=$(grep -Ev '^$|warning: Member .* is not documented\.$' "$work/log" || true)
pages=$(find "$work/html" -name 'class*.html' -o -name 'struct*.html' | wc -l)
if [ -n "$said" ] || [ "$pages" -lt 40 ] || ! grep -q orvel_world_create "$work/html/orvel_8h.html"; then
    echo "$said"
    echo "$pages pages of classes"
    exit 1
fi
echo "$pages pages of classes, all documented"
