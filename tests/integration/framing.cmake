# Auto framing end to end: the daemon on scenario clips of real people, with
# camera_sim as the camera and facedet_ctl switching it. The clips are built
# in-process by the scenario_clip library, which needs OpenCV.
if(NOT (FACEDET_WITH_OPENCV AND TARGET facedet_scenario_clip))
  return()
endif()

facedet_integration_test(framing_test
  SOURCES framing_test.cpp daemon_fixture.cpp
  LIBS facedet_scenario_clip facedet_detector opencv_imgcodecs opencv_imgproc)
target_compile_definitions(framing_test PRIVATE
  CAMERA_SIM_BIN="$<TARGET_FILE:camera_sim>"
  FACEDET_CTL_BIN="$<TARGET_FILE:facedet_ctl>"
  SCENARIO_CLIP_BIN="$<TARGET_FILE:scenario_clip>")
add_dependencies(framing_test camera_sim facedet_ctl scenario_clip)
# The camera build's daemon for the ARM-against-PC comparison, where the arm
# preset puts it; skipped when absent, and in the sanitizer builds (one run
# under qemu is enough).
set(arm_daemon "")
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  set(arm_daemon "${PROJECT_SOURCE_DIR}/build/arm/src/faceDet")
endif()
target_compile_definitions(framing_test PRIVATE FACEDET_ARM_DAEMON_DEFAULT="${arm_daemon}")
