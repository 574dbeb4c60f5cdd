#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs every GoogleTest suite of a plain (unsanitised) build under valgrind's leak checker with
# the project's suppressions; fails if any suite leaks (definitely or possibly lost) or errs.
# Usage: scripts/valgrind-suite.sh [build-dir]   (default: build/default)
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$source_dir/build/default}
logs=${VALGRIND_LOGS:-$build_dir/valgrind}
mkdir -p "$logs"

status=0
for suite in "$build_dir"/tests/test_*; do
    [[ -x "$suite" && -f "$suite" ]] || continue
    name=$(basename "$suite")
    if valgrind --quiet --leak-check=full --show-leak-kinds=definite,possible \
        --errors-for-leak-kinds=definite,possible --error-exitcode=99 \
        --suppressions="$source_dir/tests/valgrind.supp" --num-callers=40 \
        --log-file="$logs/$name.log" "$suite" --gtest_brief=1 >"$logs/$name.out" 2>&1; then
        echo "valgrind $name: clean"
    else
        echo "valgrind $name: FAILED (see $logs/$name.log)"
        status=1
    fi
done
exit $status
