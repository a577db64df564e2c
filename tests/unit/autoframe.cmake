# Auto framing: colour conversion, rectangles, target selection, move decision.
facedet_unit_test(color_convert_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/color_convert_test.cpp LIBS facedet_core)
facedet_unit_test(autoframe_test
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/rect_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/target_selection_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/move_decision_test.cpp
  LIBS facedet_core)
