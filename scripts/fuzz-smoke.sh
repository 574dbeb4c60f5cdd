#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs every libFuzzer target of a fuzz build for a short while on its seed corpus, two at a
# time. New inputs go to a scratch directory, so the committed seeds stay as they are.
# Usage: scripts/fuzz-smoke.sh [build-dir] [seconds-per-target]   (default: build/fuzz 30)
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$source_dir/build/fuzz}
seconds=${2:-30}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

run_one() {
    local binary=$1 seconds=$2 source_dir=$3 scratch=$4
    local name=${binary##*/fuzz_}
    local seeds=$source_dir/fuzz/corpus/$name
    mkdir -p "$scratch/$name" "$seeds"
    if "$binary" -max_total_time="$seconds" -print_final_stats=1 "$scratch/$name" "$seeds" \
        >"$scratch/$name.log" 2>&1; then
        echo "fuzz $name: ok ($(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' \
            "$scratch/$name.log" | grep -o '[0-9]*$') runs in ${seconds}s)"
    else
        echo "fuzz $name: FAILED"
        tail -40 "$scratch/$name.log"
        return 1
    fi
}
export -f run_one

targets=$(find "$build_dir/fuzz" -maxdepth 1 -name 'fuzz_*' -type f -executable | sort)
[[ -n "$targets" ]] || { echo "no fuzz targets under $build_dir/fuzz" >&2; exit 1; }
echo "$targets" | xargs -P 2 -I{} bash -c 'run_one "$@"' _ {} "$seconds" "$source_dir" "$scratch"
