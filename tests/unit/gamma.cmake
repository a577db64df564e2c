# Automatic gamma: statistics, curve, verdict, handshake, the step, and
# agreement with the step-by-step reference.
facedet_unit_test(gamma_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/gamma_test.cpp
  LIBS facedet_core facedet_ipc_test_support)
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=[^ ]*undefined")
  target_compile_options(gamma_test PRIVATE -fsanitize=float-cast-overflow -fno-sanitize-recover=float-cast-overflow)
endif()
