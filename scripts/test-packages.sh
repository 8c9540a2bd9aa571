#!/usr/bin/env bash
# Tests the Debian packages as users do: builds them from the source tarball, without git, checks
# them with lintian, installs them in a plain Debian 12, builds other projects against them, runs
# the tool, and removes them again. Needs root, debootstrap and Debian's mirror (or
# ORVEL_DEBIAN_MIRROR): test-packages.sh [FOLDER], where FOLDER (build/test-packages) keeps the
# plain system for the next time.
set -euo pipefail
cd "$(dirname "$0")/.."
source_tree=$PWD
work=$(realpath -m "${1:-build/test-packages}")

if [ "$(id -u)" -ne 0 ]; then
    echo "test-packages: a system of its own can only be made by root; run it with sudo" >&2
    exit 1
fi
missing=()
for command in debootstrap lintian dpkg-shlibdeps unshare; do
    command -v "$command" >/dev/null || missing+=("$command")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "test-packages: not found: ${missing[*]}; as root, run" >&2
    echo "    apt-get install debootstrap lintian dpkg-dev util-linux" >&2
    exit 1
fi
mkdir -p "$work"

echo "== the source tarball"
rm -rf "$work/tarball" "$work/source" "$work/no-git"
cmake --preset package -B "$work/configured" >"$work/configure.log"
cpack --config "$work/configured/CPackSourceConfig.cmake" -B "$work/tarball" >"$work/tarball.log"
mkdir -p "$work/source" "$work/no-git"
tar -xzf "$work"/tarball/orvel-*.tar.gz -C "$work/source" --strip-components=1
rm -rf "$work/configured"
if find "$work/source" -name .git -o -name '*.o' | grep .; then
    echo "the tarball holds what is no source" >&2
    exit 1
fi
printf '#!/bin/sh\necho "git was called" >&2\nexit 1\n' >"$work/no-git/git"
chmod 755 "$work/no-git/git"

echo "== the packages, from the tarball"
(cd "$work/source" && PATH="$work/no-git:$PATH" cmake --workflow --preset package) \
    >"$work/packages.log" 2>&1 || { tail -n 30 "$work/packages.log"; exit 1; }
if grep -F "git was called" "$work/packages.log"; then exit 1; fi
rm -rf "$work/packages"
mkdir "$work/packages"
cp "$work"/source/build/package/*.deb "$work/packages"
ls "$work/packages"
# These packages are not for upload to Debian.
lintian --allow-root --no-cfg --fail-on error,warning \
    --suppress-tags initial-upload-closes-no-bugs "$work"/packages/*.deb

echo "== a clean system"
root=$work/root
if [ ! -e "$work/base/ready" ]; then
    rm -rf "$work/base"
    debootstrap --variant=minbase bookworm "$work/base" ${ORVEL_DEBIAN_MIRROR:+"$ORVEL_DEBIAN_MIRROR"} \
        >"$work/debootstrap.log" ||
        { tail -n 5 "$work/debootstrap.log"; exit 1; }
    printf '#!/bin/sh\nexit 101\n' >"$work/base/usr/sbin/policy-rc.d" # services do not start here
    chmod 755 "$work/base/usr/sbin/policy-rc.d"
    touch "$work/base/ready"
fi
rm -rf "$root"
cp -a "$work/base" "$root"
mkdir "$root/test"
cp "$work"/packages/*.deb "$root/test"
cp -r "$source_tree/tests/install/consumer" "$source_tree/examples" "$source_tree/docs/python.md" \
    "$source_tree/tests/docs/run_tutorial.py" "$root/test"

cat >"$root/test/inside.sh" <<'INSIDE'
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive DEBCONF_NOWARNINGS=yes LC_ALL=C.UTF-8
install="apt-get install -y -qq --no-install-recommends"
cd /test
apt-get update -qq

echo "-- the tool, with what it depends on and nothing else"
library=$(basename ./liborvel[0-9]*_*.deb)
library=${library%%_*}
$install ./"$library"_*.deb ./orvel_*.deb >/dev/null
orvel --version
orvel check /usr/share/orvel/scenes/first.json
orvel render /usr/share/orvel/scenes/first.json first.wav --plot first.svg
ALSOFT_DRIVERS=null orvel serve --interface 127.0.0.1 --seconds 0.5
[ "$(orvel kinds | wc -l)" -ge 5 ]
grep -q '^ExecStart="/usr/bin/orvel" serve' /usr/lib/systemd/system/orvel.service
grep -q '^EnvironmentFile=-/etc/default/orvel$' /usr/lib/systemd/system/orvel.service
[ "$(dpkg-query -W -f '${Conffiles}' orvel | wc -w)" -eq 2 ]
for page in orvel orvel-serve; do gzip -dc "/usr/share/man/man1/$page.1.gz" | grep -q '^\.Sh NAME'; done

echo "-- other projects"
$install ./liborvel-show0.1_*.deb >/dev/null
$install ./liborvel-dev_*.deb g++ cmake ninja-build pkg-config >/dev/null
cmake -G Ninja -S consumer -B built -DEXAMPLES=/test/examples >/dev/null
cmake --build built >/dev/null
built/consumer
ALSOFT_DRIVERS=null built/show_monitor /usr/share/orvel/scenes/first.json shown.wav | grep 'http://'
[ -s shown.wav ]
c++ -std=c++20 consumer/main.cpp -o by-pkg-config $(pkg-config --cflags --libs orvel)
./by-pkg-config
$install alsa-utils >/dev/null # the recorded voices
cc -std=c11 -Wall -Wextra -pedantic -Werror examples/c_scene.c -o c_scene \
    $(pkg-config --cflags --libs orvel) -lm
./c_scene | tail -n 1
[ "$(dpkg-query -W -f '${Version}' orvel | cut -d- -f1)" = "$(built/consumer --version)" ]

echo "-- Python"
$install ./python3-orvel_*.deb >/dev/null
python3 -c 'import orvel; print(*orvel.backend_kinds())' # needs no numpy
$install python3-numpy >/dev/null
export ALSOFT_DRIVERS=null
python3 run_tutorial.py python.md
python3 examples/python_first.py
python3 examples/python_show.py /usr/share/orvel/scenes/first.json python.wav

echo "-- gone again"
dpkg --verify orvel "$library" liborvel-show0.1 liborvel-dev python3-orvel
apt-get purge -y -qq orvel "$library" liborvel-show0.1 liborvel-dev python3-orvel >/dev/null
left=$(find /usr /etc /var/lib/systemd -iname '*orvel*' -not -path '/usr/share/doc/*' 2>/dev/null || true)
if [ -n "$left" ]; then
    echo "left behind: $left" >&2
    exit 1
fi
INSIDE
# A mount namespace, which is removed when it exits.
unshare --mount --propagation private bash -c '
    set -e
    mount -t proc proc "$0/proc"
    mount -t tmpfs tmpfs "$0/tmp"
    mount --rbind /dev "$0/dev"
    cp /etc/resolv.conf "$0/etc/resolv.conf"
    chroot "$0" bash /test/inside.sh' "$root"
echo "the packages work"
