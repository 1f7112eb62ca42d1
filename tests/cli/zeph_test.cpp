// Runs the real program on real files: results, exit codes, sentences, and what is left on disk.
#include <sys/wait.h>

#include <cctype>
#include <cstdlib>
#include <sstream>

#include "tests/zeph/front_test.h"
#include "zeph/factor/lu_backend.h"

namespace {

using zeph::hasLuRoute;

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

class ZephProgram : public FrontTest {
 protected:
  /// Runs zeph inside the test's folder.
  Outcome run(const std::string& arguments) const {
    const std::string command =
        "cd '" + path("") + "' && '" ZEPH_PROGRAM "' </dev/null " + arguments + " >.out 2>.err";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(path(".out")), read(path(".err"))};
  }
};

/// All numbers of a Matrix Market or CSV text, comments left out.
std::vector<double> numbersIn(const std::string& text) {
  std::vector<double> numbers;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("%")) continue;
    if (std::isalpha(static_cast<unsigned char>(line[0]))) continue;  // a header
    std::replace(line.begin(), line.end(), ',', ' ');
    std::istringstream words(line);
    for (double number; words >> number;) numbers.push_back(number);
  }
  return numbers;
}

const std::string kSymmetric2 =
    "%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n1 1 4\n2 1 2\n2 2 5\n";
const std::string kGeneral2 =
    "%%MatrixMarket matrix coordinate real general\n2 2 3\n1 1 4\n2 1 2\n2 2 4\n";
const std::string kLevelling =
    "%%MatrixMarket matrix coordinate real general\n4 2 5\n1 1 1\n2 1 -1\n2 2 1\n3 2 1\n4 2 1\n";
const std::string kTwoPoses =
    "VERTEX_SE2 2 0 0 0\nVERTEX_SE2 5 4.5 0 0\nEDGE_SE2 2 5 3 0 0 4 0 0 4 0 1\n";
const std::string kVector2 = "%%MatrixMarket matrix array real general\n2 1\n1\n2\n";

