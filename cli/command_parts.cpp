#include "cli/command_parts.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <vector>

#include "zeph/checks/memory.h"
#include "zeph/factor.h"
#include "zeph/factor/first_route.h"
#include "zeph/files/number_text.h"
#include "zeph/files/parts.h"

namespace zeph {
namespace {

const std::map<std::string, FileFormat> kFormats = {
    {"auto", FileFormat::Automatic}, {"mtx", FileFormat::MatrixMarket},
    {"csv", FileFormat::Csv},        {"txt", FileFormat::List},
    {"npz", FileFormat::Npz},        {"rb", FileFormat::RutherfordBoeing}};

// -1 where the text is no size.
double parsedBytes(const std::string& text) {
  double value = 0.0;
  const char* const end = text.data() + text.size();
  const auto [rest, status] = std::from_chars(text.data(), end, value);
  if (status != std::errc()) return -1.0;
  const std::map<std::string, double> units = {
      {"", 1.0},       {"K", 1e3},      {"M", 1e6},     {"G", 1e9},   {"T", 1e12},
      {"KB", 1e3},     {"MB", 1e6},     {"GB", 1e9},    {"TB", 1e12}, {"KiB", 0x1p10},
      {"MiB", 0x1p20}, {"GiB", 0x1p30}, {"TiB", 0x1p40}};
  const auto unit = units.find(std::string(rest, end));
  if (unit == units.end()) return -1.0;
  value *= unit->second;
  return value >= 1.0 && std::isfinite(value) ? value : -1.0;
}

}  // namespace

CLI::Validator wholeNumber(long long low, long long high) {
  return CLI::Validator(
      [low, high](std::string& text) -> std::string {
        long long value = 0;
        const char* const end = text.data() + text.size();
        const auto [rest, status] = std::from_chars(text.data(), end, value);
        if (status == std::errc() && rest == end && value >= low && value <= high) return {};
        return "\"" + text + "\" is no whole number from " + std::to_string(low) + " to " +
               std::to_string(high);
      },
      "");
}

CLI::Validator memorySize() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        if (parsedBytes(text) > 0.0) return {};
        return "\"" + text + "\" is no amount of memory, such as 500M, 2G or 1.5GiB";
      },
      "");
}

double bytesOf(const std::string& text) {
  return text.empty() ? 0.0 : parsedBytes(text);
}

void addArgument(CLI::App* command, const char* name, std::string& target, const char* help,
                 const char* shape) {
  command->add_option(name, target, help)->required()->type_name(shape);
}

void addForce(CLI::App* command, Files& files) {
  command->add_flag("--force", files.force, "let a result replace a file that is read");
}

void addOutput(CLI::App* command, Files& files, const char* help) {
  command->add_option("-o,--output", files.output, help)->type_name("FILE");
  addForce(command, files);
}

void addInput(CLI::App* command, Files& files) {
  command
      ->add_option("--format", files.format,
                   "form of the input where name and content do not tell: mtx, csv, txt, npz, rb")
      ->check(CLI::IsMember({"auto", "mtx", "csv", "txt", "npz", "rb"}))
      ->type_name("FORM");
  command->add_flag("--one-based", files.oneBased, "CSV indices count from 1");
}

void addMemory(CLI::App* command, Files& files) {
  command->add_option("--memory", files.memory, files.memoryHelp)
      ->check(memorySize())
      ->type_name("SIZE");
}

void addFactorMemory(CLI::App* command, Files& files) {
  addMemory(command, files);
  command
      ->add_option("--scratch", files.scratch,
                   "folder on a disk, for a file that holds a Cholesky factor too large for memory")
      ->type_name("DIR");
}

void addRoutes(CLI::App* command, RouteFlags& flags, bool solves) {
  CLI::Option* cholesky =
      command->add_flag("--cholesky", flags.cholesky, "A is symmetric positive definite");
  CLI::Option* lu = command->add_flag("--lu", flags.lu, "A is any non-singular matrix");
  lu->excludes(cholesky);
  if (!solves) return;
  // Options by their names are looked for in functions that end the program where memory runs out.
  command
      ->add_flag("--lu-solves", flags.luSolves,
                 "sparse LU with one solve for every entry (slow; for comparison)")
      ->excludes(cholesky)
      ->excludes(lu);
}

void addEngineChoice(CLI::App* command, std::string& engine) {
  command->add_option("--engine", engine, "cholmod: by CHOLMOD, for comparison")
      ->check(CLI::IsMember({"zeph", "cholmod"}));
}

void addAllEngines(CLI::App* command, std::string& engine, bool cholmod) {
  std::vector<std::string> engines = {"zeph", "domains", "mumps"};
  std::string help = "domains, mumps: over the processes of mpirun";
  if (cholmod) {
    engines.insert(engines.begin() + 1, "cholmod");
    help += "; cholmod: by CHOLMOD, for comparison";
  }
  command->add_option("--engine", engine, help)->check(CLI::IsMember(engines));
}

void addForms(CLI::App* command, FormFlags& flags) {
  CLI::Option* symmetric = command->add_flag("--symmetric", flags.symmetric,
                                             "the entries of one triangle of A stand for both");
  command->add_flag("--general", flags.general, "A may have entries in one triangle alone")
      ->excludes(symmetric);
}

