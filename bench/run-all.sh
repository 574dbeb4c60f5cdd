#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the bench preset and runs every benchmark program once, one after the other, each
# printing its ratio summary after its runs. The whole output goes to build/bench/report.txt.
# Usage: bench/run-all.sh [Google Benchmark flags]
#   (default: --benchmark_min_time=0.2 --benchmark_repetitions=3
#    --benchmark_enable_random_interleaving=true: each ratio from the medians of three runs of
#    each side, taken in shuffled order, so a slow phase of a shared machine hits both sides)
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset bench >/dev/null
cmake --build --preset bench >/dev/null
flags=("$@")
((${#flags[@]})) || flags=(--benchmark_min_time=0.2 --benchmark_repetitions=3
    --benchmark_enable_random_interleaving=true)
report=build/bench/report.txt
{
    echo "# $(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //')"
    for program in build/bench/bench/bench_*; do
        # The maps run one family and size per process: a map's memory comes back from the C
        # library's heap in a state that earlier runs left, and that state, not the map, would
        # otherwise decide the later runs' page faults.
        # The memory counts build each object set once and keep it: no repetitions there.
        filters=("")
        own=("${flags[@]}")
        case $(basename "$program") in
        bench_hash) filters=(--benchmark_filter=^BM_ --benchmark_filter=^{str,str-nocase,int}-{1k,100k}/) ;;
        bench_memory) own=() ;;
        esac
        for filter in "${filters[@]}"; do
            echo
            echo "## $(basename "$program") ${own[*]} $filter"
            "$program" "${own[@]}" ${filter:+"$filter"} 2>&1
        done
    done
} | tee "$report"