TEST_F(ZephProgram, CommandsPutTheirResultsWhereTheyAreAskedTo) {
  write("A.mtx", kSymmetric2);
  write("G.mtx", kGeneral2);
  write("b.mtx", kVector2);
  write("J.mtx", kLevelling);
  write("p.g2o", kTwoPoses);
  write("order.txt", "1\n0\n");
  write("pairs.csv", "1,0\n\n1, 1\n");
  write("y.mtx", "%%MatrixMarket matrix array real general\n4 1\n1\n0\n-1\n13\n");
  write("s.csv", "0,0,2\n");
  write("one.csv", "row;col;value\n1;1;4\n2;1;2d0\n1;2;2\n2;2;5\n");
  const struct {
    const char *arguments, *file;  // where the result is, null for standard output
    std::vector<double> numbers;
    const char* said;
  } cases[] = {
      {"variances A.mtx", nullptr, {0, 0.3125, 1, 0.25}, "Cholesky"},
      {"variances A.mtx --engine cholmod", nullptr, {0, 0.3125, 1, 0.25}, "Cholesky"},
      {"variances A.mtx --threads 2 --ordering order.txt",
       nullptr,
       {0, 0.3125, 1, 0.25},
       "relative error of the variances: at most"},
      {"covariance A.mtx --block 1,0", nullptr, {2, 2, 0.25, -0.125, -0.125, 0.3125}, ""},
      {"covariance A.mtx --pairs pairs.csv", nullptr, {1, 0, -0.125, 1, 1, 0.25}, ""},
      {"selinv A.mtx -o Z.mtx", "Z.mtx", {2, 2, 3, 1, 1, 0.3125, 2, 1, -0.125, 2, 2, 0.25}, ""},
      {"logdet A.mtx", nullptr, {std::log(16.0), 1}, ""},
      {"logdet G.mtx --general", nullptr, {std::log(16.0), 1}, "LU"},
      {"variances A.mtx --lu", nullptr, {0, 0.3125, 1, 0.25}, "LU"},
      {"variances A.mtx --lu-solves -o d.csv", "d.csv", {0, 0.3125, 1, 0.25}, "LU"},
      {"variances G.mtx --general -o d.mtx", "d.mtx", {2, 1, 0.25, 0.25}, "LU"},
      {"solve G.mtx b.mtx --symmetric", nullptr, {2, 1, 0, 0.5}, "Cholesky"},
      {"solve A.mtx b.mtx", nullptr, {2, 1, 0.0625, 0.375}, "residual"},
      {"solve A.mtx b.mtx --lu -o x.mtx", "x.mtx", {2, 1, 0.0625, 0.375}, "LU"},
      {"solve A.mtx b.mtx --cholesky", nullptr, {2, 1, 0.0625, 0.375}, "Cholesky"},
      {"multiply A.mtx b.mtx", nullptr, {2, 1, 8, 12}, ""},
      {"convert A.mtx A.csv", "A.csv", {0, 0, 4, 1, 0, 2, 0, 1, 2, 1, 1, 5}, ""},
      {"convert A.csv back.mtx", "back.mtx", {2, 2, 4, 1, 1, 4, 2, 1, 2, 1, 2, 2, 2, 2, 5}, ""},
      {"factor A.mtx", nullptr, {2, 2, 3, 1, 1, 2, 2, 1, 1, 2, 2, 2}, ""},
      {"factor A.mtx --engine cholmod", nullptr, {2, 2, 3, 1, 1, 2, 2, 1, 1, 2, 2, 2}, ""},
      {"factor A.mtx -o L.mtx --perm p.txt", "p.txt", {0, 1}, ""},
      {"pose-graph p.g2o", nullptr, {2, 0, 0, 0, 0, 0, 0, 5, 3, 0, 0, 0.5, 0.5, 1}, "cost 9"},
      {"pose-graph p.g2o -o p.csv --plot p.svg --pairs 5,5 2,5",
       nullptr,
       {5, 5,    0, 0, 0.25, 5, 5, 0, 1, 0, 5, 5, 0, 2, 0, 5, 5, 1, 0, 0, 5, 5, 1,
        1, 0.25, 5, 5, 1,    2, 0, 5, 5, 2, 0, 0, 5, 5, 2, 1, 0, 5, 5, 2, 2, 1, 2,
        5, 0,    0, 0, 2,    5, 0, 1, 0, 2, 5, 0, 2, 0, 2, 5, 1, 0, 0, 2, 5, 1, 1,
        0, 2,    5, 1, 2,    0, 2, 5, 2, 0, 0, 2, 5, 2, 1, 0, 2, 5, 2, 2, 0},
       ""},
      {"adjust J.mtx y.mtx", nullptr, {0, 3, std::sqrt(0.6), 1, 5, std::sqrt(0.4)}, "row 4 of"},
      {"adjust J.mtx y.mtx --sigma s.csv --residuals r.csv -o x.csv",
       "r.csv",
       {0,   -2,  2 * std::sqrt(0.4), 0.4, 0.6, -std::sqrt(2.5),    1,   -2,  2 * std::sqrt(0.4),
        0.4, 0.6, -std::sqrt(2.5),    2,   -6,  2 * std::sqrt(0.6), 0.6, 0.4, -std::sqrt(15.0),
        3,   8,   2 * std::sqrt(0.6), 0.6, 0.4, std::sqrt(80 / 3.0)},
       "variance factor 13.5"},
      {"pattern A.mtx -o set.csv", "set.csv", {0, 0, 2, 0, 1, 2, 1, 1, 3}, ""},
      {"variances - --format csv --one-based < one.csv",
       nullptr,
       {0, 0.3125, 1, 0.25},
       "(standard input"},
      {"solve A.mtx b.mtx -o x.txt", "x.txt", {0.0625, 0.375}, ""},
      {"solve A.mtx x.txt -o x.txt --force", "x.txt", {-0.02734375, 0.0859375}, ""},
      {"variances A.mtx -o /dev/stdout --quiet", nullptr, {0, 0.3125, 1, 0.25}, ""},
      {"variances A.mtx -o /dev/null", nullptr, {}, ""},
      {"variances A.mtx --verbose", nullptr, {0, 0.3125, 1, 0.25}, "entries of A, 3 of the factor"},
  };
  for (const auto& c : cases) {
    const Outcome result = run(c.arguments);
    const std::string arguments = c.arguments;
    const bool needsGpl = std::strcmp(c.said, "LU") == 0 || arguments.find("pattern") == 0 ||
                          arguments.find("cholmod") != arguments.npos;
    if (needsGpl && !hasLuRoute()) {
      EXPECT_EQ(result.status, 4) << c.arguments;
      EXPECT_NE(result.err.find("under the GPL"), std::string::npos) << result.err;
      continue;
    }
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find(c.said), std::string::npos) << result.err;
    const std::vector<double> found = numbersIn(c.file ? read(path(c.file)) : result.out);
    ASSERT_EQ(found.size(), c.numbers.size()) << c.arguments << "\n" << result.out;
    for (std::size_t i = 0; i < found.size(); ++i) {
      EXPECT_NEAR(found[i], c.numbers[i], 1e-15) << c.arguments;
    }
  }
}

