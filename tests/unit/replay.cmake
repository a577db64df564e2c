# facedet_replay's log reading and report text: pure functions, no daemon.
if(TARGET facedet_replay_log)
  facedet_unit_test(replay_log_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/replay_log_test.cpp LIBS facedet_replay_log)
endif()
if(TARGET facedet_replay_log)
  facedet_unit_test(framing_score_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/framing_score_test.cpp LIBS facedet_replay_log)
endif()
