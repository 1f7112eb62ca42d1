// What has to happen before the shared libraries are initialised.
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

namespace {

constexpr const char kThreads[] = "OPENBLAS_NUM_THREADS";
constexpr std::size_t kMostVariables = 4096;

// OpenBLAS takes buffers for every processor while it is loaded, and where a limit on address space
// (ulimit -v) does not leave them, it tries for ever or ends the process. With one thread it takes
// none until it is called. The C library is not yet set up here: only system calls.
void limitBlas(int, char** argv, char** environment) {
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return;
  static char one[] = "OPENBLAS_NUM_THREADS=1";
  static char* with[kMostVariables + 2];
  std::size_t count = 0;
  for (; environment[count] != nullptr; ++count) {
    const bool set = std::strncmp(environment[count], kThreads, sizeof kThreads - 1) == 0;
    if (set || count == kMostVariables) return;
    with[count] = environment[count];
  }
  with[count] = one;
  execve("/proc/self/exe", argv, with);
}

using Early = void (*)(int, char**, char**);

}  // namespace

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
[[gnu::section(".preinit_array"), gnu::used]] static Early gEarly = limitBlas;
#endif
