// The command as mpirun starts it: results as in memory, one voice, and what is left after
// failures.
#include <sys/wait.h>

#include <cstdlib>
#include <sstream>

#include "tests/zeph/front_test.h"

namespace {

#ifdef ZEPH_MPIRUN
constexpr const char* kMpirun = ZEPH_MPIRUN;
#else
constexpr const char* kMpirun = "";
#endif

struct Outcome {
  int status;
  std::string out, err;
};

std::vector<double> numbersIn(std::string text) {
  std::replace(text.begin(), text.end(), ',', ' ');
  std::istringstream words(text);
  std::vector<double> numbers;
  for (double number; words >> number;) numbers.push_back(number);
  return numbers;
}

int countOf(const std::string& word, const std::string& text) {
  int count = 0;
  for (auto at = text.find(word); at != text.npos; at = text.find(word, at + 1)) ++count;
  return count;
}

class Processes : public FrontTest {
 protected:
  void SetUp() override {
    FrontTest::SetUp();
    if (*kMpirun == '\0') GTEST_SKIP() << "the distributed component is not built";
    std::ostringstream A, G, b;
    constexpr int n = 120;
    std::mt19937 chance(1);
    const auto number = [&] { return 0.5 + static_cast<double>(chance() % 1000) / 1000.0; };
    A << "%%MatrixMarket matrix coordinate real symmetric\n" << n << ' ' << n << ' ' << 3 * n - 13;
    G << "%%MatrixMarket matrix coordinate real general\n" << n << ' ' << n << ' ' << 2 * n;
    for (int k = 1; k <= n; ++k) {
      A << '\n' << k << ' ' << k << ' ' << 6.0 + number();
      if (k < n) A << '\n' << k + 1 << ' ' << k << ' ' << -number();
      if (k + 12 <= n) A << '\n' << k + 12 << ' ' << k << ' ' << -number();
      G << '\n' << k << ' ' << k << ' ' << (k % 4 == 0 ? -3.0 : 4.0);
      G << '\n' << (k * 7) % n + 1 << ' ' << (k * 5) % n + 1 << ' ' << number();
      b << number() << ' ' << number() << '\n';
    }
    write("A.mtx", A.str() + "\n");
    write("G.mtx", G.str() + "\n");
    write("b.txt", b.str());
  }

  /// Runs a shell command inside the test's folder.
  Outcome shell(const std::string& command) const {
    const std::string line = "cd '" + path("") + "' && ( " + command + " ) </dev/null >.out 2>.err";
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(path(".out")), read(path(".err"))};
  }
  Outcome alone(const std::string& arguments) const {
    return shell("'" ZEPH_PROGRAM "' " + arguments);
  }
  Outcome spread(int count, const std::string& arguments) const {
    return shell(kMpirun + (" -n " + std::to_string(count)) + " '" ZEPH_PROGRAM "' " + arguments);
  }
};

TEST_F(Processes, GiveWhatOneGives) {
  ASSERT_EQ(alone("split A.mtx --parts 5").status, 0);
  const std::string head = "%%MatrixMarket matrix coordinate real general\n2 2 ";
  write("W.1of2.mtx", head + "0\n");  // nearly singular, and one part has nothing
  write("W.2of2.mtx", head + "3\n1 1 1\n2 1 1\n2 2 1.000000001\n");
  const struct {
    int count;
    std::string arguments, ofAll, said;
  } cases[] = {{2, "variances A.mtx", " --engine mumps", "Cholesky"},
               {3, "variances A.mtx", "", "by the engine domains on 3 processes"},
               {3, "variances A.mtx", " --interface sparse -v", "between the domains (sparse)"},
               {3, "variances A.4of5.mtx", "", "A.mtx in 5 parts is symmetric"},
               {2, "solve A.mtx b.txt", "", "relative residual"},
               {2, "solve G.mtx b.txt", " --scratch . --engine mumps", "LU"},
               {3, "logdet W.1of2.mtx --symmetric", "", "hardly determined"},
               {3, "logdet G.mtx", "", "by the engine mumps"}};
  for (const auto& c : cases) {
    const Outcome want = alone(c.arguments), got = spread(c.count, c.arguments + c.ofAll);
    ASSERT_EQ(want.status, 0) << want.err;
    ASSERT_EQ(got.status, 0) << got.err;
    EXPECT_NE(got.err.find(c.said), std::string::npos) << got.err;
    EXPECT_EQ(countOf("zeph: route:", got.err), 1) << got.err;
    EXPECT_EQ(got.out.substr(0, got.out.find('\n')).find("%%"), want.out.find("%%"));
    const std::vector<double> x = numbersIn(want.out.substr(want.out.rfind('%') + 1));
    const std::vector<double> y = numbersIn(got.out.substr(got.out.rfind('%') + 1));
    ASSERT_EQ(x.size(), y.size()) << got.out;
    for (std::size_t i = 0; i < x.size(); ++i)
      EXPECT_NEAR(x[i], y[i], 1e-11 * (1 + std::abs(x[i])));
  }
  EXPECT_EQ(shell("ls -d zeph-*").out, "");  // what --scratch left
}

