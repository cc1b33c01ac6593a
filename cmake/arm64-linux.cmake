# SPDX-License-Identifier: Apache-2.0
#
# Toolchain file: 64-bit ARM Linux, with Debian's cross compiler, libraries from the directory TARN_ARM64_SYSROOT
# (scripts/lib/arm64.sh fills it), and QEMU to run what was built.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TARN_ARM64_SYSROOT)
set(OpenCV_DIR "${TARN_ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu/cmake/opencv4")
set(CMAKE_FIND_ROOT_PATH "${TARN_ARM64_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Where the libraries' own libraries lie. (BLAS and LAPACK are picked from several by an installed system.)
set(tarn_arm64_library_directories
    "${TARN_ARM64_SYSROOT}/lib/aarch64-linux-gnu"
    "${TARN_ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu"
    "${TARN_ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu/blas"
    "${TARN_ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu/lapack"
    "${TARN_ARM64_SYSROOT}/usr/lib")
list(JOIN tarn_arm64_library_directories ":" tarn_arm64_library_path)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${tarn_arm64_library_path}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${tarn_arm64_library_path}")

find_program(TARN_QEMU NAMES qemu-aarch64-static qemu-aarch64)
if(TARN_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      "${TARN_QEMU};-L;${TARN_ARM64_SYSROOT};-E;LD_LIBRARY_PATH=${tarn_arm64_library_path}"
      CACHE STRING "What runs a program of the other architecture")
endif()
