#include "zeph/checks/datum.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>
#include <utility>

#include "sparse/pattern/columns.h"
#include "zeph/checks/memory.h"
#include "zeph/factor.h"
#include "zeph/factor/normal_numbers.h"
#include "zeph/matrix/merge.h"

namespace zeph {
namespace {

using korin::sparse::Columns;
using korin::sparse::Index;
using korin::sparse::Offset;
using std::size_t;

// More motions than a body in space, its scale and its deformation have together.
constexpr size_t kVectors = 12;
constexpr int kIterations = 3;
// Eigenvalues up to this of the matrix scaled to a diagonal of ones are rounding.
constexpr double kZero = 1e-13;
constexpr double kGap = 1e3;
// Row sums up to this share of what was summed are rounding.
constexpr double kBalanced = 1e-13;
// Added to the diagonal of ones, one after the other until the factorisation passes.
constexpr double kShifts[] = {1e-11, 1e-9};
// Unknowns that move as much as the first to within this share come after it.
constexpr double kAsMuch = 0.999;
constexpr size_t kListedCarriers = 5;

Columns lowerTriangle(const SparseMatrix& A) {
  SparseMatrix m;
  m.rows = m.cols = A.rows;
  for (Entry e : A.entries) {
    if (A.symmetry != Symmetry::General && e.row < e.col) std::swap(e.row, e.col);
    if (e.row >= e.col) m.entries.push_back(e);
  }
  mergeDuplicates(m);
  Columns a;
  a.rows = a.cols = static_cast<Index>(A.rows);
  a.start.assign(A.rows + 1, 0);
  for (const Entry& e : m.entries) {
    a.row.push_back(static_cast<Index>(e.row));
    a.value.push_back(e.value);
    ++a.start[e.col + 1];
  }
  std::partial_sum(a.start.begin(), a.start.end(), a.start.begin());
  return a;
}

/// Connected parts, numbered by their first unknown.
struct Parts {
  std::vector<size_t> of;
  size_t count = 0;
};

Parts partsOf(const Columns& a) {
  const auto n = static_cast<size_t>(a.cols);
  std::vector<size_t> parent(n);
  std::iota(parent.begin(), parent.end(), size_t{0});
  const auto find = [&](size_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
  };
  for (Index c = 0; c < a.cols; ++c) {
    for (Offset p = a.start[c]; p < a.start[c + 1]; ++p) {
      if (a.value[p] == 0.0) continue;
      const size_t i = find(static_cast<size_t>(c)), j = find(static_cast<size_t>(a.row[p]));
      parent[std::max(i, j)] = std::min(i, j);
    }
  }
  Parts parts{std::vector<size_t>(n), 0};
  for (size_t i = 0; i < n; ++i) {
    const size_t root = find(i);
    parts.of[i] = root == i ? parts.count++ : parts.of[root];
  }
  return parts;
}

// 1 / √a(i,i), or nothing where one of them is not positive.
std::vector<double> scales(const Columns& a) {
  std::vector<double> scale(static_cast<size_t>(a.cols));
  for (Index c = 0; c < a.cols; ++c) {
    const Offset first = a.start[c];
    if (first == a.start[c + 1] || a.row[first] != c || !(a.value[first] > 0.0)) return {};
    scale[c] = 1.0 / std::sqrt(a.value[first]);
  }
  return scale;
}

enum class Balance { Levelled, Held, Unknown };

// What signs and row sums tell of each part: weighted differences, held somewhere or nowhere.
std::vector<Balance> balances(const Columns& a, const Parts& parts) {
  const auto n = static_cast<size_t>(a.cols);
  std::vector<double> sum(n, 0.0), size(n, 0.0);
  std::vector<Balance> balance(parts.count, Balance::Levelled);
  for (Index c = 0; c < a.cols; ++c) {
    for (Offset p = a.start[c]; p < a.start[c + 1]; ++p) {
      const Index r = a.row[p];
      for (const Index i : {r, c}) {
        sum[i] += a.value[p];
        size[i] += std::abs(a.value[p]);
        if (r == c) break;
      }
      if (r != c && a.value[p] > 0.0) balance[parts.of[c]] = Balance::Unknown;
    }
  }
  for (size_t i = 0; i < n; ++i) {
    Balance& here = balance[parts.of[i]];
    const double share = sum[i] / size[i];
    if (share < -kBalanced) here = Balance::Unknown;
    if (share > kBalanced && here == Balance::Levelled) here = Balance::Held;
  }
  return balance;
}

// The scaled matrix with more than ones on its diagonal.
SparseMatrix shifted(const Columns& a, const std::vector<double>& scale, double shift) {
  SparseMatrix m;
  m.rows = m.cols = static_cast<size_t>(a.cols);
  m.symmetry = Symmetry::Symmetric;
  for (Index c = 0; c < a.cols; ++c) {
    for (Offset p = a.start[c]; p < a.start[c + 1]; ++p) {
      const Index r = a.row[p];
      m.entries.push_back({static_cast<std::uint32_t>(r), static_cast<std::uint32_t>(c),
                           r == c ? 1.0 + shift : a.value[p] * scale[r] * scale[c]});
    }
  }
  return m;
}

/// Columns of n values.
using Block = std::vector<std::vector<double>>;

// S x for the scaled matrix S.
std::vector<double> times(const Columns& a, const std::vector<double>& scale,
                          const std::vector<double>& x) {
  std::vector<double> y(x.size(), 0.0);
  for (Index c = 0; c < a.cols; ++c) {
    for (Offset p = a.start[c]; p < a.start[c + 1]; ++p) {
      const Index r = a.row[p];
      const double s = r == c ? 1.0 : a.value[p] * scale[r] * scale[c];
      y[r] += s * x[c];
      if (r != c) y[c] += s * x[r];
    }
  }
  return y;
}

double dot(const std::vector<double>& x, const std::vector<double>& y,
           const std::vector<size_t>& rows) {
  double sum = 0.0;
  for (const size_t i : rows) sum += x[i] * y[i];
  return sum;
}

// Makes the columns orthonormal on these rows (Gram and Schmidt, twice); those that depend on
// earlier ones become zero. Returns how many do not.
size_t orthonormalise(Block& x, const std::vector<size_t>& rows) {
  constexpr double kDependent = 1e-8;
  size_t rank = 0;
  for (size_t k = 0; k < x.size(); ++k) {
    const double before = std::sqrt(dot(x[k], x[k], rows));
    for (int twice = 0; twice < 2; ++twice) {
      for (size_t j = 0; j < rank; ++j) {
        const double along = dot(x[j], x[k], rows);
        for (const size_t i : rows) x[k][i] -= along * x[j][i];
      }
    }
    const double after = std::sqrt(dot(x[k], x[k], rows));
    const bool independent = after > kDependent * before;
    for (const size_t i : rows) {
      x[rank][i] = independent ? x[k][i] / after : x[rank][i];
    }
    rank += independent ? 1 : 0;
  }
  for (size_t k = rank; k < x.size(); ++k) {
    for (const size_t i : rows) x[k][i] = 0.0;
  }
  return rank;
}

// Eigenvalues of a small symmetric matrix, ascending, with their vectors (Jacobi).
std::vector<std::pair<double, std::vector<double>>> eigen(std::vector<std::vector<double>> h) {
  const size_t n = h.size();
  std::vector<std::vector<double>> v(n, std::vector<double>(n, 0.0));
  for (size_t k = 0; k < n; ++k) v[k][k] = 1.0;
  constexpr int kSweeps = 30;
  for (int sweep = 0; sweep < kSweeps; ++sweep) {
    for (size_t p = 0; p < n; ++p) {
      for (size_t q = p + 1; q < n; ++q) {
        if (h[p][q] == 0.0) continue;
        const double theta = (h[q][q] - h[p][p]) / (2.0 * h[p][q]);
        const double t = std::copysign(1.0, theta) / (std::abs(theta) + std::hypot(theta, 1.0));
        const double c = 1.0 / std::hypot(t, 1.0), s = t * c;
        for (size_t k = 0; k < n; ++k) {
          const double a = h[k][p], b = h[k][q];
          h[k][p] = c * a - s * b;
          h[k][q] = s * a + c * b;
        }
        for (size_t k = 0; k < n; ++k) {
          const double a = h[p][k], b = h[q][k];
          h[p][k] = c * a - s * b;
          h[q][k] = s * a + c * b;
          const double x = v[p][k], y = v[q][k];
          v[p][k] = c * x - s * y;
          v[q][k] = s * x + c * y;
        }
      }
    }
  }
  std::vector<std::pair<double, std::vector<double>>> pairs;
  for (size_t k = 0; k < n; ++k) pairs.emplace_back(h[k][k], v[k]);
  std::sort(pairs.begin(), pairs.end());
  return pairs;
}

// The vectors that the shifted matrix shrinks least, of all parts at once; empty where it is not
// definite.
Block smallest(const Columns& a, const std::vector<double>& scale, const Options& options) {
  Options how = options;
  how.route = Route::Cholesky;
  how.ordering = Ordering::Automatic;
  const auto n = static_cast<size_t>(a.cols);
  for (const double shift : kShifts) {
    try {
      const Factor factor(shifted(a, scale, shift), how);
      Block x(kVectors, std::vector<double>(n));
      NormalNumbers numbers(1);
      for (auto& column : x) {
        for (double& value : column) value = numbers.next();
      }
      for (int k = 0; k < kIterations; ++k) {
        for (auto& column : x) {
          factor.solve(column.data(), column.data());
          const double largest =
              std::abs(*std::max_element(column.begin(), column.end(), [](double p, double q) {
                return std::abs(p) < std::abs(q);
              }));
          for (double& value : column) value /= largest;
        }
      }
      return x;
    } catch (const Error& e) {
      const bool tooClose =
          e.kind() == ErrorKind::NotPositiveDefinite || e.kind() == ErrorKind::Singular;
      if (!tooClose) throw;
    }
  }
  return {};
}

/// The null space of one part.
struct Motions {
  size_t dimension = 0;
  bool atLeast = false;
  size_t carrier = 0;
};

// False where its small eigenvalues are no null space.
bool findMotions(const Block& x, const Block& sx, const std::vector<size_t>& rows, size_t rank,
                 Motions& found) {
  std::vector<std::vector<double>> h(rank, std::vector<double>(rank));
  for (size_t p = 0; p < rank; ++p) {
    for (size_t q = 0; q < rank; ++q) h[p][q] = dot(x[p], sx[q], rows);
  }
  const auto pairs = eigen(std::move(h));
  double zero = std::numeric_limits<double>::epsilon();
  std::vector<double> moved(rows.size(), 0.0);
  for (const auto& [value, vector] : pairs) {
    if (value < -kZero) return false;
    if (value > kZero) {
      if (found.dimension > 0 && value < kGap * zero) return false;
      break;
    }
    ++found.dimension;
    zero = std::max(zero, std::abs(value));
    for (size_t i = 0; i < rows.size(); ++i) {
      double sum = 0.0;
      for (size_t k = 0; k < rank; ++k) sum += vector[k] * x[k][rows[i]];
      moved[i] += sum * sum;
    }
  }
  found.atLeast = found.dimension == x.size() && x.size() < rows.size();
  const double most = *std::max_element(moved.begin(), moved.end());
  const auto first =
      std::find_if(moved.begin(), moved.end(), [&](double m) { return m >= kAsMuch * most; });
  found.carrier = rows[static_cast<size_t>(first - moved.begin())];
  return true;
}

std::optional<DatumDefect> search(const SparseMatrix& A, const Options& options) {
  const Columns a = lowerTriangle(A);
  const std::vector<double> scale = scales(a);
  if (scale.empty()) return {};
  const Parts parts = partsOf(a);
  const std::vector<Balance> balance = balances(a, parts);
  DatumDefect defect;
  defect.allParts = parts.count;
  defect.levelled = true;
  std::vector<std::vector<size_t>> rows(parts.count);
  for (size_t i = 0; i < parts.of.size(); ++i) rows[parts.of[i]].push_back(i);
  const bool open = std::count(balance.begin(), balance.end(), Balance::Unknown) > 0;
  Block x, sx;
  std::vector<size_t> rank(parts.count, 0);
  if (open) {
    requireBytes("looking for what a singular matrix lacks",
                 2.0 * kVectors * sizeof(double) * static_cast<double>(a.cols),
                 options.memoryLimit);
    x = smallest(a, scale, options);
    if (x.empty()) return {};
    for (size_t part = 0; part < parts.count; ++part) {
      if (balance[part] == Balance::Unknown) rank[part] = orthonormalise(x, rows[part]);
    }
    for (const auto& column : x) sx.push_back(times(a, scale, column));
  }
  for (size_t part = 0; part < parts.count; ++part) {
    Motions found;
    if (balance[part] == Balance::Held) continue;
    if (balance[part] == Balance::Levelled) {
      found = {1, false, rows[part][0]};
    } else if (!findMotions(x, sx, rows[part], rank[part], found)) {
      return {};
    }
    if (found.dimension == 0) continue;
    defect.levelled = defect.levelled && balance[part] == Balance::Levelled;
    defect.atLeast = defect.atLeast || found.atLeast;
    defect.dimension += found.dimension;
    defect.carriers.push_back(found.carrier);
    ++defect.parts;
  }
  if (defect.dimension == 0) return {};
  return defect;
}

}  // namespace

std::optional<DatumDefect> findDatumDefect(const SparseMatrix& A, const Options& options) {
  // The search factorises as well, and a failure of that is nothing to search in.
  static thread_local bool searching = false;
  if (searching) return {};
  struct Mark {
    Mark() { searching = true; }
    ~Mark() { searching = false; }
    Mark(const Mark&) = delete;
    Mark& operator=(const Mark&) = delete;
  } const mark;
  try {
    return search(A, options);
  } catch (const Error& e) {
    if (e.kind() == ErrorKind::Cancelled) throw;
  } catch (const std::bad_alloc&) {  // then there is nothing to be found
  }
  return {};
}

std::string explanation(const DatumDefect& d, size_t indexBase) {
  const bool several = d.parts > 1;
  std::string text = "no point is held fixed";
  if (d.allParts > 1) {
    text += " in " + std::to_string(d.parts) + " of its " + std::to_string(d.allParts) +
            " connected parts";
  }
  text += d.levelled ? ", so that all unknowns of a part can be shifted together"
                     : ", so that unknowns can move together without changing anything";
  text += std::string(" (a null space of dimension ") + (d.atLeast ? "at least " : "") +
          std::to_string(d.dimension) + "), as unknown" + (d.carriers.size() > 1 ? "s " : " ");
  for (size_t k = 0; k < std::min(kListedCarriers, d.carriers.size()); ++k) {
    text += (k == 0 ? "" : ", ") + std::to_string(d.carriers[k] + indexBase);
  }
  if (d.carriers.size() > kListedCarriers) text += ", ...";
  text += several ? " of different parts" : "";
  text += "; add ";
  text += d.dimension > d.parts ? "enough observations of known values"
                                : "an observation of a known value";
  return text + ", such as a benchmark, a fixed coordinate or a prior" +
         (several ? ", to each part" : "") + ", or leave out the unknowns that are to be fixed";
}

DatumError::DatumError(const std::string& source, size_t indexBase, DatumDefect found)
    : Error(ErrorKind::Singular, source + " is singular: " + explanation(found, indexBase),
            static_cast<std::int64_t>(found.carriers.at(0))),
      defect(std::move(found)) {}

}  // namespace zeph
