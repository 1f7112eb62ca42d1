// What several sub-commands have in common: arguments, options, files.
#ifndef ZEPH_CLI_COMMAND_PARTS_H
#define ZEPH_CLI_COMMAND_PARTS_H

#include <CLI/CLI.hpp>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "cli/application.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/matrix_file.h"
#include "zeph/options.h"
#include "zeph/report.h"

namespace zeph {

/// The arguments that most commands share.
struct Files {
  std::string first;
  std::string second;
  std::string output = "-";
  std::string permutation;
  std::string name;
  std::string format = "auto";
  std::string memory;
  const char* memoryHelp = "most memory to take, such as 2G; more is refused before the work";
  std::string scratch;
  bool oneBased = false;
  bool force = false;
};

/// A sub-command whose options live as long as the action that is made from them.
template <class Options, class Work>
CLI::App* declare(Application& z, const char* name, const char* summary, const char* examples,
                  std::shared_ptr<Options> options, Work work) {
  CLI::App* command = z.app.add_subcommand(name, summary);
  command->footer(std::string("Examples:\n") + examples);
  command->add_flag("-q,--quiet", z.console.manner.quiet, "no progress and no notes");
  command->add_flag("-v,--verbose", z.console.manner.verbose, "how the result came about");
  command->add_flag("--json", z.console.manner.json,
                    "figures, and what no -o takes, as one JSON object on standard output");
  command->callback([&z, options, work] {
    z.action = [&z, options, work] { return work(*options, z.console); };
  });
  return command;
}

/// Whole numbers from low to high, refused in one sentence.
CLI::Validator wholeNumber(long long low, long long high);

/// Bytes: 500M, 2G, 1.5GiB.
CLI::Validator memorySize();
double bytesOf(const std::string& text);

/// An argument without a dash, which has to be there; help shows `shape` for it.
void addArgument(CLI::App* command, const char* name, std::string& target, const char* help,
                 const char* shape);
void addOutput(CLI::App* command, Files& files, const char* help);
void addForce(CLI::App* command, Files& files);
void addInput(CLI::App* command, Files& files);
void addMemory(CLI::App* command, Files& files);

/// Memory, and the folder for a factor that exceeds it.
void addFactorMemory(CLI::App* command, Files& files);

struct RouteFlags {
  bool cholesky = false;
  bool lu = false;
  bool luSolves = false;

  Route route() const {
    if (cholesky) return Route::Cholesky;
    if (lu) return Route::Lu;
    return luSolves ? Route::LuSolves : Route::Automatic;
  }
};

/// `solves`: with LuSolves.
void addRoutes(CLI::App* command, RouteFlags& flags, bool solves = false);
void addEngineChoice(CLI::App* command, std::string& engine);
/// The same with those of the distributed component.
void addAllEngines(CLI::App* command, std::string& engine, bool cholmod);

/// What the user says of A where its file does not.
struct FormFlags {
  bool symmetric = false;
  bool general = false;

  void declare(SparseMatrix& A) const {
    if (symmetric) declareSymmetric(A);
    A.triangular = general;
  }
};

void addForms(CLI::App* command, FormFlags& flags);

/// A locked door is better found before the work than after it. A file that is read as well is
/// overwritten only with --force.
void requireOutput(const Files& files, const std::string& output,
                   std::initializer_list<std::string> inputs);

/// The same, where the name's ending chooses the form of a matrix.
void requireMatrixOutput(const Files& files, std::initializer_list<std::string> inputs);

/// Two results need a file each.
void requireTwoOutputs(const Files& files, const char* option, const std::string& second,
                       std::initializer_list<std::string> inputs);

/// With --json a matrix does not share standard output with the figures.
void requireNamedOutput(const Files& files, const Console& console);

/// True when the result goes into the JSON object.
inline bool inFigures(const Files& files, const Console& console) {
  return console.manner.json && files.output == "-";
}

ReadOptions readOptions(const Files& files, const Console& console);
SparseMatrix load(const Files& files, const Console& console, const FormFlags& form = FormFlags());
DenseMatrix loadDense(const Files& files, const std::string& path, const Console& console);

/// Stages of the library as the command's own, with its checkpoints.
Options shownOn(const Console& console, const Files& files);

/// Where the user has set a limit to memory: throws Error(Memory) unless a factor by another engine
/// than ours, which is as large, stays below it.
void requirePlanned(const SparseMatrix& A, Route route, Options options);

/// " and a scratch file of 1.5 GB", or nothing.
std::string scratchText(const Report& report);

/// The report of a factorisation: among the figures, and told where --verbose asks for it. With an
/// index base its unknowns are those of the matrix, counted from there.
void tellReport(const Report& report, Console& console, const std::size_t* indexBase = nullptr);

}  // namespace zeph

#endif
