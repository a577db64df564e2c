# Face detector. The arithmetic is tested everywhere (ARM too); the detector
# object with its constants, engine choice and failure paths wherever
# facedet_core builds; inference only where an engine is built, real pictures
# only where OpenCV can read them, and the two engines against each other
# where both are built.
facedet_unit_test(detector_math_test
  SOURCES detector/priors_test.cpp detector/decoding_test.cpp detector/nms_test.cpp
  LIBS facedet_detector)

facedet_unit_test(detector_test SOURCES detector/detector_test.cpp LIBS facedet_core)
target_compile_definitions(detector_test PRIVATE FACEDET_SHARED_DIR="${FACEDET_SHARED_DIR}")
if(FACEDET_DETECTOR_ENGINES)
  target_compile_definitions(detector_test PRIVATE FACEDET_TEST_HAS_ENGINE=1)
  if(FACEDET_WITH_OPENCV AND OpenCV_FOUND)
    target_compile_definitions(detector_test PRIVATE FACEDET_TEST_HAS_IMAGES=1)
    target_link_libraries(detector_test PRIVATE ${OpenCV_LIBS})
  endif()
endif()
if("mnn" IN_LIST FACEDET_DETECTOR_ENGINES AND "opencv" IN_LIST FACEDET_DETECTOR_ENGINES)
  facedet_unit_test(engine_parity_test SOURCES detector/engine_parity_test.cpp LIBS facedet_detector)
  target_compile_definitions(engine_parity_test PRIVATE FACEDET_SHARED_DIR="${FACEDET_SHARED_DIR}")
  target_link_libraries(engine_parity_test PRIVATE ${OpenCV_LIBS})
endif()
