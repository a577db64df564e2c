# The daemon's per-frame path by stage, on a real frame of a sample video.
# Included from bench/CMakeLists.txt (host builds with Google Benchmark);
# reading the video needs OpenCV.
if(FACEDET_HAS_OPENCV)
  add_executable(pipeline_bench ${CMAKE_CURRENT_LIST_DIR}/pipeline_bench.cpp)
  target_link_libraries(pipeline_bench PRIVATE facedet_daemon benchmark::benchmark opencv_core opencv_imgproc
                        opencv_videoio facedet_warnings)
  target_compile_definitions(pipeline_bench PRIVATE FACEDET_SHARED_DIR="${FACEDET_SHARED_DIR}")
endif()
