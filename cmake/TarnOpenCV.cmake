# SPDX-License-Identifier: Apache-2.0
#
# Finding OpenCV: the supported major version, named modules only, and one clear sentence when it is not there.
# Installed with the library, for the projects that use it.

# tarn_look_for_opencv(<reason> <module>...)
#
# Looks for the named modules of OpenCV 4. <reason> tells why they cannot be had; it is empty when they can, and then
# the targets opencv_<module> exist. A macro, so that what OpenCV's package sets reaches the caller; but the libraries
# that a caller has already found are still the caller's afterwards.
macro(tarn_look_for_opencv reason)
  set(${reason} "")
  set(tarn_opencv_libs_before "${OpenCV_LIBS}")
  set(tarn_opencv_libraries_before "${OpenCV_LIBRARIES}")
  unset(OpenCV_LIBS)
  unset(OpenCV_VERSION)
  unset(OpenCV_VERSION_MAJOR)
  find_package(OpenCV 4 QUIET COMPONENTS ${ARGN})
  if(NOT OpenCV_FOUND OR NOT OpenCV_VERSION VERSION_LESS 5)
    tarn_explain_opencv(${reason} ${ARGN})
  endif()
  if(tarn_opencv_libs_before)
    set(OpenCV_LIBS "${tarn_opencv_libs_before}")
    set(OpenCV_LIBRARIES "${tarn_opencv_libraries_before}")
  endif()
endmacro()

# tarn_explain_opencv(<reason> <module>...)
#
# What is wrong with what find_package(OpenCV) has just found.
function(tarn_explain_opencv reason)
  set(modules ${ARGN})
  list(JOIN modules ", " names)
  set(versions ${OpenCV_CONSIDERED_VERSIONS})
  if(NOT versions AND OpenCV_VERSION)
    set(versions ${OpenCV_VERSION})
  endif()
  list(FILTER versions EXCLUDE REGEX "^unknown$")
  set(found "none was found")
  if(versions)
    list(JOIN versions ", " found)
    set(found "found: ${found}")
  endif()
  foreach(version IN LISTS versions)
    if(version VERSION_GREATER_EQUAL 5)
      string(APPEND found ", where modules that TarnStitch uses have been moved")
      break()
    endif()
  endforeach()
  set(missing "")
  foreach(module IN LISTS modules)
    if(DEFINED OpenCV_${module}_FOUND AND NOT OpenCV_${module}_FOUND)
      list(APPEND missing ${module})
    endif()
  endforeach()
  if(missing AND NOT found MATCHES "moved")
    list(JOIN missing ", " missing)
    string(APPEND found ", without: ${missing}")
  endif()
  string(
    CONCAT sentence
           "TarnStitch works with OpenCV 4 only (any 4.x, tested with 4.6); ${found}. "
           "Modules needed: ${names}. "
           "On Debian and Ubuntu the package is libopencv-dev; elsewhere set OpenCV_DIR to the folder of OpenCVConfig.cmake.")
  set(${reason} "${sentence}" PARENT_SCOPE)
endfunction()

# tarn_find_opencv(<result> <module>...)
#
# Stores in <result> the targets of the named modules of OpenCV 4; stops the configuration without them.
function(tarn_find_opencv result)
  tarn_look_for_opencv(reason ${ARGN})
  if(reason)
    message(FATAL_ERROR "${reason}")
  endif()
  set(targets ${ARGN})
  list(TRANSFORM targets PREPEND opencv_)
  set(${result} ${targets} PARENT_SCOPE)
endfunction()
