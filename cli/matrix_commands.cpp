// Commands on matrices as they stand: checks, conversions, products, factors.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/command_parts.h"
#include "cli/commands.h"
#include "zeph/checks/matrix_check.h"
#include "zeph/files/mat_export.h"
#include "zeph/files/parts.h"
#include "zeph/general/cholmod_factor.h"
#include "zeph/general/inverse_set.h"
#include "zeph/matrix/multiply.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {

namespace {

struct Formed : Files, FormFlags {
  std::string engine = "zeph";
  bool dense = false;
  int parts = 0;
};

void addSize(const SparseMatrix& m, JsonObject& figures) {
  figures.add("rows", m.rows).add("columns", m.cols).add("entries", m.entries.size());
}

int printCheck(const Formed& o, Console& console) {
  console.begin("reading");
  ReadOptions everything = readOptions(o, console);
  everything.allowNonFinite = true;
  SparseMatrix A = readSparse(o.first, everything);
  o.declare(A);
  const MatrixReport report = checkMatrix(A, console, bytesOf(o.memory));
  addFigures(report, console.figures);
  console.finish();
  if (!console.manner.json) std::fputs(toText(report).c_str(), stdout);
  return report.fit() ? 0 : 1;
}

int writeConverted(const Formed& o, Console& console) {
  Files target = o;
  target.output = o.second;
  requireNamedOutput(target, console);
  requireMatrixOutput(target, {o.first});
  ReadOptions everything = readOptions(o, console);
  everything.allowNonFinite = true;
  console.begin("reading");
  SparseMatrix matrix = readSparse(o.first, everything);
  addSize(matrix, console.figures);
  console.begin("writing");
  writeSparse(o.second, std::move(matrix));
  return 0;
}

int writeLowerFactor(const Formed& o, Console& console) {
  requireNamedOutput(o, console);
  requireMatrixOutput(o, {o.first});
  requireTwoOutputs(o, "--perm", o.permutation, {o.first});
  const bool reorder = !o.permutation.empty();
  SparseMatrix A = load(o, console, o);
  CholeskyFactor result;
  Options how = shownOn(console, o);
  if (o.engine == "cholmod") {
    requirePlanned(A, Route::Cholesky, how);
    result = cholmodFactor(std::move(A), reorder, console);
  } else {
    if (!reorder) how.ordering = Ordering::Natural;
    result = lowerFactor(A, how);
  }
  addSize(result.L, console.figures);
  console.begin("writing");
  writeFactor(o.output, o.permutation, std::move(result));
  return 0;
}

int writePattern(const Formed& o, Console& console) {
  requireNamedOutput(o, console);
  requireMatrixOutput(o, {o.first});
  SparseMatrix set = inverseSet(load(o, console, o), console);
  addSize(set, console.figures);
  console.begin("writing");
  writeSparse(o.output, std::move(set));
  return 0;
}

int writeProduct(const Files& o, Console& console) {
  requireMatrixOutput(o, {o.first, o.second});
  SparseMatrix A = load(o, console);
  const DenseMatrix B = loadDense(o, o.second, console);
  const DenseMatrix C = multiply(std::move(A), B, console);
  console.begin("writing");
  console.figures.add("rows", C.rows).add("columns", C.cols);
  if (inFigures(o, console)) {
    console.figures.add("product", C);
  } else {
    writeDense(o.output, C);
  }
  return 0;
}

// "folder/A.csv.gz" is cut into "folder/A.1of4.mtx" and so on.
PartName partsOf(const Formed& o) {
  namespace fs = std::filesystem;
  fs::path name = o.first;
  if (hasEnding(name.string(), ".gz")) name.replace_extension();
  name.replace_extension();
  if (!o.second.empty()) name = fs::path(o.second) / name.filename();
  return {name.string(), ".mtx", 1, static_cast<std::size_t>(o.parts)};
}

int writeSplit(const Formed& o, Console& console) {
  if (o.first == "-") {
    throw Error(ErrorKind::Usage, "the parts are named after the matrix; give a file instead of -");
  }
  const PartName parts = partsOf(o);
  for (std::size_t k = 1; k <= parts.parts; ++k) requireOutput(o, parts.path(k), {o.first});
  const SparseMatrix A = load(o, console, o);
  console.begin("writing");
  addSize(A, console.figures);
  writeParts(parts, A);
  std::vector<std::string> names;
  for (std::size_t k = 1; k <= parts.parts; ++k) names.push_back(parts.path(k));
  console.figures.add("parts", names);
  console.note("written: " + names.front() + (names.size() > 1 ? " to " + names.back() : "") +
               "; any of these names stands for the whole matrix, as in mpirun -n " +
               std::to_string(parts.parts) + " zeph variances " + names.front());
  return 0;
}

int writeExport(const Formed& o, Console& console) {
  requireOutput(o, o.second, {o.first});
  console.begin("reading");
  SparseMatrix sparse;
  DenseMatrix full;
  bool isFull = readAsStored(o.first, sparse, full, readOptions(o, console));
  if (!isFull && o.dense) {
    full = toDense(sparse);
    isFull = true;
  }
  console.begin("writing");
  console.figures.add("full", isFull);
  if (isFull) {
    exportMat(o.second, full, o.name);
  } else {
    exportMat(o.second, std::move(sparse), o.name);
  }
  return 0;
}

}  // namespace

