#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Resident memory of an idle process that has started every family (scripts/idle-rss.c), built
# against a build tree's shared libraries, and the stripped sizes of both libraries.
# Usage: scripts/idle-rss.sh [build-dir]   (default: build/default)
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=$(cd "${1:-$source_dir/build/default}" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for lib in src/libplatform_utils.so.0 platform/libplatform_os.so.0; do
    strip -o "$scratch/stripped" "$build_dir/$lib"
    echo "$(basename "$lib"): $(stat -c %s "$scratch/stripped") bytes stripped"
done

cc -std=c99 -O2 -o "$scratch/idle" "$source_dir/scripts/idle-rss.c" \
   -I"$source_dir/include" -I"$build_dir/include" -I"$source_dir/platform/include" \
   $(pkg-config --cflags libcjson) -L"$build_dir/src" -L"$build_dir/platform" \
   -Wl,-rpath,"$build_dir/src:$build_dir/platform" -lplatform_utils -lplatform_os
"$scratch/idle" >"$scratch/out" &
pid=$!
for _ in $(seq 50); do
    grep -q ready "$scratch/out" 2>/dev/null && break
    sleep 0.1
done
sleep 1 # let the started tasks settle
grep -E 'VmRSS|RssAnon|RssFile' /proc/$pid/status
kill "$pid"
wait "$pid" 2>/dev/null || true
