# camera_sim, facedet_ctl and shm_track_test as processes, against the daemon's
# endpoint code running in the test.
facedet_integration_test(camera_sim_test SOURCES camera_sim_test.cpp LIBS facedet_core facedet_ipc_test_support)
target_compile_definitions(camera_sim_test PRIVATE
  CAMERA_SIM_BIN="$<TARGET_FILE:camera_sim>"
  FACEDET_CTL_BIN="$<TARGET_FILE:facedet_ctl>"
  SHM_TRACK_TEST_BIN="$<TARGET_FILE:shm_track_test>")
add_dependencies(camera_sim_test camera_sim facedet_ctl shm_track_test)

# The fault matrix: the real daemon against misbehaving peers, files and signals.
facedet_integration_test(fault_matrix_test SOURCES fault_matrix_test.cpp daemon_fixture.cpp LIBS facedet_share_memory)
target_compile_definitions(fault_matrix_test PRIVATE CAMERA_SIM_BIN="$<TARGET_FILE:camera_sim>")
add_dependencies(fault_matrix_test camera_sim)
