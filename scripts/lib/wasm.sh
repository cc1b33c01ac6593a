# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What the library is linked with when it is built as WebAssembly: OpenCV, libjpeg-turbo and zlib from Debian's source
# packages, built once and kept outside the tree, since they are the long part of the build. To be sourced, after
# common.sh.

# shellcheck disable=SC2034,SC2154
wasm_packages=(emscripten brotli cmake ninja-build dpkg-dev nodejs)

# The versions of Debian 12. The build is tried with these, and the sizes and the answers are those of these.
wasm_sources=(opencv=4.6.0+dfsg-12 eigen3=3.4.0-4 libjpeg-turbo=1:2.1.5-2 zlib=1:1.2.13.dfsg-1)

# -fexceptions and not those of WebAssembly, which abort in this compiler's threads. The pixel kernels and OpenCV are
# written for vectors of 128 bits. Everything is compiled for shared memory, also for the build without threads, whose
# linker makes plain memory of it: one OpenCV serves both.
wasm_flags='-pthread -msimd128 -fexceptions'

# wasm_environment: what Debian's emscripten needs to be told. Its cache is complete and must not be made anew; its
# modules for node lie where node does not look; and its loader takes a node that has `fetch` for a browser.
wasm_environment() {
  unset EM_CACHE
  export NODE_PATH=/usr/share/nodejs NODE_OPTIONS=--no-experimental-fetch
  command -v emcc >/dev/null || fail "emscripten is missing."
}

# wasm_libraries: the directory in which the libraries lie, named for all that they are made of.
wasm_libraries() {
  local key
  key=$({
    printf '%s\n' "${wasm_sources[@]}" "$wasm_flags"
    emcc --version | sed -n 1p
    cat "$root"/web/native/{opencv.cmake,opencv_sources.txt,OpenCVConfig.cmake,opencv_hal.h} "$root/scripts/lib/wasm.sh"
  } | sha256sum | cut -c 1-16)
  printf '%s/tarnstitch-web/%s\n' "${XDG_CACHE_HOME:-$HOME/.cache}" "$key"
}

# fetch_sources DIRECTORY: unpacks the source packages there. The lists of source packages are kept there too: the
# system's own configuration has none on most machines, and is left alone.
fetch_sources() {
  local directory=$1 list
  mkdir -p "$directory/apt/lists/partial" "$directory/apt/sources"
  for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [[ ! -f $list ]] || sed -n 's/^deb /deb-src /p' "$list" >"$directory/apt/sources/$(basename "$list")"
  done
  for list in /etc/apt/sources.list.d/*.sources; do
    [[ ! -f $list ]] || sed 's/^Types:.*/Types: deb-src/' "$list" >"$directory/apt/sources/$(basename "$list")"
  done
  local -a options=(--quiet --quiet -o Dir::Etc::SourceList=/dev/null -o "Dir::Etc::SourceParts=$directory/apt/sources"
    -o "Dir::State::Lists=$directory/apt/lists" -o "APT::Sandbox::User=$(id -un)" -o Debug::NoLocking=true)
  apt-get "${options[@]}" update
  (cd "$directory" && apt-get "${options[@]}" source "${wasm_sources[@]}")
}

# build_jpeg SOURCE PREFIX
build_jpeg() {
  # The probe of its configuration for the size of a type finds one byte too many in what this compiler writes.
  emcmake cmake -S "$1" -B "$1/wasm" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$2" \
    -DCMAKE_C_FLAGS="$wasm_flags" -DENABLE_SHARED=OFF -DWITH_SIMD=OFF -DWITH_TURBOJPEG=OFF -DHAVE_SIZE_T=TRUE \
    -DSIZE_T=4 -DHAVE_UNSIGNED_LONG=TRUE -DUNSIGNED_LONG=4
  cmake --build "$1/wasm" --parallel "$jobs" --target jpeg-static
  mkdir -p "$2/lib" "$2/include"
  cp "$1/wasm/libjpeg.a" "$2/lib"
  cp "$1"/{jpeglib,jmorecfg,jerror,wasm/jconfig}.h "$2/include"
}

