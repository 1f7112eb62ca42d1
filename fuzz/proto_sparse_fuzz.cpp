// Sequences of operations on an assembled matrix, beside a dense model.
#include <array>
#include <vector>

#include "fuzz/input.h"
#include "solver/zeph_solver.h"

namespace {

constexpr unsigned kMost = 7;

// Multiplications by 2 or -1/2 in one sequence: more would take sums beyond 53 bits.
constexpr int kMostScalings = 16;

/// The same matrix as plain numbers. All values are small multiples of 1/8 at first: sums are
/// exact.
struct Model {
  unsigned rows, cols;
  std::array<std::array<double, 64>, 64> a{};
};

void compare(const zeph_solver::ProtoSparse& s, const Model& m) {
  PROMISE(s.rowCount == m.rows && s.colCount == m.cols);
  korin::Matrix dense;
  s.toDenseMatrix(dense, false);
  PROMISE(dense.rows == m.rows && dense.cols == m.cols);
  for (unsigned r = 0; r < m.rows; ++r) {
    for (unsigned c = 0; c < m.cols; ++c) PROMISE(dense(r, c) == m.a[r][c]);
  }
}

double eighths(Input& in) {
  return (static_cast<int>(in.byte()) - 128) / 8.0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  Model m{2 + in.below(kMost), 2 + in.below(kMost), {}};
  if (in.byte() % 8 == 0) m.cols = 1;
  zeph_solver::ProtoSparse s(m.rows, m.cols);
  int scalings = 0;
  for (int step = 0; step < 60 && !in.empty(); ++step) {
    switch (in.below(10)) {
      case 0:
      case 1:
      case 2: {
        const unsigned r = in.below(m.rows), c = in.below(m.cols);
        const double v = eighths(in);
        s.addElement(r, c, v);
        m.a[r][c] += v;
        break;
      }
      case 3: {
        const bool transpose = in.byte() % 2 == 0;
        const unsigned r = in.below(m.rows), c = in.below(m.cols);
        const unsigned height = 1 + in.below(m.rows - r), width = 1 + in.below(m.cols - c);
        ZtMatrix block(transpose ? width : height, transpose ? height : width, 0, nullptr);
        for (unsigned i = 0; i < height; ++i) {
          for (unsigned j = 0; j < width; ++j) {
            const double v = eighths(in);
            block.data[transpose ? j * block.stride + i : i * block.stride + j] = v;
            m.a[r + i][c + j] += v;
          }
        }
        s.addDenseMatrix(block, r, c, transpose);
        break;
      }
      case 4:
        s.compress();
        PROMISE(s.isCompressed());
        break;
      case 5:
        s.makeDense();
        break;
      case 6:
        PROMISE(!s.isDense() || s.makeSparse() == (m.rows >= 2 && m.cols >= 2));
        break;
      case 7: {
        if (++scalings > kMostScalings) break;
        const double factor = in.byte() % 2 == 0 ? 2.0 : -0.5;
        s.scalarMultiplication(factor);
        for (auto& row : m.a) {
          for (double& v : row) v *= factor;
        }
        break;
      }
      case 8: {
        zeph_solver::ProtoSparse other(m.cols, m.rows);
        const unsigned r = in.below(m.cols), c = in.below(m.rows);
        const double v = eighths(in);
        other.addElement(r, c, v);
        s.add(other, 0, 0, true);
        m.a[c][r] += v;
        break;
      }
      default: {
        ZtMatrix b(m.cols, 2, 0, nullptr), c(m.rows, 2, 0, nullptr);
        for (unsigned k = 0; k < m.cols * 2; ++k) b.data[k] = eighths(in);
        s.multiplyDense(b, c);
        for (unsigned r = 0; r < m.rows; ++r) {
          for (unsigned j = 0; j < 2; ++j) {
            double sum = 0.0, size = 0.0;
            for (unsigned k = 0; k < m.cols; ++k) {
              sum += m.a[r][k] * b.data[k * b.stride + j];
              size += std::fabs(m.a[r][k] * b.data[k * b.stride + j]);
            }
            PROMISE(std::fabs(c.data[r * c.stride + j] - sum) <= 1e-12 * size);
          }
        }
      }
    }
    compare(s, m);
  }
  const zeph_solver::ProtoSparse copy(s);
  compare(copy, m);
  s.clear();
  compare(s, Model{m.rows, m.cols, {}});
  compare(copy, m);
  return 0;
}
