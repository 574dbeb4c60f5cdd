#!/usr/bin/env bash
# Installs the build tree into a scratch prefix and builds a small C program against it twice:
# with pkg-config and with find_package. Both must run.
set -euo pipefail
build_dir=$1 scratch=$2 source_dir=$3 cmake=$4
prefix=$scratch/prefix
rm -rf "$scratch"
mkdir -p "$scratch"

"$cmake" --install "$build_dir" --prefix "$prefix" >/dev/null
libdir=$(find "$prefix" -name 'libplatform_utils.so.0' -printf '%h\n' | head -1)
[[ -n "$libdir" ]] || { echo "libplatform_utils.so.0 not installed"; exit 1; }
for lib in platform_utils platform_os; do
    soname=$(objdump -p "$libdir/lib$lib.so" | awk '/SONAME/ {print $2}')
    [[ "$soname" == "lib$lib.so.0" ]] || { echo "lib$lib.so has SONAME '$soname'"; exit 1; }
done
[[ -f "$prefix/include/platform_utils/platform_utils.h" ]] || { echo "headers missing"; exit 1; }

# pkg-config
export PKG_CONFIG_PATH=$libdir/pkgconfig
cc -std=c99 -Wall -Wextra -Werror -o "$scratch/consumer-pc" "$source_dir/consumer.c" \
   $(pkg-config --cflags --libs platform_utils)
LD_LIBRARY_PATH=$libdir "$scratch/consumer-pc"

# find_package
"$cmake" -S "$source_dir" -B "$scratch/consumer-cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
"$cmake" --build "$scratch/consumer-cmake" >/dev/null
"$scratch/consumer-cmake/consumer"
# The focused examples, each as a user would build it: pkg-config, then its own CMake project.
examples=$(dirname "$source_dir")/../examples
for example in timer_plans url_json crypto; do
    cc -std=c99 -Wall -Wextra -Werror -o "$scratch/$example-pc" "$examples/$example/$example.c" \
       $(pkg-config --cflags --libs platform_utils)
    LD_LIBRARY_PATH=$libdir "$scratch/$example-pc" >"$scratch/$example.out"
    "$cmake" -S "$examples/$example" -B "$scratch/$example-cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    "$cmake" --build "$scratch/$example-cmake" >/dev/null
    echo "example $example: ok"
done
echo "install: ok"
