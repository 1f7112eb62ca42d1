#include "zeph/files/matrix_file.h"

#include <algorithm>
#include <utility>

#include "zeph/checks/guarded.h"
#include "zeph/error.h"
#include "zeph/files/matrix_market.h"
#include "zeph/files/number_text.h"
#include "zeph/files/triplet_csv.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

constexpr int kVarianceDigits = 17;  // enough to tell any two doubles apart

}  // namespace

SparseMatrix readSparse(const std::string& path, const ReadOptions& options) {
  return guarded(path, [&] {
    return hasEnding(path, ".csv") ? readTripletCsv(path, options)
                                   : readMatrixMarket(path, options);
  });
}

DenseMatrix readDense(const std::string& path, const ReadOptions& options) {
  return guarded(path, [&] {
    return hasEnding(path, ".csv") ? toDense(readTripletCsv(path, options))
                                   : readMatrixMarketDense(path, options);
  });
}

bool readAsStored(const std::string& path, SparseMatrix& sparse, DenseMatrix& dense,
                  const ReadOptions& options) {
  return guarded(path, [&] {
    if (!hasEnding(path, ".csv")) return readMatrixMarketAsStored(path, sparse, dense, options);
    sparse = readTripletCsv(path, options);
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
  AtomicFile out(path);
  writeSparse(out, std::move(m));
  out.commit();
}

void writeDense(const std::string& path, const DenseMatrix& m) {
  AtomicFile out(path);
  if (hasEnding(path, ".csv")) {
    writeTripletCsv(out, m);
  } else {
    writeMatrixMarket(out, m);
  }
  out.commit();
}

void writeVector(const std::string& path, const double* values, std::size_t count) {
  AtomicFile out(path);
  if (hasEnding(path, ".mtx")) {
    auto column = DenseMatrix::zeros(count, 1);
    std::copy_n(values, count, column.values.begin());
    writeMatrixMarket(out, column);
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
  if (path == "-" || hasEnding(path, ".csv") || hasEnding(path, ".mtx")) return;
  throw Error(ErrorKind::Usage, "the name " + path + " must end in .mtx or .csv");
}

}  // namespace zeph
