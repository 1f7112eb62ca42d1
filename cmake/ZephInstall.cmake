# Install rules: headers keep their folders below include/zeph_solver/; find_package(zeph_solver)
# gives zeph_solver::zeph_solver.
include(CMakePackageConfigHelpers)

# Installed anywhere, the pieces find one another.
set_target_properties(zeph_solver PROPERTIES INSTALL_RPATH "$ORIGIN")
if(TARGET zeph)
  set_target_properties(zeph PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

install(TARGETS zeph_solver zttypes EXPORT zeph_solver_targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(floor types kernels sparse math solver)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${floor}/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zeph_solver/${floor}
          FILES_MATCHING PATTERN "*.h")
endforeach()
if(TARGET zeph)
  install(TARGETS zeph RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zeph_solver)
# The package also works from the build tree: -Dzeph_solver_DIR=<build folder>.
export(EXPORT zeph_solver_targets NAMESPACE zeph_solver::
       FILE ${PROJECT_BINARY_DIR}/zeph_solver_targets.cmake)
install(EXPORT zeph_solver_targets NAMESPACE zeph_solver:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zeph_solver-config.cmake.in
  ${PROJECT_BINARY_DIR}/zeph_solver-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zeph_solver-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zeph_solver-config.cmake
              ${PROJECT_BINARY_DIR}/zeph_solver-config-version.cmake
        DESTINATION ${package_dir})
