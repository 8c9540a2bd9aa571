#!/usr/bin/env bash
# Installs what is needed and runs all checks: format, warnings as errors, the tests, and the tests
# again under AddressSanitizer with UndefinedBehaviorSanitizer and under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

run() {
    local preset=$1
    shift
    echo "== $preset: build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -- --quiet
    echo "== $preset: test"
    ctest --preset "$preset" -j "$(nproc)" "$@"
}

# What runs more than one thread is where ThreadSanitizer has something to find.
run tsan -R 'Threads|Fetch|Contract|Remote'
run asan
run dev
