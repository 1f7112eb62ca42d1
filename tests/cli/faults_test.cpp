// The real program while calls of the C library fail under it, or signals arrive at them.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>
#include <sstream>
#include <thread>

#include "tests/zeph/front_test.h"
#include "tests/zeph/matrices.h"
#include "zeph/files/matrix_file.h"

namespace {

using Clock = std::chrono::steady_clock;
using FilesNow = std::map<std::string, std::string>;

struct Fault {
  const char* function = "none";
  long call = 0;
  int error = 0;         // below 0: a signal; kLasting more: all later calls too
  bool nameless = true;  // whether the file system has files without a name
};
constexpr int kLasting = 1000;

struct Outcome {
  int status = 0;  // 128 and the signal for a program that one has ended
  std::string out, err;
  bool struck = false;
  double answer = 0.0;  // seconds from the signal to the end
};

struct Job {
  std::string arguments;
  std::vector<std::string> outputs;
};

const std::vector<Job> kJobs = {
    {"variances A.mtx -o o.csv", {"o.csv"}},
    {"variances A.mtx", {}},
    {"solve A.mtx b.mtx -o o.mtx", {"o.mtx"}},
    {"solve A.mtx b.mtx --lu -o o.mtx", {"o.mtx"}},
    {"covariance A.mtx --block 0,7,5 -o o.mtx", {"o.mtx"}},
    {"selinv A.mtx --ordering nested-dissection -o o.mtx", {"o.mtx"}},
    {"adjust J.mtx y.mtx -o o.csv --residuals r.csv --report p.html", {"o.csv", "r.csv", "p.html"}},
    {"adjust J.mtx y.mtx --residuals r.csv", {"r.csv"}},
    {"pose-graph p.g2o -o o.csv --plot p.svg --pairs 0,1", {"o.csv", "p.svg"}},
    {"factor A.mtx -o o.mtx --perm p.txt", {"o.mtx", "p.txt"}},
    {"convert A.mtx o.csv", {"o.csv"}},
    {"export A.mtx o.mat --name A", {"o.mat"}},
    {"pattern A.mtx -o o.csv", {"o.csv"}},
    {"multiply A.mtx b.mtx -o o.mtx", {"o.mtx"}},
    {"demo --size 20 --out d", {"d/estimates.csv", "d/network.svg", "d/report.html"}},
};

class ZephUnderFaults : public FrontTest {
 protected:
  ZephUnderFaults() {
    zeph::writeSparse(path("A.mtx"), zeph::stencil(30, false));
    std::vector<double> b(900, 1.0), y(60);
    zeph::SparseMatrix J;
    J.rows = 60, J.cols = 30;
    for (unsigned i = 0; i < 60; ++i) {
      J.entries.push_back({i, i / 2, 1.0});
      y[i] = i + 1.0;
    }
    zeph::writeVector(path("b.mtx"), b.data(), 900);
    zeph::writeVector(path("y.mtx"), y.data(), 60);
    zeph::writeSparse(path("J.mtx"), J);
    std::string graph;
    for (const int apart : {1, 4}) {
      for (int i = 0; i + apart < 12; ++i) {
        const std::string step = std::to_string(i) + " " + std::to_string(i + apart) + " ";
        graph += "EDGE_SE2 " + step + std::to_string(apart) + " 0.1 0 4 0 0 4 0 1\n";
      }
    }
    write("p.g2o", graph);
  }

  // Runs zeph in the test's folder; with signal, sends that after so many seconds.
  Outcome run(const std::string& arguments, const Fault& fault, int signal = 0, double after = 0.0,
              int out = -1) const {
    const int mark = memfd_create("mark", 0);
    const int ends[2] = {out >= 0 ? out : memfd_create("out", 0), memfd_create("err", 0)};
    const std::string asked = "ZEPH_FAULT=" + std::string(fault.function) + " " +
                              std::to_string(fault.call) + " " + std::to_string(fault.error) + " " +
                              std::to_string(mark) + " " + (fault.nameless ? "1" : "0");
    std::vector<std::string> words{ZEPH_PROGRAM};
    std::istringstream in(arguments + " --quiet");
    for (std::string word; in >> word;) words.push_back(word);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
      dup2(ends[0], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      setenv("LD_PRELOAD", ZEPH_FAILING_CALL, 1);
      putenv(const_cast<char*>(asked.c_str()));
      if (chdir(path("").c_str()) == 0) execv(ZEPH_PROGRAM, argv.data());
      _exit(127);
    }
    Clock::time_point sent;
    if (signal != 0) {
      std::this_thread::sleep_for(std::chrono::duration<double>(after));
      sent = Clock::now();
      kill(child, signal);
    }
    int status = 0;
    waitpid(child, &status, 0);
    Outcome result;
    result.answer = std::chrono::duration<double>(Clock::now() - sent).count();
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (out < 0) result.out = contents(ends[0]);
    result.err = contents(ends[1]);
    result.struck = !contents(mark).empty();
    return result;
  }