void requireOutput(const Files& files, const std::string& output,
                   std::initializer_list<std::string> inputs) {
  if (output == "-") return;
  for (const std::string& input : inputs) {
    if (files.force || input.empty() || input == "-" || !AtomicFile::same(output, input)) continue;
    throw Error(ErrorKind::Usage, "the result would replace the input " + input +
                                      "; name another file, or give --force if that is meant");
  }
  AtomicFile::requireWritable(output);
}

void requireMatrixOutput(const Files& files, std::initializer_list<std::string> inputs) {
  requireMatrixEnding(files.output);
  requireOutput(files, files.output, inputs);
}

void requireTwoOutputs(const Files& files, const char* option, const std::string& second,
                       std::initializer_list<std::string> inputs) {
  if (second.empty()) return;
  if (AtomicFile::same(files.output, second)) {
    throw Error(ErrorKind::Usage,
                std::string("-o and ") + option + " both name " + second + "; name a file each");
  }
  requireOutput(files, second, inputs);
}

void requireNamedOutput(const Files& files, const Console& console) {
  if (!inFigures(files, console)) return;
  throw Error(ErrorKind::Usage,
              "--json prints figures on standard output; name a file for the result with -o");
}

ReadOptions readOptions(const Files& files, const Console& console) {
  ReadOptions options;
  options.format = kFormats.at(files.format);
  options.oneBased = files.oneBased;
  options.memoryLimit = bytesOf(files.memory);
  options.progress = [&console](double share) {
    console.checkpoint();
    console.share(share);
  };
  options.note = [&console](const std::string& sentence) { console.warning(sentence); };
  return options;
}

SparseMatrix load(const Files& files, const Console& console, const FormFlags& form) {
  console.begin("reading");
  const std::optional<PartName> part = partName(files.first);
  SparseMatrix A = part ? readParts(*part, 1, 1, readOptions(files, console))
                        : readSparse(files.first, readOptions(files, console));
  form.declare(A);
  return A;
}

// --format says what stands on standard input where both are read, and else what A is.
DenseMatrix loadDense(const Files& files, const std::string& path, const Console& console) {
  ReadOptions options = readOptions(files, console);
  if (path != "-") options.format = FileFormat::Automatic;
  return readDense(path, options);
}

Options shownOn(const Console& console, const Files& files) {
  Options options;
  options.memoryLimit = bytesOf(files.memory);
  options.scratchFolder = files.scratch;
  options.progress = [&console, last = std::string()](const char* stage, double share) mutable {
    console.checkpoint();
    if (last != stage) console.stage(stage);
    last = stage;
    console.share(share);
    return true;
  };
  return options;
}

void requirePlanned(const SparseMatrix& A, Route route, Options options) {
  if (options.memoryLimit == 0.0) return;
  options.route = route;
  const Report r = plan(A, options);
  if (r.route == Route::Cholesky)
    requireBytes("factorising " + A.source, r.bytes, options.memoryLimit);
}

std::string scratchText(const Report& r) {
  if (r.scratchBytes == 0.0) return "";
  return " and a scratch file of " + memoryText(r.scratchBytes);
}

void tellReport(const Report& r, Console& console, const std::size_t* indexBase) {
  const bool known = r.route == Route::Cholesky;
  const bool made = known || r.entriesOfL > 0;  // of LU nothing is known before
  JsonObject report;
  report.add("route", name(r.route)).add("reason", r.reason);
  if (known) report.add("ordering", name(r.ordering));
  report.add("unknowns", r.unknowns).add("groups", r.groups).add("threads", r.threads);
  report.add("entries_of_a", r.entriesOfA);
  if (made) {
    report.add("entries_of_l", r.entriesOfL).add("operations", r.operations).add("bytes", r.bytes);
    report.add("scratch_bytes", r.scratchBytes);
    report.add("seconds_ordering", r.secondsOrdering).add("seconds_analysis", r.secondsAnalysis);
    report.add("seconds_factorisation", r.secondsFactorisation);
    report.add("seconds_inverse", r.secondsInverse);
  }
  if (r.conditionEstimate > 0.0) report.add("condition_estimate", r.conditionEstimate);
  if (r.relativeErrorEstimate > 0.0) report.add("relative_error_estimate", r.relativeErrorEstimate);
  if (r.uncertainVariances > 0) report.add("uncertain_variances", r.uncertainVariances);
  if (r.backwardError > 0.0) report.add("backward_error", r.backwardError);
  if (r.lastErrorEstimate > 0.0) report.add("last_error_estimate", r.lastErrorEstimate);
  if (r.worstUnknown >= 0 && indexBase != nullptr) {
    report.add("worst_unknown", static_cast<std::size_t>(r.worstUnknown) + *indexBase);
  }
  console.figures.add("report", report);
  if (!made) return;

  char line[256];
  std::snprintf(line, sizeof line,
                "%lld unknowns in %lld groups, ordered by %s; %lld entries of A, %lld of the "
                "factor; %.3g operations; %.3g MB%s; %d threads",
                static_cast<long long>(r.unknowns), static_cast<long long>(r.groups),
                known ? name(r.ordering) : "the LU library", static_cast<long long>(r.entriesOfA),
                static_cast<long long>(r.entriesOfL), r.operations, r.bytes / 1e6,
                scratchText(r).c_str(), r.threads);
  console.detail(line);
  std::snprintf(line, sizeof line,
                "ordering %.3f s, analysis %.3f s, factorisation %.3f s, inverse %.3f s",
                r.secondsOrdering, r.secondsAnalysis, r.secondsFactorisation, r.secondsInverse);
  console.detail(line);
}

}  // namespace zeph
