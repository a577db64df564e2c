# facedet_replay end to end: the real daemon, camera_sim and the rendered report.
if(TARGET facedet_replay)
  facedet_integration_test(replay_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/replay_test.cpp
                           LIBS opencv_core opencv_imgproc opencv_imgcodecs opencv_videoio)
  target_compile_definitions(replay_test PRIVATE FACEDET_REPLAY_BIN="$<TARGET_FILE:facedet_replay>")
  add_dependencies(replay_test facedet_replay camera_sim facedet_ctl)
  if(TARGET scenario_clip)
    target_compile_definitions(replay_test PRIVATE SCENARIO_CLIP_BIN="$<TARGET_FILE:scenario_clip>")
    add_dependencies(replay_test scenario_clip)
  endif()
endif()
