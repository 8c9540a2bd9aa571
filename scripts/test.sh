#!/usr/bin/env bash
# Installs the dependencies and runs all checks: clang-tidy, the tests of threads under ThreadSanitizer, all
# tests under AddressSanitizer with UndefinedBehaviorSanitizer, each fuzz target for 15 seconds, and all
# tests of the optimised build. The format is one of the tests; warnings are errors throughout.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

# stage NAME COMMAND...: runs a stage and reports what it took.
stage() {
    echo "== $1"
    local TIMEFORMAT="== $1: %0R s, %0U s of processor time and %0S s in the kernel"
    time "${@:2}"
}

build() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" -- --quiet "${@:2}"
}

run() {
    ctest --preset "$1" -j "$(nproc)" "${@:2}"
}

fuzz() {
    local found target
    found=$(mktemp -d)
    for target in build/asan/fuzz/fuzz_*; do
        mkdir "$found/${target##*/}"
        echo "${target##*/}"
    done | xargs -P "$(nproc)" -I{} sh -c '
        "build/asan/fuzz/{}" -max_total_time=15 -artifact_prefix="$0/{}/" -verbosity=0 \
            "$0/{}" "fuzz/seeds/$(echo "{}" | cut -c6-)" >"$0/{}.log" 2>&1 ||
            { echo "{}"; cat "$0/{}.log"; exit 255; }' "$found"
    rm -rf "$found"
}

stage "clang-tidy" scripts/tidy.sh
# ThreadSanitizer only runs the tests with several threads.
stage "tsan: build" build tsan corvid_net_tests orvel_contract_tests orvel_log_tests orvel_tests
stage "tsan: test" run tsan -R 'Threads|Contract|Net|Client|Server'
stage "asan: build" build asan
# Checks of headers, pages and suites of others find nothing more in this tree than in dev.
stage "asan: test" run asan -E 'PublicHeadersAlone|Outside|Reference|Documentation$|Format'
stage "asan: fuzz" fuzz
stage "dev: build" build dev
echo "== dev: test"
run dev
