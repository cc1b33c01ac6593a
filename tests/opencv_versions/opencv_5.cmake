# SPDX-License-Identifier: Apache-2.0
#
# Stands in for OpenCV 5, in which calib3d and features2d have other names.
set(OpenCV_VERSION 5.0.0)
set(OpenCV_VERSION_MAJOR 5)
set(OpenCV_FOUND TRUE)
foreach(module IN LISTS OpenCV_FIND_COMPONENTS)
  if(module MATCHES "^(calib3d|features2d)$")
    set(OpenCV_${module}_FOUND FALSE)
    set(OpenCV_FOUND FALSE)
  else()
    set(OpenCV_${module}_FOUND TRUE)
  endif()
endforeach()
