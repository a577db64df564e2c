# Face detector. The arithmetic is tested everywhere (ARM too); the detector
# object with its printed lines and failure paths wherever facedet_core
# builds; inference only where an engine is built, and the real photo only
# where OpenCV can read it.
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
