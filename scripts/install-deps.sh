#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian 12 packages the build needs. By default only what the README's two
# commands need (build the library, the tour and every test suite, with the openssl and curl
# commands the interoperation tests call and the fuzz targets' input header, as the suites replay
# the seed corpora); with --all also what the other checks need: clang
# and its sanitizer run-times for the fuzz targets, valgrind, the comparison libraries of the
# benchmarks (GLib, libuv, libcurl, uriparser, libcsv, Google Benchmark), clang-format, lintian
# for the packages and qemu-user for the 32-bit suites.
# Only missing packages are installed, so running it again is cheap and harmless.
# Usage: scripts/install-deps.sh [--all]
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libssl-dev libexpat1-dev libcjson-dev uthash-dev zlib1g-dev
  libgtest-dev libgmock-dev libclang-rt-14-dev
  curl openssl
)
if [[ ${1:-} == --all ]]; then
  packages+=(
    git ccache clang-14 libclang-rt-14-dev clang-format valgrind python3
    libbenchmark-dev libcsv-dev libglib2.0-dev libuv1-dev libcurl4-openssl-dev liburiparser-dev
    lintian dpkg-dev file qemu-user
  )
elif [[ -n ${1:-} ]]; then
  echo "usage: $0 [--all]" >&2
  exit 2
fi

missing=()
for pkg in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$pkg")
done

if ((${#missing[@]} == 0)); then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

sudo=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo=(sudo)
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# A mirror caught mid-sync can fail one index (say a foreign architecture's) and still serve
# everything we ask for, so a failed update is only a warning.
"${sudo[@]}" apt-get update -qq || echo "install-deps: apt-get update reported errors; trying anyway" >&2
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