TEST_F(Processes, FailInOneSentence) {
  std::filesystem::create_directory(path("broken.so"));
  write("broken.so/libzeph_distributed.so.1", "no library");
  const struct {
    std::string arguments;
    int status;
    std::string sentence;
  } cases[] = {
      {"variances nothing.mtx -o d.csv", 3, "zeph: cannot read nothing.mtx"},
      {"variances A.mtx --cholesky --engine mumps --memory 10 -o d.csv", 8,
       "more than the limit of"},
      {"variances G.mtx --cholesky -o d.csv", 4, "is not symmetric"},
      {"check A.mtx", 2, "zeph: check is for one process"},
      {"logdet A.mtx --engine mumps --interface dense", 2, "--interface is for the engine domains"},
  };
  for (const auto& c : cases) {
    const Outcome got = spread(2, c.arguments);
    EXPECT_EQ(got.status, c.status) << got.err;
    EXPECT_EQ(countOf("zeph: ", got.err), 1) << got.err;
    EXPECT_NE(got.err.find(c.sentence), std::string::npos) << got.err;
    EXPECT_EQ(got.out, "");
    EXPECT_FALSE(std::filesystem::exists(path("d.csv")));
  }
  const Outcome without =
      shell("LD_LIBRARY_PATH=broken.so '" ZEPH_PROGRAM "' variances A.mtx --engine mumps");
  EXPECT_EQ(without.status, 2);
  EXPECT_NE(without.err.find("install the package libzeph-distributed1"), std::string::npos)
      << without.err;
}

// The first process waits for the matrix while another one dies, or all are told to stop.
TEST_F(Processes, LeaveNothingBehindWhenTheyAreStopped) {
  const auto stopped = [&](const std::string& stop) {
    return shell(
        "mkfifo P.mtx; " + std::string(kMpirun) +
        " -n 2 sh -c 'echo $$ > pid.$OMPI_COMM_WORLD_RANK; exec \"" ZEPH_PROGRAM
        "\" variances P.mtx -o d.csv' & exec 3<>P.mtx; "
        "until [ -s pid.1 ] && ls -l /proc/$(cat pid.0)/fd | grep -q P.mtx; do sleep 0.05; done; " +
        stop + "; wait $!; status=$?; rm -f P.mtx pid.*; exit $status");
  };
  const Outcome killed = stopped("kill -KILL $(cat pid.1)");
  EXPECT_NE(killed.status, 0);
  EXPECT_NE(killed.err.find("rank 1"), std::string::npos) << killed.err;
  const Outcome interrupted = stopped("kill -INT $!");
  EXPECT_NE(interrupted.status, 0);
  // mpirun does not always pass on what is said at the end.
  EXPECT_LE(countOf("stopped on request; nothing was written", interrupted.err), 1)
      << interrupted.err;
  EXPECT_EQ(shell("ls d.csv* .d.csv*").out, "");

  // Nobody is left to remove the factor's files, and those of each process go all the same.
  std::string grid = "%%MatrixMarket matrix coordinate real symmetric\n10000 10000 29899\n";
  for (int i = 1; i <= 10000; ++i) {
    for (const int j : {i, i + 1, i + 100}) {
      if (j <= 10000)
        grid += std::to_string(j) + ' ' + std::to_string(i) + (i == j ? " 5\n" : " -1\n");
    }
  }
  write("grid.mtx", grid);
  shell(std::string(kMpirun) +
        " -n 2 '" ZEPH_PROGRAM
        "' variances grid.mtx --engine mumps --scratch . -o d.csv & "
        "until [ $(ls -d zeph-*/* | wc -l) -gt 1 ]; do sleep 0.02; done; kill -KILL $! "
        "$(pgrep -P $!)");
  EXPECT_EQ(
      shell("for k in $(seq 100); do ls -d zeph-* || exit 0; sleep 0.05; done; exit 1").status, 0);
}

}  // namespace