TEST_F(ZephProgram, ExportsInTheFormOfTheFileUnlessAskedForAll) {
  write("b.mtx", kVector2);
  write("A.mtx", kSymmetric2);
  const std::pair<const char*, unsigned> cases[] = {// class of the array, at byte 144
                                                    {"b.mtx", 6},
                                                    {"A.mtx", 5},
                                                    {"A.mtx --dense", 6}};
  for (const auto& [file, kind] : cases) {
    const Outcome result = run("export --name M " + std::string(file) + " x.mat");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read(path("x.mat")).at(144), static_cast<char>(kind)) << file;
  }
}

TEST_F(ZephProgram, ChecksAndAnswersByExitStatus) {
  write("good.mtx", kSymmetric2);
  const Outcome good = run("check good.mtx");
  EXPECT_EQ(good.status, 0) << good.err;
  write("bad.mtx",
        "%%MatrixMarket matrix coordinate real general\n3 3 4\n1 1 1\n2 2 0\n3 1 nan\n1 1 2\n");
  const Outcome bad = run("check bad.mtx");
  EXPECT_EQ(bad.status, 1) << bad.err;
  write("net.mtx",
        "%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n1 1 1\n2 2 1\n2 1 -1\n");
  const Outcome net = run("check net.mtx");
  EXPECT_EQ(net.status, 1);
  EXPECT_NE(net.out.find("fit for Cholesky:    no: no point is held fixed"), net.out.npos)
      << net.out;
  for (const char* fact : {"(3, 1)", "3 x 3", "duplicate"}) {
    EXPECT_NE(bad.out.find(fact), std::string::npos) << fact << " in\n" << bad.out;
  }
}

TEST_F(ZephProgram, DemonstrationPredictsItsOwnErrors) {
  const Outcome result = run("demo --size 3000 --out d/e");
  ASSERT_EQ(result.status, 0) << result.err;
  const std::size_t at = result.out.find("spread ");
  ASSERT_NE(at, std::string::npos) << result.out;
  EXPECT_NEAR(std::strtod(result.out.c_str() + at + 7, nullptr), 1.0, 0.05);
  std::istringstream estimates(read(path("d/e/estimates.csv")));
  std::size_t lines = 0;
  for (std::string line; std::getline(estimates, line);) ++lines;
  EXPECT_EQ(lines, 3001u);
  EXPECT_NE(result.out.find("Suspected            that line, of"), std::string::npos) << result.out;
  EXPECT_NE(read(path("d/e/report.html")).find("</html>"), std::string::npos);
  const std::string picture = read(path("d/e/network.svg"));
  EXPECT_NE(picture.find("</svg>"), std::string::npos);
  EXPECT_EQ(picture.find("%%"), std::string::npos);
  double least = 0.0, most = 0.0, said[2];  // the scale ends below the largest value, and says so
  ASSERT_EQ(std::sscanf(result.out.c_str() + result.out.find("deviations"),
                        "deviations %lf mm to %lf", &least, &most),
            2);
  ASSERT_NE(picture.find("≥ "), std::string::npos);
  ASSERT_EQ(std::sscanf(picture.c_str() + picture.find("all: "), "all: %lf to %lf", said, said + 1),
            2);
  EXPECT_NEAR(said[0], least, 0.006);
  EXPECT_NEAR(said[1], most, 0.006);
}