  FilesNow filesNow() const {
    FilesNow files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path(""))) {
      if (entry.is_regular_file()) files[entry.path()] = read(entry.path());
    }
    return files;
  }

  // Leaves of the job's outputs none, or what an earlier run may have left.
  FilesNow prepare(const Job& job, bool old) const {
    for (const std::string& name : job.outputs) {
      const std::filesystem::path file = path(name);
      std::filesystem::remove(file);
      if (!old) continue;
      std::filesystem::create_directories(file.parent_path());
      write(name, "old");
    }
    if (!old) std::filesystem::remove_all(path("d"));
    return filesNow();
  }

  // Every fault of the function for the job, `step` of the call before giving the next one, has
  // one of two ends: the whole result, or `failure` with a sentence and everything as it was.
  // Gives how many there were.
  template <class Step>
  int strikeEach(const Job& job, Fault fault, const std::vector<int>& errors, const Step& step,
                 const std::vector<int>& failures) {
    prepare(job, false);
    const Outcome good = run(job.arguments, {});
    EXPECT_EQ(good.status, 0) << job.arguments << good.err;
    const FilesNow finished = filesNow();
    int faults = 0;
    const int failed = failuresNow();
    for (fault.call = 1; failuresNow() == failed; fault.call = step(fault.call), ++faults) {
      fault.error = errors[static_cast<std::size_t>(faults) % errors.size()];
      const FilesNow before = prepare(job, faults % 2 == 1);
      const Outcome result = run(job.arguments, fault);
      if (!result.struck) break;
      SCOPED_TRACE(job.arguments + ": call " + std::to_string(fault.call) + " of " +
                   fault.function + ", error " + std::to_string(fault.error) + ", status " +
                   std::to_string(result.status) + "\n" + result.err);
      const FilesNow after = filesNow();
      if (result.status == 0) {
        EXPECT_TRUE(after == finished);
        EXPECT_TRUE(job.arguments[0] == 'd' || result.out == good.out);
        EXPECT_EQ(result.err, good.err);
        continue;
      }
      EXPECT_NE(std::find(failures.begin(), failures.end(), result.status), failures.end());
      EXPECT_TRUE(after == before || (fault.error < 0 && after == finished) ||
                  partedByRename(job, fault, before, after, finished));
      if (result.status < 128 || result.status == 130) {
        EXPECT_EQ(result.err.rfind("zeph: "), result.err.find_first_not_of('\n'));
        EXPECT_EQ(result.err.find('\n', 1), result.err.size() - 1);
      }
      if (result.err.find("nothing was written") != std::string::npos) {
        EXPECT_TRUE(after == before && result.out.empty());
      }
    }
    return faults;
  }

 private:
  static int failuresNow() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
  }

  static std::string contents(int file) {
    std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(file, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    close(file);
    return text;
  }

  // A name that cannot be given parts several results: each is then the old one or the new one.
  static bool partedByRename(const Job& job, const Fault& fault, const FilesNow& before,
                             const FilesNow& after, const FilesNow& finished) {
    if (fault.call < 2 || std::string(fault.function) != "rename") return false;
    for (const auto& [name, text] : after) {
      const auto old = before.find(name), whole = finished.find(name);
      const bool kept = old != before.end() && old->second == text;
      if (!kept && (whole == finished.end() || whole->second != text)) return false;
    }
    return fault.error > 0 && job.outputs.size() > 1;
  }
};

const auto kNext = [](long call) { return call + 1; };
const std::vector<int> kStops = {-SIGINT, -SIGTERM, -SIGHUP};

TEST_F(ZephUnderFaults, FailingDisksLeaveTheOldResult) {
  const std::vector<int> errors = {ENOSPC, EIO, EDQUOT, EACCES, ENOSPC + kLasting};
  int faults = 0;
  for (const Job& job : kJobs) {
    for (const char* function :
         {"open", "write", "close", "linkat", "rename", "mkdir", "fchmod", "access", "dup"}) {
      faults += strikeEach(job, {function}, errors, kNext, {7, 3});
    }
    if (job.outputs.size() == 1) continue;  // what is the same for all jobs
    for (const char* function : {"open", "write", "rename"}) {
      faults += strikeEach(job, {function, 0, 0, false}, errors, kNext, {7, 3});
    }
    faults += strikeEach(job, {"write"}, {0, EINTR}, kNext, {});
    faults += strikeEach(job, {"read"}, {EIO}, kNext, {3});
    faults += strikeEach(job, {"read"}, {EINTR}, kNext, {});
    faults += strikeEach(job, {"stat"}, {EACCES}, kNext, {7, 3});
  }
  std::printf("%d faults\n", faults);
}

