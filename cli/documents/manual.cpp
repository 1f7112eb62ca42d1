#include "cli/documents/manual.h"

#include <cctype>
#include <sstream>

#include "cli/documents/declared.h"

namespace zeph::documents {
namespace {

std::string escaped(const std::string& text) {
  std::string out = replaced(text, "\\", "\\e");
  out = replaced(out, "-", "\\-");
  out = replaced(out, "'", "\\(aq");
  return !out.empty() && out[0] == '.' ? "\\&" + out : out;
}

std::string bold(const std::string& text) {
  return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(const std::string& text) {
  return "\\fI" + escaped(text) + "\\fR";
}

// A line of input; indented ones stand as they are.
void writeText(std::ostream& out, const std::string& text) {
  std::istringstream lines(text);
  bool verbatim = false;
  for (std::string line; std::getline(lines, line);) {
    const bool indented = !line.empty() && line[0] == ' ';
    if (indented != verbatim) out << (indented ? ".PP\n.nf\n" : ".fi\n.PP\n");
    verbatim = indented;
    out << (line.empty() ? ".PP" : escaped(line)) << '\n';
  }
  if (verbatim) out << ".fi\n";
}

void writeArgument(std::ostream& out, const Argument& a) {
  std::vector<std::string> names;
  for (const std::string& spelling : a.spellings) names.push_back(bold(spelling));
  out << ".TP\n" << join(names, ", ");
  if (!a.flag()) out << (a.positional() ? "" : " ") << italic(a.placeholder);
  if (a.repeated) out << " ...";
  out << '\n' << escaped(a.help);
  if (!a.byDefault.empty()) out << " (default " << escaped(a.byDefault) << ")";
  if (!a.excludes.empty()) out << "; not with " << escaped(join(a.excludes, ", "));
  out << '\n';
}

void writeCommand(std::ostream& out, const Command& command) {
  out << ".SS " << bold("zeph " + command.name) << " [options] " << italic(command.positionals())
      << '\n';
  out << escaped(command.summary) << ".\n";
  for (const Argument& a : command.arguments) {
    if (a.spellings != std::vector<std::string>{"-h", "--help"}) writeArgument(out, a);
  }
  out << ".PP\n";
  writeText(out, command.footer);
}

// Takes the paragraphs of text that begin with title out of it.
std::string section(std::string& text, const std::string& title) {
  std::string rest, found;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find("\n\n", at), text.size());
    const std::string paragraph = text.substr(at, end - at);
    if (paragraph.rfind(title, 0) == 0) {
      const std::size_t first = paragraph.find_first_not_of(' ', title.size());
      const bool listed = first != std::string::npos && paragraph[first] == '\n';
      found += listed ? paragraph.substr(first + 1) : paragraph.substr(first);
    } else {
      rest += (rest.empty() ? "" : "\n\n") + paragraph;
    }
    at = end + 2;
  }
  text = rest;
  return found;
}

}  // namespace

std::string manualPage(const CLI::App& app, const std::string& version, const std::string& date) {
  const Command zeph = describe(app);
  std::string description = zeph.footer;
  const std::string status = section(description, "Exit status:");
  const std::string examples = section(description, "Examples:");
  std::ostringstream out;
  out << ".\\\" Written from the command's own help.\n"
      << ".TH ZEPH 1 \"" << date << "\" \"zeph " << version << "\" \"User Commands\"\n"
      << ".SH NAME\nzeph \\- " << escaped(zeph.summary.substr(zeph.summary.find(": ") + 2)) << '\n'
      << ".SH SYNOPSIS\n.B zeph\n.I command\n[options] [arguments]\n.br\n"
      << ".B zeph\n.RI [ command ]\n.B \\-\\-help\n"
      << ".SH DESCRIPTION\n";
  writeText(out, description);
  out << ".SH COMMANDS\n";
  for (const Command& command : commandsOf(app)) writeCommand(out, command);
  out << ".SH EXIT STATUS\n";
  writeText(out, status);
  out << ".SH EXAMPLES\n";
  writeText(out, examples);
  return out.str();
}

}  // namespace zeph::documents