struct BadCase {
  std::string arguments;
  int status;
  std::vector<std::string> said;  // pieces of the sentence
  bool byLu = false;
};

TEST_F(ZephProgram, DoubtfulResultsAreWarnedOfWithTheUnknown) {
  write("A.mtx",
        "%%MatrixMarket matrix coordinate real symmetric\n3 3 4\n1 1 1\n"
        "2 2 1.0000000001\n3 2 -1\n3 3 1\n");
  write("b.mtx", "%%MatrixMarket matrix array real general\n3 1\n1\n1\n2\n");
  write("J.mtx",
        "%%MatrixMarket matrix coordinate real general\n3 2 4\n1 1 1e-5\n2 1 -1\n2 2 1\n"
        "3 2 1e-5\n");
  write("p.g2o", "EDGE_SE2 2 5 3 0 0 1e-5 0 0 1e-5 0 1e-5\nEDGE_SE2 5 7 3 0 0 1e5 0 0 1e5 0 1e5\n");
  const struct {
    const char *arguments, *said;
  } cases[] = {
      {"variances A.mtx", "relative error of the variances may reach"},
      {"variances A.mtx --lu", "relative error of the variances may reach"},
      {"solve A.mtx b.mtx", "relative error of the solution may reach"},
      {"covariance A.mtx --block 0,1", "relative error of the block of the inverse may reach"},
      {"selinv A.mtx -o Z.mtx", "relative error of the selected inverse may reach"},
      {"logdet A.mtx", "relative error of the determinant may reach"},
      {"adjust J.mtx b.mtx", "of the normal matrix of J.mtx"},
      {"pose-graph p.g2o", "relative error of the covariances may reach"},
  };
  for (const auto& c : cases) {
    const Outcome result = run(c.arguments);
    if (result.status != 0 && !hasLuRoute()) continue;
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find(c.said), std::string::npos) << result.err;
    const bool named = result.err.find("at unknown ") != std::string::npos ||
                       result.err.find("at pose 5 of p.g2o") != std::string::npos ||
                       result.err.find("at pose 7 of p.g2o") != std::string::npos;
    EXPECT_TRUE(named && result.err.find("unknown 1 of A") == std::string::npos) << result.err;
  }
  const std::string json = run("covariance A.mtx --block 0,2 --json").out;
  EXPECT_NE(json.find("\"worst_unknown\":3"), std::string::npos) << json;
  EXPECT_NE(json.find("\"last_error_estimate\":"), std::string::npos) << json;
}

