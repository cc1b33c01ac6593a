# SPDX-License-Identifier: Apache-2.0
#
# For find_package(OpenCV): the modules by their names, though all that is linked lies in one archive.
set(OpenCV_VERSION 4.6.0)
set(OpenCV_VERSION_MAJOR 4)
get_filename_component(tarn_opencv_prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
if(NOT TARGET opencv_core)
  add_library(opencv_core STATIC IMPORTED)
  set_target_properties(
    opencv_core
    PROPERTIES IMPORTED_LOCATION "${tarn_opencv_prefix}/lib/libopencv.a"
               INTERFACE_INCLUDE_DIRECTORIES "${tarn_opencv_prefix}/include"
               INTERFACE_LINK_LIBRARIES "${tarn_opencv_prefix}/lib/libjpeg.a;${tarn_opencv_prefix}/lib/libz.a")
  foreach(tarn_opencv_module imgproc video calib3d features2d flann imgcodecs)
    add_library(opencv_${tarn_opencv_module} INTERFACE IMPORTED)
    target_link_libraries(opencv_${tarn_opencv_module} INTERFACE opencv_core)
    set(OpenCV_${tarn_opencv_module}_FOUND TRUE)
  endforeach()
endif()
set(OpenCV_core_FOUND TRUE)
set(OpenCV_FOUND TRUE)
