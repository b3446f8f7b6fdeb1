# SPDX-License-Identifier: Apache-2.0
# Builds for the architecture that ZELMAR_TARGET names (arm-linux-gnueabihf) with Debian's cross compiler, against the
# sysroot that tools/sysroot makes, and runs what it built under qemu.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZELMAR_TARGET)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${ZELMAR_TARGET})
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER ${ZELMAR_TARGET}-g++)
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${ZELMAR_TARGET})
cmake_path(NORMAL_PATH CMAKE_SYSROOT)

# What is linked comes from the sysroot alone; what runs in the build comes from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# -L is for the tests' programs, which load libraries.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR} -L ${CMAKE_SYSROOT})
