// Commands that factorise a matrix and ask the factor.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "cli/command_parts.h"
#include "cli/commands.h"
#include "cli/plan_commands.h"
#include "cli/processes.h"
#include "zeph/factor.h"
#include "zeph/factor/first_route.h"
#include "zeph/files/line_reader.h"
#include "zeph/files/number_text.h"
#include "zeph/files/parts.h"
#include "zeph/general/solve.h"
#include "zeph/general/variances.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

constexpr int kDigits = 17;  // enough to tell any two doubles apart

struct Engine : Files, RouteFlags, FormFlags {
  std::string engine = "zeph";
  std::string interface = "auto";
  std::string ordering = "auto";
  int threads = 0;
  std::string pairs;
  std::string block;

  bool cholmod() const { return engine == "cholmod" || luSolves; }
};

// Commands that can be spread over processes, and whether CHOLMOD has them too.
enum class Engines { Ours, Distributed, All };

void addEngine(CLI::App* command, Engine& o, Engines engines) {
  addForms(command, o);
  command->add_option("--threads", o.threads, "threads to use; 0 for all processors")
      ->check(wholeNumber(0, 4096))
      ->type_name("N");
  command
      ->add_option("--ordering", o.ordering,
                   "which unknowns to eliminate first; a file has a permutation, one zero-based "
                   "row a line")
      ->type_name("auto|amd|nested-dissection|natural|FILE");
  addInput(command, o);
  addFactorMemory(command, o);
  if (engines == Engines::Ours) return;
  addAllEngines(command, o.engine, engines == Engines::All);
  command
      ->add_option("--interface", o.interface,
                   "between the domains: a dense matrix by ScaLAPACK, or a sparse one by MUMPS")
      ->check(CLI::IsMember({"auto", "dense", "sparse"}));
}

std::vector<std::int64_t> readPermutation(const std::string& path) {
  const DenseMatrix list = [&] {
    LineReader in(path);
    DenseMatrix rows;
    for (std::string_view line; in.next(line);) {
      NumberScanner scan(line);
      std::uint64_t row = 0;
      if (scan.atEnd()) continue;
      if (scan.index(row) != NumberScanner::Result::Ok || row > kLargestSize || !scan.atEnd()) {
        throw in.error("expected a zero-based row, found \"" + std::string(line.substr(0, 40)) +
                       "\"");
      }
      rows.values.push_back(static_cast<double>(row));
    }
    return rows;
  }();
  return {list.values.begin(), list.values.end()};
}

Options optionsOf(const Engine& o, Console& console) {
  Options options = shownOn(console, o);
  options.route = o.route();
  options.threads = o.threads;
  if (o.ordering == "amd") {
    options.ordering = Ordering::MinimumDegree;
  } else if (o.ordering == "nested-dissection") {
    options.ordering = Ordering::NestedDissection;
  } else if (o.ordering == "natural") {
    options.ordering = Ordering::Natural;
  } else if (o.ordering != "auto") {
    options.ordering = Ordering::Given;
    options.permutation = readPermutation(o.ordering);
  }
  return options;
}

// A matrix that should be definite and is not is an error here, not a reason to take LU.
Factor factorOf(const SparseMatrix& A, const Engine& o, Console& console) {
  Options options = optionsOf(o, console);
  std::string reason = "as asked";
  if (options.route == Route::Automatic) {
    console.begin("looking for symmetry");
    const FirstRoute first = firstRoute(A);
    if (first.route == Route::Cholesky) options.route = Route::Cholesky;
    reason = first.reason;
  }
  Factor f(A, options);
  console.note(std::string("route: ") + name(f.report().route) + " (" + reason + ")");
  return f;
}

// The same, after which A has no entries any more: what they took is left to the inverse.
Factor factorInsteadOf(SparseMatrix& A, const Engine& o, Console& console) {
  Factor f = factorOf(A, o, console);
  A.entries = std::vector<Entry>();
  return f;
}

void tellVariances(double estimate, Console& console) {
  char line[96];
  std::snprintf(line, sizeof line, "estimated relative error of the variances: at most %.1g",
                estimate);
  console.note(line);
}

