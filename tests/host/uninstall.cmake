# Installs everything and uninstalls it: what others put beside it stays, and nothing else.
cmake_policy(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/step.cmake)
file(REMOVE_RECURSE ${WORK_DIR})
set(root ${WORK_DIR}/root)
file(WRITE ${root}/include/zeph/mine.h "")
file(WRITE ${root}/share/doc/other/LICENSE "")

# The manifests of the build folder may tell of a real installation.
file(GLOB manifests ${BUILD_DIR}/install_manifest*.txt)
file(MAKE_DIRECTORY ${WORK_DIR}/manifests)
foreach(manifest IN LISTS manifests)
  cmake_path(GET manifest FILENAME name)
  file(RENAME ${manifest} ${WORK_DIR}/manifests/${name})
endforeach()
step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${root})
file(GLOB_RECURSE installed LIST_DIRECTORIES FALSE RELATIVE ${root} ${root}/*)
step(${CMAKE_COMMAND} --build ${BUILD_DIR} --target uninstall)
foreach(manifest IN LISTS manifests)
  cmake_path(GET manifest FILENAME name)
  file(RENAME ${WORK_DIR}/manifests/${name} ${manifest})
endforeach()

foreach(file bin/zeph share/doc/zeph/LICENSE share/doc/zeph_solver/LICENSE share/doc/zttypes/LICENSE
        share/man/man1/zeph.1 share/bash-completion/completions/zeph include/zeph/zeph_c.h)
  if(NOT file IN_LIST installed)
    message(FATAL_ERROR "${file} was not installed:\n${installed}")
  endif()
endforeach()
file(GLOB_RECURSE left LIST_DIRECTORIES FALSE RELATIVE ${root} ${root}/*)
if(NOT left STREQUAL "include/zeph/mine.h;share/doc/other/LICENSE" OR EXISTS ${root}/share/doc/zeph
   OR EXISTS ${root}/include/zeph_solver)
  message(FATAL_ERROR "left over: ${left}")
endif()
