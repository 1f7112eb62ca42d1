// What several sub-commands have in common: arguments, options, files.
#ifndef ZEPH_CLI_COMMAND_PARTS_H
#define ZEPH_CLI_COMMAND_PARTS_H

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>

#include "cli/commands.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/matrix_file.h"
#include "zeph/options.h"

namespace zeph {

/// The arguments that most commands share.
struct Files {
  std::string first;
  std::string second;
  std::string output = "-";
  std::string permutation;
  std::string name;
};

/// A sub-command whose options live as long as the action that is made from them.
template <class Options, class Work>
CLI::App* declare(CLI::App& app, Action& action, const char* name, const char* summary,
                  const char* examples, std::shared_ptr<Options> options, Work work) {
  CLI::App* command = app.add_subcommand(name, summary);
  command->footer(std::string("Examples:\n") + examples);
  command->callback([&action, options, work] {
    action = [options, work](const Progress& progress) { return work(*options, progress); };
  });
  return command;
}

inline void addOutput(CLI::App* command, std::string& output, const char* help) {
  command->add_option("-o,--output", output, help)->type_name("FILE");
}

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

inline void addRoutes(CLI::App* command, RouteFlags& flags) {
  CLI::Option* cholesky =
      command->add_flag("--cholesky", flags.cholesky, "A is symmetric positive definite");
  command->add_flag("--lu", flags.lu, "A is any non-singular matrix")->excludes(cholesky);
}

inline void addEngineChoice(CLI::App* command, std::string& engine) {
  command->add_option("--engine", engine, "cholmod: by CHOLMOD, for comparison")
      ->check(CLI::IsMember({"zeph", "cholmod"}));
}

/// What the user says of A where its file does not.
struct FormFlags {
  bool symmetric = false;
  bool general = false;

  void declare(SparseMatrix& A) const {
    if (symmetric) declareSymmetric(A);
    A.triangular = general;
  }
};

inline void addForms(CLI::App* command, FormFlags& flags) {
  CLI::Option* symmetric = command->add_flag("--symmetric", flags.symmetric,
                                             "the entries of one triangle of A stand for both");
  command->add_flag("--general", flags.general, "A may have entries in one triangle alone")
      ->excludes(symmetric);
}

/// A locked door is better found before the work than after it.
inline void requireOutput(const std::string& output) {
  if (output == "-") return;
  requireMatrixEnding(output);
  AtomicFile::requireWritable(output);
}

inline SparseMatrix load(const std::string& path, const Progress& progress,
                         const FormFlags& form = FormFlags()) {
  progress.begin("reading");
  SparseMatrix A = readSparse(path);
  form.declare(A);
  return A;
}

/// Stages of the library as the command's own, with its checkpoints.
inline Options shownOn(const Progress& progress) {
  Options options;
  options.progress = [&progress, last = std::string()](const char* stage, double) mutable {
    progress.checkpoint();
    if (last != stage) progress.stage(stage);
    last = stage;
    return true;
  };
  return options;
}

}  // namespace zeph

#endif
