# Configures, builds and runs the host program outside the tree against PACKAGE_DIR, and checks that
# it needs the two shared libraries of this project and none of what stands behind them.
set(build ${WORK_DIR}/host)
file(REMOVE_RECURSE ${build})

function(step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE failed OUTPUT_VARIABLE said ERROR_VARIABLE said)
  if(failed)
    message(FATAL_ERROR "${ARGN} gave ${failed}:\n${said}")
  endif()
  set(said "${said}" PARENT_SCOPE)
endfunction()

step(${CMAKE_COMMAND} -G Ninja -S ${SOURCE_DIR} -B ${build} -Dzeph_solver_DIR=${PACKAGE_DIR}
     -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_BUILD_TYPE=Release)
step(${CMAKE_COMMAND} --build ${build})
step(${build}/host)
step(readelf -d ${build}/host)
foreach(library zeph_solver zttypes)
  if(NOT said MATCHES "NEEDED[^\n]*lib${library}\\.so\\.1")
    message(FATAL_ERROR "the host does not need lib${library}.so.1:\n${said}")
  endif()
endforeach()
if(said MATCHES "NEEDED[^\n]*(cholmod|umfpack|korin|openblas)")
  message(FATAL_ERROR "the host needs more than the two shared libraries:\n${said}")
endif()
