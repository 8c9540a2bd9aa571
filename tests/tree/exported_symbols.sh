#!/usr/bin/env bash
# Checks that a library exports names of its own namespaces only: exported_symbols.sh NM LIBRARY.
# Anything else could stand in for a host's own functions, or be replaced by them.
set -euo pipefail

symbols=$("$1" -DC --defined-only "$2" | sed -E 's/^[0-9a-f]* +//')
# Linkers list the version's name itself as an absolute symbol.
foreign=$(grep -Ev '^(. ((typeinfo( name)?|vtable|VTT|guard variable|(non-)?virtual thunk) (for |to ))?(Orvel|Corvid|Config|Vessa)::|A )' <<<"$symbols" || true)
if [ -n "$foreign" ]; then
    echo "these symbols are exported and belong to none of our namespaces:"
    echo "$foreign"
    exit 1
fi
# The library is of no use without these; their absence means that nothing was looked at.
for name in 'T Orvel::World::World()' 'vtable for Orvel::Backend' 'Config::ParamLine::setParamLine' \
    'typeinfo for Corvid::URLImpl::Exception'; do
    grep -qF "$name" <<<"$symbols" || { echo "\"$name\" is not exported"; exit 1; }
done
echo "$(wc -l <<<"$symbols") symbols, all our own"
