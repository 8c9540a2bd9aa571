#!/usr/bin/env bash
# Compares a library's exports with their list: exported_symbols.sh NM LIBRARY LIST [--update].
# Removing a symbol, or changing its parameters, breaks existing programs. A symbol outside our
# namespaces could replace a host's own, or be replaced by it.
set -euo pipefail
nm=$1 library=$2 list=$3

# Without addresses and kinds, which differ from build to build, and without the version's name, an
# absolute symbol of the linker.
symbols=$("$nm" -DC --defined-only "$library" | sed -E '/ A /d; s/^[0-9a-f]* +. //' | LC_ALL=C sort -u)
foreign=$(grep -Ev '^(((typeinfo( name)?|vtable|VTT|(non-)?virtual thunk) (for |to ))?(Orvel|Corvid|Config|Vessa|Show)::|orvel_[a-z_]+$)' <<<"$symbols" || true)
if [ -n "$foreign" ]; then
    echo "these symbols are exported and belong to none of our namespaces:"
    echo "$foreign"
    exit 1
fi
if [ "${4:-}" = --update ]; then
    echo "$symbols" >"$list"
fi
if ! diff -u "$list" <(echo "$symbols"); then
    echo
    echo "The library exports something else than $list says."
    echo "What has gone (-) breaks programs that use it: restore it, or raise SOVERSION with the next"
    echo "release. If all of it is meant to be, take it over:"
    echo "    $0 $nm $library $list --update"
    exit 1
fi
echo "$(wc -l <<<"$symbols") symbols, all our own and as listed"
