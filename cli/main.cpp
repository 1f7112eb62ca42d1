#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <iostream>
#include <new>
#include <string>

#include "cli/application.h"
#include "cli/processes.h"
#include "zeph/error.h"

namespace {

constexpr int kUnexpected = 70;

// What stands in a buffer is lost without a word when the program ends before it is written.
int flushed(const zeph::Console& console, int status) {
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::cout.good()) return status;
  zeph::endIfUnread();
  console.error("standard output cannot be written");
  return exitCode(zeph::ErrorKind::Output);
}

int run(zeph::Application& z) {
  zeph::Console& console = z.console;
  console.start();
  zeph::stopCleanlyOnInterrupt(console, console.manner.mute);
  const auto failed = [&](int status, const char* sentence) {
    zeph::endIfUnread();
    console.finish();
    console.error(sentence);
    return status;
  };
  try {
    const int status = z.action();
    console.finish();
    if (console.manner.json && !console.manner.mute)
      std::printf("%s\n", console.figures.text().c_str());
    return flushed(console, status);
  } catch (const zeph::Error& error) {
    const bool stopped = error.kind() == zeph::ErrorKind::Cancelled;
    return failed(exitCode(error.kind()), stopped ? zeph::stopSentence() : error.what());
  }
}

// Commands that processes share; and those that the first process answers alone.
bool isOneOf(const CLI::App& app, std::initializer_list<const char*> names) {
  const std::string name = app.get_subcommands().front()->get_name();
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Of several processes one speaks, and ends with the exit status of all: the end of another one
// would have mpirun end the first before it has spoken.
int parseAndRun(int argc, char** argv) {
  zeph::Application z;
  const zeph::Processes all = zeph::processes();
  z.console.manner.mute = !all.first();
  try {
    z.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (!all.first()) return 0;
    if (error.get_exit_code() == 0) return flushed(z.console, z.app.exit(error));  // --help
    z.console.error(explanation(z, error, argc, argv));
    return exitCode(zeph::ErrorKind::Usage);
  }
  if (all.count > 1 && !isOneOf(z.app, {"variances", "solve", "logdet"})) {
    if (!all.first()) return 0;
    if (!isOneOf(z.app, {"help", "version"})) {
      z.console.error(z.app.get_subcommands().front()->get_name() +
                      " is for one process; run it without mpirun (variances, solve and logdet "
                      "share their work)");
      return exitCode(zeph::ErrorKind::Usage);
    }
  }
  return run(z);
}

}  // namespace

int main(int argc, char** argv) {
  // A file above the limit (ulimit -f) is to be told as a full disk is.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    return parseAndRun(argc, argv);
  } catch (const std::bad_alloc&) {  // perhaps for the list of options already
    std::fputs("zeph: not enough memory for this matrix; try a machine with more\n", stderr);
    return exitCode(zeph::ErrorKind::Memory);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zeph: %s\n", error.what());
    return kUnexpected;
  }
}
