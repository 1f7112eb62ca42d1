#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <new>

#include "cli/application.h"
#include "cli/terminal_progress.h"
#include "zeph/error.h"

namespace {

constexpr int kUnexpected = 70;

int fail(int status, const char* sentence) {
  std::fprintf(stderr, "zeph: %s\n", sentence);
  return status;
}

// What stands in a buffer is lost without a word when the program ends before it is written.
int flushed(int status) {
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::cout.good()) return status;
  return fail(exitCode(zeph::ErrorKind::Output), "standard output cannot be written");
}

int run(const zeph::Action& action) {
  zeph::TerminalProgress progress;
  zeph::stopCleanlyOnInterrupt(progress);
  try {
    const int status = action(progress);
    progress.finish();
    return flushed(status);
  } catch (const zeph::Error& error) {
    progress.finish();
    return fail(exitCode(error.kind()), error.what());
  } catch (const std::bad_alloc&) {
    progress.finish();
    return fail(exitCode(zeph::ErrorKind::Memory),
                "not enough memory for this matrix; try a machine with more");
  } catch (const std::exception& error) {
    progress.finish();
    return fail(kUnexpected, error.what());
  }
}

}  // namespace

// Without memory for the list of options there is nothing to report with either.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
  CLI::App app;
  zeph::Action action;
  zeph::declareApplication(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return flushed(app.exit(error));  // --help
    std::fprintf(stderr, "zeph: %s\nTry zeph --help.\n", error.what());
    return exitCode(zeph::ErrorKind::Usage);
  }
  return run(action);
}
