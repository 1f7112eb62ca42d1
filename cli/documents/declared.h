// What a manual page and a completion need of the declared command line.
#ifndef ZEPH_CLI_DOCUMENTS_DECLARED_H
#define ZEPH_CLI_DOCUMENTS_DECLARED_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace zeph::documents {

/// An option, a flag or a positional argument.
struct Argument {
  std::vector<std::string> spellings;  ///< with their dashes; empty for positionals
  std::vector<std::string> excludes;   ///< spellings of options that cannot stand beside it
  std::string help;
  std::string placeholder;         ///< for the value: "FILE"; empty for flags
  std::string byDefault;           ///< empty where the help names none
  std::vector<std::string> words;  ///< values that may be typed as they stand
  bool files = false;              ///< a value may name a file
  bool folders = false;            ///< a value names a folder
  bool repeated = false;           ///< takes several values

  bool positional() const { return spellings.empty(); }
  bool flag() const { return placeholder.empty(); }
};

struct Command {
  std::string name;
  std::string summary;
  std::string footer;
  std::vector<Argument> arguments;  ///< positionals in their order among them

  /// "A.mtx B.mtx", as a synopsis names the positionals.
  std::string positionals() const;
  bool takesFiles() const;  ///< as a positional
  std::vector<std::string> spellings() const;
};

/// The application itself, its arguments the options that stand before a command.
Command describe(const CLI::App& app);

/// The commands, in the order of the help.
std::vector<Command> commandsOf(const CLI::App& app);

std::string join(const std::vector<std::string>& parts, const char* between);
std::string replaced(std::string text, const std::string& what, const std::string& by);

}  // namespace zeph::documents

#endif
