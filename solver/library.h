// Version, and the flags that record loading and shutdown of the library.
#ifndef ZEPH_SOLVER_LIBRARY_H
#define ZEPH_SOLVER_LIBRARY_H

#include <cstdint>

#include "solver/zeph_export.h"
#include "types/zttypes.h"

extern "C" {
/// 1 once the library's one-time initialisation has run, which loading does; never 0 again. Only
/// recorded: nothing reads it. Not visible outside the shared library.
extern unsigned char gHaveDoneGlobalZephSolverInit;

/// Makes sure that the one-time initialisation has run. May be called at any time, any number of
/// times.
ZEPH_EXPORT void doZephSolverGlobalInit();
}

namespace zeph_solver {

/// Version major.minor.revision with build number, source revision and the build date as text.
struct LibraryVersion {
  std::int32_t major;               ///< of the version
  std::int32_t minor;               ///< of the version
  std::int32_t revision;            ///< of the version
  std::int32_t build;               ///< number of the build
  std::int32_t repositoryRevision;  ///< of the sources
  ZtString extra;                   ///< the build date
};

/// 1 once `terminate` was called, which unloading does; never 0 again. Only recorded: nothing reads
/// it. Not visible outside the shared library.
extern unsigned char terminated;

/// The version of the library that is loaded.
ZEPH_EXPORT LibraryVersion getDllVersion();

/// Records that the host is shutting down. Releases and stops nothing: every object and function
/// stays usable.
ZEPH_EXPORT void terminate();

}  // namespace zeph_solver

#endif  // ZEPH_SOLVER_LIBRARY_H
