# What is installed. The lists of headers are explicit: a header that one of these includes has to
# be in the list, must compile as C++17 and must not need symbols that the package hides. A test
# compiles and links each of them alone against the installed tree.
include(ZephPackage)

if(TARGET zeph)
  set_target_properties(zeph PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS zeph RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  zeph_install_licence(tools zeph)
  set(manual zeph.1)
  set(zsh_folder site-functions)
  if(ZEPH_DEBIAN_PACKAGES)
    set(manual zeph.1.gz)
    set(zsh_folder vendor-completions)
  endif()
  install(FILES ${ZEPH_DOCUMENTS_DIR}/${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
          COMPONENT tools)
  install(FILES ${ZEPH_DOCUMENTS_DIR}/zeph.bash RENAME zeph
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  install(FILES ${ZEPH_DOCUMENTS_DIR}/_zeph
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_folder} COMPONENT tools)
  install(FILES ${ZEPH_DOCUMENTS_DIR}/zeph.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
endif()

if(TARGET zeph_solver)
  zeph_install_package(zeph_solver
    TARGETS zeph_solver korin zttypes
    INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/zeph_solver
    HEADERS
      kernels/crew.h
      math/containers/allocator.h
      math/containers/skiplist.h
      math/containers/sparsematrix.h
      math/containers/sparsemxmatrix.h
      math/containers/sparsevector.h
      math/dense/korin_export.h
      math/dense/korin_matrix.h
      math/dense/korin_sparse_info.h
      math/dense/korin_vector.h
      math/functions/korin_math_base.h
      math/functions/korin_quaternion.h
      math/korin.h
      math/sorting/mtsort.h
      math/sorting/mtsort_order.h
      math/sorting/mtsort_steps.h
      solver/assembly/protosparse.h
      solver/assembly/sparsexmlmatrix.h
      solver/ldl_minimal_set.h
      solver/library.h
      solver/partial_inverse_chol.h
      solver/partial_inverse_lu.h
      solver/partial_inverse_sqrt.h
      solver/selected_inverse.h
      solver/solver.h
      solver/suitesparse/suitesparse_handles.h
      solver/zeph_export.h
      solver/zeph_solver.h
      types/zttypes.h
    DEPENDS Threads
    PKG_CONFIG_LIBS -lzeph_solver -lzttypes)
endif()

if(TARGET zeph_public)
  zeph_install_package(zeph
    TARGETS zeph_public
    INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}
    HEADERS
      zeph/adjust.h
      zeph/adjustment_report.h
      zeph/api.h
      zeph/dense_matrix.h
      zeph/error.h
      zeph/factor.h
      zeph/matrix_file.h
      zeph/options.h
      zeph/pose_graph.h
      zeph/report.h
      zeph/sparse_matrix.h
      zeph/zeph.h
      zeph/zeph_c.h
    PKG_CONFIG_LIBS -lzeph)
endif()

if(TARGET zeph_distributed)
  zeph_install_package(zeph_distributed
    TARGETS zeph_distributed
    COMPONENT_OF zeph
    INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/zeph_distributed
    HEADERS
      distributed/distributed_factor.h
    DEPENDS "MPI COMPONENTS CXX"
    PKG_CONFIG_LIBS -lzeph_distributed
    PKG_CONFIG_REQUIRES zeph ompi-cxx)
endif()

# What both libraries call on their own behalf.
zeph_install_licence(zttypes zttypes)
if(NOT TARGET zeph_solver)
  install(TARGETS zttypes LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT zttypes
          NAMELINK_SKIP)
endif()

if(ZEPH_DEBIAN_PACKAGES)
  include(ZephDebian)
else()
  include(ZephUninstall)
endif()
