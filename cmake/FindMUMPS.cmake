# Finds the parallel MUMPS in double precision and defines MUMPS::dmumps. The sequential one, which
# brings an mpi.h of its own, is another library (dmumps_seq) and is never taken.
find_path(MUMPS_INCLUDE_DIR NAMES dmumps_c.h)
find_library(MUMPS_LIBRARY NAMES dmumps)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(MUMPS REQUIRED_VARS MUMPS_LIBRARY MUMPS_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "install the parallel MUMPS (Debian: libmumps-dev)")

if(MUMPS_FOUND AND NOT TARGET MUMPS::dmumps)
  add_library(MUMPS::dmumps UNKNOWN IMPORTED)
  set_target_properties(MUMPS::dmumps PROPERTIES
    IMPORTED_LOCATION "${MUMPS_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${MUMPS_INCLUDE_DIR}")
endif()
mark_as_advanced(MUMPS_INCLUDE_DIR MUMPS_LIBRARY)
