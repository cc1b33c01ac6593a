# SPDX-License-Identifier: Apache-2.0
#
# The compiler warnings that TarnStitch's own targets are built with. A project that embeds the library never
# sees them.

function(tarn_set_warnings target)
  target_compile_options(
    ${target}
    PRIVATE "$<$<CXX_COMPILER_ID:GNU,Clang,AppleClang>:-Wall;-Wextra;-Wpedantic;-Wshadow;-Wconversion>")
  if(TARN_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE "$<$<CXX_COMPILER_ID:GNU,Clang,AppleClang>:-Werror>")
  endif()
endfunction()
