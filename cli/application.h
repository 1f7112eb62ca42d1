// The whole command line of zeph as one declaration: the program parses with it, and the manual
// page and the completions are written from it.
#ifndef ZEPH_CLI_APPLICATION_H
#define ZEPH_CLI_APPLICATION_H

#include <CLI/CLI.hpp>

#include "cli/commands.h"

namespace zeph {

/// Declares everything on app; a parse leaves what was asked for in action, which must outlive it.
void declareApplication(CLI::App& app, Action& action);

}  // namespace zeph

#endif
