# ZEPH_MPI_FOUND: whether there is what the distributed component is built with.
set(required)
if(ZEPH_REQUIRE_MPI)
  set(required REQUIRED)
endif()
set(MPI_CXX_SKIP_MPICXX ON)
find_package(MPI ${required} QUIET COMPONENTS CXX)
find_package(MUMPS ${required} QUIET)
find_library(ZEPH_SCALAPACK NAMES scalapack-openmpi scalapack ${required})
set(ZEPH_MPI_FOUND OFF)
if(MPI_CXX_FOUND AND MUMPS_FOUND AND ZEPH_SCALAPACK)
  set(ZEPH_MPI_FOUND ON)
else()
  message(STATUS "Without the distributed component: MPI, the parallel MUMPS or ScaLAPACK is missing "
                 "(Debian: libopenmpi-dev libmumps-dev libscalapack-openmpi-dev)")
endif()

# For tests: processes that may outnumber the processors, as root in a container, without looking for
# fast networks.
set(ZEPH_MPI_TEST_ENVIRONMENT
  OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 OMPI_MCA_mpi_yield_when_idle=1
  OMPI_MCA_btl=self,vader OMPI_MCA_btl_vader_single_copy_mechanism=none
  OMPI_MCA_rmaps_base_oversubscribe=1 OPENBLAS_NUM_THREADS=1)
if(ZEPH_SANITIZE)  # what Open MPI and its plug-ins keep until the end counts as leaks
  list(APPEND ZEPH_MPI_TEST_ENVIRONMENT ASAN_OPTIONS=detect_leaks=0)
endif()
