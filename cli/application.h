// The whole command line of zeph as one declaration: the program parses with it, and the manual
// page and the completions are written from it.
#ifndef ZEPH_CLI_APPLICATION_H
#define ZEPH_CLI_APPLICATION_H

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

#include "cli/console.h"

namespace zeph {

/// Everything the command line takes, and what a parsed one asks for. Making one runs nothing.
struct Application {
  Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  CLI::App app;
  Console console;
  /// What a parsed command line asks for: runs the command and returns the exit status.
  std::function<int()> action;
};

/// Why the command line is not understood, in one sentence, and where to read on in a second one.
std::string explanation(const Application& z, const CLI::ParseError& error, int argc,
                        const char* const* argv);

}  // namespace zeph

#endif
