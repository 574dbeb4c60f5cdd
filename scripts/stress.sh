#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Long multi-threaded stress run of the timers, plans and input events
# (tests/stress/stress.cpp), outside the test suite.
#   scripts/stress.sh <minutes>               half the time under TSan, half under ASan + UBSan;
#                                             configures and builds build/tsan, build/asan if
#                                             needed
#   scripts/stress.sh <build-dir> <minutes>   all the time with that build's stress_threads
# Minutes may be fractional (0.5). Exit status non-zero on any violation or sanitizer report.
# STRESS_LOG=1 also shows the library's own log lines (counted, not shown, by default).
set -euo pipefail
usage() { echo "usage: $0 [<build-dir>] <minutes>" >&2; exit 2; }
case $# in
1) build_dirs=(build/tsan build/asan); minutes=$1 ;;
2) [[ -d $1 ]] || { echo "no build directory $1" >&2; exit 1; }
   build_dirs=("$(cd "$1" && pwd)"); minutes=$2 ;;
*) usage ;;
esac
source_dir=$(cd "$(dirname "$0")/.." && pwd)
cd "$source_dir"
[[ $minutes =~ ^[0-9]+([.][0-9]+)?$ ]] || usage
total=$(awk -v m="$minutes" 'BEGIN { printf "%d", m * 60 }')
seconds=$(( total / ${#build_dirs[@]} ))
(( seconds >= 1 )) || usage

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:strict_string_checks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}:suppressions=$source_dir/tests/stress/tsan.supp"

for dir in "${build_dirs[@]}"; do
    if (( $# == 1 )); then
        preset=${dir#build/}
        [[ -f $dir/build.ninja ]] || cmake --preset "$preset"
        cmake --build --preset "$preset" --target stress_threads
    fi
    binary=$dir/tests/stress_threads
    [[ -x $binary ]] || { echo "no $binary (build the stress_threads target)" >&2; exit 1; }
    echo "stress: $binary for ${seconds}s"
    "$binary" "$seconds"
done
