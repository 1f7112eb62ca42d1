#include "cli/commands.h"
#include "cli/command_parts.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zeph/adjust.h"
#include "zeph/checks/matrix_check.h"
#include "zeph/checks/one_triangle.h"
#include "zeph/demo/demonstration.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/mat_export.h"
#include "zeph/files/matrix_file.h"
#include "zeph/general/cholmod_factor.h"
#include "zeph/general/inverse_set.h"
#include "zeph/general/version.h"
#include "zeph/jobs/adjust_tables.h"
#include "zeph/jobs/pose_graph_output.h"
#include "zeph/matrix/multiply.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {

namespace {

/// Two results need a file each.
void requireTwoOutputs(const std::string& output, const char* option, const std::string& second) {
  if (second.empty()) return;
  if (AtomicFile::same(output, second)) {
    throw Error(ErrorKind::Usage,
                std::string("-o and ") + option + " both name " + second + "; name a file each");
  }
  AtomicFile::requireWritable(second);
}

void printDemonstration(const DemonstrationReport& r) {
  std::printf("Levelling network    %zu points, %zu lines, %zu benchmarks\n", r.points, r.lines,
              r.benchmarks);
  std::printf("Assembly             %.3f s\n", r.assemblySeconds);
  std::printf("Solution             %.3f s for %zu simulated campaigns\n", r.solveSeconds,
              r.campaigns);
  std::printf("Variances            %.3f s, every diagonal entry of the inverse\n",
              r.varianceSeconds);
  std::printf("Standard deviations  %.3f mm to %.3f mm; largest true error %.3f mm\n",
              1000.0 * r.smallestSigma, 1000.0 * r.largestSigma, 1000.0 * r.largestError);
  std::printf(
      "Normalised errors    spread %.3f (1 when the variances are right); within 1 sigma "
      "%.1f %%, within 2 sigma %.1f %% (68.3, 95.4)\n",
      r.check.spread, 100.0 * r.check.withinOne, 100.0 * r.check.withinTwo);
  std::printf("Estimates            %s\n", r.estimatesFile.c_str());
  std::printf("Picture              %s\n", r.pictureFile.c_str());
}

}  // namespace