TEST_F(ZephProgram, BadInputGetsOneSentenceAndLeavesNothingBehind) {
  const std::string head = "%%MatrixMarket matrix coordinate real general\n";
  write("A.mtx", kSymmetric2);
  write("G.mtx", kGeneral2);
  write("b.mtx", kVector2);
  write("truncated.mtx", head + "2 2 3\n1 1 4\n2 2 1\n");
  write("pattern.mtx", "%%MatrixMarket matrix coordinate pattern general\n2 2 1\n1 1\n");
  write("nan.mtx", head + "2 2 2\n1 1 4\n2 2 nan\n");
  write("wide.mtx", head + "2 3 2\n1 1 4\n2 2 1\n");
  write("empty.mtx", head + "0 0 0\n");
  write("tall.mtx", "%%MatrixMarket matrix array real general\n3 1\n1\n2\n3\n");
  write("singular.mtx", head + "3 3 2\n1 1 4\n3 3 1\n");
  write("dependent.mtx", head + "2 2 4\n1 1 1\n1 2 2\n2 1 2\n2 2 4\n");
  write("indefinite.mtx", head + "2 2 4\n1 1 1\n1 2 2\n2 1 2\n2 2 1\n");
  write("bad.csv", "0,0,1\n1;1;2,5\n");
  write("p.g2o", kTwoPoses);
  write("free.mtx", head + "2 2 4\n1 1 -1\n1 2 1\n2 1 -1\n2 2 1\n");
  write("net.mtx", head + "3 3 7\n1 1 1\n2 2 2\n3 3 1\n1 2 -1\n2 1 -1\n2 3 -1\n3 2 -1\n");
  run("version");
  const std::size_t before = fileCount();
  const std::vector<BadCase> cases = {
      {"variances none.mtx -o o.csv", 3, {"none.mtx"}},
      {"variances truncated.mtx -o o.csv", 3, {"truncated.mtx", "line 4"}},
      {"variances pattern.mtx -o o.csv", 3, {"pattern.mtx", "pattern"}},
      {"variances nan.mtx -o o.csv", 3, {"nan.mtx", "line 4"}},
      {"variances wide.mtx -o o.csv", 4, {"wide.mtx", "2 x 3"}},
      {"solve A.mtx tall.mtx -o o.mtx", 4, {"tall.mtx", "3"}},
      {"multiply A.mtx tall.mtx -o o.mtx", 4, {"tall.mtx", "3"}},
      {"variances empty.mtx -o o.csv", 4, {"empty.mtx", "empty"}},
      {"variances singular.mtx -o o.csv", 6, {"singular.mtx", "singular"}},
      {"solve singular.mtx tall.mtx -o o.mtx", 6, {"singular"}},
      {"variances dependent.mtx --lu -o o.csv", 6, {"singular"}, true},
      {"variances indefinite.mtx -o o.csv", 5, {"indefinite.mtx", "--lu"}},
      {"solve indefinite.mtx b.mtx --cholesky -o o.mtx", 5, {"--lu"}},
      {"variances G.mtx -o o.csv", 4, {"lower", "--symmetric", "--general"}},
      {"variances G.mtx --general --cholesky -o o.csv", 4, {"G.mtx"}},
      {"variances A.mtx -o none/o.csv", 7, {"none/o.csv"}},
      {"demo --size 100 --out A.mtx", 7, {"A.mtx"}},
      {"variances A.mtx -o o.xyz", 2, {"o.xyz", ".mtx"}},
      {"export b.mtx o.mat --name 2x", 2, {"2x"}},
      {"solve net.mtx tall.mtx",
       6,
       {"net.mtx is singular: no point is held",
        "shifted together (a null space of dimension 1), as unknown 1; add an observation"}},
      {"variances net.mtx --lu", 6, {"no point is held fixed"}, true},
      {"adjust free.mtx b.mtx -o o.csv --residuals r.csv", 6, {"no point is held"}},
      {"pose-graph A.mtx -o o.csv", 3, {"A.mtx, line 1", "no record"}},
      {"pose-graph p.g2o -o o.csv --pairs 2,3", 2, {"p.g2o has no pose 3"}},
      {"pose-graph p.g2o -o o.csv --plot o.svg --pairs 2", 2, {"\"2\" is no pair"}},
      {"adjust free.mtx tall.mtx -o o.csv", 4, {"3", "free.mtx"}},
      {"adjust free.mtx A.mtx", 4, {"A.mtx is 2 x 2", "one column"}},
      {"adjust G.mtx b.mtx --residuals o.csv --report ./o.csv", 2, {"o.csv"}},
      {"adjust G.mtx b.mtx -o o.csv --residuals r.csv --report /dev/full", 7, {"full"}},
      {"adjust free.mtx b.mtx -o o.csv --residuals o.csv", 2, {"o.csv"}},
      {"variances A.mtx --lu --cholesky", 2, {"--lu"}},
      {"covariance A.mtx", 2, {"--pairs", "--block"}},
      {"covariance A.mtx --block 0,,1", 2, {"0,,1"}},
      {"covariance A.mtx --block 0,2", 4, {"A.mtx", "0 to 1"}},
      {"covariance A.mtx --pairs bad.csv", 3, {"bad.csv", "line 1"}},
      {"plan A.mtx --ordering bad.csv", 3, {"bad.csv", "line 1"}},
      {"selinv G.mtx --general", 4, {"G.mtx", "positive definite"}, true},
      {"", 2, {"zeph"}},
      {"solve A.mtx", 2, {"B is required", "zeph help solve"}},
      {"demo --size 1 --out o", 2, {"\"1\" is no whole number from 2 to"}},
      {"demo --size -5 --out o", 2, {"--size: \"-5\" is no whole number"}},
      {"variances A.mtx --threads abc", 2, {"--threads: \"abc\" is no whole number"}},
      {"solve A.mtx b.mtx --memory 3X", 2, {"\"3X\" is no amount of memory"}},
      {"plan A.mtx --memory 1e308G", 2, {"\"1e308G\" is no amount of memory"}},
      {"variences A.mtx", 2, {"did you mean \"variances\"?"}},
      {"help frobnicate", 2, {"there is no command \"frobnicate\""}},
      {"plan A.mtx --odering=amd", 2, {"\"--ordering\"", "zeph help plan"}},
      {"solve A.mtx b.mtx c.mtx", 2, {"no use for \"c.mtx\""}},
      {"solve A.mtx b.mtx -o ./b.mtx", 2, {"replace the input b.mtx", "--force"}},
      {"convert A.mtx A.mtx", 2, {"--force"}},
      {"variances p.g2o", 3, {"p.g2o is a pose graph", "pose-graph"}},
      {"variances /", 3, {"/ is a directory"}},
      {"variances A.mtx --memory 90", 8, {"more than the limit of 9e-05 MB"}},
      {"selinv A.mtx --json", 2, {"-o"}},
  };
  for (const BadCase& bad : cases) {
    SCOPED_TRACE(bad.arguments);
    if (bad.byLu && !hasLuRoute()) continue;
    const Outcome result = run(bad.arguments);
    EXPECT_EQ(result.status, bad.status) << result.err;
    EXPECT_EQ(result.out, "");
    for (const std::string& piece : bad.said) {
      EXPECT_NE(result.err.find(piece), std::string::npos) << piece << " in: " << result.err;
    }
    EXPECT_EQ(fileCount(), before);
  }
}

