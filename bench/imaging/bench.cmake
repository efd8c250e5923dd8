# The box convolution against OpenCV's cv::blur (single-threaded, same
# kernel and border on the same buffer) and memcpy, and the whole blur
# effect. OpenCV is a reference only: without it the benchmark still builds
# and says that the reference is missing.
qx_add_benchmark(bench_imaging SOURCES bench_imaging.cpp)

find_package(OpenCV QUIET COMPONENTS core imgproc)
if(OpenCV_FOUND)
    target_include_directories(bench_imaging SYSTEM PRIVATE ${OpenCV_INCLUDE_DIRS})
    target_link_libraries(bench_imaging PRIVATE ${OpenCV_LIBS})
    target_compile_definitions(bench_imaging PRIVATE QX_BENCH_HAVE_OPENCV)
else()
    # Debian's libopencv-imgproc-dev ships headers and libraries but no CMake package.
    find_path(QX_OPENCV_INCLUDE_DIR opencv2/imgproc.hpp PATH_SUFFIXES opencv4)
    find_path(QX_OPENCV_CONFIG_DIR opencv2/cvconfig.h PATH_SUFFIXES opencv4 x86_64-linux-gnu/opencv4)
    find_library(QX_OPENCV_CORE_LIBRARY opencv_core)
    find_library(QX_OPENCV_IMGPROC_LIBRARY opencv_imgproc)
    if(QX_OPENCV_INCLUDE_DIR AND QX_OPENCV_CORE_LIBRARY AND QX_OPENCV_IMGPROC_LIBRARY)
        target_include_directories(bench_imaging SYSTEM PRIVATE ${QX_OPENCV_INCLUDE_DIR} ${QX_OPENCV_CONFIG_DIR})
        target_link_libraries(bench_imaging PRIVATE ${QX_OPENCV_IMGPROC_LIBRARY} ${QX_OPENCV_CORE_LIBRARY})
        target_compile_definitions(bench_imaging PRIVATE QX_BENCH_HAVE_OPENCV)
    else()
        message(STATUS "bench_imaging: OpenCV not found, cv::blur reference left out (scripts/bootstrap.sh --bench)")
    endif()
endif()
