# Auto framing's pure logic: colour conversion, target selection and the move
# decision. Included from src/CMakeLists.txt, so relative paths and source
# properties belong to the src/ directory; names here are absolute.
set(_af ${CMAKE_CURRENT_LIST_DIR})

target_sources(facedet_core PRIVATE
  ${_af}/color_convert.cpp
  ${_af}/rect.cpp
  ${_af}/target_selection.cpp
  ${_af}/move_decision.cpp
)

# One vector version per instruction set; color_convert.cpp lists the ones
# built in and picks among them at run time.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  target_sources(facedet_core PRIVATE ${_af}/color_convert_sse2.cpp ${_af}/color_convert_avx2.cpp)
  # AVX2 for this unit alone: nothing else may use it on a CPU without it.
  set_source_files_properties(${_af}/color_convert_avx2.cpp PROPERTIES COMPILE_OPTIONS "-mavx2")
  set_source_files_properties(${_af}/color_convert.cpp PROPERTIES
    COMPILE_DEFINITIONS "FACEDET_COLOR_SSE2;FACEDET_COLOR_AVX2")
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|armv7.*|aarch64|arm64)$")
  # The camera build compiles everything with -mfpu=neon -mfloat-abi=hard.
  target_sources(facedet_core PRIVATE ${_af}/color_convert_neon.cpp)
  set_source_files_properties(${_af}/color_convert.cpp PROPERTIES COMPILE_DEFINITIONS "FACEDET_COLOR_NEON")
endif()
unset(_af)

# Automatic gamma: the tone curve and the handshake with the image-tuning peer.
target_sources(facedet_core PRIVATE ${CMAKE_CURRENT_LIST_DIR}/auto_gamma.cpp)
# The gamma curve ends in float-to-int truncations, the one kind of undefined
# behaviour -fsanitize=undefined leaves out; sanitizer builds check them here.
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=[^ ]*undefined")
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/auto_gamma.cpp PROPERTIES
    COMPILE_OPTIONS "-fsanitize=float-cast-overflow;-fno-sanitize-recover=float-cast-overflow")
endif()
