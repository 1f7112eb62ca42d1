#include "zeph/plan/calibration_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>
#include <utility>
#include <vector>

#include "kernels/processor.h"
#include "zeph/build_facts.h"
#include "zeph/checks/machine.h"
#include "zeph/error.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

constexpr const char* kFirstLine = "zeph calibration 2";
constexpr std::size_t kMostBytes = std::size_t{1} << 16;
/// No machine takes longer for any of the measured things, nor for a front of one column and no
/// rows less than this.
constexpr double kLargest = 1e4;
constexpr double kLeastFront = 1e-10;

std::string processorName() {
  std::ifstream in("/proc/cpuinfo");
  std::string name;
  for (std::string line; std::getline(in, line);) {
    const std::size_t colon = line.find(": ");
    if (colon == line.npos) continue;
    const std::string key = line.substr(0, line.find('\t'));
    if (key == "model name") name.insert(0, line, colon + 2, line.npos);
    if (key == "cpu family" || key == "model") {
      name.append(" ").append(key).append(" ").append(line, colon + 2);
    }
    if (key == "stepping") break;
  }
  return name.empty() ? "unknown" : name;
}

/// What a calibration holds for.
std::string facts() {
  return "processor " + processorName() + "\nlevel " + processorLevelText() + "\nprocessors " +
         std::to_string(korin::kernels::availableProcessors()) + "\nversion " + kVersion + "\n";
}

/// The numbers of a model by name, for writing and for reading.
struct Field {
  const char* name;
  std::vector<double*> values;
  double least;
};

std::vector<Field> fields(CostModel& m) {
  const auto table = [](FrontTable& t) {
    std::vector<double*> values;
    for (std::size_t w = 0; w < FrontTable::kWidths.size(); ++w) {
      for (std::size_t b = 0; b < FrontTable::kBelow.size(); ++b) values.push_back(&t.at(w, b));
    }
    return values;
  };
  const auto list = [](auto& terms) {
    std::vector<double*> values;
    values.reserve(terms.size());
    for (double& v : terms) values.push_back(&v);
    return values;
  };
  return {{"factor", table(m.factor), kLeastFront},
          {"leaf", table(m.factorLeaf), kLeastFront},
          {"inverse", table(m.inverse), kLeastFront},
          {"factor_terms", list(m.factorTerms), 0.0},
          {"inverse_terms", list(m.inverseTerms), 0.0},
          {"pages", {&m.smallPages, &m.largePages}, 0.0},
          {"sharing", {&m.sharing}, 1.0},
          {"program", {&m.program}, 0.0},
          {"scratch_rates", {&m.scratchWrite, &m.scratchRead}, 1.0},
          {"scratch_moves", {&m.scratchWriting, &m.scratchReading, &m.scratchPanel}, 0.0}};
}

/// Fowler, Noll and Vo's hash: a file that was cut off or edited does not pass.
std::string checkLine(std::string_view text) {
  std::uint64_t hash = 14695981039346656037U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  char line[32];
  std::snprintf(line, sizeof line, "check %016llx\n", static_cast<unsigned long long>(hash));
  return line;
}

/// The content of a regular file of moderate size, or why there is none.
std::string content(const std::string& path, std::string& against) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) {
    if (errno != ENOENT && errno != ENOTDIR) {
      against = std::string("it cannot be read (") + strerror(errno) + ")";
    }
    return {};
  }
  std::string text(kMostBytes + 1, '\0');
  struct stat facts {};
  const bool regular = fstat(file, &facts) == 0 && S_ISREG(facts.st_mode);
  const ssize_t count = regular ? read(file, text.data(), text.size()) : -1;
  close(file);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  if (count <= 0 || text.size() > kMostBytes) {
    against = "it is no calibration";
    text.clear();
  }
  return text;
}

bool readNumbers(std::string_view line, const Field& field) {
  const std::string_view name = field.name;
  if (line.substr(0, name.size()) != name) return false;
  NumberScanner scan(line.substr(name.size()));
  for (double* const value : field.values) {
    if (scan.real(*value) != NumberScanner::Result::Ok) return false;
    if (!(*value >= field.least)) return false;
    // Rates of a disk and bytes are no seconds and may be large.
    if (name != "scratch_rates" && name != "program" && !(*value <= kLargest)) return false;
    if (!std::isfinite(*value)) return false;
  }
  return scan.atEnd();
}

/// Makes the folders above a file; what cannot be made shows when the file is opened.
void makeFolders(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != path.npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0700);
  }
}

}  // namespace

std::string calibrationPath() {
  const char* const cache = std::getenv("XDG_CACHE_HOME");
  // A relative one does not count, as its makers have it.
  if (cache != nullptr && cache[0] == '/') return std::string(cache) + "/zeph/calibration.txt";
  const char* const home = std::getenv("HOME");
  if (home == nullptr || home[0] == '\0') return {};
  return std::string(home) + "/.cache/zeph/calibration.txt";
}

void requireCalibrationFile(const std::string& path) {
  makeFolders(path);
  AtomicFile::requireWritable(path);
}

void writeCalibration(const std::string& path, const CostModel& model) {
  CostModel copy = model;
  std::string text = std::string(kFirstLine) + "\n" + facts();
  for (const Field& field : fields(copy)) {
    text += field.name;
    for (const double* const value : field.values) {
      text += ' ';
      appendShortest(text, *value);
    }
    text += '\n';
  }
  requireCalibrationFile(path);
  AtomicFile out(path);
  out.write(text + checkLine(text));
  out.commit();
}

std::optional<CostModel> readCalibration(const std::string& path, std::string& against) {
  against.clear();
  const std::string text = content(path, against);
  if (text.empty()) return std::nullopt;
  const auto refused = [&](const char* why) {
    against = why;
    return std::nullopt;
  };
  const std::size_t check = text.rfind("check ");
  if (check == text.npos ||
      checkLine(std::string_view(text).substr(0, check)) != text.substr(check)) {
    return refused("it is no calibration, or not a whole one");
  }
  const std::string expected = std::string(kFirstLine) + "\n" + facts();
  if (text.compare(0, expected.size(), expected) != 0) {
    return refused("it was measured on another machine or by another version");
  }
  CostModel model;
  std::size_t at = expected.size();
  for (const Field& field : fields(model)) {
    const std::size_t end = text.find('\n', at);
    if (end == text.npos || !readNumbers(std::string_view(text).substr(at, end - at), field)) {
      return refused("its numbers are none that can have been measured");
    }
    at = end + 1;
  }
  if (at != check) return refused("it is no calibration, or not a whole one");
  return model;
}

}  // namespace zeph