// What the factor says of its last result.
void tellLast(const Factor& f, const SparseMatrix& A, Console& console) {
  for (const std::string& sentence : f.warnings()) console.warning(sentence);
  tellReport(f.report(), console, &A.indexBase);
}

void warnOfNegative(const std::vector<double>& d, const std::string& source, std::size_t indexBase,
                    Console& console) {
  const auto negative = [](double v) { return v < 0.0; };
  const auto first = std::find_if(d.begin(), d.end(), negative);
  if (first == d.end()) return;
  console.warning(std::to_string(std::count_if(first, d.end(), negative)) + " of the " +
                  std::to_string(d.size()) + " values are negative, the first at row " +
                  std::to_string(static_cast<std::size_t>(first - d.begin()) + indexBase) + ": " +
                  source +
                  " is not positive definite, so they are entries of its inverse, not variances");
}

std::vector<std::int64_t> indicesOf(const std::string& text) {
  std::vector<std::int64_t> indices;
  const char* p = text.data();
  const char* const end = p + text.size();
  while (p != end) {
    std::int64_t index = 0;
    const auto [next, status] = std::from_chars(p, end, index);
    if (status != std::errc() || (next != end && *next != ',') || next + 1 == end) {
      throw Error(ErrorKind::Usage,
                  "--block takes zero-based indices with commas between, not \"" + text + "\"");
    }
    indices.push_back(index);
    p = next == end ? end : next + 1;
  }
  return indices;
}

void writeEntries(const std::string& path, const std::vector<std::int64_t>& rows,
                  const std::vector<std::int64_t>& cols, const std::vector<double>& values) {
  AtomicFile out(path);
  std::string text;
  for (std::size_t k = 0; k < values.size(); ++k) {
    appendIndex(text, static_cast<std::uint64_t>(rows[k]));
    text += ',';
    appendIndex(text, static_cast<std::uint64_t>(cols[k]));
    text += ',';
    appendDigits(text, values[k], kDigits);
    text += '\n';
  }
  out.write(text);
  out.commit();
}

void readPairs(const std::string& path, std::vector<std::int64_t>& rows,
               std::vector<std::int64_t>& cols) {
  LineReader in(path);
  for (std::string_view line; in.next(line);) {
    NumberScanner scan(line);
    if (scan.atEnd()) continue;
    std::uint64_t row = 0, col = 0;
    const bool two = scan.index(row) == NumberScanner::Result::Ok && scan.accept(',') &&
                     scan.index(col) == NumberScanner::Result::Ok && scan.atEnd();
    if (!two || std::max(row, col) > kLargestSize) {
      throw in.error("expected \"row,column\", zero-based, found \"" +
                     std::string(line.substr(0, 40)) + "\"");
    }
    rows.push_back(static_cast<std::int64_t>(row));
    cols.push_back(static_cast<std::int64_t>(col));
  }
}

void requireRightFor(const SparseMatrix& A, const DenseMatrix& B) {
  requireSquare(A);
  if (B.rows == A.rows) return;
  throw Error(ErrorKind::Unfit, "the right-hand side " + B.source + " is " +
                                    std::to_string(B.rows) + " x " + std::to_string(B.cols) + "; " +
                                    A.source + " needs " + std::to_string(A.rows) +
                                    " rows and at least one column");
}

void giveVariances(const Engine& o, const std::vector<double>& d, Console& console) {
  console.begin("writing");
  if (inFigures(o, console)) {
    console.figures.add("variances", d);
  } else {
    writeVector(o.output, d.data(), d.size());
  }
}

void giveSolution(const Engine& o, const DenseMatrix& X, double residual, Console& console) {
  char line[96];
  std::snprintf(line, sizeof line, "relative residual |AX-B| / (|A||X|+|B|) = %.3g", residual);
  const std::string said = line;  // memory may fail before the file stands, not after
  console.begin("writing");
  console.figures.add("relative_residual", residual);
  if (inFigures(o, console)) {
    console.figures.add("solution", X);
  } else {
    writeDense(o.output, X);
  }
  console.note(said);
}

