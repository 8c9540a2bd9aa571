#!/usr/bin/env bash
# Installs the dependencies and runs all checks: format, warnings as errors, the tests, the tests
# again under AddressSanitizer with UndefinedBehaviorSanitizer, the threaded tests under
# ThreadSanitizer, and each fuzz target for 30 seconds.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

build() {
    echo "== $1: build"
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" -- --quiet
}

run() {
    local preset=$1
    shift
    build "$preset"
    echo "== $preset: test"
    ctest --preset "$preset" -j "$(nproc)" "$@"
}

fuzz() {
    build fuzz
    local found target
    found=$(mktemp -d)
    for target in build/fuzz/fuzz/fuzz_*; do
        mkdir "$found/${target##*/}"
        echo "${target##*/}"
    done | xargs -P "$(nproc)" -I{} sh -c '
        echo "== fuzz: {}"
        "build/fuzz/fuzz/{}" -max_total_time=30 -artifact_prefix="$0/{}/" -verbosity=0 \
            "$0/{}" "fuzz/seeds/$(echo "{}" | cut -c6-)" >"$0/{}.log" 2>&1 ||
            { cat "$0/{}.log"; exit 255; }' "$found"
    rm -rf "$found"
}

# ThreadSanitizer only runs the tests with several threads.
run tsan -R 'Threads|Contract|Net|Client|Server' -E WebServer
fuzz
run asan
run dev
