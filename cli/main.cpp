#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <new>

#include "cli/application.h"
#include "zeph/error.h"

namespace {

constexpr int kUnexpected = 70;

// What stands in a buffer is lost without a word when the program ends before it is written.
int flushed(const zeph::Console& console, int status) {
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::cout.good()) return status;
  console.error("standard output cannot be written");
  return exitCode(zeph::ErrorKind::Output);
}

int run(zeph::Application& z) {
  zeph::Console& console = z.console;
  console.start();
  zeph::stopCleanlyOnInterrupt(console);
  const auto failed = [&](int status, const char* sentence) {
    console.finish();
    console.error(sentence);
    return status;
  };
  try {
    const int status = z.action();
    console.finish();
    if (console.manner.json) std::printf("%s\n", console.figures.text().c_str());
    return flushed(console, status);
  } catch (const zeph::Error& error) {
    return failed(exitCode(error.kind()), error.what());
  } catch (const std::bad_alloc&) {
    return failed(exitCode(zeph::ErrorKind::Memory),
                  "not enough memory for this matrix; try a machine with more");
  } catch (const std::exception& error) {
    return failed(kUnexpected, error.what());
  }
}

}  // namespace

// Without memory for the list of options there is nothing to report with either.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
  zeph::Application z;
  try {
    z.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return flushed(z.console, z.app.exit(error));  // --help
    z.console.error(explanation(z, error, argc, argv));
    return exitCode(zeph::ErrorKind::Usage);
  }
  return run(z);
}
