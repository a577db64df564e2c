# Automatic gamma against the real daemon, with gamma_peer as the tuning process.
facedet_integration_test(gamma_integration_test SOURCES gamma_integration_test.cpp daemon_fixture.cpp)
# The step-by-step reference is shared with the unit tests; it needs the record's layout.
target_include_directories(gamma_integration_test PRIVATE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/tests/unit)
target_compile_definitions(gamma_integration_test PRIVATE GAMMA_PEER_BIN="$<TARGET_FILE:gamma_peer>")
if(FACEDET_WITH_OPENCV AND OpenCV_FOUND)
  target_compile_definitions(gamma_integration_test PRIVATE GAMMA_PEER_HAS_PNG=1)
endif()
add_dependencies(gamma_integration_test gamma_peer)
