#include "zeph/matrix/requirements.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "zeph/error.h"
#include "zeph/files/number_text.h"

namespace zeph {

std::string position(std::size_t indexBase, std::size_t row, std::size_t col) {
  std::string text = "(";
  text += std::to_string(row + indexBase);
  text += ", ";
  text += std::to_string(col + indexBase);
  return text += ")";
}

void requireSquare(const SparseMatrix& m) {
  if (m.rows == 0 || m.cols == 0) {
    throw Error(ErrorKind::Unfit, m.source + " is empty (" + std::to_string(m.rows) + " x " +
                                      std::to_string(m.cols) + "); there is nothing to factorise");
  }
  if (m.rows == m.cols) return;
  throw Error(ErrorKind::Unfit, m.source + " is " + std::to_string(m.rows) + " x " +
                                    std::to_string(m.cols) +
                                    "; only a square matrix can be factorised");
}

void requireFinite(const SparseMatrix& m) {
  for (const Entry& e : m.entries) {
    if (std::isfinite(e.value)) continue;
    throw Error(ErrorKind::Unfit,
                "the value of entry " + position(m.indexBase, e.row, e.col) + " of " + m.source +
                    " is " + toText(e.value) + "; replace it by a finite number",
                e.row);
  }
}

void requireSizes(const std::string& source, std::size_t rows, std::size_t cols) {
  if (std::max(rows, cols) <= kLargestSize) return;
  throw Error(ErrorKind::Unfit, source + " is " + std::to_string(rows) + " x " +
                                    std::to_string(cols) + "; the largest size is " +
                                    std::to_string(kLargestSize));
}

void requireForm(const SparseMatrix& m) {
  requireSizes(m.source, m.rows, m.cols);
  const bool general = m.symmetry == Symmetry::General;
  if (!general && m.rows != m.cols) {
    throw Error(ErrorKind::Unfit, m.source + " is said to be symmetric or skew-symmetric but is " +
                                      std::to_string(m.rows) + " x " + std::to_string(m.cols));
  }
  const Entry* below = nullptr;
  const Entry* above = nullptr;
  for (const Entry& e : m.entries) {
    if (e.row >= m.rows || e.col >= m.cols) {
      throw Error(ErrorKind::Unfit, "entry " + position(m.indexBase, e.row, e.col) + " of " +
                                        m.source + " lies outside its " + std::to_string(m.rows) +
                                        " rows and " + std::to_string(m.cols) + " columns");
    }
    if (general || e.row == e.col) continue;
    (e.row > e.col ? below : above) = &e;
    if (below == nullptr || above == nullptr) continue;
    throw Error(ErrorKind::Unfit, m.source +
                                      " is said to be symmetric by one stored triangle but "
                                      "has entries in both, as " +
                                      position(m.indexBase, below->row, below->col) + " and " +
                                      position(m.indexBase, above->row, above->col) +
                                      "; call it general, or store one triangle");
  }
}

void requireMemory(const std::string& source, std::size_t count, std::size_t bytesEach) {
  const double needed = static_cast<double>(count) * static_cast<double>(bytesEach);
  const double installed =
      static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
  if (needed <= installed) return;
  throw Error(ErrorKind::Memory, source + " is too large for this: it would take " +
                                     std::to_string(static_cast<long>(needed / 1e9)) +
                                     " GB of memory");
}

}  // namespace zeph
