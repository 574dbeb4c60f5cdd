#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the build tree into a scratch prefix, as a user outside the system paths would, and
# builds the C consumer and every focused example against it twice: with pkg-config and with
# find_package. Every program must start and succeed with no LD_LIBRARY_PATH: the installed
# libplatform_utils finds libplatform_os beside itself. With a static build directory as a
# With the project's source directory as a fifth argument, a static build of the libraries
# (BUILD_SHARED_LIBS=OFF, kept beside the scratch directory so reruns are incremental) is also
# installed, and the consumer and one example are linked statically both ways and run.
set -euo pipefail
build_dir=$1 scratch=$2 source_dir=$3 cmake=$4 project_dir=${5:-}
prefix=$scratch/prefix
examples=$(cd "$source_dir/../../examples" && pwd)
rm -rf "$scratch"
mkdir -p "$scratch"
unset LD_LIBRARY_PATH

"$cmake" --install "$build_dir" --prefix "$prefix" >/dev/null
libdir=$(find "$prefix" -name 'libplatform_utils.so.0' -printf '%h\n' | head -1)
[[ -n "$libdir" ]] || { echo "libplatform_utils.so.0 not installed"; exit 1; }
for lib in platform_utils platform_os platform_sim; do
    soname=$(objdump -p "$libdir/lib$lib.so" | awk '/SONAME/ {print $2}')
    [[ "$soname" == "lib$lib.so.0" ]] || { echo "lib$lib.so has SONAME '$soname'"; exit 1; }
done
# The production libraries carry no simulation control: that is libplatform_sim's alone.
for lib in platform_utils platform_os; do
    if nm -D --defined-only "$libdir/lib$lib.so.0" | grep -w 'platformSim[A-Za-z]*'; then
        echo "lib$lib.so.0 exports simulation controls"; exit 1
    fi
done
for header in platform_utils.h platform_sim.h pu_version.h; do
    [[ -f "$prefix/include/platform_utils/$header" ]] || { echo "$header missing"; exit 1; }
done

# Each program as a user builds it: with pkg-config (the run path to the custom prefix given
# by hand, as for any library outside the system paths), then as its own CMake project.
# Usage: build_both NAME SOURCE-DIR INSTALL-PREFIX [static|shared [PKG-CONFIG-MODULE]]
build_both() {
    local name=$1 dir=$2 install=$3 kind=${4:-shared} module=${5:-platform_utils}
    local out=$scratch/$kind/$name
    mkdir -p "$out"
    local pc_libs
    if [[ $kind == static ]]; then
        pc_libs=$(PKG_CONFIG_PATH=$install/lib/pkgconfig pkg-config --static --libs "$module")
    else
        pc_libs="$(PKG_CONFIG_PATH=$install/lib/pkgconfig pkg-config --libs "$module") \
                 -Wl,-rpath,$install/lib"
    fi
    # shellcheck disable=SC2046,SC2086
    cc -std=c99 -Wall -Wextra -Werror -o "$out/$name-pc" "$dir/$name.c" \
       $(PKG_CONFIG_PATH=$install/lib/pkgconfig pkg-config --cflags "$module") $pc_libs
    "$cmake" -S "$dir" -B "$out/cmake" -DCMAKE_PREFIX_PATH="$install" >/dev/null
    "$cmake" --build "$out/cmake" >/dev/null
    local program
    for program in "$out/$name-pc" "$out/cmake/$name"; do
        if [[ $kind == static ]] && objdump -p "$program" | grep -q 'NEEDED.*libplatform_'; then
            echo "$program links the shared libraries"
            return 1
        fi
        "$program" >"$program.out" || { cat "$program.out"; echo "$program failed"; return 1; }
    done
    echo "$kind $name: built and ran both ways"
}

build_both consumer "$source_dir" "$prefix"
for example in timer_plans url_json crypto; do
    build_both "$example" "$examples/$example" "$prefix"
done
# The simulation library drives the example test's timers deterministically.
build_both sim_test "$examples/sim_test" "$prefix" shared platform_sim

if [[ -n "$project_dir" ]]; then
    static_build=$scratch-static-build
    "$cmake" -S "$project_dir" -B "$static_build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DBUILD_SHARED_LIBS=OFF -DPU_BUILD_TESTS=OFF -DPU_BUILD_EXAMPLES=OFF >/dev/null
    "$cmake" --build "$static_build" >/dev/null
    "$cmake" --install "$static_build" --prefix "$scratch/static-prefix" >/dev/null
    build_both consumer "$source_dir" "$scratch/static-prefix" static
    build_both crypto "$examples/crypto" "$scratch/static-prefix" static
    build_both sim_test "$examples/sim_test" "$scratch/static-prefix" static platform_sim
fi
echo "install: ok"
