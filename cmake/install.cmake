# What goes onto a camera, and the package that carries it there.
#
#   bin/faceDet, bin/facedet_ctl, bin/shm_track_test
#   lib/libfacedet_recorder.so        the flight recorder, preloaded when FACEDET_RECORD is set
#   lib/libMNN.so                     when the daemon links the shared MNN
#   share/faceDet/                    the model (the daemon's working directory), VERSION
#   etc/init.d/S95facedet             BusyBox/SysV start-up script with supervision
#   etc/default/facedet               settings read by the script and the unit
#   lib/systemd/system/facedet.service
#
# The PC-only tools (camera_sim, gamma_peer, facedet_replay, scenario_clip,
# facedet_detect) stay out.

# Where the package is unpacked on the camera; the systemd unit needs absolute
# paths (the init script finds its own folder).
set(FACEDET_CAMERA_PREFIX "/opt/faceDet" CACHE PATH "Folder the camera package is unpacked into")

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|armv7.*)$")
  set(facedet_package_arch armhf)
else()
  set(facedet_package_arch ${CMAKE_SYSTEM_PROCESSOR})
endif()

# Installing or packaging needs only what is installed, not the test suites.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

install(TARGETS faceDet facedet_ctl shm_track_test RUNTIME DESTINATION bin)
install(TARGETS facedet_recorder LIBRARY DESTINATION lib)
set_target_properties(faceDet PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
if(TARGET facedet_mnn)
  install(FILES "$<TARGET_FILE:facedet_mnn>" DESTINATION lib)
endif()

set(facedet_model "${FACEDET_SHARED_DIR}/models/slim-320-quant-ADMM-50.mnn")
if(EXISTS "${facedet_model}")
  install(FILES "${facedet_model}" DESTINATION share/faceDet)
else()
  message(WARNING "No model at ${facedet_model}: the install will lack it and the start-up script will refuse to start")
endif()

# The source's git description, taken when installing so that it names the
# commit actually packaged.
install(CODE "
  execute_process(COMMAND git describe --always --dirty --tags
                  WORKING_DIRECTORY \"${CMAKE_SOURCE_DIR}\"
                  OUTPUT_VARIABLE facedet_git OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT facedet_git)
    set(facedet_git unknown)
  endif()
  file(WRITE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/share/faceDet/VERSION\"
       \"faceDet ${PROJECT_VERSION} \${facedet_git} ${facedet_package_arch}\\n\")
")

set(camera_dir "${CMAKE_SOURCE_DIR}/scripts/camera")
install(PROGRAMS "${camera_dir}/S95facedet" DESTINATION etc/init.d)
install(FILES "${camera_dir}/facedet.defaults" DESTINATION etc/default RENAME facedet)
configure_file("${camera_dir}/facedet.service.in" "${CMAKE_BINARY_DIR}/facedet.service" @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/facedet.service" DESTINATION lib/systemd/system)

# faceDet-<version>-<arch>.tar.gz, unpacked as it is into FACEDET_CAMERA_PREFIX.
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_NAME faceDet)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME "faceDet-${PROJECT_VERSION}-${facedet_package_arch}")
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
# The camera gets stripped programs; the build tree keeps their symbols.
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/package")
set(CPACK_SOURCE_GENERATOR "")
include(CPack)
