find_package(benchmark QUIET)
zrn_need(benchmark_FOUND libbenchmark-dev)

# Compared with where they are installed.
find_path(LIBYUV_INCLUDE_DIR libyuv.h)
find_library(LIBYUV_LIBRARY yuv)
find_path(OPENCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
find_library(OPENCV_CORE_LIBRARY opencv_core)

# Counts the instructions of the kernels in a test.
find_program(VALGRIND valgrind)
zrn_note(VALGRIND valgrind "benchmarks: instruction counts as a test")
