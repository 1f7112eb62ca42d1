# Installs the package from BUILD_DIR into a folder of its own and builds and runs the programs of
# this folder against it, outside the tree.
set(root ${WORK_DIR}/root)
file(REMOVE_RECURSE ${WORK_DIR})

include(${CMAKE_CURRENT_LIST_DIR}/step.cmake)
function(configure name)
  step(${CMAKE_COMMAND} -G Ninja -S ${CMAKE_CURRENT_LIST_DIR} -B ${WORK_DIR}/${name}
       -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_BUILD_TYPE=Release ${ARGN})
endfunction()

foreach(component zeph_solver zeph_solver_dev zttypes)
  step(${CMAKE_COMMAND} --install ${BUILD_DIR} --component ${component} --prefix ${root})
endforeach()
configure(installed -DCMAKE_PREFIX_PATH=${root} -DHEADERS=${root}/include/zeph_solver)
step(${CMAKE_COMMAND} --build ${WORK_DIR}/installed)
step(${WORK_DIR}/installed/host)
step(${WORK_DIR}/installed/dense_host)

# The host needs the two shared libraries of this project and none of what stands behind them.
step(readelf -d ${WORK_DIR}/installed/host)
foreach(library zeph_solver zttypes)
  if(NOT said MATCHES "NEEDED[^\n]*lib${library}\\.so\\.1")
    message(FATAL_ERROR "the host does not need lib${library}.so.1:\n${said}")
  endif()
endforeach()
if(said MATCHES "NEEDED[^\n]*(cholmod|umfpack|korin|openblas)")
  message(FATAL_ERROR "the host needs more than the two shared libraries:\n${said}")
endif()

# The same by pkg-config, from a tree that has been moved.
file(RENAME ${root} ${root}-moved)
set(ENV{PKG_CONFIG_PATH} ${root}-moved/${LIBDIR}/pkgconfig)
step(pkg-config --cflags --libs zeph_solver)
separate_arguments(flags UNIX_COMMAND "${said}")
step(${COMPILER} -std=c++17 ${CMAKE_CURRENT_LIST_DIR}/host.cpp -o ${WORK_DIR}/by_pkg_config ${flags}
     -Wl,-rpath,${root}-moved/${LIBDIR})
step(${WORK_DIR}/by_pkg_config)

# The build tree serves as a package, too, and the repository as a part of another project.
configure(from_build -Dzeph_solver_DIR=${BUILD_DIR})
step(${CMAKE_COMMAND} --build ${WORK_DIR}/from_build)
configure(from_source -DZEPH_SOURCE=${SOURCE_DIR})
