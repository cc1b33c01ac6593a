# SPDX-License-Identifier: Apache-2.0
#
# OpenCV's configuration as WebAssembly: the modules that the library links, JPEG as the only file format, no code that
# is chosen by the processor at run time. To be given to CMake with -C.
set(CMAKE_BUILD_TYPE Release CACHE STRING "")
set(BUILD_LIST core,imgproc,video,calib3d,features2d,flann,imgcodecs CACHE STRING "")
set(BUILD_SHARED_LIBS OFF CACHE BOOL "")

# Vectors by the compiler's own intrinsics; threads by OpenCV's own pool.
set(CPU_BASELINE "" CACHE STRING "")
set(CPU_DISPATCH "" CACHE STRING "")
set(CV_ENABLE_INTRINSICS ON CACHE BOOL "")
set(WITH_PTHREADS_PF ON CACHE BOOL "")
set(CV_TRACE OFF CACHE BOOL "")

set(WITH_JPEG ON CACHE BOOL "")
foreach(tarn_option
        WITH_1394 WITH_ADE WITH_CAROTENE WITH_DIRECTX WITH_EIGEN WITH_FFMPEG WITH_GDAL WITH_GDCM WITH_GPHOTO2
        WITH_GSTREAMER WITH_GTK WITH_IMGCODEC_HDR WITH_IMGCODEC_PFM WITH_IMGCODEC_PXM WITH_IMGCODEC_SUNRASTER WITH_IPP
        WITH_ITT WITH_JASPER WITH_LAPACK WITH_OPENCL WITH_OPENCLAMDBLAS WITH_OPENCLAMDFFT WITH_OPENEXR WITH_OPENJPEG
        WITH_PNG WITH_PROTOBUF WITH_QUIRC WITH_TIFF WITH_V4L WITH_VA WITH_VA_INTEL WITH_VTK WITH_WEBP
        BUILD_DOCS BUILD_EXAMPLES BUILD_JAVA BUILD_JPEG BUILD_PERF_TESTS BUILD_TESTS BUILD_ZLIB BUILD_opencv_apps
        BUILD_opencv_java_bindings_generator BUILD_opencv_js_bindings_generator BUILD_opencv_objc_bindings_generator
        BUILD_opencv_python2 BUILD_opencv_python3 BUILD_opencv_python_bindings_generator BUILD_opencv_python_tests
        OPENCV_GENERATE_PKGCONFIG OPENCV_GENERATE_SETUPVARS OPENCV_ENABLE_MEMALIGN ENABLE_PRECOMPILED_HEADERS)
  set(${tarn_option} OFF CACHE BOOL "")
endforeach()
