# Colour conversion benchmark: our versions against libyuv, OpenCV and a plain
# copy. Included from bench/CMakeLists.txt, which already left out cross builds
# and builds without Google Benchmark.
add_executable(color_convert_bench ${CMAKE_CURRENT_LIST_DIR}/color_convert_bench.cpp)
target_link_libraries(color_convert_bench PRIVATE facedet_autoframe benchmark::benchmark facedet_warnings)

find_path(LIBYUV_INCLUDE_DIR libyuv.h)
find_library(LIBYUV_LIBRARY yuv)
if(LIBYUV_INCLUDE_DIR AND LIBYUV_LIBRARY)
  target_include_directories(color_convert_bench SYSTEM PRIVATE ${LIBYUV_INCLUDE_DIR})
  target_link_libraries(color_convert_bench PRIVATE ${LIBYUV_LIBRARY})
  target_compile_definitions(color_convert_bench PRIVATE FACEDET_BENCH_HAS_LIBYUV=1)
else()
  message(STATUS "color_convert_bench: libyuv not found, compared without it")
endif()

if(FACEDET_HAS_OPENCV)
  target_link_libraries(color_convert_bench PRIVATE opencv_core opencv_imgproc)
  target_compile_definitions(color_convert_bench PRIVATE FACEDET_BENCH_HAS_OPENCV=1)
endif()
