# SPDX-License-Identifier: MIT
# The camera's processor: ARMv5TE, soft float, with Debian's cross compiler; programs run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv5te)
set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
# Thumb instructions and fixed addresses: the smallest programs, for a board with little flash. 64-bit time: stamps stay
# right after 2038.
set(kelisp_arm_flags "-march=armv5te -mthumb -mfloat-abi=soft -fno-pie -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_C_FLAGS_INIT "${kelisp_arm_flags}")
set(CMAKE_CXX_FLAGS_INIT "${kelisp_arm_flags}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-no-pie")
set(CMAKE_POSITION_INDEPENDENT_CODE OFF)
# The cross libraries by name: with libc6:armel installed as well, its C library would meet their loader.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabi -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabi/lib)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
