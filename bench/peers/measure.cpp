#include "measure.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <limits>
#include <stdexcept>

namespace compare {
namespace {

// A field such as "VmRSS:" of the process status, in kilobytes.
double statusKilobytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, field.size(), field) == 0) return std::atof(line.c_str() + field.size());
  }
  return std::numeric_limits<double>::quiet_NaN();
}

}  // namespace

IsolatedRun runIsolated(std::size_t count, const std::function<void(double*)>& work) {
  const std::size_t bytes = (count + 1) * sizeof(double);
  void* shared = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) throw std::runtime_error("no shared memory");
  auto* results = static_cast<double*>(shared);
  std::fill_n(results, count + 1, std::numeric_limits<double>::quiet_NaN());
  malloc_trim(0);
  std::fflush(stdout);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot start a process");
  if (child == 0) {
    int status = 0;
    try {
      const double before = statusKilobytes("VmRSS:");
      work(results + 1);
      results[0] = (statusKilobytes("VmHWM:") - before) / 1024.0;
    } catch (...) {
      status = 1;
    }
    std::fflush(stdout);
    _exit(status);
  }
  int status = 0;
  waitpid(child, &status, 0);
  IsolatedRun run;
  run.completed = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  run.megabytes = results[0];
  run.results.assign(results + 1, results + 1 + count);
  munmap(shared, bytes);
  return run;
}

double largestDifference(const double* a, const double* b, std::size_t count) {
  double largest = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    if (std::isnan(b[i])) continue;
    const double difference = std::fabs(a[i] - b[i]) / std::fabs(b[i]);
    if (!std::isfinite(difference)) return HUGE_VAL;
    largest = std::max(largest, difference);
  }
  return largest;
}

Record& Record::add(const std::string& name, const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '"' || c == '\\') escaped += '\\';
    escaped += c;
  }
  text_ += (text_.empty() ? "{\"" : ", \"") + name + "\": \"" + escaped + "\"";
  return *this;
}

Record& Record::add(const std::string& name, double number) {
  if (!std::isfinite(number)) return *this;
  char digits[32];
  std::snprintf(digits, sizeof digits, "%.9g", number);
  text_ += ", \"" + name + "\": " + digits;
  return *this;
}

void Record::print() {
  std::printf("%s}\n", text_.c_str());
  std::fflush(stdout);
}

Arguments::Arguments(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    (argument.compare(0, 2, "--") == 0 ? options_ : positions_).push_back(argument);
  }
}

double Arguments::number(const std::string& name, double otherwise) const {
  const std::string given = text(name);
  return given.empty() ? otherwise : std::atof(given.c_str());
}

std::string Arguments::text(const std::string& name) const {
  const std::string start = "--" + name + "=";
  for (const std::string& option : options_) {
    if (option.compare(0, start.size(), start) == 0) return option.substr(start.size());
  }
  return {};
}

int run(const char* program, int (*measure)(const Arguments&), int argc, char** argv) {
  try {
    return measure(Arguments(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", program, error.what());
    return 1;
  }
}

}  // namespace compare
