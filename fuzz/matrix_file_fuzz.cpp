// Matrix files: whatever the bytes are, a matrix or one sentence; what was read and written again
// reads as the same bits.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "fuzz/input.h"
#include "zeph/error.h"
#include "zeph/files/matrix_file.h"
#include "zeph/matrix_file.h"

namespace {

bool equal(const zeph::SparseMatrix& a, const zeph::SparseMatrix& b) {
  if (a.rows != b.rows || a.cols != b.cols || a.symmetry != b.symmetry) return false;
  if (a.entries.size() != b.entries.size()) return false;
  for (std::size_t k = 0; k < a.entries.size(); ++k) {
    const zeph::Entry &x = a.entries[k], &y = b.entries[k];
    if (x.row != y.row || x.col != y.col || !same(x.value, y.value)) return false;
  }
  return true;
}

// A short list may claim as large a matrix as it is allowed to.
constexpr double kMemoryLimit = 1e8;

std::string scratch(const char* ending) {
  return "/dev/shm/zeph-fuzz-" + std::to_string(getpid()) + ending;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const bool nonFinite = size > 0 && data[0] % 2 == 1;
  const MemoryFile file(data + (size > 0 ? 1 : 0), size > 0 ? size - 1 : 0);
  zeph::ReadOptions options{nonFinite};
  options.memoryLimit = kMemoryLimit;
  for (const char* ending : {".mtx", ".csv"}) {
    // The ending decides, so the file gets a name that has one.
    const std::string in = scratch(ending), out = scratch(".again.mtx");
    unlink(in.c_str());
    PROMISE(symlink(file.path().c_str(), in.c_str()) == 0);
    try {
      const zeph::SparseMatrix m = zeph::readSparse(in, options);
      for (const zeph::Entry& e : m.entries) {
        PROMISE(e.row < m.rows && e.col < m.cols);
        PROMISE(nonFinite || std::isfinite(e.value));
      }
      zeph::writeSparse(out, m);
      const zeph::SparseMatrix once = zeph::readSparse(out, options);
      zeph::writeSparse(out, once);
      PROMISE(equal(once, zeph::readSparse(out, options)));
    } catch (const zeph::Error& e) {
      PROMISE(std::string(e.what()).find('\n') == std::string::npos);
    }
    try {
      const zeph::DenseMatrix m = zeph::readDense(in, options);
      PROMISE(m.values.size() == m.rows * m.cols);
      zeph::writeDense(out, m);
      const zeph::DenseMatrix again = zeph::readDense(out, options);
      PROMISE(m.rows == again.rows && m.cols == again.cols);
      for (std::size_t k = 0; k < m.values.size(); ++k) {
        PROMISE(same(m.values[k], again.values[k]));
      }
    } catch (const zeph::Error& e) {
      PROMISE(std::string(e.what()).find('\n') == std::string::npos);
    }
    unlink(in.c_str());
    unlink(out.c_str());
  }
  return 0;
}
