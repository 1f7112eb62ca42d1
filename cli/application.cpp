#include "cli/application.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <vector>

#include "cli/commands.h"
#include "zeph/checks/machine.h"
#include "zeph/error.h"

namespace zeph {
namespace {

constexpr const char* kFooter =
    "Matrices are read from Matrix Market files, triplet CSV (row,col,value), NumPy .npz and\n"
    "Rutherford-Boeing files, right-hand sides also from plain lists of numbers; all of them may\n"
    "be compressed with gzip. Results go to standard output or to the file given with -o;\n"
    "everything else to standard error. --json gives figures to other programs.\n"
    "\n"
    "Exit status: 0 done; 1 zeph check found the matrix unfit, or zeph doctor something wrong;\n"
    "2 wrong usage; 3 unreadable or malformed input; 4 matrix unfit for the operation; 5 not\n"
    "positive definite; 6 singular; 7 output cannot be written; 8 out of memory; 130 interrupted.\n"
    "\n"
    "Examples:\n"
    "  zeph demo\n"
    "  zeph check A.mtx\n"
    "  zeph variances A.mtx -o variances.csv\n"
    "  zeph solve A.mtx b.mtx -o x.mtx\n"
    "  zeph adjust J.mtx y.mtx --sigma s.mtx -o x.csv\n"
    "  mpirun -n 4 zeph variances A.mtx\n"
    "  zeph help variances";

// Letters to insert, remove, replace or swap with their neighbour on the way from a to b.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before, last(b.size() + 1), here(b.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    here[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      here[j] = std::min({last[j] + 1, here[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        here[j] = std::min(here[j], before[j - 2] + 1);
      }
    }
    before = std::exchange(last, here);
  }
  return last[b.size()];
}

// "; did you mean ...?" with the nearest of the words, or nothing when none is near.
std::string suggestion(const std::string& word, const std::vector<std::string>& words) {
  const auto closeness = [&](const std::string& w) {
    const bool begun = word.size() > 1 && w.compare(0, word.size(), word) == 0;
    return begun ? std::size_t{1} : distance(word, w);
  };
  std::string nearest;
  std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
  for (const std::string& w : words) {
    if (closeness(w) >= least) continue;
    least = closeness(w);
    nearest = w;
  }
  return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

std::vector<std::string> commandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(command->get_name());
  }
  return names;
}

std::vector<std::string> optionNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    for (const std::string& name : option->get_snames()) names.push_back("-" + name);
  }
  return names;
}

// The first word that the command line of `command` has no place for.
std::string misfit(const CLI::App& command, int argc, const char* const* argv) {
  const std::vector<std::string> names = optionNames(command);
  for (int k = 2; k < argc; ++k) {
    std::string word = std::string(argv[k]).substr(0, std::string(argv[k]).find('='));
    if (word == "--") break;
    if (word.size() < 2 || word[0] != '-' || (word[1] >= '0' && word[1] <= '9')) continue;
    if (word[1] != '-') {  // -ofile
      const bool known = std::find(names.begin(), names.end(), word.substr(0, 2)) != names.end();
      if (known) continue;
    }
    if (std::find(names.begin(), names.end(), word) == names.end()) return word;
  }
  return {};
}

void declareHelp(Application& z) {
  CLI::App* help = z.app.add_subcommand("help", "Help on a command");
  help->footer("Examples:\n  zeph help variances");
  auto wanted = std::make_shared<std::string>();
  help->add_option("COMMAND", *wanted, "the command")->type_name("COMMAND");
  help->callback([&z, wanted] {
    z.action = [&z, wanted] {
      const CLI::App* command = &z.app;
      if (!wanted->empty()) {
        const std::vector<std::string> names = commandNames(z.app);
        if (std::find(names.begin(), names.end(), *wanted) == names.end()) {
          throw Error(ErrorKind::Usage,
                      "there is no command \"" + *wanted + "\"" + suggestion(*wanted, names));
        }
        command = z.app.get_subcommand(*wanted);
      }
      std::fputs(command->help(command == &z.app ? "" : "zeph").c_str(), stdout);
      return 0;
    };
  });
}

}  // namespace

Application::Application()
    : app("zeph: sparse linear systems and the variances that their inverses hold", "zeph") {
  app.footer(kFooter);
  app.require_subcommand(1);
  app.set_version_flag("--version", [] { return "zeph " + versionText(); });
  app.get_formatter()->column_width(34);
  declareVariances(*this);
  declareSolve(*this);
  declareCovariance(*this);
  declareSelectedInverse(*this);
  declareLogDeterminant(*this);
  declarePlan(*this);
  declareCalibrate(*this);
  declareAdjust(*this);
  declarePoseGraph(*this);
  declareCheck(*this);
  declareConvert(*this);
  declareSplit(*this);
  declareFactor(*this);
  declarePattern(*this);
  declareMultiply(*this);
  declareExport(*this);
  declareDemo(*this);
  declareVersion(*this);
  declareDoctor(*this);
  declareHelp(*this);
}

std::string explanation(const Application& z, const CLI::ParseError& error, int argc,
                        const char* const* argv) {
  const std::vector<std::string> names = commandNames(z.app);
  const std::string first = argc > 1 ? argv[1] : "";
  const auto found = std::find(names.begin(), names.end(), first);
  if (found == names.end()) {
    const std::string general = "\nTry zeph --help.";
    if (first.empty()) return "a command is missing" + general;
    if (first[0] == '-') {
      return "there is no option \"" + first + "\"" + suggestion(first, optionNames(z.app)) +
             general;
    }
    return "there is no command \"" + first + "\"" + suggestion(first, names) + general;
  }
  const CLI::App& command = *z.app.get_subcommand(first);
  const std::string more = "\nTry zeph help " + first + ".";
  const std::string word = misfit(command, argc, argv);
  if (!word.empty()) {
    return first + " has no option \"" + word + "\"" + suggestion(word, optionNames(command)) +
           more;
  }
  const std::vector<std::string> rest = command.remaining();
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !rest.empty()) {
    return first + " has no use for \"" + rest.back() + "\"" + more;
  }
  return first + ": " + error.what() + more;
}

}  // namespace zeph
