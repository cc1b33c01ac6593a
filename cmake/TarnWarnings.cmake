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

# For programs in C, which are strict C99, whatever their compiler would let pass.
function(tarn_set_strict_c target)
  set_target_properties(${target} PROPERTIES C_STANDARD 99 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE "$<$<C_COMPILER_ID:GNU,Clang,AppleClang>:-pedantic-errors>")
  tarn_set_warnings(${target})
endfunction()
