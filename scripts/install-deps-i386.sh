#!/usr/bin/env bash
# Prepares the 32-bit (-m32) build: the host's multilib compiler, and the i386 builds of the
# libraries we link, unpacked under build/i386-deps rather than installed. Unpacking keeps the
# host's own package versions untouched: installing both architectures of a library requires
# identical versions, which a mirror does not always offer for i386 and amd64 at the same time.
# Usage: scripts/install-deps-i386.sh [deps-dir]   (default: build/i386-deps)
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
deps=${1:-$source_dir/build/i386-deps}

bash "$source_dir/scripts/install-deps.sh"

sudo=()
[[ $(id -u) -eq 0 ]] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive

if ! dpkg-query -W -f='${Status}' g++-multilib 2>/dev/null | grep -q "install ok installed"; then
    "${sudo[@]}" apt-get update -qq || echo "install-deps-i386: apt-get update reported errors" >&2
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends gcc-multilib g++-multilib
fi

# Some kernels are built without 32-bit support. Then i386 programs run under qemu's user-mode
# emulation, registered with binfmt_misc so that they start like native ones (tests that re-run
# their own executable need that); failing the registration, CMake runs tests through qemu.
probe=$(mktemp -d)
echo 'int main(void) { return 0; }' >"$probe/probe.c"
gcc -m32 -o "$probe/probe" "$probe/probe.c"
mkdir -p "$deps"
rm -f "$deps/emulator"
if ! "$probe/probe" 2>/dev/null; then
    echo "install-deps-i386: this kernel cannot run i386 programs; registering qemu-i386"
    command -v qemu-i386 >/dev/null ||
        "${sudo[@]}" apt-get install -y -qq --no-install-recommends qemu-user
    binfmt=/proc/sys/fs/binfmt_misc
    [[ -e $binfmt/register ]] ||
        "${sudo[@]}" mount -t binfmt_misc binfmt_misc "$binfmt" 2>/dev/null || true
    if [[ -e $binfmt/register && ! -e $binfmt/qemu-i386 ]]; then
        magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
        mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
        printf '%s' ":qemu-i386:M::$magic:$mask:$(command -v qemu-i386):F" |
            "${sudo[@]}" tee "$binfmt/register" >/dev/null || true
    fi
    if ! "$probe/probe" 2>/dev/null; then
        echo "install-deps-i386: no binfmt_misc; tests will run through qemu-i386"
        command -v qemu-i386 >"$deps/emulator"
    fi
fi
rm -rf "$probe"

libraries=(libssl-dev libssl3 libexpat1-dev libexpat1 libcjson-dev libcjson1
           libgtest-dev libgmock-dev)
stamp=$deps/.unpacked
if [[ -f "$stamp" ]] && [[ "$(cat "$stamp")" == "${libraries[*]}" ]]; then
    echo "install-deps-i386: i386 libraries already unpacked in $deps"
    exit 0
fi

if ! dpkg --print-foreign-architectures | grep -qx i386; then
    "${sudo[@]}" dpkg --add-architecture i386
fi
"${sudo[@]}" apt-get update -qq || echo "install-deps-i386: apt-get update reported errors" >&2

downloads=$(mktemp -d)
trap 'rm -rf "$downloads"' EXIT
(cd "$downloads" && apt-get download -qq "${libraries[@]/%/:i386}")
find "$deps" -mindepth 1 -maxdepth 1 ! -name emulator -exec rm -rf {} +
for deb in "$downloads"/*.deb; do
    dpkg-deb -x "$deb" "$deps"
    echo "install-deps-i386: unpacked $(basename "$deb")"
done
# Links that name an absolute path (libexpat.so -> /lib/...) must point into the unpacked tree.
find "$deps" -type l -lname '/*' | while read -r link; do
    ln -sfn "$deps$(readlink "$link")" "$link"
done
echo "${libraries[*]}" >"$stamp"
