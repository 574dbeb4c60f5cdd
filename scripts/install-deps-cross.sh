#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Prepares a 32-bit build for i386 or armhf: Debian's cross toolchain and qemu-user, and that
# architecture's builds of the libraries we link, unpacked under build/<arch>-deps rather than
# installed. Unpacking keeps the host's own package versions untouched: installing two
# architectures of a library requires identical versions, which a mirror does not always offer
# at the same time. Foreign programs start through qemu registered with binfmt_misc (tests that
# re-run their own executable need that); failing the registration, CMake runs tests through
# qemu.
# Usage: scripts/install-deps-cross.sh i386|armhf [deps-dir]   (default: build/<arch>-deps)
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
arch=${1:?usage: install-deps-cross.sh i386|armhf [deps-dir]}
deps=${2:-$source_dir/build/$arch-deps}

case $arch in
i386)
    compiler=i686-linux-gnu loader=ld-linux.so.2 qemu=qemu-i386
    magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
    mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    ;;
armhf)
    compiler=arm-linux-gnueabihf loader=ld-linux-armhf.so.3 qemu=qemu-arm
    magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
    mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    ;;
*) echo "install-deps-cross: unknown architecture $arch" >&2; exit 1 ;;
esac

bash "$source_dir/scripts/install-deps.sh"

sudo=()
[[ $(id -u) -eq 0 ]] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
tools=("g++-$compiler" qemu-user)
missing=()
for pkg in "${tools[@]}"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" ||
        missing+=("$pkg")
done
if ((${#missing[@]})); then
    "${sudo[@]}" apt-get update -qq || echo "install-deps-cross: apt-get update reported errors" >&2
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The probe is linked the way the build links its programs: the cross C library's loader.
probe=$(mktemp -d)
echo 'int main(void) { return 0; }' >"$probe/probe.c"
"$compiler-gcc" -o "$probe/probe" "$probe/probe.c" \
    -Wl,--dynamic-linker=/usr/$compiler/lib/$loader -Wl,-rpath,/usr/$compiler/lib
mkdir -p "$deps"
rm -f "$deps/emulator"
if ! "$probe/probe" 2>/dev/null; then
    binfmt=/proc/sys/fs/binfmt_misc
    [[ -e $binfmt/register ]] ||
        "${sudo[@]}" mount -t binfmt_misc binfmt_misc "$binfmt" 2>/dev/null || true
    if [[ -e $binfmt/register && ! -e $binfmt/$qemu ]]; then
        echo "install-deps-cross: registering $qemu with binfmt_misc"
        printf '%s' ":$qemu:M::$magic:$mask:$(command -v "$qemu"):F" |
            "${sudo[@]}" tee "$binfmt/register" >/dev/null || true
    fi
    if ! "$probe/probe" 2>/dev/null; then
        echo "install-deps-cross: no binfmt_misc; tests will run through $qemu"
        command -v "$qemu" >"$deps/emulator"
    fi
fi
rm -rf "$probe"

libraries=(libssl-dev libssl3 libexpat1-dev libexpat1 libcjson-dev libcjson1
           libgtest-dev libgmock-dev zlib1g-dev zlib1g)
common=(uthash-dev) # architecture-independent headers
stamp=$deps/.unpacked
if [[ -f "$stamp" ]] && [[ "$(cat "$stamp")" == "${libraries[*]} ${common[*]}" ]]; then
    echo "install-deps-cross: $arch libraries already unpacked in $deps"
    exit 0
fi

if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
    "${sudo[@]}" dpkg --add-architecture "$arch"
fi
"${sudo[@]}" apt-get update -qq || echo "install-deps-cross: apt-get update reported errors" >&2

downloads=$(mktemp -d)
trap 'rm -rf "$downloads"' EXIT
(cd "$downloads" && apt-get download -qq "${libraries[@]/%/:$arch}" "${common[@]}")
find "$deps" -mindepth 1 -maxdepth 1 ! -name emulator -exec rm -rf {} +
for deb in "$downloads"/*.deb; do
    dpkg-deb -x "$deb" "$deps"
    echo "install-deps-cross: unpacked $(basename "$deb")"
done
# Links that name an absolute path (libexpat.so -> /lib/...) must point into the unpacked tree.
find "$deps" -type l -lname '/*' | while read -r link; do
    ln -sfn "$deps$(readlink "$link")" "$link"
done
echo "${libraries[*]} ${common[*]}" >"$stamp"
