#include "cli/documents/completions.h"

#include <sstream>

#include "cli/documents/declared.h"

namespace zeph::documents {
namespace {

std::string quoted(const std::string& text) {
  return "'" + replaced(text, "'", "'\\''") + "'";
}

std::vector<std::string> names(const std::vector<Command>& commands) {
  std::vector<std::string> all;
  all.reserve(commands.size());
  for (const Command& command : commands) all.push_back(command.name);
  return all;
}

// What bash offers for a value.
std::string bashOffer(const Argument& a) {
  std::string words = a.words.empty() ? "" : "-W '" + join(a.words, " ") + "' ";
  if (a.files) words += "-f ";
  if (a.folders) words += "-d ";
  return words.empty() ? "return" : "_zeph_offer " + words;
}

std::string zshOffer(const Argument& a) {
  if (a.folders) return "_files -/";
  if (!a.words.empty() && a.files) {
    return "{compadd -- " + join(a.words, " ") + "; _files}";
  }
  if (!a.words.empty()) return "(" + join(a.words, " ") + ")";
  return a.files ? "_files" : " ";
}

std::string zshText(const std::string& text) {
  return replaced(replaced(replaced(text, "[", "("), "]", ")"), ":", "\\:");
}

// '(--others)--name[help]:VALUE:offer', or '1:VALUE:offer'.
void writeZshArgument(std::ostream& out, const Argument& a) {
  std::string value;
  if (!a.flag()) value = ":" + zshText(a.placeholder) + ":" + zshOffer(a);
  if (a.positional()) {
    out << " \\\n        " << quoted(value);
    return;
  }
  std::vector<std::string> hidden = a.excludes;
  hidden.insert(hidden.end(), a.spellings.begin(), a.spellings.end());
  for (const std::string& spelling : a.spellings) {
    out << " \\\n        "
        << quoted('(' + join(hidden, " ").append(")").append(spelling) + '[' +
                  zshText(a.help).append("]").append(value));
  }
}

std::string fishQuoted(const std::string& text) {
  return "'" + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

void writeFishArgument(std::ostream& out, const std::string& condition, const Argument& a) {
  out << "complete -c zeph -n " << fishQuoted(condition);
  for (const std::string& spelling : a.spellings) {
    const bool isLong = spelling[1] == '-';
    out << (isLong ? " -l " : " -s ") << spelling.substr(isLong ? 2 : 1);
  }
  if (!a.flag()) out << (a.files ? " -r -F" : " -x");
  if (!a.words.empty()) out << " -a " << fishQuoted(join(a.words, " "));
  if (a.folders) out << " -a '(__fish_complete_directories)'";
  out << " -d " << fishQuoted(a.help) << '\n';
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
  const std::vector<Command> commands = commandsOf(app);
  std::ostringstream out;
  out << "# Completion of zeph for bash, written from the command's own help.\n"
         "_zeph_offer() {\n"
         "  mapfile -t COMPREPLY < <(compgen \"$@\" -- \"$current\")\n"
         "}\n\n"
         "_zeph() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
         "  COMPREPLY=()\n"
         "  # --option=value comes in three words.\n"
         "  if [[ $previous == '=' ]]; then\n"
         "    previous=${COMP_WORDS[COMP_CWORD - 2]}\n"
         "  elif [[ $current == '=' ]]; then\n"
         "    current=\n"
         "  fi\n"
         "  if ((COMP_CWORD == 1)); then\n"
      << "    _zeph_offer -W '" << join(names(commands), " ") << ' '
      << join(describe(app).spellings(), " ") << "'\n"
      << "    return\n"
         "  fi\n"
         "  case \"${COMP_WORDS[1]} $previous\" in\n";
  for (const Command& command : commands) {
    for (const Argument& a : command.arguments) {
      if (a.flag() || a.positional()) continue;
      std::vector<std::string> patterns;
      for (const std::string& s : a.spellings)
        patterns.push_back("'" + command.name + " " + s + "'");
      out << "    " << join(patterns, " | ") << ") " << bashOffer(a) << "; return ;;\n";
    }
  }
  out << "  esac\n"
         "  case ${COMP_WORDS[1]} in\n";
  for (const Command& command : commands) {
    out << "    " << command.name << ")\n"
        << "      if [[ $current == -* ]]; then\n"
        << "        _zeph_offer -W '" << join(command.spellings(), " ") << "'\n";
    if (command.takesFiles()) out << "      else\n        _zeph_offer -f\n";
    out << "      fi ;;\n";
  }
  out << "  esac\n"
         "}\n\n"
         "complete -o filenames -F _zeph zeph\n";
  return out.str();
}

std::string zshCompletion(const CLI::App& app) {
  const std::vector<Command> commands = commandsOf(app);
  std::ostringstream out;
  out << "#compdef zeph\n"
         "# Completion of zeph for zsh, written from the command's own help.\n"
         "_zeph() {\n"
         "  local curcontext=$curcontext state line\n"
         "  local -A opt_args\n"
         "  _arguments -C";
  for (const Argument& a : describe(app).arguments) writeZshArgument(out, a);
  out << " \\\n        '1:command:->command' '*::argument:->arguments'\n"
         "  case $state in\n"
         "    command)\n"
         "      local -a commands=(";
  for (const Command& command : commands) {
    out << "\n        " << quoted(command.name + ":" + zshText(command.summary));
  }
  out << ")\n"
         "      _describe command commands ;;\n"
         "    arguments)\n"
         "      case $line[1] in\n";
  for (const Command& command : commands) {
    out << "      " << command.name << ") _arguments";
    for (const Argument& a : command.arguments) writeZshArgument(out, a);
    out << " ;;\n";
  }
  out << "      esac ;;\n"
         "  esac\n"
         "}\n\n"
         "_zeph \"$@\"\n";
  return out.str();
}

std::string fishCompletion(const CLI::App& app) {
  std::ostringstream out;
  out << "# Completion of zeph for fish, written from the command's own help.\n"
         "complete -c zeph -f\n";
  for (const Argument& a : describe(app).arguments) {
    writeFishArgument(out, "__fish_use_subcommand", a);
  }
  for (const Command& command : commandsOf(app)) {
    const std::string condition = "__fish_seen_subcommand_from " + command.name;
    out << "complete -c zeph -n __fish_use_subcommand -a " << command.name << " -d "
        << fishQuoted(command.summary) << '\n';
    if (command.takesFiles()) out << "complete -c zeph -n " << fishQuoted(condition) << " -F\n";
    for (const Argument& a : command.arguments) {
      if (!a.positional()) writeFishArgument(out, condition, a);
    }
  }
  return out.str();
}

}  // namespace zeph::documents
