#include "zeph/operations.h"

#include <sys/stat.h>

#include "math/dense/korin_matrix.h"
#include "zeph/error.h"
#include "zeph/files/atomic_file.h"
#include "zeph/matrix/protosparse.h"

namespace zeph {
namespace {

constexpr std::size_t kLongestName = 63;                 // of a MATLAB variable
constexpr std::uint64_t kLargestMatBytes = 0xFFFFFFFFu;  // its sizes are 32-bit

bool isVariableName(const std::string& name) {
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (name.empty() || name.size() > kLongestName || !letter(name[0])) return false;
  for (const char c : name) {
    if (!letter(c) && !(c >= '0' && c <= '9') && c != '_') return false;
  }
  return true;
}

// Header, matrix tag, flags, dimensions, name and data of a MAT-file with one variable.
std::uint64_t matFileBytes(const DenseMatrix& m, const std::string& variable) {
  const std::uint64_t name = (variable.size() + 7) / 8 * 8;
  return 128 + 8 + 16 + 16 + 8 + name + 8 + std::uint64_t{8} * m.rows * m.cols;
}

}  // namespace

void exportMat(const std::string& path, const DenseMatrix& m, const std::string& variable) {
  if (!isVariableName(variable)) {
    throw Error(ErrorKind::Usage, "the variable name \"" + variable +
                                      "\" must be a letter followed by at most 62 letters, digits "
                                      "and underscores");
  }
  const std::uint64_t bytes = matFileBytes(m, variable);
  if (bytes > kLargestMatBytes) {
    throw Error(ErrorKind::Unfit, "a matrix of " + std::to_string(m.rows) + " x " +
                                      std::to_string(m.cols) +
                                      " is too large for a MAT-file of level 5");
  }
  AtomicFile out(path);
  if (out.pathToWrite() == path) {
    throw Error(ErrorKind::Output, "cannot write a MAT-file to " + path + "; name a regular file");
  }
  const korin::Matrix view(toRecord(m));
  view.saveAsMatlab(out.pathToWrite().c_str(), variable.c_str());
  // The writer does not report a full disk; the file's size does.
  struct stat written {};
  if (stat(out.pathToWrite().c_str(), &written) != 0 ||
      static_cast<std::uint64_t>(written.st_size) != bytes) {
    throw Error(ErrorKind::Output, "cannot write " + path + " to its end; is the disk full?");
  }
  out.commit();
}

}  // namespace zeph
