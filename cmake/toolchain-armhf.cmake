# SPDX-License-Identifier: MIT
# 32-bit ARM (hard float) build with Debian's arm-linux-gnueabihf cross toolchain, linking the
# armhf libraries that scripts/install-deps-armhf.sh unpacks under build/armhf-deps. Tests run
# under qemu-arm.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(PU_CROSS_COMPILER arm-linux-gnueabihf)
set(PU_CROSS_MULTIARCH arm-linux-gnueabihf)
set(PU_CROSS_LOADER ld-linux-armhf.so.3)
set(PU_CROSS_NAME armhf)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-cross.cmake)
