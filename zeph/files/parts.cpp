#include "zeph/files/parts.h"

#include <charconv>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "zeph/error.h"
#include "zeph/files/atomic_file.h"
#include "zeph/files/matrix_market.h"

namespace zeph {
namespace {

using std::size_t;

constexpr size_t kMostParts = 1000000;

// Takes a number from 1 off the front of the text; 0 where there is none.
size_t takeNumber(std::string_view& text) {
  size_t number = 0;
  const auto [rest, status] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (status != std::errc() || number > kMostParts) return 0;
  text.remove_prefix(static_cast<size_t>(rest - text.data()));
  return number;
}

// "2of4.mtx", behind a dot.
bool takePart(std::string_view text, PartName& name) {
  name.part = takeNumber(text);
  if (name.part == 0 || text.substr(0, 2) != "of") return false;
  text.remove_prefix(2);
  name.parts = takeNumber(text);
  if (name.parts < name.part || text.empty() || text[0] != '.') return false;
  name.after = text;
  return name.after.find('/') == std::string::npos;
}

}  // namespace

std::string PartName::path(size_t k) const {
  return before + "." + std::to_string(k) + "of" + std::to_string(parts) + after;
}

std::optional<PartName> partName(const std::string& path) {
  for (size_t dot = path.rfind('.'); dot != std::string::npos && dot > 0;
       dot = path.rfind('.', dot - 1)) {
    PartName name;
    name.before = path.substr(0, dot);
    if (takePart(std::string_view(path).substr(dot + 1), name)) return name;
  }
  return {};
}

SparseMatrix readParts(const PartName& name, size_t first, size_t step,
                       const ReadOptions& options) {
  SparseMatrix whole;
  for (size_t k = first; k <= name.parts; k += step) {
    SparseMatrix part = [&] {
      try {
        return readSparse(name.path(k), options);
      } catch (const Error& e) {
        if (e.kind() != ErrorKind::Input || k == name.part) throw;
        throw Error(ErrorKind::Input, std::string(e.what()) + "; " + name.path(name.part) +
                                          " is by its name one of " + std::to_string(name.parts) +
                                          " parts of a matrix, which are read together");
      }
    }();
    if (k == first) {
      whole = std::move(part);
      continue;
    }
    if (part.rows != whole.rows || part.cols != whole.cols || part.symmetry != whole.symmetry) {
      throw Error(ErrorKind::Input, name.path(k) + " has another size or form than " +
                                        name.path(first) + "; they are no parts of one matrix");
    }
    whole.entries.insert(whole.entries.end(), part.entries.begin(), part.entries.end());
  }
  whole.source = name.before + name.after + " in " + std::to_string(name.parts) + " parts";
  return whole;
}

void writeParts(const PartName& name, const SparseMatrix& A) {
  std::vector<std::unique_ptr<AtomicFile>> files;
  std::vector<AtomicFile*> all;
  SparseMatrix part = A;
  for (size_t k = 1; k <= name.parts; ++k) {
    const auto at = [&](size_t p) {
      const size_t count = A.entries.size();
      return A.entries.begin() + static_cast<std::ptrdiff_t>(count / name.parts * p +
                                                             count % name.parts * p / name.parts);
    };
    part.entries.assign(at(k - 1), at(k));
    files.push_back(std::make_unique<AtomicFile>(name.path(k)));
    writeMatrixMarket(*files.back(), part);
    files.back()->flush();
    all.push_back(files.back().get());
  }
  AtomicFile::commitAll(all.data(), all.size());
}

}  // namespace zeph
