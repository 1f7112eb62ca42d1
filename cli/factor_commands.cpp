// Commands that factorise a matrix and ask the factor.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "cli/command_parts.h"
#include "zeph/factor.h"
#include "zeph/factor/first_route.h"
#include "zeph/files/line_reader.h"
#include "zeph/files/number_text.h"
#include "zeph/general/solve.h"
#include "zeph/general/variances.h"
#include "zeph/matrix/requirements.h"

namespace zeph {
namespace {

constexpr int kDigits = 17;  // enough to tell any two doubles apart

struct Engine : Files, RouteFlags, FormFlags {
  std::string engine = "zeph";
  std::string ordering = "auto";
  int threads = 0;
  std::string pairs;
  std::string block;

  bool cholmod() const { return engine == "cholmod" || luSolves; }
};

void addEngine(CLI::App* command, Engine& o, bool comparison) {
  addForms(command, o);
  command->add_option("--threads", o.threads, "threads to use; 0 for all processors")
      ->check(CLI::Range(0, 4096))
      ->type_name("N");
  command
      ->add_option("--ordering", o.ordering,
                   "which unknowns to eliminate first; a file has a permutation, one zero-based "
                   "row a line")
      ->type_name("auto|amd|nested-dissection|natural|FILE");
  if (!comparison) return;
  addEngineChoice(command, o.engine);
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

Options optionsOf(const Engine& o, const Progress& progress) {
  Options options = shownOn(progress);
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
Factor factorOf(const SparseMatrix& A, const Engine& o, const Progress& progress) {
  Options options = optionsOf(o, progress);
  std::string reason = "as asked";
  if (options.route == Route::Automatic) {
    progress.begin("looking for symmetry");
    const FirstRoute first = firstRoute(A);
    if (first.route == Route::Cholesky) options.route = Route::Cholesky;
    reason = first.reason;
  }
  Factor f(A, options);
  progress.note(std::string("route: ") + name(f.report().route) + " (" + reason + ")");
  return f;
}

void noteError(const Factor& f, const Progress& progress) {
  char line[96];
  std::snprintf(line, sizeof line, "estimated relative error of the variances: at most %.1g",
                f.report().relativeErrorEstimate);
  progress.note(line);
}

void noteNegative(const std::vector<double>& d, const SparseMatrix& A, const Progress& progress) {
  const auto negative = [](double v) { return v < 0.0; };
  const auto first = std::find_if(d.begin(), d.end(), negative);
  if (first == d.end()) return;
  progress.note(std::to_string(std::count_if(first, d.end(), negative)) + " of the " +
                std::to_string(d.size()) + " values are negative, the first at row " +
                std::to_string(static_cast<std::size_t>(first - d.begin()) + A.indexBase) + ": " +
                A.source +
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

int writeVariances(const Engine& o, const Progress& progress) {
  requireOutput(o.output);
  SparseMatrix A = load(o.first, progress, o);
  if (o.cholmod()) {
    const Variances result = variances(std::move(A), o.route(), progress);
    progress.begin("writing");
    writeVector(o.output, result.diagonal.data, result.diagonal.size);
    return 0;
  }
  const Factor f = factorOf(A, o, progress);
  const std::vector<double> d = f.variances();
  noteError(f, progress);
  noteNegative(d, A, progress);
  progress.begin("writing");
  writeVector(o.output, d.data(), d.size());
  return 0;
}

int writeSolution(const Engine& o, const Progress& progress) {
  requireOutput(o.output);
  SparseMatrix A = load(o.first, progress, o);
  DenseMatrix B = readDense(o.second);
  DenseMatrix X;
  double residual = 0.0;
  if (o.cholmod()) {
    Solution result = solve(std::move(A), B, o.route(), progress);
    X = std::move(result.X);
    residual = result.relativeResidual;
  } else {
    requireSquare(A);
    if (B.rows != A.rows) {
      throw Error(ErrorKind::Unfit, "the right-hand side " + B.source + " is " +
                                        std::to_string(B.rows) + " x " + std::to_string(B.cols) +
                                        "; " + A.source + " needs " + std::to_string(A.rows) +
                                        " rows and at least one column");
    }
    const Factor f = factorOf(A, o, progress);
    f.estimateCondition();
    X = f.solve(B);
    residual = relativeResidual(A, X, B);
  }
  progress.begin("writing");
  writeDense(o.output, X);
  char line[96];
  std::snprintf(line, sizeof line, "relative residual |AX-B| / (|A||X|+|B|) = %.3g", residual);
  progress.note(line);
  return 0;
}

int writeCovariance(const Engine& o, const Progress& progress) {
  requireOutput(o.output);
  if (o.pairs.empty() == o.block.empty()) {
    throw Error(ErrorKind::Usage, "covariance needs either --pairs FILE or --block I,J,...");
  }
  std::vector<std::int64_t> rows, cols;
  if (o.block.empty()) {
    readPairs(o.pairs, rows, cols);
  }
  const SparseMatrix A = load(o.first, progress, o);
  const Factor f = factorOf(A, o, progress);
  if (!o.block.empty()) {
    const DenseMatrix block = f.covarianceBlock(indicesOf(o.block));
    progress.begin("writing");
    writeDense(o.output, block);
    return 0;
  }
  const std::vector<double> values = f.covariance(rows, cols);
  progress.begin("writing");
  writeEntries(o.output, rows, cols, values);
  return 0;
}

int writeSelectedInverse(const Engine& o, const Progress& progress) {
  requireOutput(o.output);
  SparseMatrix Z;
  {
    const Factor f = factorOf(load(o.first, progress, o), o, progress);
    Z = f.selectedInverse();
  }
  // Symmetric to the bit, so that one triangle is enough.
  Z.symmetry = Symmetry::Symmetric;
  Z.entries.erase(std::remove_if(Z.entries.begin(), Z.entries.end(),
                                 [](const Entry& e) { return e.row < e.col; }),
                  Z.entries.end());
  progress.begin("writing");
  writeSparse(o.output, std::move(Z));
  return 0;
}

int printLogDeterminant(const Engine& o, const Progress& progress) {
  const Factor f = factorOf(load(o.first, progress, o), o, progress);
  std::string text;
  appendShortest(text, f.logDeterminant());
  std::printf("%s,%d\n", text.c_str(), f.determinantSign());
  return 0;
}

int printPlan(const Engine& o, const Progress& progress) {
  const Report r = plan(load(o.first, progress, o), optionsOf(o, progress));
  const char* const orderings[] = {"automatic", "minimum degree", "nested dissection", "natural",
                                   "given"};
  std::printf("route:            %s (%s)\n", name(r.route), r.reason.c_str());
  std::printf("unknowns:         %lld in %lld groups\n", static_cast<long long>(r.unknowns),
              static_cast<long long>(r.groups));
  if (r.route != Route::Cholesky) return 0;  // the rest is known only when LU is done
  std::printf("ordering:         %s\n", orderings[static_cast<int>(r.ordering)]);
  std::printf("entries of A:     %lld\n", static_cast<long long>(r.entriesOfA));
  std::printf("entries of L:     %lld\n", static_cast<long long>(r.entriesOfL));
  std::printf("operations:       %.3g\n", r.operations);
  std::printf("memory:           %.3g MB\n", r.bytes / 1e6);
  std::printf("threads:          %d\n", r.threads);
  std::printf("factorisation:    about %.1g s\n", r.secondsFactorisation);
  std::printf("inverse:          about %.1g s\n", r.secondsInverse);
  return 0;
}

CLI::App* declareOnFactor(CLI::App& app, Action& action, const char* command, const char* summary,
                          const char* examples, const std::shared_ptr<Engine>& options,
                          int (*work)(const Engine&, const Progress&), bool comparison = false) {
  CLI::App* declared = declare(app, action, command, summary, examples, options, work);
  declared->add_option("A", options->first, "square matrix")->required()->type_name("A.mtx");
  addRoutes(declared, *options);
  addEngine(declared, *options, comparison);
  return declared;
}

}  // namespace

void declareVariances(CLI::App& app, Action& action) {
  auto options = std::make_shared<Engine>();
  CLI::App* command = declareOnFactor(
      app, action, "variances", "The diagonal of the inverse of A",
      "  zeph variances A.mtx                 lines index,value on standard output\n"
      "  zeph variances A.mtx -o d.mtx --lu   a Matrix Market array, by sparse LU",
      options, writeVariances, true);
  addOutput(command, options->output, "lines index,value, or a Matrix Market array (.mtx)");
  command
      ->add_flag("--lu-solves", options->luSolves,
                 "sparse LU with one solve for every entry (slow; for comparison)")
      ->excludes("--cholesky")
      ->excludes("--lu");
}

void declareSolve(CLI::App& app, Action& action) {
  auto options = std::make_shared<Engine>();
  CLI::App* command =
      declareOnFactor(app, action, "solve", "Solve A X = B for one or several right-hand sides",
                      "  zeph solve A.mtx b.mtx -o x.mtx\n"
                      "  zeph solve A.mtx B.mtx --cholesky > X.mtx",
                      options, writeSolution, true);
  command->add_option("B", options->second, "right-hand sides, one a column")
      ->required()
      ->type_name("B.mtx");
  addOutput(command, options->output, "the solution");
}

void declareCovariance(CLI::App& app, Action& action) {
  auto options = std::make_shared<Engine>();
  CLI::App* command = declareOnFactor(
      app, action, "covariance", "Chosen entries of the inverse of A",
      "  zeph covariance A.mtx --pairs p.csv       lines row,col in, lines row,col,value out\n"
      "  zeph covariance A.mtx --block 0,1,2 -o c.mtx   a dense block",
      options, writeCovariance);
  command->add_option("--pairs", options->pairs, "lines \"row,col\", zero-based")
      ->type_name("FILE");
  command->add_option("--block", options->block, "rows and columns of a block, zero-based")
      ->type_name("I,J,...");
  addOutput(command, options->output, "the entries");
}

void declareSelectedInverse(CLI::App& app, Action& action) {
  auto options = std::make_shared<Engine>();
  CLI::App* command = declareOnFactor(
      app, action, "selinv", "The entries of the inverse on the pattern of A's Cholesky factor",
      "  zeph selinv A.mtx -o Z.mtx", options, writeSelectedInverse);
  addOutput(command, options->output, "the entries, a symmetric matrix");
}

void declareLogDeterminant(CLI::App& app, Action& action) {
  declareOnFactor(app, action, "logdet", "The logarithm of |det A|, and the sign of det A",
                  "  zeph logdet A.mtx    one line: logarithm,sign", std::make_shared<Engine>(),
                  printLogDeterminant);
}

void declarePlan(CLI::App& app, Action& action) {
  declareOnFactor(app, action, "plan", "What factorising A would take, without doing it",
                  "  zeph plan A.mtx", std::make_shared<Engine>(), printPlan);
}

}  // namespace zeph
