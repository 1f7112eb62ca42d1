# The target uninstall: removes the files that `cmake --install` of this build folder wrote last, as
# its manifests list them, and the project's own folders where nothing is left in them.
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
    COMMAND ${CMAKE_COMMAND} -DBUILD_DIR=${PROJECT_BINARY_DIR}
      -P ${CMAKE_CURRENT_LIST_DIR}/uninstall.cmake
    VERBATIM USES_TERMINAL)
endif()
