# SPDX-License-Identifier: Apache-2.0
#
# Installs the library static and shared, the headers that a host may include, and what CMake and pkg-config need to
# find them. Everything is found from where it lies, so that an installed tree may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# tarn_sweep.h, tarn_c.h, tarn_stitch_jni.h and all that they include; what no host includes lies in
# TarnStitchSDK/internal.
set(tarn_public_headers
    descriptor_matching.h
    frame_answer.h
    high_res_worker.h
    module_globals.h
    motion.h
    preview_limit.h
    projection.h
    quadrilateral.h
    seam.h
    shared_access.h
    tarn_c.h
    tarn_stitch_jni.h
    tarn_stitcher.h
    tarn_sweep.h
    vocabulary.h
    working_copy.h
    working_directory.h)
list(TRANSFORM tarn_public_headers PREPEND TarnStitchSDK/)
install(FILES ${tarn_public_headers} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/TarnStitchSDK")

set(tarn_package_directory "${CMAKE_INSTALL_LIBDIR}/cmake/TarnStitch")
foreach(kind IN ITEMS static shared)
  install(
    TARGETS ${tarn_${kind}_target}
    EXPORT TarnStitch-${kind}
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  install(
    EXPORT TarnStitch-${kind}
    FILE TarnStitch-${kind}-targets.cmake
    NAMESPACE TarnStitch::
    DESTINATION "${tarn_package_directory}")
endforeach()

# The finishing library, where it is built: its own header directory and export sets, so that a package may leave it out.
if(TARGET TarnStitch::finishing)
  install(FILES finishing/tarn_finishing.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/TarnStitchFinishing"
          COMPONENT finishing)
  foreach(kind IN ITEMS static shared)
    install(
      TARGETS tarn_finishing_${kind}
      EXPORT TarnStitch-finishing_${kind}
      ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT finishing
      LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT finishing
      RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT finishing)
    install(
      EXPORT TarnStitch-finishing_${kind}
      FILE TarnStitch-finishing_${kind}-targets.cmake
      NAMESPACE TarnStitch::
      DESTINATION "${tarn_package_directory}"
      COMPONENT finishing)
  endforeach()
endif()

# The installed package finds OpenCV with the modules that the library was built with.
configure_package_config_file(
  cmake/TarnStitchConfig.cmake.in "${PROJECT_BINARY_DIR}/package/TarnStitchConfig.cmake"
  INSTALL_DESTINATION "${tarn_package_directory}"
  PATH_VARS CMAKE_INSTALL_BINDIR
  NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/package/TarnStitchConfigVersion.cmake"
  VERSION "${PROJECT_VERSION}"
  COMPATIBILITY SameMajorVersion)
install(
  FILES "${PROJECT_BINARY_DIR}/package/TarnStitchConfig.cmake"
        "${PROJECT_BINARY_DIR}/package/TarnStitchConfigVersion.cmake" cmake/TarnOpenCV.cmake
  DESTINATION "${tarn_package_directory}")

# pkg-config. OpenCV's own description names all of its modules, and upstream builds leave it out, so the modules
# stand here by name, in the place where this build found them.
get_target_property(tarn_pc_opencv_include opencv_core INTERFACE_INCLUDE_DIRECTORIES)
list(TRANSFORM tarn_pc_opencv_include PREPEND "-I")
list(JOIN tarn_pc_opencv_include " " tarn_pc_opencv_include)
list(TRANSFORM tarn_opencv_of_headers PREPEND "-lopencv_" OUTPUT_VARIABLE tarn_pc_libs)
list(TRANSFORM tarn_opencv_inside PREPEND "-lopencv_" OUTPUT_VARIABLE tarn_pc_libs_private)
# A host in C, linked with the static library, has to name the standard library of C++ as well.
foreach(library IN ITEMS stdc++ c++)
  if(library IN_LIST CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
    list(APPEND tarn_pc_libs_private "-l${library}" -lm)
  endif()
endforeach()
set(tarn_opencv_directory "")
foreach(property IN ITEMS IMPORTED_LOCATION_RELEASE IMPORTED_LOCATION_NONE IMPORTED_LOCATION IMPORTED_IMPLIB_RELEASE)
  get_target_property(location opencv_core ${property})
  if(location)
    cmake_path(GET location PARENT_PATH tarn_opencv_directory)
    break()
  endif()
endforeach()
# Not where linkers look anyway; and a sysroot's path means nothing on the system that it stands for.
if(tarn_opencv_directory
   AND NOT CMAKE_CROSSCOMPILING
   AND NOT tarn_opencv_directory IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  list(PREPEND tarn_pc_libs "-L${tarn_opencv_directory}")
  set(tarn_pc_finishing_search "-L${tarn_opencv_directory}")
endif()
list(JOIN tarn_pc_libs " " tarn_pc_libs)
list(JOIN tarn_pc_libs_private " " tarn_pc_libs_private)
cmake_path(SET tarn_pc_file_directory "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(tarn_pc_prefix "${CMAKE_INSTALL_PREFIX}")
  set(tarn_pc_libdir "${CMAKE_INSTALL_LIBDIR}")
else()
  file(RELATIVE_PATH tarn_pc_prefix "${tarn_pc_file_directory}" "/prefix")
  string(REGEX REPLACE "/$" "" tarn_pc_prefix "${tarn_pc_prefix}")
  set(tarn_pc_prefix "\${pcfiledir}/${tarn_pc_prefix}")
  set(tarn_pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(tarn_pc_includedir "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(tarn_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(cmake/tarn_stitch.pc.in "${PROJECT_BINARY_DIR}/package/tarn_stitch.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/tarn_stitch.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(TARGET TarnStitch::finishing)
  list(TRANSFORM tarn_finishing_opencv_of_headers PREPEND "-lopencv_" OUTPUT_VARIABLE tarn_pc_finishing_libs)
  list(TRANSFORM tarn_finishing_opencv_inside PREPEND "-lopencv_" OUTPUT_VARIABLE tarn_pc_finishing_libs_private)
  list(JOIN tarn_pc_finishing_libs " " tarn_pc_finishing_libs)
  list(JOIN tarn_pc_finishing_libs_private " " tarn_pc_finishing_libs_private)
  configure_file(cmake/tarn_finishing.pc.in "${PROJECT_BINARY_DIR}/package/tarn_finishing.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/package/tarn_finishing.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
          COMPONENT finishing)
endif()
