// To be preloaded into a program: one call of a function of the C library goes wrong there.
//
//   ZEPH_FAULT="FUNCTION COUNT ERROR MARK NAMELESS"
//
// From its COUNT-th call on, FUNCTION fails with the number ERROR where that is positive; with
// ERROR 0 one write is short; below 0 that one call is preceded by the signal -ERROR. Positive
// errors below EDQUOT + 1 come once; 1000 more, and every later call fails too. A byte in the file
// descriptor MARK tells that it has happened. NAMELESS 0: there are no files without a name.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <initializer_list>

namespace {

constexpr int kLasting = 1000;

char function[16];
long first = 0;
int error = 0, mark = -1, nameless = 1;
std::atomic<long> calls{0};
using Main = int(int, char**, char**);
Main* programsMain = nullptr;
bool begun = false;  // whether main() runs; before, the libraries' own initialisation does

const struct Start {
  Start() {
    const char* fault = getenv("ZEPH_FAULT");
    char name[16];
    if (fault == nullptr) return;
    sscanf(fault, "%15s %ld %d %d %d", name, &first, &error, &mark, &nameless);
    memcpy(function, name, sizeof name);
  }
} start;

bool strikes(const char* name) {
  if (!begun || strcmp(name, function) != 0) return false;
  const long call = ++calls;
  if (call < first || (call > first && error < kLasting)) return false;
  if (call == first) syscall(SYS_write, mark, "x", 1);
  if (error < 0) kill(getpid(), -error);
  errno = error % kLasting;
  return error >= 0;
}

bool hostsSpared = false;

bool allocationFails(void* caller) {
  if (!begun) return false;
  Dl_info from;
  if (hostsSpared && dladdr(caller, &from) != 0 && from.dli_fname != nullptr) {
    for (const char* host : {"/bin/python", "libpython", "lib-dynload", "numpy", "scipy"}) {
      if (strstr(from.dli_fname, host) != nullptr) return false;
    }
  }
  return strikes("malloc");
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int beginMain(int argc, char** argv, char** environment) {
  begun = true;
  return programsMain(argc, argv, environment);
}

// What the system itself offers is asked for at the start, by libraries too.
bool ofTheSystem(const char* path) {
  return strncmp(path, "/sys", 4) == 0 || strncmp(path, "/proc", 5) == 0;
}

}  // namespace

extern "C" {

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

int __libc_start_main(Main* main, int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*rtld)(), void* stack) {
  programsMain = main;
  using Start = int(Main*, int, char**, void (*)(), void (*)(), void (*)(), void*);
  return next<Start>("__libc_start_main")(beginMain, argc, argv, init, fini, rtld, stack);
}

// For Python programs: from here on the COUNT-th allocation fails, that one alone; with 0 none
// does. Those of Python, NumPy and SciPy do not count, as NumPy does not survive failures of its
// own. Returns whether the one asked for before has failed.
int zeph_fail_allocation(long count) {
  const bool failed = first > 0 && calls >= first;
  begun = false;
  memcpy(function, "malloc", sizeof "malloc");
  calls = 0;
  first = count;
  error = ENOMEM;
  begun = hostsSpared = count > 0;
  return failed ? 1 : 0;
}

void* malloc(size_t bytes) {
  return allocationFails(__builtin_return_address(0)) ? nullptr : __libc_malloc(bytes);
}
void* calloc(size_t count, size_t bytes) {
  return allocationFails(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, bytes);
}
void* realloc(void* block, size_t bytes) {
  return allocationFails(__builtin_return_address(0)) ? nullptr : __libc_realloc(block, bytes);
}

ssize_t write(int file, const void* bytes, size_t count) {
  if (file != STDERR_FILENO && strikes("write")) {
    if (errno != 0) return -1;
    count = (count + 1) / 2;
  }
  return syscall(SYS_write, file, bytes, count);
}
ssize_t pwrite(int file, const void* bytes, size_t count, off_t at) {
  return strikes("pwrite") ? -1 : syscall(SYS_pwrite64, file, bytes, count, at);
}
int fallocate(int file, int mode, off_t at, off_t count) {
  return strikes("fallocate") ? -1
                              : static_cast<int>(syscall(SYS_fallocate, file, mode, at, count));
}
ssize_t read(int file, void* bytes, size_t count) {
  return strikes("read") ? -1 : syscall(SYS_read, file, bytes, count);
}
int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int mode = va_arg(rest, int);
  va_end(rest);
  if ((flags & O_TMPFILE) == O_TMPFILE && nameless == 0) return errno = EOPNOTSUPP, -1;
  if (!ofTheSystem(path) && strikes("open")) return -1;
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
int close(int file) {  // fails as the system's does: closed all the same
  const bool failing = strikes("close");
  const int reason = errno;
  const int status = static_cast<int>(syscall(SYS_close, file));
  if (!failing) return status;
  errno = reason;
  return -1;
}
int dup(int file) noexcept {
  return strikes("dup") ? -1 : static_cast<int>(syscall(SYS_dup, file));
}
int linkat(int from, const char* a, int to, const char* b, int flags) noexcept {
  return strikes("linkat") ? -1 : static_cast<int>(syscall(SYS_linkat, from, a, to, b, flags));
}
int rename(const char* from, const char* to) noexcept {
  return strikes("rename") ? -1 : static_cast<int>(syscall(SYS_rename, from, to));
}
int mkdir(const char* path, mode_t mode) noexcept {
  return strikes("mkdir") ? -1 : static_cast<int>(syscall(SYS_mkdir, path, mode));
}
int fchmod(int file, mode_t mode) noexcept {
  return strikes("fchmod") ? -1 : static_cast<int>(syscall(SYS_fchmod, file, mode));
}
int access(const char* path, int mode) noexcept {
  return strikes("access") ? -1 : static_cast<int>(syscall(SYS_access, path, mode));
}
int stat(const char* path, struct stat* status) noexcept {
  return strikes("stat") ? -1 : next<int(const char*, struct stat*)>("stat")(path, status);
}
}