int giveLogDeterminant(double logarithm, int sign, Console& console) {
  console.figures.add("log_abs_determinant", logarithm).add("sign", sign);
  console.finish();
  if (console.manner.json) return 0;
  std::string text;
  appendShortest(text, logarithm);
  std::printf("%s,%d\n", text.c_str(), sign);
  return 0;
}

Error noInterface() {
  return Error(ErrorKind::Usage, "--interface is for the engine domains");
}

// All processes work on it: because there are several, or because the engine is one of theirs.
bool spreads(const Engine& o) {
  if (processes().count > 1 || isDistributedEngine(o.engine)) return true;
  if (o.interface != "auto") throw noInterface();
  return false;
}

// The answer, with the route told; nothing on the processes that say nothing.
std::optional<DistributedAnswer> asked(DistributedTask task, const Engine& o, Console& console) {
  DistributedQuestion q;
  q.task = task;
  q.engine = o.engine;
  q.interface = o.interface;
  q.route = o.cholesky ? 1 : o.lu ? 2 : 0;
  q.threads = o.threads;
  q.memory = bytesOf(o.memory);
  q.scratch = o.scratch;
  q.read = [&](int rank, int count, bool& whole) {
    if (o.cholmod()) {
      throw Error(ErrorKind::Usage, "CHOLMOD, and one solve for every entry, are for one process");
    }
    if (o.ordering != "auto") {
      throw Error(ErrorKind::Usage, "--ordering is for one process; leave it out, or mpirun");
    }
    if (o.interface != "auto" && o.engine == "mumps") throw noInterface();
    if (!o.scratch.empty() && o.engine != "mumps") {
      throw Error(ErrorKind::Usage, "--scratch is for one process, or with --engine mumps");
    }
    const std::optional<PartName> part = partName(o.first);
    if (rank == 0) {
      if (task != DistributedTask::LogDeterminant) requireMatrixOutput(o, {o.first, o.second});
      whole = !part;
      if (whole) return load(o, console, o);
    } else if (!part) {
      return SparseMatrix();
    }
    SparseMatrix A = readParts(*part, static_cast<std::size_t>(rank) + 1,
                               static_cast<std::size_t>(count), readOptions(o, console));
    if (A.rows > 0) o.declare(A);
    return A;
  };
  if (task == DistributedTask::Solve) {
    q.readRight = [&](const SparseMatrix& A) {
      DenseMatrix B = loadDense(o, o.second, console);
      requireRightFor(A, B);
      return B;
    };
  }
  std::optional<DistributedAnswer> answer = askProcesses(q, console);
  if (answer) {
    console.note(std::string("route: ") + name(static_cast<Route>(answer->figures.route)) + " (" +
                 answer->reason + "), by the engine " + answer->engine + " on " +
                 std::to_string(answer->figures.processes) +
                 (answer->figures.processes == 1 ? " process" : " processes"));
    tellReport(*answer, console);
  }
  return answer;
}

int writeVariances(const Engine& o, Console& console) {
  if (spreads(o)) {
    const auto answer = asked(DistributedTask::Variances, o, console);
    if (!answer) return 0;
    tellVariances(answer->figures.relative_error_estimate, console);
    warnOfNegative(answer->values, answer->source, answer->indexBase, console);
    for (const std::string& sentence : answer->warnings) console.warning(sentence);
    giveVariances(o, answer->values, console);
    return 0;
  }
  requireMatrixOutput(o, {o.first});
  SparseMatrix A = load(o, console, o);
  std::vector<double> d;
  if (o.cholmod()) {
    requirePlanned(A, o.route(), optionsOf(o, console));
    const Variances result = variances(std::move(A), o.route(), console);
    d.assign(result.diagonal.data, result.diagonal.data + result.diagonal.size);
  } else {
    const Factor f = factorInsteadOf(A, o, console);
    d = f.variances();
    tellVariances(f.report().relativeErrorEstimate, console);
    warnOfNegative(d, A.source, A.indexBase, console);
    tellLast(f, A, console);
  }
  giveVariances(o, d, console);
  return 0;
}

