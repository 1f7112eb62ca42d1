// The sub-commands of zeph. Each function declares one on the application; its work is done by the
// checked layer in zeph/.
#ifndef ZEPH_CLI_COMMANDS_H
#define ZEPH_CLI_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>

#include "zeph/checks/progress.h"

namespace zeph {

/// What a parsed command line asks for: runs the sub-command and returns the exit status.
using Action = std::function<int(const Progress&)>;

void declareVariances(CLI::App& app, Action& action);
void declareSolve(CLI::App& app, Action& action);
void declareCovariance(CLI::App& app, Action& action);
void declareSelectedInverse(CLI::App& app, Action& action);
void declareLogDeterminant(CLI::App& app, Action& action);
void declarePlan(CLI::App& app, Action& action);
void declareAdjust(CLI::App& app, Action& action);
void declarePoseGraph(CLI::App& app, Action& action);
void declareCheck(CLI::App& app, Action& action);
void declareConvert(CLI::App& app, Action& action);
void declareFactor(CLI::App& app, Action& action);
void declarePattern(CLI::App& app, Action& action);
void declareMultiply(CLI::App& app, Action& action);
void declareExport(CLI::App& app, Action& action);
void declareDemo(CLI::App& app, Action& action);
void declareVersion(CLI::App& app, Action& action);

}  // namespace zeph

#endif
