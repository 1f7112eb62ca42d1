#include "zeph/checks/memory.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "zeph/error.h"
#include "zeph/files/number_text.h"

namespace zeph {
namespace {

constexpr double kNoLimit = std::numeric_limits<double>::infinity();
constexpr double kUnlimited = 1e18;      // version 1 of control groups has a number for no limit
constexpr double kBlasBuffer = 200e6;    // OpenBLAS maps 128 MiB and some, used or not
constexpr double kAlwaysGranted = 16e6;  // less is not worth reading the system's tables for

// The number after `key` in a file of lines "key value ..."; otherwise where there is none.
double field(const std::string& file, const std::string& key, double otherwise) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string name;
    double value;
    if (words >> name && name == key && words >> value) return value;
  }
  return otherwise;
}

// The number that a file of one word holds; otherwise for "max" and where there is none.
double number(const std::string& file, double otherwise) {
  std::ifstream in(file);
  double value = 0.0;
  return in >> value ? value : otherwise;
}

// What one control group leaves. Pages of files that it would give back do not count as used.
double leftInGroup(const std::string& folder, const char* limit, const char* used,
                   const char* reclaimable) {
  const double most = number(folder + limit, kNoLimit);
  if (most >= kUnlimited) return kNoLimit;
  const double cached = field(folder + "memory.stat", reclaimable, 0.0);
  return std::max(0.0, most - std::max(0.0, number(folder + used, 0.0) - cached));
}

double leftInGroups() {
  double left = kNoLimit;
  std::ifstream in("/proc/self/cgroup");
  for (std::string line; std::getline(in, line);) {
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (first == line.npos || second == line.npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const bool unified = controllers.empty();
    if (!unified && controllers.find("memory") == controllers.npos) continue;
    std::string path = line.substr(second + 1);
    while (true) {  // from the group of the process up to the root
      left = std::min(
          left, unified ? leftInGroup("/sys/fs/cgroup" + path + "/", "memory.max", "memory.current",
                                      "inactive_file")
                        : leftInGroup("/sys/fs/cgroup/memory" + path + "/", "memory.limit_in_bytes",
                                      "memory.usage_in_bytes", "total_inactive_file"));
      if (path.empty() || path == "/") break;
      path.erase(path.rfind('/'));
    }
  }
  return left;
}

double leftInAddressSpace() {
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kNoLimit;
  const double pages = number("/proc/self/statm", 0.0);
  const double used = pages * static_cast<double>(sysconf(_SC_PAGESIZE));
  return std::max(0.0, static_cast<double>(limit.rlim_cur) - used);
}

std::string amount(double bytes) {
  std::string text;
  const bool giga = bytes >= 1e9;
  appendDigits(text, bytes / (giga ? 1e9 : 1e6), 3);
  return text + (giga ? " GB" : " MB");
}

}  // namespace

MemorySeen memorySeen() {
  const double installed =
      static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
  const double free = 1024.0 * field("/proc/meminfo", "MemAvailable:", installed / 1024.0);
  return {installed, free, leftInGroups(), leftInAddressSpace()};
}

double availableMemory() {
  const MemorySeen seen = memorySeen();
  return std::min({seen.free, seen.controlGroups, seen.addressSpace});
}

std::string memoryText(double bytes) {
  return amount(bytes);
}

void requireRoomForBlas(const std::string& what) {
  const double left = leftInAddressSpace();
  if (left >= kBlasBuffer) return;
  throw Error(ErrorKind::Memory, what + " needs a BLAS, which takes " + amount(kBlasBuffer) +
                                     " of address space; the limit (ulimit -v) leaves " +
                                     amount(left) + "; raise it");
}

bool fitsMemory(double bytes, double limit, double held) {
  if (limit > 0.0 && bytes + held > limit) return false;
  return bytes <= kAlwaysGranted || bytes <= availableMemory();
}

void requireBytes(const std::string& what, double bytes, double limit, double held) {
  if (limit > 0.0 && bytes + held > limit) {
    throw Error(ErrorKind::Memory, what + " would take " + amount(bytes + held) +
                                       " of memory, more than the limit of " + amount(limit));
  }
  if (bytes <= kAlwaysGranted) return;
  const double available = availableMemory();
  if (bytes <= available) return;
  throw Error(ErrorKind::Memory, what + " would take " + amount(bytes) + " of memory; " +
                                     amount(available) + " are available");
}

}  // namespace zeph
