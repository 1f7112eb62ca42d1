#include "zeph/files/mat_export.h"

#include <cstring>
#include <utility>

#include "zeph/checks/guarded.h"
#include "zeph/error.h"
#include "zeph/files/atomic_file.h"
#include "zeph/matrix/merge.h"

namespace zeph {
namespace {

constexpr std::size_t kLongestName = 63;                 // of a MATLAB variable
constexpr std::uint64_t kLargestMatBytes = 0xFFFFFFFFu;  // its sizes are 32-bit
constexpr std::size_t kHeaderText = 116;
constexpr std::size_t kTagBytes = 8;

enum ElementType : std::uint32_t { kInt8 = 1, kInt32 = 5, kUint32 = 6, kDouble = 9, kMatrix = 14 };
enum ArrayClass : std::uint32_t { kSparseArray = 5, kDoubleArray = 6 };

std::uint64_t padded(std::uint64_t bytes) {
  return (bytes + 7) / 8 * 8;
}

// A MAT-file of level 5 with one variable: header, then one element that holds the others. Every
// element is a tag (type, bytes) and data, filled up to whole multiples of 8 bytes; readers look
// for the next tag there.
class MatFile {
 public:
  MatFile(AtomicFile& out, std::size_t rows, std::size_t cols, const std::string& name,
          ArrayClass kind, std::size_t stored, std::uint64_t dataBytes)
      : out_(out) {
    const std::uint64_t bytes = 3 * kTagBytes + 8 + 8 + padded(name.size()) + dataBytes;
    if (bytes + kTagBytes + 128 > kLargestMatBytes) {
      throw Error(ErrorKind::Unfit, "a matrix of " + std::to_string(rows) + " x " +
                                        std::to_string(cols) +
                                        " is too large for a MAT-file of level 5");
    }
    std::string text = "MATLAB 5.0 MAT-file, written by zeph";
    text.resize(kHeaderText, ' ');
    text.append(8, '\0');
    text += std::string("\0\1IM", 4);
    out_.write(text);
    tag(kMatrix, bytes);
    tag(kUint32, 8);
    put(static_cast<std::uint32_t>(kind));
    put(static_cast<std::uint32_t>(stored));
    tag(kInt32, 8);
    put(static_cast<std::int32_t>(rows));
    put(static_cast<std::int32_t>(cols));
    tag(kInt8, name.size());
    out_.write(name);
    pad();
  }

  void tag(ElementType type, std::uint64_t bytes) {
    put(static_cast<std::uint32_t>(type));
    put(static_cast<std::uint32_t>(bytes));
    filled_ = bytes;
  }
  template <class Number>
  void put(Number value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out_.write({bytes, sizeof value});
  }
  /// After the data of the last tag.
  void pad() { out_.write(std::string(padded(filled_) - filled_, '\0')); }

 private:
  AtomicFile& out_;
  std::uint64_t filled_ = 0;
};

void requireVariableName(const std::string& name) {
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  bool legal = !name.empty() && name.size() <= kLongestName && letter(name[0]);
  for (const char c : name) legal = legal && (letter(c) || (c >= '0' && c <= '9') || c == '_');
  if (legal) return;
  throw Error(ErrorKind::Usage, "the variable name \"" + name +
                                    "\" must be a letter followed by at most 62 letters, digits "
                                    "and underscores");
}

}  // namespace

void exportMat(const std::string& path, const DenseMatrix& m, const std::string& variable) {
  requireVariableName(variable);
  guarded(path, [&] {
    AtomicFile out(path);
    const std::uint64_t bytes = std::uint64_t{8} * m.rows * m.cols;
    MatFile file(out, m.rows, m.cols, variable, kDoubleArray, 0, kTagBytes + bytes);
    file.tag(kDouble, bytes);
    for (const double value : m.values) file.put(value);
    out.commit();
  });
}

void exportMat(const std::string& path, SparseMatrix m, const std::string& variable) {
  requireVariableName(variable);
  guarded(path, [&] {
    AtomicFile out(path);
    makeGeneral(m);
    std::erase_if(m.entries, [](const auto& e) { return e.value == 0.0; });
    const std::uint64_t count = m.entries.size();
    const std::uint64_t indexBytes = 4 * count, startBytes = 4 * (m.cols + 1);
    MatFile file(out, m.rows, m.cols, variable, kSparseArray, count == 0 ? 1 : count,
                 3 * kTagBytes + padded(indexBytes) + padded(startBytes) + 8 * count);
    file.tag(kInt32, indexBytes);
    for (const auto& e : m.entries) file.put(e.row);
    file.pad();
    file.tag(kInt32, startBytes);
    std::size_t k = 0;
    for (std::size_t c = 0; c <= m.cols; ++c) {
      while (k < count && m.entries[k].col < c) ++k;
      file.put(static_cast<std::uint32_t>(k));
    }
    file.pad();
    file.tag(kDouble, 8 * count);
    for (const auto& e : m.entries) file.put(e.value);
    out.commit();
  });
}

}  // namespace zeph
