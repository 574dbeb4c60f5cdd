#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian packages from the `deb` preset (or a given build directory configured with
# PU_PACKAGING=ON), runs lintian on them (any error or warning fails; overrides only with a
# reason, in cmake/debian/), installs them on this machine, builds the install test's C program
# against the installed files (pkg-config and find_package), runs it, and removes the packages
# again. Needs root or sudo, and lintian (scripts/install-deps.sh --all).
# Usage: scripts/check-packages.sh [build-dir]   (default: build/deb, configured and built here)
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
if [[ -n ${1:-} ]]; then
    build_dir=$(cd "$1" && pwd)
else
    (cd "$source_dir" && cmake --preset deb >/dev/null && cmake --build --preset deb >/dev/null)
    build_dir=$source_dir/build/deb
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

sudo=()
[[ $(id -u) -eq 0 ]] || sudo=(sudo)

(cd "$build_dir" && cpack -G DEB -B "$scratch/debs" >/dev/null)
runtime=$(ls "$scratch"/debs/libplatform-utils0_*.deb)
dev=$(ls "$scratch"/debs/libplatform-utils-dev_*.deb)
for deb in "$runtime" "$dev"; do
    echo "package: $(basename "$deb")"
    dpkg-deb -f "$deb" Depends | sed 's/^/  depends: /'
done

# Info and pedantic tags are advice; errors and warnings fail.
lintian --fail-on error,warning --display-level '>=warning' --tag-display-limit 0 \
    "$runtime" "$dev"
echo "lintian: clean"

remove_packages() { "${sudo[@]}" dpkg -P libplatform-utils-dev libplatform-utils0 >/dev/null; }
"${sudo[@]}" dpkg -i "$runtime" "$dev" >/dev/null
trap 'remove_packages; rm -rf "$scratch"' EXIT

consumer=$source_dir/tests/install
cc -std=c99 -Wall -Wextra -Werror -o "$scratch/consumer-pc" "$consumer/consumer.c" \
   $(pkg-config --cflags --libs platform_utils)
"$scratch/consumer-pc"
cmake -S "$consumer" -B "$scratch/consumer-cmake" >/dev/null
cmake --build "$scratch/consumer-cmake" >/dev/null
"$scratch/consumer-cmake/consumer"
echo "packages: ok"