int writeSolution(const Engine& o, Console& console) {
  if (spreads(o)) {
    auto answer = asked(DistributedTask::Solve, o, console);
    if (!answer) return 0;
    const zeph_distributed_answer& r = answer->figures;
    console.figures.add("relative_error_estimate", r.last_error_estimate);
    for (const std::string& sentence : answer->warnings) console.warning(sentence);
    DenseMatrix X;
    X.rows = static_cast<std::size_t>(r.unknowns);
    X.cols = answer->values.size() / X.rows;
    X.values = std::move(answer->values);
    giveSolution(o, X, r.relative_residual, console);
    return 0;
  }
  requireMatrixOutput(o, {o.first, o.second});
  SparseMatrix A = load(o, console, o);
  DenseMatrix B = loadDense(o, o.second, console);
  DenseMatrix X;
  double residual = 0.0;
  if (o.cholmod()) {
    requirePlanned(A, o.route(), optionsOf(o, console));
    Solution result = solve(std::move(A), B, o.route(), console);
    X = std::move(result.X);
    residual = result.relativeResidual;
  } else {
    requireRightFor(A, B);
    const Factor f = factorOf(A, o, console);
    X = f.solve(B);
    console.figures.add("relative_error_estimate", f.report().lastErrorEstimate);
    residual = relativeResidual(A, X, B);
    tellLast(f, A, console);
  }
  giveSolution(o, X, residual, console);
  return 0;
}

int writeCovariance(const Engine& o, Console& console) {
  requireMatrixOutput(o, {o.first, o.pairs});
  if (o.pairs.empty() == o.block.empty()) {
    throw Error(ErrorKind::Usage, "covariance needs either --pairs FILE or --block I,J,...");
  }
  std::vector<std::int64_t> rows, cols;
  if (o.block.empty()) {
    readPairs(o.pairs, rows, cols);
  }
  SparseMatrix A = load(o, console, o);
  const Factor f = factorInsteadOf(A, o, console);
  if (!o.block.empty()) {
    const DenseMatrix block = f.covarianceBlock(indicesOf(o.block));
    tellLast(f, A, console);
    console.begin("writing");
    if (inFigures(o, console)) {
      console.figures.add("block", block);
    } else {
      writeDense(o.output, block);
    }
    return 0;
  }
  const std::vector<double> values = f.covariance(rows, cols);
  tellLast(f, A, console);
  console.begin("writing");
  if (inFigures(o, console)) {
    console.figures.add("rows", rows).add("columns", cols).add("values", values);
  } else {
    writeEntries(o.output, rows, cols, values);
  }
  return 0;
}

int writeSelectedInverse(const Engine& o, Console& console) {
  requireNamedOutput(o, console);
  requireMatrixOutput(o, {o.first});
  SparseMatrix Z;
  {
    SparseMatrix A = load(o, console, o);
    const Factor f = factorInsteadOf(A, o, console);
    Z = f.selectedInverse();
    tellLast(f, A, console);
  }
  // Symmetric to the bit, so that one triangle is enough.
  Z.symmetry = Symmetry::Symmetric;
  Z.entries.erase(std::remove_if(Z.entries.begin(), Z.entries.end(),
                                 [](const Entry& e) { return e.row < e.col; }),
                  Z.entries.end());
  console.begin("writing");
  console.figures.add("entries", Z.entries.size());
  writeSparse(o.output, std::move(Z));
  return 0;
}

int printLogDeterminant(const Engine& o, Console& console) {
  if (spreads(o)) {
    const auto answer = asked(DistributedTask::LogDeterminant, o, console);
    if (!answer) return 0;
    for (const std::string& sentence : answer->warnings) console.warning(sentence);
    return giveLogDeterminant(answer->figures.log_determinant, answer->figures.sign, console);
  }
  const SparseMatrix A = load(o, console, o);
  const Factor f = factorOf(A, o, console);
  const double logarithm = f.logDeterminant();
  tellLast(f, A, console);
  return giveLogDeterminant(logarithm, f.determinantSign(), console);
}

struct Plan : Engine, PlanWishes {};

