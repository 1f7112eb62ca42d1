#include "solver/library.h"

// Both flags are plain bytes on purpose: a race can only set the same byte to 1 twice.
unsigned char gHaveDoneGlobalZephSolverInit = 0;

void doZephSolverGlobalInit() {
  if (gHaveDoneGlobalZephSolverInit == 0) gHaveDoneGlobalZephSolverInit = 1;
}

namespace zeph_solver {

unsigned char terminated = 0;

LibraryVersion getDllVersion() {
  return {1, 0, 0, 6101, 111201, ZtString("built on 2021-07-13")};
}

void terminate() {
  if (terminated == 0) terminated = 1;
}

}  // namespace zeph_solver

// Run by the dynamic loader when the library comes and goes.
extern "C" {
__attribute__((constructor)) void so_init() {
  doZephSolverGlobalInit();
}

__attribute__((destructor)) void so_fini() {
  zeph_solver::terminate();
}
}
