#include "cli/documents/declared.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace zeph::documents {
namespace {

std::vector<std::string> split(const std::string& text, char at) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, at);) parts.push_back(part);
  return parts;
}

bool lower(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::islower(c) != 0 || std::isdigit(c) != 0 || c == '-';
  });
}

// "A.mtx" and "FILE.g2o" name files, "I,J,..." does not.
bool namesFile(const std::string& word) {
  const std::size_t dot = word.rfind('.');
  return word == "FILE" || (dot != std::string::npos && lower(word.substr(dot + 1)));
}

// A type is "NAME", "NAME:check" or "word|word|FILE"; the check of a set of words is "{a,b}".
void readType(const std::string& type, Argument& argument) {
  const std::size_t open = type.find('{'), close = type.rfind('}');
  if (open != std::string::npos && close != std::string::npos) {
    argument.words = split(type.substr(open + 1, close - open - 1), ',');
    argument.placeholder = join(argument.words, "|");
    return;
  }
  argument.placeholder = type.substr(0, type.find(':'));
  for (const std::string& word : split(argument.placeholder, '|')) {
    if (namesFile(word)) {
      argument.files = true;
    } else if (word == "DIR") {
      argument.folders = true;
    } else if (lower(word)) {
      argument.words.push_back(word);
    }
  }
}

std::vector<std::string> spellingsOf(const CLI::Option& option) {
  std::vector<std::string> spellings;
  for (const std::string& name : option.get_snames()) spellings.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) spellings.push_back("--" + name);
  return spellings;
}

Argument describe(const CLI::Option& option) {
  Argument argument;
  argument.spellings = spellingsOf(option);
  for (const CLI::Option* other : option.get_excludes()) {
    for (const std::string& name : spellingsOf(*other)) argument.excludes.push_back(name);
  }
  std::sort(argument.excludes.begin(), argument.excludes.end());  // they come by address
  argument.help = option.get_description();
  argument.byDefault = option.get_default_str();
  argument.repeated = option.get_items_expected_max() > 1;
  if (option.get_items_expected_max() > 0) readType(option.get_type_name(), argument);
  return argument;
}

}  // namespace

std::string join(const std::vector<std::string>& parts, const char* between) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : between) + part;
  return text;
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

std::string Command::positionals() const {
  std::vector<std::string> names;
  for (const Argument& a : arguments) {
    if (a.positional()) names.push_back(a.placeholder);
  }
  return join(names, " ");
}

bool Command::takesFiles() const {
  return std::any_of(arguments.begin(), arguments.end(),
                     [](const Argument& a) { return a.positional() && a.files; });
}

std::vector<std::string> Command::spellings() const {
  std::vector<std::string> all;
  for (const Argument& a : arguments) {
    all.insert(all.end(), a.spellings.begin(), a.spellings.end());
  }
  return all;
}

Command describe(const CLI::App& app) {
  Command command{app.get_name(), app.get_description(), app.get_footer(), {}};
  for (const CLI::Option* option : app.get_options()) {
    // The help leaves out what has no group.
    if (!option->get_group().empty()) command.arguments.push_back(describe(*option));
  }
  return command;
}

std::vector<Command> commandsOf(const CLI::App& app) {
  std::vector<Command> commands;
  for (const CLI::App* sub :
       app.get_subcommands([](const CLI::App* s) { return !s->get_group().empty(); })) {
    commands.push_back(describe(*sub));
  }
  return commands;
}

}  // namespace zeph::documents