int writePlan(const Engine& engine, Console& console) {
  const auto& o = static_cast<const Plan&>(engine);
  PlanWishes wishes = o;
  wishes.memory = bytesOf(o.Files::memory);
  // A limit is what the plan is held against, not one for reading A.
  Engine unlimited = o;
  unlimited.Files::memory.clear();
  return printPlan(load(unlimited, console, o), optionsOf(o, console), wishes, console);
}

CLI::App* declareOnFactor(Application& z, const char* command, const char* summary,
                          const char* examples, const std::shared_ptr<Engine>& options,
                          int (*work)(const Engine&, Console&), Engines engines = Engines::Ours) {
  CLI::App* declared = declare(z, command, summary, examples, options, work);
  addArgument(declared, "A", options->first, "square matrix", "A.mtx");
  addRoutes(declared, *options, std::string(command) == "variances");
  addEngine(declared, *options, engines);
  return declared;
}

}  // namespace

void declareVariances(Application& z) {
  auto options = std::make_shared<Engine>();
  CLI::App* command = declareOnFactor(
      z, "variances", "The diagonal of the inverse of A",
      "  zeph variances A.mtx                 lines index,value on standard output\n"
      "  zeph variances A.mtx -o d.mtx --lu   a Matrix Market array, by sparse LU\n"
      "  mpirun -n 4 zeph variances A.mtx     by four processes",
      options, writeVariances, Engines::All);
  addOutput(command, *options, "lines index,value, or a Matrix Market array (.mtx)");
}

void declareSolve(Application& z) {
  auto options = std::make_shared<Engine>();
  CLI::App* command =
      declareOnFactor(z, "solve", "Solve A X = B for one or several right-hand sides",
                      "  zeph solve A.mtx b.mtx -o x.mtx\n"
                      "  zeph solve A.mtx B.mtx --cholesky > X.mtx",
                      options, writeSolution, Engines::All);
  addArgument(command, "B", options->second, "right-hand sides, one a column", "B.mtx");
  addOutput(command, *options, "the solution");
}

void declareCovariance(Application& z) {
  auto options = std::make_shared<Engine>();
  CLI::App* command = declareOnFactor(
      z, "covariance", "Chosen entries of the inverse of A",
      "  zeph covariance A.mtx --pairs p.csv       lines row,col in, lines row,col,value out\n"
      "  zeph covariance A.mtx --block 0,1,2 -o c.mtx   a dense block",
      options, writeCovariance);
  command->add_option("--pairs", options->pairs, "lines \"row,col\", zero-based")
      ->type_name("FILE");
  command->add_option("--block", options->block, "rows and columns of a block, zero-based")
      ->type_name("I,J,...");
  addOutput(command, *options, "the entries");
}

void declareSelectedInverse(Application& z) {
  auto options = std::make_shared<Engine>();
  CLI::App* command = declareOnFactor(
      z, "selinv", "The entries of the inverse on the pattern of A's Cholesky factor",
      "  zeph selinv A.mtx -o Z.mtx", options, writeSelectedInverse);
  addOutput(command, *options, "the entries, a symmetric matrix");
}

void declareLogDeterminant(Application& z) {
  declareOnFactor(z, "logdet", "The logarithm of |det A|, and the sign of det A",
                  "  zeph logdet A.mtx    one line: logarithm,sign", std::make_shared<Engine>(),
                  printLogDeterminant, Engines::Distributed);
}

void declarePlan(Application& z) {
  auto options = std::make_shared<Plan>();
  options->memoryHelp = "memory of a process, to say whether that is enough";
  CLI::App* command = declareOnFactor(
      z, "plan", "What factorising and inverting A would take, without doing it",
      "  zeph plan A.mtx\n"
      "  zeph plan A.mtx --processes 8 --memory 16G    on 8 processes of 16 GB each",
      options, writePlan);
  command->add_option("--processes", options->processes, "processes that share the work, by MPI")
      ->check(wholeNumber(1, 1000000))
      ->type_name("P");
  command
      ->add_option("--calibration", options->calibration,
                   "file of zeph calibrate, instead of the one in the user's cache folder")
      ->type_name("FILE");
}

}  // namespace zeph
