# Finds the components asked for (CHOLMOD, UMFPACK, AMD, ...) and defines SuiteSparse::<component>.
find_path(SuiteSparse_INCLUDE_DIR NAMES SuiteSparse_config.h PATH_SUFFIXES suitesparse)
set(wanted SuiteSparse_INCLUDE_DIR)
foreach(part IN LISTS SuiteSparse_FIND_COMPONENTS)
  string(TOLOWER ${part} name)
  find_library(SuiteSparse_${part}_LIBRARY NAMES ${name})
  list(APPEND wanted SuiteSparse_${part}_LIBRARY)
endforeach()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(SuiteSparse REQUIRED_VARS ${wanted}
  REASON_FAILURE_MESSAGE "install the SuiteSparse development package (Debian: libsuitesparse-dev)")

if(SuiteSparse_FOUND)
  foreach(part IN LISTS SuiteSparse_FIND_COMPONENTS)
    if(NOT TARGET SuiteSparse::${part})
      add_library(SuiteSparse::${part} UNKNOWN IMPORTED)
      set_target_properties(SuiteSparse::${part} PROPERTIES
        IMPORTED_LOCATION "${SuiteSparse_${part}_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${SuiteSparse_INCLUDE_DIR}")
    endif()
  endforeach()
endif()
mark_as_advanced(${wanted})