TEST_F(ZephUnderFaults, ScratchFilesLeaveNothing) {
  const Job job{"variances A.mtx -o o.csv --threads 1 --memory 300K --scratch .", {"o.csv"}};
  const auto further = [](long n) { return 2 * n + 1; };
  int faults = 0;
  for (const bool nameless : {true, false}) {
    const auto strike = [&](const char* function, std::vector<int> errors, std::vector<int> ends) {
      const int found = strikeEach(job, {function, 0, 0, nameless}, errors, further, ends);
      EXPECT_GT(found, 0) << function;
      faults += found;
    };
    strike("fallocate", {ENOSPC, EDQUOT, EIO, EFBIG, ENOSPC + kLasting}, {7});
    strike("fallocate", {EOPNOTSUPP, EINTR}, {});
    strike("pwrite", {EIO, ENOSPC}, {7});
    strike("pwrite", {-SIGKILL}, {128 + SIGKILL});
    strike("pwrite", kStops, {130});
    strike("open", {EACCES, EMFILE}, {7, 3});
  }
  std::printf("%d faults\n", faults);
}

TEST_F(ZephUnderFaults, FailingMemoryIsSaid) {
  const auto further = [](long n) { return n + 7 + n / 4; };
  int faults = 0;
  for (const Job& job : kJobs) {
    faults += strikeEach(job, {"malloc"}, {ENOMEM, ENOMEM + kLasting}, further, {8});
  }
  std::printf("%d faults\n", faults);
}

TEST_F(ZephUnderFaults, SignalsLeaveTheOldResult) {
  const auto further = [](long n) { return 2 * n + 50; };
  int faults = 0;
  for (const Job& job : kJobs) {
    for (const char* function : {"read", "open", "write", "close", "linkat", "rename"}) {
      faults += strikeEach(job, {function, 0, 0, faults % 2 == 0}, kStops, kNext, {130});
    }
    const std::vector<int> ends = {130, 128 + SIGINT, 128 + SIGTERM, 128 + SIGHUP};
    faults += strikeEach(job, {"malloc"}, kStops, further, ends);
  }
  std::printf("%d faults\n", faults);
}

TEST_F(ZephUnderFaults, SignalsAreAnsweredAtOnce) {
  zeph::writeSparse(path("C.mtx"), zeph::stencil(15, true));
  double slowest = 0.0;
  for (const char* how : {"--ordering nested-dissection", "--engine cholmod"}) {
    const Job job{std::string("variances C.mtx -o o.csv ") + how, {"o.csv"}};
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(run(job.arguments, {}).status, 0);
    const double whole = std::chrono::duration<double>(Clock::now() - start).count();
    for (int k = 0; k < 6; ++k) {
      const FilesNow before = prepare(job, k % 2 == 0);
      const double after = whole * below(1000) / 1000.0;
      const Outcome result =
          run(job.arguments, {}, -kStops[static_cast<std::size_t>(k % 3)], after);
      slowest = std::max(slowest, result.answer);
      const bool done = result.err.find("after output had been written") != std::string::npos;
      if (result.status == 0 || done) continue;
      EXPECT_TRUE(filesNow() == before) << after << " of " << whole;
      EXPECT_TRUE(result.status == 130 || result.err.empty()) << result.status << result.err;
    }
  }
  EXPECT_LT(slowest, 2.0);  // milliseconds, where others leave a processor free
  std::printf("answered within %.3f s\n", slowest);
}

TEST_F(ZephUnderFaults, APipeWithoutReaderEndsSilently) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  int silent = 0;
  for (const Job& job : kJobs) {
    for (const bool nameless : {true, false}) {
      const FilesNow before = prepare(job, nameless);
      const Outcome result = run(job.arguments, {"none", 0, 0, nameless}, 0, 0.0, ends[1]);
      if (result.status == 0) continue;  // nothing to write there
      EXPECT_EQ(result.status, 128 + SIGPIPE) << job.arguments << result.err;
      EXPECT_EQ(result.err, "");
      ++silent;
      EXPECT_TRUE(filesNow() == before || job.arguments[0] == 'd') << job.arguments;
    }
  }
  close(ends[1]);
  EXPECT_EQ(silent, 8);  // variances, residuals, pairs, and the demonstration's report
}

}  // namespace
