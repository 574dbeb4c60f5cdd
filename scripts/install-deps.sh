#!/usr/bin/env bash
# Installs the Debian packages the build, tests, benchmarks and fuzz targets need.
# Only missing packages are installed, so running it again is cheap and harmless.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  libssl-dev libexpat1-dev libcjson-dev uthash-dev
  libgtest-dev libgmock-dev libbenchmark-dev libcsv-dev libglib2.0-dev libuv1-dev
  libcurl4-openssl-dev liburiparser-dev zlib1g-dev
  clang-14 libclang-rt-14-dev clang-format
  valgrind curl openssl python3
)

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
