# Installs the package from BUILD_DIR into a folder of its own, moves it, and builds and runs the
# programs of this folder against it with every compiler that there is; then by pkg-config.
include(${CMAKE_CURRENT_LIST_DIR}/../step.cmake)
set(root ${WORK_DIR}/moved)
file(REMOVE_RECURSE ${WORK_DIR})
step(${CMAKE_COMMAND} --install ${BUILD_DIR} --component zeph --prefix ${WORK_DIR}/root)
file(RENAME ${WORK_DIR}/root ${root})

foreach(compilers "gcc;g++" "clang;clang++")
  list(GET compilers 0 c)
  list(GET compilers 1 cxx)
  find_program(${c}_found ${c})
  find_program(${cxx}_found ${cxx})
  if(NOT ${c}_found OR NOT ${cxx}_found)
    continue()
  endif()
  set(build ${WORK_DIR}/${c})
  step(${CMAKE_COMMAND} -G Ninja -S ${CMAKE_CURRENT_LIST_DIR} -B ${build} -DCMAKE_C_COMPILER=${c}
       -DCMAKE_CXX_COMPILER=${cxx} -DCMAKE_PREFIX_PATH=${root} -DHEADERS=${root}/include)
  step(${CMAKE_COMMAND} --build ${build})
  step(${build}/factor_host)
  step(${build}/zeph_host)
endforeach()

# A program needs the one library and none of what stands behind it.
step(readelf -d ${build}/factor_host)
if(NOT said MATCHES "NEEDED[^\n]*libzeph\\.so\\.1" OR
   said MATCHES "NEEDED[^\n]*(zeph_solver|zttypes|cholmod|umfpack|amd|metis|openblas)")
  message(FATAL_ERROR "the program needs other libraries than it should:\n${said}")
endif()

set(ENV{PKG_CONFIG_PATH} ${root}/${LIBDIR}/pkgconfig)
step(pkg-config --cflags --libs zeph)
separate_arguments(flags UNIX_COMMAND "${said}")
step(cc -std=c11 ${CMAKE_CURRENT_LIST_DIR}/zeph_host.c -o ${WORK_DIR}/by_pkg_config ${flags} -lm
     -Wl,-rpath,${root}/${LIBDIR})
step(${WORK_DIR}/by_pkg_config)
