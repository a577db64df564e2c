# Face detector: inference per engine and thread count, prior generation,
# decoding plus suppression.
add_executable(facedet_bench detector_bench.cpp)
target_link_libraries(facedet_bench PRIVATE facedet_detector benchmark::benchmark_main facedet_warnings)
target_compile_definitions(facedet_bench PRIVATE FACEDET_SHARED_DIR="${FACEDET_SHARED_DIR}")
if(FACEDET_HAS_OPENCV)
  # Inference runs on a real photo rather than a flat frame.
  target_compile_definitions(facedet_bench PRIVATE FACEDET_BENCH_HAS_IMAGES=1)
  target_link_libraries(facedet_bench PRIVATE opencv_core opencv_imgproc opencv_imgcodecs)
endif()
