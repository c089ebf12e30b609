# SPDX-License-Identifier: MIT
# Static programs for the camera with musl (Debian's musl-dev:armel): they need no C library on the board. musl's time is
# 64-bit everywhere.
include(${CMAKE_CURRENT_LIST_DIR}/armel.cmake)
set(musl_specs "-specs=/usr/lib/arm-linux-musleabi/musl-gcc.specs")
string(APPEND CMAKE_C_FLAGS_INIT " ${musl_specs}")
string(APPEND CMAKE_CXX_FLAGS_INIT " ${musl_specs}")
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -static")
# A C++ program of CMake's own would need libstdc++, which musl does not come with.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
