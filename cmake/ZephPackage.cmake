# One installed package of the project: libraries, headers, CMake package and pkg-config file.
include(CMakePackageConfigHelpers)

# zeph_install_licence(COMPONENT FOLDER): LICENSE goes with every component. A Debian package has it
# under another name.
function(zeph_install_licence component folder)
  if(NOT ZEPH_DEBIAN_PACKAGES)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${folder}
            COMPONENT ${component})
  endif()
endfunction()

# zeph_install_package(NAME
#   TARGETS target...           the shared library NAME and what it brings along
#   INCLUDE_DIR dir             where its headers begin; they keep their folders below it
#   HEADERS header...           relative to the repository root
#   DEPENDS package...          what find_package(NAME) has to find first
#   PKG_CONFIG_LIBS flag...     what a program links, as linker flags
#   PKG_CONFIG_REQUIRES name... what it takes from other pkg-config files
#   COMPONENT_OF package)       NAME is package_component
#
# Gives find_package(NAME) with NAME::target, also from the build tree (-DNAME_DIR=<build folder>),
# or find_package(package COMPONENTS component) with package::target, and `pkg-config NAME`. What
# programs need at run time belongs to the install component NAME, what they are built with to
# NAME_dev; the run-time part of zttypes is a component of its own. A target is in one package;
# another package whose targets link it depends on that one. EXPORT_NAME is a target's name there.
function(zeph_install_package name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "INCLUDE_DIR;COMPONENT_OF"
                        "TARGETS;HEADERS;DEPENDS;PKG_CONFIG_LIBS;PKG_CONFIG_REQUIRES")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "zeph_install_package: what is ${arg_UNPARSED_ARGUMENTS}?")
  endif()

  set(package ${name})
  if(arg_COMPONENT_OF)
    set(package ${arg_COMPONENT_OF})
  endif()
  set_target_properties(${arg_TARGETS} PROPERTIES INSTALL_RPATH "$ORIGIN")
  foreach(target IN LISTS arg_TARGETS)
    set(run_time ${name})
    if(target STREQUAL "zttypes")
      set(run_time zttypes)
    endif()
    install(TARGETS ${target} EXPORT ${name}_targets
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
              COMPONENT ${run_time} NAMELINK_COMPONENT ${name}_dev
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${name}_dev)
  endforeach()
  foreach(header IN LISTS arg_HEADERS)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${arg_INCLUDE_DIR}/${folder}
            COMPONENT ${name}_dev)
  endforeach()
  zeph_install_licence(${name} ${name})
  zeph_install_licence(${name}_dev ${name})

  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
  install(EXPORT ${name}_targets NAMESPACE ${package}:: DESTINATION ${package_dir}
          COMPONENT ${name}_dev)
  export(EXPORT ${name}_targets NAMESPACE ${package}:: FILE ${PROJECT_BINARY_DIR}/${name}_targets.cmake)
  list(TRANSFORM arg_DEPENDS REPLACE "(.+)" "find_dependency(\\1)")
  list(JOIN arg_DEPENDS "\n" dependencies)
  if(arg_COMPONENT_OF)
    set(files ${PROJECT_BINARY_DIR}/${name}.cmake)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/component.cmake.in ${files} @ONLY)
  else()
    set(files ${PROJECT_BINARY_DIR}/${name}-config.cmake
              ${PROJECT_BINARY_DIR}/${name}-config-version.cmake)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/package-config.cmake.in
      ${PROJECT_BINARY_DIR}/${name}-config.cmake INSTALL_DESTINATION ${package_dir})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/${name}-config-version.cmake
      COMPATIBILITY SameMajorVersion)
  endif()
  install(FILES ${files} DESTINATION ${package_dir} COMPONENT ${name}_dev)

  # Relative to the file itself, so that the installed tree may be moved; the system's folders by
  # name, which pkg-config then leaves out.
  if(ZEPH_DEBIAN_PACKAGES)
    set(pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
    set(pc_includedir ${CMAKE_INSTALL_PREFIX}/${arg_INCLUDE_DIR})
  else()
    file(RELATIVE_PATH to_headers ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
         ${CMAKE_INSTALL_PREFIX}/${arg_INCLUDE_DIR})
    set(pc_libdir "\${pcfiledir}/..")
    set(pc_includedir "\${pcfiledir}/${to_headers}")
  endif()
  list(JOIN arg_PKG_CONFIG_LIBS " " libraries)
  list(JOIN arg_PKG_CONFIG_REQUIRES " " requires)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/package.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT ${name}_dev)
endfunction()