// What a terminal shows while a matrix is slow to come.
#define SHOWN(options)                                             \
  "script -qec \"(sleep 1.5; cat A.mtx) | $Z variances - " options \
  " -o /dev/null\" /dev/null "                                     \
  "> shown < /dev/null; tr '\\r' '\\n' < shown > lines; mv lines shown; "

TEST_F(ZephProgram, PipesLinksTerminalsAndFullDisks) {
  write("A.mtx", kSymmetric2);
  const struct {
    const char* shell;
    int status;
    const char* out;
  } cases[] = {
    {"mkfifo p.csv && (timeout 9 cat p.csv > read & timeout 9 $Z variances A.mtx -o p.csv; s=$?;"
     " wait; exit $s) && cat read",
     0, "0,0.3125\n1,0.25\n"},
    {"mkdir d && ln -s d/x.csv x.csv && $Z variances A.mtx -o x.csv && cat d/x.csv", 0,
     "0,0.3125\n1,0.25\n"},
    {"$Z factor A.mtx -o L.mtx --perm ./L.mtx", 2, ""},
    {"$Z factor A.mtx --perm -", 2, ""},
    {"$Z --help > /dev/full", 7, ""},
    {"(ulimit -f 0; exec $Z convert A.mtx over.csv); status=$?; ls over.csv; exit $status", 7, ""},
    {"$Z version > /dev/full", 7, ""},
    {"$Z factor A.mtx > /dev/full", 7, ""},
    {"export COLUMNS=80; " SHOWN(
         "") "grep -o 'reading \\.\\.\\. [1-9] ' shown | head -1 | cut -c-11",
     0, "reading ...\n"},
    {"export COLUMNS=9; " SHOWN("") "grep -o 'Kreading$' shown | head -1", 0, "Kreading\n"},
    {SHOWN("--quiet") "grep -c reading shown", 1, "0\n"},
    {"$Z version | head -1 | cut -d' ' -f1-2", 0, "zeph 1.0.0,\n"},
    {"$Z doctor --json | grep -o '\"well\":true'", 0, "\"well\":true\n"},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    {"ulimit -v 100000; timeout 9 $Z variances A.mtx", 0, "0,0.3125\n1,0.25\n"},
    {"seq 0 2000000 | sed 's/.*/&,&,1/' > D.csv; ulimit -v 150000; $Z variances D.csv 2>&1 | "
     "grep -o 'analysing D.csv would take'",
     0, "analysing D.csv would take\n"},
    {"ulimit -v 100000; timeout 9 $Z variances A.mtx --lu", zeph::hasLuRoute() ? 8 : 4, ""},
    {"ulimit -v 100000; timeout 9 $Z variances A.mtx --engine cholmod", zeph::hasLuRoute() ? 8 : 4,
     ""},
#endif
  };
  for (const auto& c : cases) {
    const std::string command =
        "cd '" + path("") + "' && Z='" ZEPH_PROGRAM "'; (" + c.shell + ") >.out 2>.err </dev/null";
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), c.status) << c.shell << read(path(".err"));
    EXPECT_EQ(read(path(".out")), c.out) << c.shell;
  }
}

