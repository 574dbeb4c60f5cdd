# SPDX-License-Identifier: MIT
# 32-bit x86 build on an x86_64 Debian host with Debian's i686-linux-gnu cross toolchain (the
# multilib gcc conflicts with the ARM cross toolchain), linking the i386 libraries that
# scripts/install-deps-i386.sh unpacks under build/i386-deps.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(PU_CROSS_COMPILER i686-linux-gnu)
set(PU_CROSS_MULTIARCH i386-linux-gnu)
set(PU_CROSS_LOADER ld-linux.so.2)
set(PU_CROSS_NAME i386)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-cross.cmake)
