# SPDX-License-Identifier: Apache-2.0
#
# The static and the shared library, both of one set of objects. A host sees the shared one through the names of
# the interface only; programs that reach inside, such as the tests, link the static one.

include(GNUInstallDirs)

# Properties of a library target, whatever its kind.
function(tarn_set_library_properties target opencv_of_headers opencv_inside)
  list(TRANSFORM opencv_of_headers PREPEND opencv_)
  list(TRANSFORM opencv_inside PREPEND opencv_)
  target_compile_features(${target} PUBLIC cxx_std_17)
  # Without it GCC makes the interface's variables unique in the whole process, so that copies of the library that are
  # loaded locally, by plug-ins, would share them. The hosts' own parts define them as well.
  target_compile_options(${target} PUBLIC "$<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>")
  # A host writes #include "tarn_stitch_jni.h" or #include <TarnStitchSDK/tarn_stitch_jni.h>, as it likes.
  target_include_directories(
    ${target}
    PUBLIC "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>" "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/TarnStitchSDK>"
           "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>"
           "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/TarnStitchSDK>")
  target_link_libraries(${target} PUBLIC ${opencv_of_headers} PRIVATE ${opencv_inside} Threads::Threads)
  set_target_properties(
    ${target}
    PROPERTIES LINKER_LANGUAGE CXX
               OUTPUT_NAME tarnstitch
               VERSION ${PROJECT_VERSION}
               SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()

# Restricts what a shared library shows to the names of the interface, and keeps it loaded.
function(tarn_restrict_exports target)
  if(APPLE)
    return() # its linker has no version scripts: everything is visible
  endif()
  set(exports "${PROJECT_SOURCE_DIR}/cmake/exports.map")
  target_link_options(${target} PRIVATE "LINKER:--version-script=${exports}")
  # What it calls of its own is its own, whatever functions of these names the host or another copy of it has.
  target_link_options(${target} PRIVATE "LINKER:-Bsymbolic-functions")
  # A host that closes it (dlclose) does not take away the code that workers, and threads that end, still run.
  target_link_options(${target} PRIVATE "LINKER:-z,nodelete")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${exports}")
  if(ANDROID)
    # Devices with memory pages of 16 KiB load only libraries that are aligned to them. (Elsewhere the linker's
    # default for 64-bit ARM is 64 KiB, which suits pages of any size in use.)
    target_link_options(${target} PRIVATE "LINKER:-z,max-page-size=16384")
  endif()
endfunction()

# tarn_add_library_kinds(<target> <modules that the headers include> <further modules>)
#
# Completes the library <target>, static or shared, and adds its counterpart of the other kind, which is built when
# something needs it or when it is to be installed. TarnStitch::static and TarnStitch::shared name them by kind,
# TarnStitch::<target> names the one that BUILD_SHARED_LIBS chose.
function(tarn_add_library_kinds target opencv_of_headers opencv_inside)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "STATIC_LIBRARY")
    set(static ${target})
    set(shared ${target}_shared)
    add_library(${shared} SHARED "$<TARGET_OBJECTS:${target}>")
    set(other ${shared})
  else()
    set(static ${target}_static)
    set(shared ${target})
    add_library(${static} STATIC "$<TARGET_OBJECTS:${target}>")
    set(other ${static})
  endif()
  if(NOT TARN_INSTALL)
    set_target_properties(${other} PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
  foreach(kind IN ITEMS static shared)
    tarn_set_library_properties(${${kind}} "${opencv_of_headers}" "${opencv_inside}")
    set_target_properties(${${kind}} PROPERTIES EXPORT_NAME ${kind})
    add_library(TarnStitch::${kind} ALIAS ${${kind}})
    set(tarn_${kind}_target ${${kind}} PARENT_SCOPE)
  endforeach()
  tarn_restrict_exports(${shared})
  add_library(TarnStitch::${target} ALIAS ${target})
endfunction()
