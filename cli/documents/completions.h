// Completions of the command line: commands, options, words that an option takes, files, folders.
#ifndef ZEPH_CLI_DOCUMENTS_COMPLETIONS_H
#define ZEPH_CLI_DOCUMENTS_COMPLETIONS_H

#include <CLI/CLI.hpp>
#include <string>

namespace zeph::documents {

std::string bashCompletion(const CLI::App& app);
std::string zshCompletion(const CLI::App& app);
std::string fishCompletion(const CLI::App& app);

}  // namespace zeph::documents

#endif
