# What cpack makes Debian packages from: one for each install component, each with its copyright and
# changelog. scripts/build-packages configures, builds and packs.
set(ZEPH_PACKAGE_MAINTAINER "Developers of libzeph_solver <developers@libzeph-solver.invalid>" CACHE STRING
    "Name and address that the packages carry")
set(ZEPH_DEBIAN_VERSION ${PROJECT_VERSION}-1)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGE_CONTACT ${ZEPH_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # every package has its own
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE zeph)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/types)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake)
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)

# Files that every package holds.
set(folder ${PROJECT_BINARY_DIR}/debian)
file(READ ${PROJECT_SOURCE_DIR}/LICENSE licence)
string(REGEX MATCH "Copyright \\(c\\) ([^\n]*)\n+(.*[^\n])\n*$" all "${licence}")
set(holder ${CMAKE_MATCH_1})
string(REPLACE "\n\n" "\n.\n" licence "${CMAKE_MATCH_2}")
string(REPLACE "\n" "\n " licence " ${licence}")
configure_file(cmake/debian/copyright.in ${folder}/copyright @ONLY)
set(environment "$ENV{SOURCE_DATE_EPOCH}")
set(ENV{SOURCE_DATE_EPOCH} ${ZEPH_SOURCE_EPOCH})
string(TIMESTAMP day "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(ENV{SOURCE_DATE_EPOCH} ${environment})
file(WRITE ${folder}/epoch "${ZEPH_SOURCE_EPOCH}\n")
configure_file(cmake/debian/changelog.in ${folder}/changelog.Debian @ONLY)
execute_process(COMMAND gzip -9nkf ${folder}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)

# zeph_debian_package(COMPONENT PACKAGE SECTION SUMMARY TEXT [DEPENDS dependency...])
# A package libNAME1 holds libNAME.so.1. What the dynamic linker needs
# is found out, and added to the dependencies given.
function(zeph_debian_package component package section summary text)
  cmake_parse_arguments(PARSE_ARGV 5 arg "" "" "DEPENDS")
  string(TOUPPER ${component} name)
  list(JOIN arg_DEPENDS ", " depends)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_DESCRIPTION "${summary}\n${text}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${name}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
  if(package MATCHES "^lib(.+[^0-9])([0-9]+)$")
    string(REPLACE "-" "_" library ${CMAKE_MATCH_1})
    file(WRITE ${folder}/${package}/shlibs
         "lib${library} ${CMAKE_MATCH_2} ${package} (>= ${PROJECT_VERSION})\n")
    file(WRITE ${folder}/${package}/triggers "activate-noawait ldconfig\n")
    set(CPACK_DEBIAN_${name}_PACKAGE_CONTROL_EXTRA
        ${folder}/${package}/shlibs ${folder}/${package}/triggers PARENT_SCOPE)
  endif()
  install(FILES ${folder}/copyright ${folder}/changelog.Debian.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()

set(exactly "(= ${ZEPH_DEBIAN_VERSION})")
set(generation ${PROJECT_VERSION_MAJOR})
zeph_debian_package(zttypes libzttypes${generation} libs
  "dense value records of the zeph libraries"
  "Vectors, matrices and strings that libzeph-solver and its hosts pass to each\nother, and the functions that own their buffers.")
zeph_debian_package(zeph libzeph${generation} libs
  "sparse direct solver with variances - library"
  "Orders, factorises and solves sparse linear systems, and computes the entries\nof the inverse that estimation needs: variances, covariances, log-determinants."
  DEPENDS "libzttypes${generation} ${exactly}")
zeph_debian_package(zeph_dev libzeph-dev libdevel
  "sparse direct solver with variances - development files"
  "Headers for C++17 and C11, CMake package and pkg-config file of libzeph."
  DEPENDS "libzeph${generation} ${exactly}")
if(TARGET zeph_solver)
  zeph_debian_package(zeph_solver libzeph-solver${generation} libs
    "sparse assembly, direct solves and partial inverses - library"
    "Assembles sparse matrices from entries and blocks, solves with them, and\ncomputes the diagonal of the inverse from a sparse factor."
    DEPENDS "libzttypes${generation} ${exactly}")
  zeph_debian_package(zeph_solver_dev libzeph-solver-dev libdevel
    "sparse assembly, direct solves and partial inverses - development files"
    "Headers for C++17, CMake package and pkg-config file of libzeph-solver, and its\ndense library as a static one."
    DEPENDS "libzeph-solver${generation} ${exactly}" "libzttypes${generation} ${exactly}"
            libsuitesparse-dev libmetis-dev)
endif()
if(TARGET zeph_distributed)
  zeph_debian_package(zeph_distributed libzeph-distributed${generation} libs
    "sparse direct solver with variances - several processes"
    "Spreads factors over the processes of MPI, and computes their solutions,\nvariances and determinants there; mpirun zeph loads it."
    DEPENDS openmpi-bin)
  zeph_debian_package(zeph_distributed_dev libzeph-distributed-dev libdevel
    "sparse direct solver with variances - several processes, development files"
    "Headers for C++17, component of the CMake package and pkg-config file of\nlibzeph-distributed."
    DEPENDS "libzeph-distributed${generation} ${exactly}" "libzeph-dev ${exactly}" libopenmpi-dev)
endif()
zeph_debian_package(tools zeph math
  "sparse linear systems and variances on the command line"
  "Solves sparse linear systems, computes variances and covariances, adjusts\nobservations by least squares and optimises pose graphs, from Matrix Market\nand CSV files."
  DEPENDS "libzttypes${generation} ${exactly}")
if(TARGET zeph_distributed)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS libzeph-distributed${generation})
endif()
if(TARGET zeph_python)
  math(EXPR next "${ZEPH_PYTHON_MINOR} + 1")
  zeph_debian_package(python python3-zeph python
    "sparse direct solver with variances - Python module"
    "Factors of SciPy's sparse matrices, and what their inverses hold: variances,\ncovariances, samples; least squares and pose graphs."
    DEPENDS "libzttypes${generation} ${exactly}" "python3 (>= 3.${ZEPH_PYTHON_MINOR})"
            "python3 (<< 3.${next})" python3-numpy python3-scipy)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS python3-matplotlib)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
      ${PROJECT_SOURCE_DIR}/cmake/debian/postinst ${PROJECT_SOURCE_DIR}/cmake/debian/prerm)
endif()
include(CPack)
