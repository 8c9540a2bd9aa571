#!/usr/bin/env bash
# Installs everything needed to build, test and run Orvel, from Debian 12's packages. Installed
# packages are not changed. --run-only omits the packages for tests and checks.
set -euo pipefail

build=(
    build-essential ca-certificates cmake git ninja-build pkg-config
    libopenal-dev libalut-dev libcurl4-openssl-dev libssl-dev libboost-dev
    libcli11-dev nlohmann-json3-dev libsndfile1-dev liblo-dev libmysofa-dev libavahi-client-dev
    alsa-utils # the recorded voices of the demo
    python3    # the demo's comparison of levels
)
checks=(
    ccache clang clang-format clang-tidy libclang-rt-14-dev
    openssl                  # a foreign client of sealed connections
    libgtest-dev libbenchmark-dev libzmq3-dev
    libglm-dev               # an example
    liblo-tools # a client of Open Sound Control
    avahi-daemon avahi-utils dbus # announcements, in a network of their own
    binutils iproute2 librsvg2-bin python3-jsonschema
    mypy python3-numpy        # the package for Python
    python3-netcdf4           # reads a data set for headphones
    chromium                  # what looks at the monitor
    pulseaudio pulseaudio-utils jackd2 jack-capture # sound servers without hardware
    snapserver snapclient     # what takes the mix to other rooms
    doxygen mandoc systemd    # documentation and service
)

packages=("${build[@]}")
case "${1:-}" in
'') packages+=("${checks[@]}") ;;
--run-only) ;;
*)
    echo "usage: $0 [--run-only]" >&2
    exit 2
    ;;
esac

missing=()
for package in "${packages[@]}"; do
    state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$state" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "install-deps: these packages are missing, and there is no sudo; as root, run" >&2
        echo "    apt-get install ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi
echo "install-deps: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