void declareCheck(Application& z) {
  auto options = std::make_shared<Formed>();
  CLI::App* command = declare(
      z, "check", "Try whether A can be factorised, and tell what speaks against it",
      "  zeph check A.mtx    exit status 1 when A is unfit for factorising", options, printCheck);
  addArgument(command, "A", options->first, "matrix", "A.mtx");
  addForms(command, *options);
  addInput(command, *options);
  addMemory(command, *options);
}

void declareConvert(Application& z) {
  auto options = std::make_shared<Formed>();
  CLI::App* command =
      declare(z, "convert", "Convert matrices to Matrix Market files and triplet CSV",
              "  zeph convert A.mtx A.csv\n"
              "  zeph convert A.npz A.mtx",
              options, writeConverted);
  addArgument(command, "from", options->first, "matrix", "A.mtx|A.csv|A.npz");
  addArgument(command, "to", options->second, "the same matrix", "B.csv|B.mtx");
  addForce(command, *options);
  addInput(command, *options);
}

void declareSplit(Application& z) {
  auto options = std::make_shared<Formed>();
  CLI::App* command =
      declare(z, "split", "Cut a matrix into files that processes read side by side",
              "  zeph split A.mtx --parts 4              A.1of4.mtx to A.4of4.mtx\n"
              "  mpirun -n 4 zeph variances A.1of4.mtx   each process reads one of them",
              options, writeSplit);
  addArgument(command, "A", options->first, "matrix", "A.mtx");
  command->add_option("--parts", options->parts, "how many files")
      ->required()
      ->check(wholeNumber(1, 100000))
      ->type_name("N");
  command
      ->add_option("-o,--output", options->second, "their folder; that of the matrix if not given")
      ->type_name("DIR");
  addForms(command, *options);
  addForce(command, *options);
  addInput(command, *options);
}

void declareFactor(Application& z) {
  auto options = std::make_shared<Formed>();
  CLI::App* command =
      declare(z, "factor", "The sparse lower Cholesky factor of A",
              "  zeph factor A.mtx -o L.mtx               L L' = A\n"
              "  zeph factor A.mtx -o L.mtx --perm p.txt  L L' = A(p, p) with far fewer entries",
              options, writeLowerFactor);
  addArgument(command, "A", options->first, "symmetric positive definite matrix", "A.mtx");
  addOutput(command, *options, "the factor");
  addForms(command, *options);
  command
      ->add_option("--perm", options->permutation,
                   "reorder A to reduce fill, and write the order here, a zero-based index a line")
      ->type_name("FILE");
  addEngineChoice(command, options->engine);
  addInput(command, *options);
  addFactorMemory(command, *options);
}

void declarePattern(Application& z) {
  auto options = std::make_shared<Formed>();
  CLI::App* command = declare(
      z, "pattern", "The positions of the inverse that a partial inversion of A needs",
      "  zeph pattern A.mtx -o set.csv    lines row,col,marker; row <= col", options, writePattern);
  addArgument(command, "A", options->first, "square matrix", "A.mtx");
  addOutput(command, *options, "the set; its values are markers");
  addForms(command, *options);
  addInput(command, *options);
}

void declareMultiply(Application& z) {
  auto options = std::make_shared<Files>();
  CLI::App* command = declare(z, "multiply", "The dense product C = A B of a sparse A",
                              "  zeph multiply A.mtx B.mtx -o C.mtx", options, writeProduct);
  addArgument(command, "A", options->first, "sparse matrix", "A.mtx");
  addArgument(command, "B", options->second, "matrix with as many rows as A has columns", "B.mtx");
  addOutput(command, *options, "the product, a Matrix Market array");
  addInput(command, *options);
}

void declareExport(Application& z) {
  auto options = std::make_shared<Formed>();
  CLI::App* command =
      declare(z, "export", "Write a matrix as a MATLAB level-5 MAT-file",
              "  zeph export M.mtx out.mat --name M           sparse or full, as it is stored\n"
              "  zeph export M.mtx out.mat --name M --dense   full, with every zero",
              options, writeExport);
  addArgument(command, "M", options->first, "matrix", "M.mtx");
  addArgument(command, "to", options->second, "MAT-file", "OUT.mat");
  command->add_option("--name", options->name, "name of the variable")
      ->required()
      ->type_name("NAME");
  command->add_flag("--dense", options->dense, "write a sparse matrix in full: 8 bytes a position");
  addForce(command, *options);
  addInput(command, *options);
}

}  // namespace zeph