# build_zlib SOURCE PREFIX: OpenCV's file storage refers to it.
build_zlib() {
  local source
  mkdir -p "$2/lib" "$2/include" "$1/wasm"
  for source in "$1"/*.c; do
    # shellcheck disable=SC2086
    emcc -O2 $wasm_flags -Wno-deprecated-non-prototype -DHAVE_UNISTD_H -c "$source" -o "$1/wasm/$(basename "$source" .c).o"
  done
  emar rcs "$2/lib/libz.a" "$1"/wasm/*.o
  cp "$1"/{zlib,zconf}.h "$2/include"
}

# opencv_objects: the object files of the sources that are listed, as Ninja names them.
opencv_objects() {
  local module name
  local names
  while read -r module names; do
    module=${module%:}
    for name in $names; do
      printf 'modules/%s/CMakeFiles/opencv_%s.dir/src/%s.cpp.o\n' "$module" "$module" "$name"
    done
  done < <(grep -v '^#' "$root/web/native/opencv_sources.txt")
}

# as_on_other_machines SOURCE EIGEN: what OpenCV does otherwise under emscripten than in Debian's build is done as there,
# so that both compute the same bits: arc tangents by its own polynomial, not by the C library; eigenvectors by Eigen,
# with the vectors of two doubles that SSE3 has and emscripten's headers imitate; large products in BLAS's order. Eigen's
# empty assembler statements, which steer other compilers' registers, and MMX do not exist here.
as_on_other_machines() {
  sed -i 's/^#ifdef __EMSCRIPTEN__$/#if 0/' "$1/modules/core/src/mathfuncs_core.simd.hpp"
  cp "$root/web/native/opencv_hal.h" "$1/wasm/custom_hal.hpp"
  mkdir -p "$1/wasm/no_mmx"
  : >"$1/wasm/no_mmx/mmintrin.h"
  wasm_eigen_flags="-DHAVE_EIGEN -isystem $2 -msse3 -fgnuc-version=12.2 '-D__asm__(...)=' -I$1/wasm/no_mmx \
    -I$(em-config CACHE)/sysroot/include/compat"
}

# build_opencv SOURCE PREFIX EIGEN: of its modules only what is linked, in one archive, with the headers and a
# configuration for find_package.
build_opencv() {
  local module object command wasm_eigen_flags
  local -a objects
  emcmake cmake -S "$1" -B "$1/wasm" -G Ninja -C "$root/web/native/opencv.cmake" \
    -DCMAKE_C_FLAGS="$wasm_flags -w" -DCMAKE_CXX_FLAGS="$wasm_flags -w" \
    -DZLIB_INCLUDE_DIR="$2/include" -DZLIB_LIBRARY="$2/lib/libz.a" \
    -DJPEG_INCLUDE_DIR="$2/include" -DJPEG_LIBRARY="$2/lib/libjpeg.a"
  mapfile -t objects < <(opencv_objects)
  # Ninja would build all of a module before the first file of one that uses it, so it is only asked for the commands.
  # What an object needs was made by the configuration, but for headers that list OpenCL's programs: none here.
  for module in core imgproc video features2d calib3d; do
    printf '#include "opencv2/core/%s"\n' ocl.hpp ocl_genbase.hpp opencl/ocl_defs.hpp \
      >"$1/wasm/modules/$module/opencl_kernels_$module.hpp"
  done
  as_on_other_machines "$1" "$3"
  for object in "${objects[@]}"; do
    command=$(ninja -C "$1/wasm" -t commands "$object" | tail -n 1)
    [[ $object != */lapack.cpp.o ]] || command+=" $wasm_eigen_flags"
    printf 'mkdir -p %s && %s\0' "$(dirname "$object")" "$command"
  done >"$1/wasm/commands"
  (cd "$1/wasm" && xargs -0 -P "$jobs" -I '{}' bash -c '{}' <commands)
  (cd "$1/wasm" && rm -f "$2/lib/libopencv.a" && emar rcs "$2/lib/libopencv.a" "${objects[@]}")
  for module in core imgproc video calib3d features2d flann imgcodecs; do
    cp -R "$1/modules/$module/include/opencv2" "$2/include"
  done
  cp "$1/wasm/opencv2/opencv_modules.hpp" "$2/include/opencv2"
  mkdir -p "$2/lib/cmake/opencv4"
  cp "$root/web/native/OpenCVConfig.cmake" "$2/lib/cmake/opencv4"
  printf 'set(PACKAGE_VERSION 4.6.0)\nset(PACKAGE_VERSION_COMPATIBLE TRUE)\n' \
    >"$2/lib/cmake/opencv4/OpenCVConfig-version.cmake"
}

# need_wasm_libraries: builds them unless they are there.
need_wasm_libraries() {
  local prefix work
  prefix=$(wasm_libraries)
  [[ ! -e $prefix/complete ]] || return 0
  work=$prefix.making
  rm -rf "$work" "$prefix"
  mkdir -p "$work" "$prefix"
  say "Fetching the sources of OpenCV, Eigen, libjpeg-turbo and zlib"
  fetch_sources "$work"
  say "Building them as WebAssembly, once, in $prefix; this takes some minutes"
  local log=$prefix/build.log
  {
    build_zlib "$(echo "$work"/zlib-*/)" "$prefix" \
      && build_jpeg "$(echo "$work"/libjpeg-turbo-*/)" "$prefix" \
      && build_opencv "$(echo "$work"/opencv-*/)" "$prefix" "$(echo "$work"/eigen3-*/)"
  } >"$log" 2>&1 || { tail -n 40 "$log" >&2 && fail "The libraries could not be built; the whole log: $log"; }
  mkdir -p "$prefix/licences"
  cp "$(echo "$work"/zlib-*/)debian/copyright" "$prefix/licences/zlib"
  cp "$(echo "$work"/libjpeg-turbo-*/)debian/copyright" "$prefix/licences/libjpeg-turbo"
  cp "$(echo "$work"/opencv-*/)debian/copyright" "$prefix/licences/opencv"
  cp "$(echo "$work"/eigen3-*/)debian/copyright" "$prefix/licences/eigen"
  rm -rf "$work"
  touch "$prefix/complete"
}
