# What cpack cannot say, in the packages that it has built: libraries have the linker's cache renewed
# by their trigger instead of by scripts, and stand beside those of other architectures.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  cmake_path(GET package FILENAME name)
  if(NOT name MATCHES "^lib")
    continue()
  endif()
  set(root ${CPACK_TEMPORARY_DIRECTORY}/finish)
  file(REMOVE_RECURSE ${root})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${root} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${root}/DEBIAN/postinst ${root}/DEBIAN/postrm)
  file(READ ${root}/DEBIAN/control control)
  file(WRITE ${root}/DEBIAN/control "Multi-Arch: same\n${control}")
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${root} ${package}
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${root})
endforeach()
