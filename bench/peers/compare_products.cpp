// Sparse times dense in turn: our triplet list (sorted by columns, by rows, and unordered) beside
// Eigen's compressed matrices.
//   compare_products TRIPLETS ROWS [--limit=SECONDS a case]
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#include "eigen_peers.h"
#include "measure.h"
#include "solver/assembly/protosparse.h"

namespace {

using compare::Best;
using korin::Matrix;
using zeph_solver::MatrixElement;
using zeph_solver::ProtoSparse;

ProtoSparse randomMatrix(std::size_t triplets, std::size_t rows) {
  std::mt19937 random(1);
  ProtoSparse a(rows, rows);
  a.reserve(triplets);
  for (std::size_t k = 0; k < triplets; ++k) {
    const std::size_t row = random() % rows;
    a.addElement(row, random() % rows, static_cast<double>(random()) * 0x1p-31 - 1.0);
  }
  return a;
}

[[maybe_unused]] double largest(const Matrix& a, const Matrix& b) {
  double difference = 0.0;
  for (std::size_t i = 0; i < a.rows * a.cols; ++i) {
    const double error = std::fabs(a.data[i] - b.data[i]);
    difference = error <= difference ? difference : error;
  }
  return difference;
}

#ifdef ZEPH_COMPARE_EIGEN
compare::EigenSparse toEigen(const ProtoSparse& a) {
  std::vector<unsigned int> rows, cols;
  std::vector<double> values;
  for (const MatrixElement& e : a.elements) {
    rows.push_back(e.row);
    cols.push_back(e.col);
    values.push_back(e.value);
  }
  return {a.rowCount, a.colCount, values.size(), rows.data(), cols.data(), values.data()};
}
#endif

}  // namespace

int main(int argc, char** argv) {
  const compare::Arguments arguments(argc, argv);
  const std::size_t triplets = std::strtoul(arguments.positions().at(0).c_str(), nullptr, 10);
  const std::size_t rows = std::strtoul(arguments.positions().at(1).c_str(), nullptr, 10);

  ProtoSparse unordered = randomMatrix(triplets, rows);
  ProtoSparse byColumns(unordered);
  byColumns.sortElements();
  ProtoSparse byRows(unordered);
  byRows.transposeSelf();
  byRows.sortElements();
  byRows.transposeSelf();
#ifdef ZEPH_COMPARE_EIGEN
  const compare::EigenSparse eigen = toEigen(byColumns);
#endif

  for (const std::size_t cols : {std::size_t{1}, std::size_t{8}, std::size_t{32}}) {
    Matrix x(rows, cols), y(rows, cols), z(rows, cols);
    for (std::size_t i = 0; i < rows * cols; ++i) x.data[i] = static_cast<double>(i % 100) / 100.0;
    Best columns, rowsFirst, anyOrder, eigenRows, eigenColumns;
    double difference = 0.0;
    compare::repeat(arguments.number("limit", 2.0), 3, 60, [&] {
      columns.add(compare::seconds([&] { byColumns.multiplyDense(x, y); }));
#ifdef ZEPH_COMPARE_EIGEN
      eigenRows.add(compare::seconds([&] { eigen.multiplyByRows(x.data, z.data, cols); }));
      difference = std::fmax(difference, largest(y, z));
#endif
      rowsFirst.add(compare::seconds([&] { byRows.multiplyDense(x, y); }));
#ifdef ZEPH_COMPARE_EIGEN
      eigenColumns.add(compare::seconds([&] { eigen.multiplyByColumns(x.data, z.data, cols); }));
      difference = std::fmax(difference, largest(y, z));
#endif
      anyOrder.add(compare::seconds([&] { unordered.multiplyDense(x, y); }));
    });
    compare::Record record("products");
    record.add("triplets", triplets).add("rows", rows).add("cols", cols);
    record.add("by_columns", columns.value).add("by_rows", rowsFirst.value);
    record.add("unordered", anyOrder.value).add("eigen_rows", eigenRows.value);
    record.add("eigen_columns", eigenColumns.value).add("agree", difference < 1e-11);
    record.print();
  }
}
