#!/usr/bin/env bash
# Installs the dependencies, builds Orvel, and renders a scene of recorded voices to out/demo/. Then
# one process plays the same scene through another, a sound server, over the loopback interface, and
# the server's output is compared with the rendering.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh --run-only
cmake --preset release >/dev/null
cmake --build --preset release

scene=examples/scenes/voices.json
out=out/demo
orvel=build/release/apps/orvel/orvel
mkdir -p "$out"
"$orvel" render "$scene" "$out/voices.wav" --plot "$out/voices.svg"

echo
echo "The same through a sound server; this takes 20 seconds:"
port=$((20000 + RANDOM % 10000)) # so that no other server of this machine is driven
server=
trap 'if [ -n "$server" ]; then kill "$server" 2>/dev/null || true; fi' EXIT
"$orvel" serve --scene "$scene" --render "$out/remote.wav" --seconds 19 \
    --interface 127.0.0.1 --port "$port" &
server=$!
for _ in 1 2 3 4 5 6 7 8 9 10; do # until it answers
    if "$orvel" servers --seconds 0.2 --interface 127.0.0.1 --port "$port" 2>/dev/null; then
        break
    fi
done
"$orvel" play "$scene" --backend "client:port=$port" --interface 127.0.0.1 --seconds 17
wait "$server"
server=
echo
scripts/compare_levels.py "$out/voices.wav" "$out/remote.wav"

echo
echo "Listen:  aplay $out/voices.wav     (headphones or two loudspeakers)"
echo "Look:    $out/voices.svg           (any browser)"
