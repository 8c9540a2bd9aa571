#!/usr/bin/env bash
# Installs what is needed, builds Orvel, and renders a scene of recorded voices to out/demo/.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh --run-only
cmake --preset release >/dev/null
cmake --build --preset release

out=out/demo
mkdir -p "$out"
build/release/apps/orvel/orvel render examples/scenes/voices.json "$out/voices.wav" \
    --plot "$out/voices.svg"
echo
echo "Listen:  aplay $out/voices.wav     (headphones or two loudspeakers)"
echo "Look:    $out/voices.svg           (any browser)"
