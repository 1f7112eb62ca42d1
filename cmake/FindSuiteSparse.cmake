# Finds CHOLMOD and UMFPACK and defines SuiteSparse::CHOLMOD and SuiteSparse::UMFPACK.
find_path(SuiteSparse_INCLUDE_DIR NAMES cholmod.h PATH_SUFFIXES suitesparse)
find_library(SuiteSparse_CHOLMOD_LIBRARY NAMES cholmod)
find_library(SuiteSparse_UMFPACK_LIBRARY NAMES umfpack)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(SuiteSparse
  REQUIRED_VARS SuiteSparse_CHOLMOD_LIBRARY SuiteSparse_UMFPACK_LIBRARY SuiteSparse_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "install the SuiteSparse development package (Debian: libsuitesparse-dev)")

if(SuiteSparse_FOUND)
  foreach(part CHOLMOD UMFPACK)
    if(NOT TARGET SuiteSparse::${part})
      add_library(SuiteSparse::${part} UNKNOWN IMPORTED)
      set_target_properties(SuiteSparse::${part} PROPERTIES
        IMPORTED_LOCATION "${SuiteSparse_${part}_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${SuiteSparse_INCLUDE_DIR}")
    endif()
  endforeach()
endif()
mark_as_advanced(SuiteSparse_INCLUDE_DIR SuiteSparse_CHOLMOD_LIBRARY SuiteSparse_UMFPACK_LIBRARY)