void declareAdjust(CLI::App& app, Action& action) {
  struct Options : Files {
    std::string sigma;
    std::string residuals;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = declare(
      app, action, "adjust",
      "Least squares: unknowns with standard deviations, checked observations",
      "  zeph adjust J.mtx y.mtx --sigma s.mtx -o x.csv --residuals r.csv\n"
      "  zeph adjust J.mtx y.mtx              all standard deviations 1, lines on standard output",
      options, [](const Options& o, const Progress& progress) {
        AtomicFile::requireWritable(o.output);
        requireTwoOutputs(o.output, "--residuals", o.residuals);
        const SparseMatrix J = load(o.first, progress);
        const std::vector<double> y = toVector(readDense(o.second), "observations");
        std::vector<double> sigma;
        if (!o.sigma.empty()) sigma = toVector(readDense(o.sigma), "standard deviations");
        const Adjustment result = adjust(J, y, sigma, shownOn(progress));
        progress.begin("writing");
        writeAdjustment(o.output, o.residuals, result);
        for (const std::string& line : summary(result, J.indexBase)) progress.note(line);
        return 0;
      });
  command->add_option("J", options->first, "design matrix: a row for each observation")
      ->required()
      ->type_name("J.mtx");
  command->add_option("y", options->second, "observations")->required()->type_name("y.mtx");
  command
      ->add_option("--sigma", options->sigma,
                   "standard deviations of the observations, or one for all of them")
      ->type_name("s.mtx");
  addOutput(command, options->output, "lines unknown,value,standard_deviation");
  command
      ->add_option("--residuals", options->residuals,
                   "lines observation,residual,standard_deviation,redundancy,leverage,"
                   "normalized_residual")
      ->type_name("FILE");
}

void declarePoseGraph(CLI::App& app, Action& action) {
  struct Options : Files {
    std::vector<std::string> pairs;
    std::string plot;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = declare(
      app, action, "pose-graph", "Optimise a pose graph: poses with standard deviations",
      "  zeph pose-graph file.g2o -o poses.csv --plot graph.svg\n"
      "  zeph pose-graph file.g2o -o poses.csv --pairs 3,17 3,18   covariances on standard output",
      options, [](const Options& o, const Progress& progress) {
        AtomicFile::requireWritable(o.output);
        requireTwoOutputs(o.output, "--plot", o.plot);
        if (!o.pairs.empty() && o.output == "-") {
          throw Error(ErrorKind::Usage, "--pairs writes to standard output; name a file with -o");
        }
        progress.begin("reading");
        PoseGraph graph = readPoseGraph(o.first);
        std::vector<std::pair<std::size_t, std::size_t>> pairs;
        for (const std::string& pair : o.pairs) pairs.push_back(posePair(graph, pair));
        PoseGraphOptions how;
        how.solver = shownOn(progress);
        how.iterated = [&progress](int iteration, double cost, double damping) {
          char line[96];
          std::snprintf(line, sizeof line, "iteration %d: cost %.10g, damping %.3g", iteration,
                        cost, damping);
          progress.note(line);
        };
        const PoseGraphResult result = optimise(std::move(graph), how);
        const std::vector<DenseMatrix> covariances = result.covariances();
        progress.begin("writing");
        if (!o.plot.empty()) {
          AtomicFile picture(o.plot);
          picture.write(drawPoseGraph(result.graph, covariances));
          picture.commit();
        }
        writePoses(o.output, result.graph, covariances);
        if (!pairs.empty()) writePairs("-", result, pairs);
        if (!result.converged) progress.note("the iterations ended before they converged");
        return 0;
      });
  command->add_option("file", options->first, "pose graph, 2-D or 3-D")
      ->required()
      ->type_name("FILE.g2o");
  addOutput(command, options->output, "a line for each pose, with its standard deviations");
  command->add_option("--pairs", options->pairs, "ids of poses whose cross-covariance is wanted")
      ->type_name("I,J");
  command->add_option("--plot", options->plot, "a picture")->type_name("OUT.svg");
}

void declareCheck(CLI::App& app, Action& action) {
  struct Options : Files, FormFlags {};
  auto options = std::make_shared<Options>();
  CLI::App* command = declare(app, action, "check",
                              "Try whether A can be factorised, and tell what speaks against it",
                              "  zeph check A.mtx    exit status 1 when A is unfit for factorising",
                              options, [](const Options& o, const Progress& progress) {
                                progress.begin("reading");
                                ReadOptions everything;
                                everything.allowNonFinite = true;
                                SparseMatrix A = readSparse(o.first, everything);
                                o.declare(A);
                                const MatrixReport report = checkMatrix(A, progress);
                                std::fputs(toText(report).c_str(), stdout);
                                return report.fit() ? 0 : 1;
                              });
  command->add_option("A", options->first, "matrix")->required()->type_name("A.mtx");
  addForms(command, *options);
}

void declareConvert(CLI::App& app, Action& action) {
  auto options = std::make_shared<Files>();
  CLI::App* command =
      declare(app, action, "convert", "Convert between Matrix Market files and triplet CSV",
              "  zeph convert A.mtx A.csv\n"
              "  zeph convert A.csv A.mtx",
              options, [](const Files& o, const Progress& progress) {
                requireOutput(o.second);
                ReadOptions everything;
                everything.allowNonFinite = true;
                progress.begin("reading");
                SparseMatrix matrix = readSparse(o.first, everything);
                progress.begin("writing");
                writeSparse(o.second, std::move(matrix));
                return 0;
              });
  command->add_option("from", options->first, "matrix")->required()->type_name("A.mtx|A.csv");
  command->add_option("to", options->second, "the same matrix")
      ->required()
      ->type_name("B.csv|B.mtx");
}

void declareFactor(CLI::App& app, Action& action) {
  struct Chosen : Files, FormFlags {
    std::string engine = "zeph";
  };
  auto options = std::make_shared<Chosen>();
  CLI::App* command =
      declare(app, action, "factor", "The sparse lower Cholesky factor of A",
              "  zeph factor A.mtx -o L.mtx               L L' = A\n"
              "  zeph factor A.mtx -o L.mtx --perm p.txt  L L' = A(p, p) with far fewer entries",
              options, [](const Chosen& o, const Progress& progress) {
                requireOutput(o.output);
                requireTwoOutputs(o.output, "--perm", o.permutation);
                const bool reorder = !o.permutation.empty();
                SparseMatrix A = load(o.first, progress, o);
                CholeskyFactor result;
                if (o.engine == "cholmod") {
                  result = cholmodFactor(std::move(A), reorder, progress);
                } else {
                  Options how = shownOn(progress);
                  if (!reorder) how.ordering = Ordering::Natural;
                  result = lowerFactor(A, how);
                }
                progress.begin("writing");
                writeFactor(o.output, o.permutation, std::move(result));
                return 0;
              });
  command->add_option("A", options->first, "symmetric positive definite matrix")
      ->required()
      ->type_name("A.mtx");
  addOutput(command, options->output, "the factor");
  addForms(command, *options);
  command
      ->add_option("--perm", options->permutation,
                   "reorder A to reduce fill, and write the order here, a zero-based index a line")
      ->type_name("FILE");
  addEngineChoice(command, options->engine);
}

void declarePattern(CLI::App& app, Action& action) {
  struct Options : Files, FormFlags {};
  auto options = std::make_shared<Options>();
  CLI::App* command = declare(app, action, "pattern",
                              "The positions of the inverse that a partial inversion of A needs",
                              "  zeph pattern A.mtx -o set.csv    lines row,col,marker; row <= col",
                              options, [](const Options& o, const Progress& progress) {
                                requireOutput(o.output);
                                SparseMatrix set = inverseSet(load(o.first, progress, o), progress);
                                progress.begin("writing");
                                writeSparse(o.output, std::move(set));
                                return 0;
                              });
  command->add_option("A", options->first, "square matrix")->required()->type_name("A.mtx");
  addOutput(command, options->output, "the set; its values are markers");
  addForms(command, *options);
}

void declareMultiply(CLI::App& app, Action& action) {
  auto options = std::make_shared<Files>();
  CLI::App* command = declare(app, action, "multiply", "The dense product C = A B of a sparse A",
                              "  zeph multiply A.mtx B.mtx -o C.mtx", options,
                              [](const Files& o, const Progress& progress) {
                                requireOutput(o.output);
                                SparseMatrix A = load(o.first, progress);
                                const DenseMatrix B = readDense(o.second);
                                const DenseMatrix C = multiply(std::move(A), B, progress);
                                progress.begin("writing");
                                writeDense(o.output, C);
                                return 0;
                              });
  command->add_option("A", options->first, "sparse matrix")->required()->type_name("A.mtx");
  command->add_option("B", options->second, "matrix with as many rows as A has columns")
      ->required()
      ->type_name("B.mtx");
  addOutput(command, options->output, "the product, a Matrix Market array");
}

void declareExport(CLI::App& app, Action& action) {
  struct Options : Files {
    bool dense = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command =
      declare(app, action, "export", "Write a matrix as a MATLAB level-5 MAT-file",
              "  zeph export M.mtx out.mat --name M           sparse or full, as it is stored\n"
              "  zeph export M.mtx out.mat --name M --dense   full, with every zero",
              options, [](const Options& o, const Progress& progress) {
                AtomicFile::requireWritable(o.second);
                progress.begin("reading");
                SparseMatrix sparse;
                DenseMatrix full;
                bool isFull = readAsStored(o.first, sparse, full);
                if (!isFull && o.dense) {
                  full = toDense(sparse);
                  isFull = true;
                }
                progress.begin("writing");
                if (isFull) {
                  exportMat(o.second, full, o.name);
                } else {
                  exportMat(o.second, std::move(sparse), o.name);
                }
                return 0;
              });
  command->add_option("M", options->first, "matrix")->required()->type_name("M.mtx");
  command->add_option("to", options->second, "MAT-file")->required()->type_name("OUT.mat");
  command->add_option("--name", options->name, "name of the variable")
      ->required()
      ->type_name("NAME");
  command->add_flag("--dense", options->dense, "write a sparse matrix in full: 8 bytes a position");
}

void declareDemo(CLI::App& app, Action& action) {
  auto options = std::make_shared<DemonstrationOptions>();
  CLI::App* command =
      declare(app, action, "demo", "Adjust a levelling network and draw its standard deviations",
              "  zeph demo\n"
              "  zeph demo --size 1000000 --out big",
              options, [](const DemonstrationOptions& o, const Progress& progress) {
                printDemonstration(runDemonstration(o, progress));
                return 0;
              });
  command->add_option("--size", options->size, "points of the network")
      ->type_name("N")
      ->capture_default_str();
  command->add_option("--seed", options->seed, "another network for another seed")
      ->type_name("S")
      ->capture_default_str();
  command->add_option("--out", options->folder, "folder for estimates.csv and network.svg")
      ->type_name("DIR")
      ->capture_default_str();
}

void declareVersion(CLI::App& app, Action& action) {
  declare(app, action, "version", "The version of the library", "  zeph version",
          std::make_shared<Files>(), [](const Files&, const Progress&) {
            std::printf("zeph %s\n", versionText().c_str());
            return 0;
          });
}

}  // namespace zeph
