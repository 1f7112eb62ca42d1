#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <new>

#include "cli/commands.h"
#include "cli/terminal_progress.h"
#include "zeph/error.h"

namespace {

constexpr int kUnexpected = 70;

constexpr const char* kFooter =
    "Matrices are read from Matrix Market files (coordinate or array; real or integer; general,\n"
    "symmetric or skew-symmetric) or, when the name ends in .csv, from triplets row,col,value.\n"
    "Results go to standard output or to the file given with -o; everything else to standard "
    "error.\n"
    "\n"
    "Exit status: 0 done; 1 zeph check found the matrix unfit; 2 wrong usage; 3 unreadable or\n"
    "malformed input; 4 matrix unfit for the operation; 5 not positive definite; 6 singular;\n"
    "7 output cannot be written; 8 out of memory; 130 interrupted.\n"
    "\n"
    "Examples:\n"
    "  zeph demo\n"
    "  zeph check A.mtx\n"
    "  zeph variances A.mtx -o variances.csv\n"
    "  zeph solve A.mtx b.mtx -o x.mtx\n"
    "  zeph adjust J.mtx y.mtx --sigma s.mtx -o x.csv\n"
    "  zeph variances --help";

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
  CLI::App app("zeph: sparse linear systems and the variances that their inverses hold", "zeph");
  app.footer(kFooter);
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);
  zeph::Action action;
  zeph::declareVariances(app, action);
  zeph::declareSolve(app, action);
  zeph::declareCovariance(app, action);
  zeph::declareSelectedInverse(app, action);
  zeph::declareLogDeterminant(app, action);
  zeph::declarePlan(app, action);
  zeph::declareAdjust(app, action);
  zeph::declarePoseGraph(app, action);
  zeph::declareCheck(app, action);
  zeph::declareConvert(app, action);
  zeph::declareFactor(app, action);
  zeph::declarePattern(app, action);
  zeph::declareMultiply(app, action);
  zeph::declareExport(app, action);
  zeph::declareDemo(app, action);
  zeph::declareVersion(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return flushed(app.exit(error));  // --help
    std::fprintf(stderr, "zeph: %s\nTry zeph --help.\n", error.what());
    return exitCode(zeph::ErrorKind::Usage);
  }
  return run(action);
}
