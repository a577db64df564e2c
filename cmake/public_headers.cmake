# facedet_public_headers(TARGET FOLDER HEADER...)
#   TARGET exposes exactly these headers of its source folder, included as
#   "FOLDER/HEADER", through an include root of its own in the build tree that
#   holds links to them and to nothing else. A library therefore sees only the
#   headers of the libraries it links: an include that points the wrong way
#   does not compile.
# facedet_private_headers(TARGET FOLDER HEADER...)
#   The same for headers only the folder's own sources use. They are reachable
#   from outside only through the INTERFACE target TARGET_internals, which the
#   tests that look inside link by name.
function(facedet_public_headers target folder)
  _facedet_header_root(${target} ${folder} PUBLIC "${CMAKE_BINARY_DIR}/include/${target}" ${ARGN})
endfunction()

function(facedet_private_headers target folder)
  set(root "${CMAKE_BINARY_DIR}/include-internal/${target}")
  _facedet_header_root(${target} ${folder} PRIVATE "${root}" ${ARGN})
  add_library(${target}_internals INTERFACE)
  target_include_directories(${target}_internals INTERFACE "${root}")
  target_link_libraries(${target}_internals INTERFACE ${target})
endfunction()

function(_facedet_header_root target folder scope root)
  # Made anew at every configure, so a header taken off the list is gone.
  file(REMOVE_RECURSE "${root}")
  file(MAKE_DIRECTORY "${root}/${folder}")
  foreach(header IN LISTS ARGN)
    if(NOT EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${header}")
      message(FATAL_ERROR "${target}: no header ${CMAKE_CURRENT_SOURCE_DIR}/${header}")
    endif()
    file(CREATE_LINK "${CMAKE_CURRENT_SOURCE_DIR}/${header}" "${root}/${folder}/${header}" SYMBOLIC)
  endforeach()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    set(scope INTERFACE)
  endif()
  target_include_directories(${target} ${scope} "${root}")
endfunction()