TEST_F(ZephProgram, PlansFitTheMemoryThatIsAllowedAndPassOverBrokenCalibrations) {
  write("A.mtx", kSymmetric2);
  std::filesystem::create_directories(path("cache/zeph"));
  write("cache/zeph/calibration.txt", "zeph calibration 1\nsharing 1\n");
  setenv("XDG_CACHE_HOME", path("cache").c_str(), 1);
  const Outcome text = run("plan A.mtx --memory 500 --processes 3");
  EXPECT_NE(text.err.find("calibration.txt is passed over: it is no calibration"),
            std::string::npos)
      << text.err;
  for (const char* line : {"fits:             no, ", "rates:            usual for ", "too much",
                           "with a scratch file", "domains, processes: 3", "MUMPS, processes: 3"}) {
    EXPECT_NE(text.out.find(line), std::string::npos) << line << text.out;
  }
  if (zeph::hasLuRoute()) {
    write("U.csv", "0,0,2\n1,1,3\n0,1,1\n");
    const std::string lu = run("plan U.csv --general").out,
                      few = run("plan U.csv --general --memory 9").out;
    EXPECT_NE(lu.find("MB, at most "), std::string::npos) << lu;
    EXPECT_NE(lu.find("fits:             yes, "), std::string::npos) << lu;
    EXPECT_NE(few.find("fits:             no, 9e-06 MB allowed"), std::string::npos) << few;
  }
  const std::string json = run("plan A.mtx --memory 1G --processes 3 --json").out;
  for (const char* part : {"\"peak\":", "\"limit\":1e+09,\"fits\":true", "\"in_memory\":{",
                           "\"domains\":{", "\"interface_unknowns\":", "\"mumps\":{"}) {
    EXPECT_NE(json.find(part), std::string::npos) << part << json;
  }
  EXPECT_EQ(run("plan A.mtx --calibration A.mtx").status, 3);
  EXPECT_EQ(run("calibrate --show").status, 3);
  // Before anything is measured.
  EXPECT_NE(run("calibrate --scratch none").err.find("no folder none"), std::string::npos);
  EXPECT_NE(run("calibrate -o A.mtx/c.txt").err.find("cannot write"), std::string::npos);
  EXPECT_EQ(run("calibrate --reset").status, 0);
  EXPECT_FALSE(std::filesystem::exists(path("cache/zeph/calibration.txt")));
  EXPECT_EQ(run("calibrate --show").status, 3);
  EXPECT_EQ(run("calibrate --reset").status, 0);
  EXPECT_EQ(run("plan A.mtx").err, "");
  unsetenv("XDG_CACHE_HOME");
}

TEST_F(ZephProgram, HelpIsEverywhereAndShowsExamples) {
  write("A.mtx", kSymmetric2);
  EXPECT_NE(run("plan A.mtx").out.find("entries of L:     3\n"), std::string::npos);
  for (const char* command :
       {"",          "variances", "solve",   "covariance", "selinv",     "logdet", "plan",
        "calibrate", "check",     "convert", "adjust",     "pose-graph", "factor", "pattern",
        "multiply",  "export",    "demo",    "version",    "doctor",     "help"}) {
    const Outcome result = run(std::string(command) + " --help");
    EXPECT_EQ(result.status, 0);
    const bool general = *command == '\0' || std::strcmp(command, "help") == 0;
    EXPECT_TRUE(general || run(std::string("help ") + command).out == result.out) << command;
    EXPECT_NE(result.out.find("Examples:"), std::string::npos) << command << result.out;
  }
}

}  // namespace
