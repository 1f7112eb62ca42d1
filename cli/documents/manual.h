#ifndef ZEPH_CLI_DOCUMENTS_MANUAL_H
#define ZEPH_CLI_DOCUMENTS_MANUAL_H

#include <CLI/CLI.hpp>
#include <string>

namespace zeph::documents {

/// The page zeph(1) in the macros of man. A footer's paragraph that begins with "Exit status:" or
/// "Examples:" becomes the section of that name; lines that are indented keep their breaks.
std::string manualPage(const CLI::App& app, const std::string& version, const std::string& date);

}  // namespace zeph::documents

#endif
