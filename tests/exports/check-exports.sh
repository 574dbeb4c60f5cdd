#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Compares the dynamic symbols each library defines with what its headers declare as exported
# (PU_API in include/, PLATFORM_API in platform_os.h, PLATFORM_SIM_API in platform_sim.h). Fails
# on any C++ mangled name, on anything exported but undeclared, on anything declared but missing,
# and on any simulation control (platformSim...) in the two production libraries.
set -euo pipefail
utils_lib=$1 os_lib=$2 sim_lib=$3 utils_inc=$4 os_inc=$5

# Names declared with the given export macro: the identifier before the first '(' of each
# declaration, or before the ';' for data.
declared() {
    local macro=$1; shift
    local file
    # -fpreprocessed strips comments without expanding macros or includes.
    for file in "$@"; do gcc -fpreprocessed -dD -E -P -x c "$file" 2>/dev/null; done | grep -v '^#' |
        tr '\n' ' ' | tr ';' '\n' | grep -E "(^|[^A-Za-z_])$macro " |
        sed -E -e "s/.*$macro //" -e 's/\(.*//' -e 's/\[.*//' -e 's/[^A-Za-z0-9_]+$//' \
               -e 's/.*[^A-Za-z0-9_]//' | sort -u
}

defined() {
    # AddressSanitizer adds an ODR indicator (__odr_asan.NAME) beside every exported variable.
    nm -D --defined-only "$1" | awk '$2 ~ /^[TDBRVWiu]$/ {print $3}' | sed 's/@.*//' |
        grep -v '^__odr_asan' | sort -u
}

status=0
check() {
    local label=$1 lib=$2 macro=$3; shift 3
    local want have
    want=$(declared "$macro" "$@")
    have=$(defined "$lib")
    local mangled extra missing
    mangled=$(grep '^_Z' <<<"$have" || true)
    extra=$(comm -13 <(echo "$want") <(echo "$have") | grep -v '^_Z' | grep -vE '^(_init|_fini|_edata|_end|__bss_start)$' || true)
    missing=$(comm -23 <(echo "$want") <(echo "$have") || true)
    [[ -z "$mangled" ]] || { echo "$label: C++ mangled names exported:"; echo "$mangled"; status=1; }
    [[ -z "$extra" ]] || { echo "$label: exported but not declared:"; echo "$extra"; status=1; }
    [[ -z "$missing" ]] || { echo "$label: declared but not exported:"; echo "$missing"; status=1; }
    echo "$label: $(wc -l <<<"$want") declared, $(wc -l <<<"$have") exported"
}

check libplatform_utils "$utils_lib" PU_API "$utils_inc"/*.h
check libplatform_os "$os_lib" PLATFORM_API "$os_inc"/platform_os.h
check libplatform_sim "$sim_lib" PLATFORM_SIM_API "$os_inc"/platform_sim.h
for lib in "$utils_lib" "$os_lib"; do
    if sim=$(defined "$lib" | grep '^platformSim'); then
        echo "$(basename "$lib"): simulation controls exported:"; echo "$sim"; status=1
    fi
done
exit $status
