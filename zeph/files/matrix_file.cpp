#include "zeph/files/matrix_file.h"

#include <algorithm>
#include <utility>

#include "zeph/checks/guarded.h"
#include "zeph/error.h"
#include "zeph/files/file_kind.h"
#include "zeph/files/line_reader.h"
#include "zeph/files/matrix_market.h"
#include "zeph/files/npz.h"
#include "zeph/files/number_table.h"
#include "zeph/files/number_text.h"
#include "zeph/files/rutherford_boeing.h"
#include "zeph/files/triplet_csv.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

constexpr int kVarianceDigits = 17;  // enough to tell any two doubles apart

enum class Wanted { Sparse, Dense };

bool named(std::string path, std::string_view ending) {
  if (hasEnding(path, ".gz")) path.resize(path.size() - 3);
  return hasEnding(path, ending);
}

// The form of a file: as asked, as its content shows, or as it is named. Throws Error(Input) for
// what is no file of ours.
FileFormat formOf(const LineReader& in, const std::string& path, const ReadOptions& options,
                  Wanted wanted) {
  const bool dense = wanted == Wanted::Dense;
  const std::string_view head = in.head();
  const bool array = dense && isNpy(head);
  if (isZip(head) || array) return FileFormat::Npz;
  in.requireText();
  if (options.format != FileFormat::Automatic) return options.format;
  if (isPoseGraph(head)) {
    throw Error(ErrorKind::Input,
                in.path() + " is a pose graph, not a matrix; use zeph pose-graph");
  }
  if (isMatrixMarket(head)) return FileFormat::MatrixMarket;
  if (named(path, ".csv") || named(path, ".tsv")) return FileFormat::Csv;
  if (named(path, ".npz")) {
    throw Error(ErrorKind::Input, in.path() + " is text, not the archive that its name promises");
  }
  for (const char* ending : {".rb", ".hb", ".rua", ".rsa", ".rza", ".rra"}) {
    if (named(path, ending)) return FileFormat::RutherfordBoeing;
  }
  if (isRutherfordBoeing(head)) return FileFormat::RutherfordBoeing;
  if (!dense || head.empty()) return FileFormat::MatrixMarket;
  // Numbers without a word of what they are can be a right-hand side, and no sparse matrix.
  const std::size_t first = head.find_first_not_of(" \t\r\n+-.\"");
  const bool number = first != head.npos && head[first] >= '0' && head[first] <= '9';
  const bool plain = number && !named(path, ".mtx");
  return plain || named(path, ".txt") ? FileFormat::Csv : FileFormat::MatrixMarket;
}

SparseMatrix sparseOf(const DenseMatrix& dense) {
  SparseMatrix m;
  m.source = dense.source;
  m.rows = dense.rows;
  m.cols = dense.cols;
  for (std::size_t c = 0; c < dense.cols; ++c) {
    for (std::size_t r = 0; r < dense.rows; ++r) {
      if (dense(r, c) == 0.0) continue;
      m.entries.push_back(
          {static_cast<std::uint32_t>(r), static_cast<std::uint32_t>(c), dense(r, c)});
    }
  }
  return m;
}

// Of a reader at its beginning.
SparseMatrix sparseFrom(LineReader& in, const std::string& path, const ReadOptions& options) {
  switch (formOf(in, path, options, Wanted::Sparse)) {
    case FileFormat::Npz:
      return readNpz(in.rest(options.memoryLimit), in.path(), options);
    case FileFormat::RutherfordBoeing:
      return readRutherfordBoeing(in, options);
    case FileFormat::Csv:
      return readTripletCsv(in, options);
    case FileFormat::List:
      return sparseOf(readNumberTable(in, options));
    default:
      return readMatrixMarket(in, options);
  }
}

}  // namespace

SparseMatrix readSparse(const std::string& path, const ReadOptions& options) {
  return guarded(displayName(path), [&] {
    LineReader in(path);
    in.tell(options.progress);
    return sparseFrom(in, path, options);
  });
}

DenseMatrix readDense(const std::string& path, const ReadOptions& options) {
  return guarded(displayName(path), [&] {
    LineReader in(path);
    in.tell(options.progress);
    switch (formOf(in, path, options, Wanted::Dense)) {
      case FileFormat::Npz:
        if (isNpy(in.head())) return readNpy(in.rest(options.memoryLimit), in.path(), options);
        return toDense(readNpz(in.rest(options.memoryLimit), in.path(), options),
                       options.memoryLimit);
      case FileFormat::RutherfordBoeing:
        return toDense(readRutherfordBoeing(in, options), options.memoryLimit);
      case FileFormat::Csv:
      case FileFormat::List:
        return readNumberTable(in, options);
      default:
        return readMatrixMarketDense(in, options);
    }
  });
}

bool readAsStored(const std::string& path, SparseMatrix& sparse, DenseMatrix& dense,
                  const ReadOptions& options) {
  return guarded(displayName(path), [&] {
    LineReader in(path);
    in.tell(options.progress);
    if (isMatrixMarket(in.head())) return readMatrixMarketAsStored(in, sparse, dense, options);
    sparse = sparseFrom(in, path, options);
    return false;
  });
}

void writeSparse(AtomicFile& out, SparseMatrix m) {
  if (hasEnding(out.path(), ".csv")) {
    writeTripletCsv(out, std::move(m));
  } else {
    writeMatrixMarket(out, m);
  }
}

void writeSparse(const std::string& path, SparseMatrix m) {
  guarded(path, [&] {
    AtomicFile out(path);
    writeSparse(out, std::move(m));
    out.commit();
  });
}

void writeDense(const std::string& path, const DenseMatrix& m) {
  guarded(path, [&] {
    AtomicFile out(path);
    if (hasEnding(path, ".csv")) {
      writeTripletCsv(out, m);
    } else if (hasEnding(path, ".txt")) {
      writeNumberTable(out, m);
    } else {
      writeMatrixMarket(out, m);
    }
    out.commit();
  });
}

void writeVector(const std::string& path, const double* values, std::size_t count) {
  AtomicFile out(path);
  if (hasEnding(path, ".mtx") || hasEnding(path, ".txt")) {
    auto column = DenseMatrix::zeros(count, 1);
    std::copy_n(values, count, column.values.begin());
    hasEnding(path, ".mtx") ? writeMatrixMarket(out, column) : writeNumberTable(out, column);
  } else {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
      appendIndex(text, i);
      text += ',';
      appendDigits(text, values[i], kVarianceDigits);
      text += '\n';
    }
    out.write(text);
  }
  out.commit();
}

void requireMatrixEnding(const std::string& path) {
  for (const char* ending : {".csv", ".mtx", ".txt"}) {
    if (hasEnding(path, ending)) return;
  }
  if (path == "-" || path.rfind("/dev/", 0) == 0) return;
  throw Error(ErrorKind::Usage,
              "the name " + path + " must end in .mtx, .csv or .txt, which chooses the form");
}

}  // namespace zeph
