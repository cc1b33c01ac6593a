# SPDX-License-Identifier: Apache-2.0
#
# Finding OpenCV: the supported major version, named modules only, and one clear sentence when it is not there.

# tarn_find_opencv(<result> <module>...)
#
# Stores in <result> the targets of the named modules of OpenCV 4; stops the configuration without them.
function(tarn_find_opencv result)
  set(modules ${ARGN})
  unset(OpenCV_LIBS)
  find_package(OpenCV 4 QUIET COMPONENTS ${modules})
  if(NOT OpenCV_FOUND)
    set(found "none was found")
    if(OpenCV_CONSIDERED_VERSIONS)
      list(JOIN OpenCV_CONSIDERED_VERSIONS ", " versions)
      set(found "found: ${versions}")
    elseif(OpenCV_VERSION)
      set(found "found: ${OpenCV_VERSION}")
    endif()
    set(missing "")
    foreach(module IN LISTS modules)
      if(DEFINED OpenCV_${module}_FOUND AND NOT OpenCV_${module}_FOUND)
        list(APPEND missing ${module})
      endif()
    endforeach()
    if(missing)
      list(JOIN missing ", " missing)
      set(found "${found}, without: ${missing}")
    endif()
    list(JOIN modules ", " names)
    message(
      FATAL_ERROR
        "TarnStitch works with OpenCV 4 only (any 4.x, tested with 4.6); ${found}. "
        "Modules needed: ${names}. "
        "On Debian and Ubuntu the package is libopencv-dev; elsewhere set OpenCV_DIR to the folder of OpenCVConfig.cmake.")
  endif()
  set(targets "")
  foreach(module IN LISTS modules)
    list(APPEND targets opencv_${module})
  endforeach()
  set(${result} ${targets} PARENT_SCOPE)
endfunction()
