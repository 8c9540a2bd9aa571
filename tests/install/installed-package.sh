#!/usr/bin/env bash
# installed-package.sh CMAKE BUILD-FOLDER COMPILER Installs the build into a prefix with a space in
# its name, then builds and runs a separate project against it: once through CMake's package, once
# through pkg-config, and a program in C. Runs the installed tool too.
set -euo pipefail
cmake=$1 build=$2 compiler=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/a prefix"

"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log"

if find "$prefix" -path '*/include/*' -name '*.h' | grep -vF "$prefix/include/orvel/"; then
    echo "a header was installed outside include/orvel" >&2
    exit 1
fi
if find "$prefix" -path '*/detail/*' | grep .; then
    echo "an internal header was installed" >&2
    exit 1
fi
if grep -rIlF -e "$build" "$prefix"; then
    echo "an installed file names the build folder" >&2
    exit 1
fi

"$cmake" -G Ninja -S "$here/consumer" -B "$work/consumer" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix"
"$cmake" --build "$work/consumer"
"$work/consumer/consumer"

pc=$(find "$prefix" -name orvel.pc)
export PKG_CONFIG_PATH="${pc%/orvel.pc}"
[ "$(pkg-config --modversion orvel)" = "$("$work/consumer/consumer" --version)" ]
# eval, because pkg-config quotes the spaces of the prefix for a shell.
eval "\"$compiler\" -std=c++20 \"$here/consumer/main.cpp\" -o \"$work/by-pkg-config\" \
    $(pkg-config --cflags --libs orvel)"
LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name 'liborvel.so')") "$work/by-pkg-config"

# A program in C needs no C++ compiler.
eval "${CC:-cc} -std=c11 -Wall -Wextra -pedantic -Werror \"$here/../../examples/c_scene.c\" \
    -o \"$work/in-c\" $(pkg-config --cflags --libs orvel) -lm"
LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name 'liborvel.so')") "$work/in-c" | tail -n 1

if [ -n "$(find "$prefix" -name orvel-show.pc)" ]; then
    ALSOFT_DRIVERS=null "$work/consumer/show_monitor" \
        "$here/../../examples/scenes/first.json" "$work/out.wav" >"$work/show.log" &
    until url=$(grep -o 'http://[^ ]*' "$work/show.log"); do
        jobs %% >/dev/null 2>&1 || { cat "$work/show.log"; exit 1; }
        sleep 0.05
    done
    curl -fsS --noproxy '*' --retry 3 "${url}api/scene" | grep -q '"emitters"'
    wait %%
    [ -s "$work/out.wav" ]
fi

package=$(find "$prefix" -path '*-packages/orvel/__init__.py')
if [ -n "$package" ]; then
    PYTHONPATH=${package%/orvel/__init__.py} python3 -B -c 'import orvel; orvel.World().close()'
fi

if [ -x "$prefix/bin/orvel" ]; then
    "$prefix/bin/orvel" --version
    "$prefix/bin/orvel" check "$prefix/share/orvel/scenes/first.json"
fi
echo "the installed package works"
