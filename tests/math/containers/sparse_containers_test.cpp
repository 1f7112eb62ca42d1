#include <map>
#include <new>
#include <set>

#include "math/containers/sparsematrix.h"
#include "tests/math/dense/dense_testing.h"

namespace dense_testing {
namespace {

using korin::SparseMatrix;
using korin::SparseVector;
using List = korin::SkipList<unsigned long, double>;
using Size = unsigned long;
using Position = std::pair<Size, Size>;
// The model of all containers: what is stored, zeros included. A vector is row 0 of a matrix.
using Model = std::map<Position, double>;

// Knows every block it gave out.
class CountingAllocator : public korin::Allocator {
 public:
  ~CountingAllocator() override { EXPECT_TRUE(live.empty()); }
  void* malloc(std::size_t bytes) override { return *live.insert(Allocator::malloc(bytes)).first; }
  void free(void* block) override {
    EXPECT_EQ(live.erase(block), 1u);
    Allocator::free(block);
  }
  std::set<void*> live;
};

class Arena : public korin::Allocator {
 public:
  bool canFree() const override { return false; }
  void* malloc(std::size_t bytes) override {
    blocks.emplace_back(bytes / sizeof(double) + 1);
    return blocks.back().data();
  }
  void free(void*) override { ADD_FAILURE() << "an arena gets nothing back"; }
  std::vector<std::vector<double>> blocks;
};

Model stored(const SparseVector& v, Size row = 0) {
  std::pair<Model, Size> found({}, row);
  v.forEach(&found, [](void* context, Size index, double value) {
    auto& [model, r] = *static_cast<std::pair<Model, Size>*>(context);
    EXPECT_TRUE(model.empty() || model.rbegin()->first.second < index) << "not ascending";
    model[{r, index}] = value;
  });
  return found.first;
}

Model transposed(const Model& model) {
  Model t;
  for (const auto& [p, x] : model) t[{p.second, p.first}] = x;
  return t;
}

// The entries that the row vectors, or the column vectors, of a matrix store.
Model stored(const SparseMatrix& m, bool byRows) {
  Model model;
  for (Size i = 0; i < (byRows ? m.rows : m.cols); ++i) {
    model.merge(stored(byRows ? *m.rowData[i] : *m.colData[i], i));
  }
  return byRows ? model : transposed(model);
}

Model nonZeros(const korin::Matrix& m) {
  Model model;
  for (Size i = 0; i < m.rows * m.cols; ++i) {
    if (*m.flatRow(i) != 0.0) model[{i / m.cols, i % m.cols}] = *m.flatRow(i);
  }
  return model;
}

Model withoutZeros(Model model) {
  std::erase_if(model, [](const auto& e) { return e.second == 0.0; });
  return model;
}

korin::Matrix denseOf(const SparseMatrix& m) {
  korin::Matrix dense(m.rows, m.cols);
  m.getDenseSubMatrix(dense, 0, 0, m.rows, m.cols, 0, 0);
  return dense;
}

double at(const Model& model, Size r, Size c) {
  const auto found = model.find({r, c});
  return found != model.end() ? found->second : 0.0;
}

// s * a + t * b over the union of the stored positions; nothing of an operand without a factor.
Model unionOf(const std::vector<std::pair<double, const Model*>>& terms) {
  Model sum;
  for (const auto& [factor, model] : terms) {
    for (const auto& [p, x] : *model) sum[p] += factor * x;
  }
  return sum;
}

struct Window {
  Size r, c, rows, cols, fromR, fromC;
};

// The window of `to` becomes what `from` stores in its own.
Model withBlock(Model to, const Model& from, const Window& w) {
  std::erase_if(to, [&](const auto& e) {
    return e.first.first - w.r < w.rows && e.first.second - w.c < w.cols;
  });
  for (const auto& [p, x] : from) {
    const Size r = p.first - w.fromR, c = p.second - w.fromC;
    if (r < w.rows && c < w.cols) to[{r + w.r, c + w.c}] = x;
  }
  return to;
}

Model productOf(const Model& a, const Model& b) {
  Model product;
  for (const auto& [p, x] : a) {
    for (const auto& [q, y] : b) {
      if (p.second == q.first) product[{p.first, q.second}] += x * y;
    }
  }
  return withoutZeros(product);
}

class SparseContainers : public ::testing::Test {
 protected:
  // The default allocator outlives every container that was given none.
  ~SparseContainers() override {
    korin::Allocator& heap = korin::defaultAllocator;
    heap.free(heap.realloc(heap.malloc(8), 64));
  }
  Size draw(Size n) { return random() % n; }
  // Small integers, zeros among them: sums are exact and often cancel.
  double value() { return static_cast<double>(draw(7)) - 3.0; }
  Model fill(SparseVector& v, Size count) {
    v.setZero();
    for (Size k = 0; k < count; ++k) v[draw(v.length)] = value();
    return stored(v);
  }

  std::mt19937_64 random{11};
  CountingAllocator counting;
  Arena arena;
};

// Level 0 holds the model in order, every other level is an ordered part of the one below, and the
// highest in use is not empty.
void expectHolds(const List& list, const Model& model) {
  Model below = model;
  for (int l = 0; l <= list.level; ++l) {
    Model here;
    for (auto* node = list.head->next(l); node != nullptr; node = node->next(l)) {
      ASSERT_TRUE(here.empty() || here.rbegin()->first.second < node->key);
      here.emplace(Position(0, node->key), node->value);
      ASSERT_EQ(below.count({0, node->key}), 1u);
    }
    ASSERT_EQ(l == 0 ? here : model, model);
    ASSERT_FALSE(l > 0 && l == list.level && here.empty());
    below = here;
  }
}

TEST_F(SparseContainers, SkipListBehavesAsAnOrderedMap) {
  for (korin::Allocator* allocator : std::vector<korin::Allocator*>{nullptr, &counting, &arena}) {
    for (const Size capacity : {0, 1, 16, 300}) {
      List list(capacity, allocator);
      EXPECT_EQ(list.ownsAllocator, list.allocator == &korin::defaultAllocator);
      Model model;
      for (int step = 0; step < 600; ++step) {
        const Size key = draw(capacity + 5), kind = draw(100), count = draw(6);
        if (kind < 50) {
          list.findOrInsert(key) += value();
          model[{0, key}] = list.find(key);
        } else if (kind < 65) {
          const Size next = model.empty() ? 0 : model.rbegin()->first.second + 1;
          for (Size k = next; k < next + 3; ++k) list.append(k, model[{0, k}] = value());
        } else if (kind < 67) {
          kind < 66 ? list.clear() : list.eraseRange(key, ~Size{0});
          model = withBlock(model, {}, {0, kind < 66 ? 0 : key, 1, 1000000, 0, 0});
        } else if (kind < 85) {
          list.eraseRange(key, count);
          model = withBlock(model, {}, {0, key, 1, count, 0, 0});
        }
        EXPECT_EQ(list.find(key), at(model, 0, key));
        expectHolds(list, model);
        ASSERT_EQ(counting.live.size(), allocator == &counting ? model.size() + 3 : 0);
      }
    }
  }
}

TEST_F(SparseContainers, LevelsGrowWithTheFourthPowersAndHoldAQuarterEach) {
  for (const auto& [n, levels] : std::map<Size, int>{
           {0, 1}, {1, 1}, {2, 2}, {4, 2}, {5, 3}, {16, 3}, {17, 4}, {1ul << 62, 32}, {~0ul, 33}}) {
    EXPECT_EQ(List::levelsFor(n), levels) << n;
  }
  List list(1ul << 20, nullptr);
  for (Size k = 0; k < 20000; ++k) list.append(k, 1.0);
  double above = 0;
  for (auto* node = list.head->next(1); node != nullptr; node = node->next(1)) ++above;
  EXPECT_NEAR(above / 20000, 0.25, 0.02);
}

TEST_F(SparseContainers, VectorArithmeticWorksOnTheUnionOfEntries) {
  constexpr double kOut = 1e300;  // the operand's positions take no part
  struct {
    void (*apply)(SparseVector& v, SparseVector& a, SparseVector& b);
    double v, a, b;
  } const operations[] = {
      {[](auto& v, auto& a, auto&) { v.isSelfAddVec(a); }, 1, 1, kOut},
      {[](auto& v, auto& a, auto&) { v.isSelfSubVec(a); }, 1, -1, kOut},
      {[](auto& v, auto& a, auto&) { v.isSelfAddScaMulVec(3, a); }, 1, 3, kOut},
      {[](auto& v, auto& a, auto&) { v.setNegVec(a); }, kOut, -1, kOut},
      {[](auto& v, auto&, auto&) { v.setNegVec(v); }, -1, kOut, kOut},
      {[](auto& v, auto&, auto&) { v.isSelfMulSca(0); }, 0, kOut, kOut},
      {[](auto& v, auto& a, auto& b) { v.setVecAddVec(a, b); }, kOut, 1, 1},
      {[](auto& v, auto& a, auto&) { v.setVecAddVec(v, a); }, 1, 1, kOut},
      {[](auto& v, auto& a, auto&) { v.setVecAddVec(a, v); }, 1, 1, kOut},
      {[](auto& v, auto& a, auto& b) { v.setVecSubVec(a, b); }, kOut, 1, -1},
      {[](auto& v, auto&, auto&) { v.setVecSubVec(v, v); }, 0, kOut, kOut},
      {[](auto& v, auto& a, auto& b) { v.setScaMulVecAddScaMulVec(2, a, -3, b); }, kOut, 2, -3},
      {[](auto& v, auto& a, auto&) { v.setScaMulVecAddScaMulVec(2, v, -3, a); }, 2, -3, kOut},
      {[](auto& v, auto& a, auto&) { v.setScaMulVecAddScaMulVec(2, a, -3, v); }, -3, 2, kOut},
      {[](auto& v, auto&, auto&) { v.setScaMulVecAddScaMulVec(2, v, -3, v); }, -1, kOut, kOut},
      {[](auto& v, auto& a, auto&) { v = a; }, kOut, 1, kOut},
      {[](auto& v, auto&, auto&) { v = *&v; }, 1, kOut, kOut},
      {[](auto& v, auto&, auto&) { v.isSelfNegVec(); }, kOut, kOut, kOut},
      {[](auto& v, auto& a, auto&) { v.setVecSubVec(a, v); }, kOut, kOut, kOut}};
  SparseVector v(400, nullptr), a(400, &counting), b(400, &arena);
  for (int round = 0; round < 20; ++round) {
    for (const auto& o : operations) {
      const Model inV = fill(v, draw(60)), inA = fill(a, draw(60)), inB = fill(b, draw(900));
      std::vector<std::pair<double, const Model*>> terms = {{o.v, &inV}, {o.a, &inA}, {o.b, &inB}};
      std::erase_if(terms, [](const auto& term) { return term.first == kOut; });
      o.apply(v, a, b);
      expectHolds(v.list, unionOf(terms));
      EXPECT_EQ(v.length, 400u) << &o - operations;
    }
    // Reductions, with one operand much longer than the other.
    fill(a, draw(20));
    a[399] = 2.0;
    fill(b, 800);
    korin::Vector denseA(400), dense(400);
    a.getSubVector(denseA, 0, 400, 0);
    b.getSubVector(dense, 0, 400, 0);
    const double dot = ZtVector_dotProduct(&denseA, &dense);
    korin::Matrix column(400, 3);
    column.setCol(dense, 1);
    for (const double result : {a.dotProduct(b), b.dotProduct(a), a.dotProduct(dense),
                                a.dotProduct(dense.data, 1), a.dotProduct(&column(0, 1), 3)}) {
      EXPECT_EQ(result, dot);
    }
    EXPECT_EQ(a.sumVal(), denseA.sumVal());
    EXPECT_EQ(a.setNormalizeSelf(), std::sqrt(denseA.sumSquaredVal()));
    EXPECT_NEAR(a.cartesianLength(), 1.0, 1e-15);
  }
}

TEST_F(SparseContainers, VectorRangesAndSizes) {
  for (int round = 0; round < 300; ++round) {
    SparseVector v(30, &counting), src(40, &arena);
    Model model = fill(v, 25);
    const Model source = fill(src, 30);
    const Size count = draw(21), first = draw(31 - count), from = draw(31 - count);
    const Window w{0, first, 1, count, 0, from};
    korin::Matrix dense(1, 40), out(1, 40);
    korin::Vector denseRow(dense, 0), outRow(out, 0);
    src.getSubVector(denseRow, 0, 40, 0);
    outRow.setSub_scalar(9, 0, 40);
    const Model nines = nonZeros(out);
    std::as_const(v).getSubVector(outRow, first, count, from);
    EXPECT_EQ(nonZeros(out), withoutZeros(withBlock(nines, model, w)));
    EXPECT_EQ(stored(v), model);

    const Model sources[] = {source, model, nonZeros(dense), {}};
    model = withBlock(model, sources[round % 4], w);
    if (round % 4 == 0) v.setSubVector(src, first, count, from);
    if (round % 4 == 1) v.setSubVector(v, first, count, from);
    if (round % 4 == 2) v.setSubVector(denseRow, first, count, from);
    if (round % 4 == 3) v.setSub_zero(first, count);
    EXPECT_EQ(stored(v), model);

    // Shrinking keeps the entry at the new length itself; only a non-const read stores a zero.
    const Size n = draw(35);
    v.resize(n);
    if (n < 30) model.erase(model.upper_bound({0, n}), model.end());
    const SparseVector copy(v);
    EXPECT_EQ(copy.length, n);
    EXPECT_EQ(copy.allocator, &counting);
    EXPECT_EQ(copy[36] + v[36], 0.0);
    EXPECT_EQ(stored(copy), model);
    model[{0, 36}] = 0.0;
    EXPECT_EQ(stored(v), model);
    v = denseRow;
    EXPECT_EQ(stored(v), nonZeros(dense));
    EXPECT_EQ(v.length, 40u);
  }
}

// The same entries by rows only, by columns only and both ways, from three allocators.
struct Trio {
  SparseMatrix all[3];
  Model model;
};

class SparseMatrices : public SparseContainers {
 protected:
  Trio makeTrio(Size rows, Size cols) {
    Trio trio{{{rows, cols, true, false, &counting},
               {rows, cols, false, true, &arena},
               {rows, cols, true, true, nullptr}},
              {}};
    for (Size k = draw(40); k > 0; --k) {
      const Position p(draw(rows), draw(cols));
      trio.model[p] = value();
      for (SparseMatrix& m : trio.all) m.setValue(p.first, p.second, trio.model[p]);
    }
    return trio;
  }
  static void expectHolds(const SparseMatrix& m, const Model& model, long what) {
    EXPECT_EQ(m.hasRowData ? stored(m, true) : model, model) << what;
    EXPECT_EQ(m.hasColData ? stored(m, false) : model, model) << what;
    Model visited;
    m.forEach(&visited, [](void* context, Size r, Size c, double x) {
      (*static_cast<Model*>(context))[{r, c}] = x;
    });
    EXPECT_EQ(visited, model) << what;
  }
};

TEST_F(SparseMatrices, ArithmeticGivesTheModelsEntriesInEveryKindOfData) {
  using M = const SparseMatrix&;
  for (int round = 0; round < 15; ++round) {
    const Trio m = makeTrio(9, 9), a = makeTrio(9, 9), b = makeTrio(9, 9);
    Model diagonal;
    for (Size i = 0; i < 9; ++i) diagonal[{i, i}] = 0.0;
    const Model product = productOf(a.model, b.model);
    struct {
      void (*apply)(SparseMatrix& t, M a, M b);
      Model expected;
    } const operations[] = {
        {[](auto& t, M, M) { t.isSelfMulSca(-2); }, unionOf({{-2, &m.model}})},
        {[](auto& t, M a, M) { t.isSelfAddMat(a); }, unionOf({{1, &m.model}, {1, &a.model}})},
        {[](auto& t, M a, M) { t.isSelfSubMat(a); }, unionOf({{1, &m.model}, {-1, &a.model}})},
        {[](auto& t, M, M) { t.setSelfAddScaMulMat(2, t); }, unionOf({{3, &m.model}})},
        {[](auto& t, M a, M b) { t.setScaMulMatAddScaMulMat(2, a, -1, b); },
         unionOf({{2, &a.model}, {-1, &b.model}})},
        {[](auto& t, M a, M) { t.setScaMulMatAddScaMulMat(2, a, 3, t); },
         unionOf({{2, &a.model}, {3, &m.model}})},
        {[](auto& t, M a, M b) { t.setMatMulMat(a, b); }, product},
        {[](auto& t, M a, M) { t.setMatMulMat(a, t); }, productOf(a.model, m.model)},
        {[](auto& t, M a, M b) { t.setMatMulMat(denseOf(a), b); }, product},
        {[](auto& t, M a, M) { t.setMatMulMat(denseOf(a), t); }, productOf(a.model, m.model)},
        {[](auto& t, M a, M b) { t.setTransMatMulMat(a, b); },
         productOf(transposed(a.model), b.model)},
        {[](auto& t, M, M) { t.setTransposeSelf(); }, transposed(m.model)},
        {[](auto& t, M, M) { t.setIdentity(0); }, diagonal},
        {[](auto& t, M a, M) { t = a; }, a.model},
        {[](auto& t, M, M) { t.addColData(), t.addRowData(), t.freeColData(); }, m.model},
        {[](auto& t, M, M) { t.addColData(), t.rebuildRowData(), t.rebuildColData(); }, m.model}};
    for (const auto& o : operations) {
      for (const SparseMatrix& start : m.all) {
        SparseMatrix target(start);
        o.apply(target, a.all[draw(3)], b.all[draw(3)]);
        expectHolds(target, o.expected, &o - operations);
        expectHolds(start, m.model, &o - operations);
      }
    }
    // The left factor's own lines and the right one's columns are the source, with what shrinking
    // left at their boundary.
    SparseMatrix left(a.all[2]), across(a.all[2]), right(b.all[2]), target(m.all[2]);
    left.resize(8, 7), across.resize(7, 8), right.resize(7, 6), target.resize(8, 6);
    left.zeroCols(), across.zeroRows(), right.zeroRows();
    target.setMatMulMat(left, right);
    expectHolds(target, productOf(stored(left, true), stored(right, false)), 100);
    target.setTransMatMulMat(across, right);
    expectHolds(target, productOf(transposed(stored(across, false)), stored(right, false)), 101);
  }
}

TEST_F(SparseMatrices, AChangeThatFindsNoMemoryChangesNeitherView) {
  struct : CountingAllocator {
    void* malloc(std::size_t bytes) override {
      if (left-- == 0) throw std::bad_alloc();
      return CountingAllocator::malloc(bytes);
    }
    long left = -1;
  } failing;
  void (*const changes[])(SparseMatrix&) = {
      [](auto& m) { m.setValue(0, 0, 5); },    [](auto& m) { m.setValue(4, 1, 5); },
      [](auto& m) { m.appendValue(7, 7, 5); }, [](auto& m) { m.resize(30, 40); },
      [](auto& m) { m.resize(5, 20); },        [](auto& m) { m.resize(9, 2); }};
  for (const auto change : changes) {
    for (long allowed = 0, failures = 1; failures > 0; ++allowed) {
      failures = 0;
      SparseMatrix m(9, 9, true, true, &failing);
      for (Size i = 0; i < 9; ++i) m.setValue(i, 8 - i, 1), m.setValue(i * i % 8, 0, 2);
      m.resize(8, 8);  // leaves entries at the boundary
      const Model byRows = stored(m, true), byCols = stored(m, false);
      failing.left = allowed;
      try {
        change(m);
      } catch (const std::bad_alloc&) {
        failures = 1;
        EXPECT_TRUE(m.rows == 8 && m.cols == 8 && stored(m, true) == byRows);
        EXPECT_EQ(stored(m, false), byCols) << allowed;
      }
      failing.left = -1;
    }
  }
}

TEST_F(SparseMatrices, BlocksLinesAndVectorsGoInAndOut) {
  for (int round = 0; round < 60; ++round) {
    Trio trio = makeTrio(8, 11);
    const Trio other = makeTrio(12, 12);
    korin::Matrix dense(12, 12), out(12, 12);
    for (Size i = 0; i < 144; ++i) *dense.flatRow(i) = draw(2) ? value() : -0.0;
    const korin::Vector column = dense.col(0);
    const Model inDense = nonZeros(dense);
    const Size rows = draw(6), cols = draw(6), r = draw(3), c = draw(5), r2 = draw(3), c2 = draw(3);
    const Window w{r, c, rows, cols, r2, c2};
    for (SparseMatrix& m : trio.all) {
      Model model = trio.model;
      out.setIdentity(5);
      const Model before = nonZeros(out);
      m.getDenseSubMatrix(out, r, c, rows, cols, r2, c2);
      EXPECT_EQ(nonZeros(out), withoutZeros(withBlock(before, model, {r2, c2, rows, cols, r, c})));
      m.setSub_mat(other.all[draw(3)], r, c, rows, cols, r2, c2);
      expectHolds(m, model = withBlock(model, other.model, w), 0);
      m.setSub_mat(m, r, c, rows, cols, r2, c2);
      expectHolds(m, model = withBlock(model, model, w), 1);
      m.setSub_mat(dense, r, c, rows, cols, r2, c2);
      expectHolds(m, model = withBlock(model, inDense, w), 2);
      m.setSub_zero(r2, c2, rows, cols);
      expectHolds(m, model = withBlock(model, {}, {r2, c2, rows, cols, 0, 0}), 3);
      m.setCol(column, c);
      expectHolds(m, model = withBlock(model, inDense, {0, c, 8, 1, 0, 0}), 4);
      m.setRow(dense.row(3), r);
      expectHolds(m, model = withBlock(model, inDense, {r, 0, 1, 11, 3, 0}), 5);

      SparseVector v(11, nullptr), product(8, nullptr);
      const Model inV = SparseContainers::fill(v, 8);
      product.setMatMulVec(m, v);
      EXPECT_EQ(transposed(stored(product)), productOf(model, transposed(inV)));
      SparseMatrix sum(2, 11, m.hasRowData, m.hasColData, nullptr);
      sum.setValue(0, 3, 2);
      sum.isSelfAddVecMulMat(column, m);
      Model inSum{{{0, 3}, 2}};
      for (const auto& [p, x] : model) inSum[{0, p.second}] += column[p.first] * x;
      expectHolds(sum, inSum, 6);

      // Reading stores zeros where it goes entry by entry: single values, and lines read across.
      korin::Vector down(9), across(9);
      m.getDenseColVector(down, 1, c, 6, 2);
      m.getDenseRowVector(across, r, 4, 7, 1);
      for (Size k = 0; k < 7; ++k) {
        EXPECT_EQ(across[1 + k], at(model, r, 4 + k));
        if (!m.hasRowData) model.emplace(Position(r, 4 + k), 0.0);
      }
      for (Size k = 0; k < 6; ++k) {
        EXPECT_EQ(down[2 + k], at(model, 1 + k, c));
        if (!m.hasColData) model.emplace(Position(1 + k, c), 0.0);
      }
      EXPECT_EQ(m.getValue(r2, c2), at(model, r2, c2));
      model.emplace(Position(r2, c2), 0.0);
      expectHolds(m, model, 7);
      m.setTransposeSelf();
      expectHolds(m, transposed(model), 9);
      m = dense;
      expectHolds(m, inDense, 8);
    }
  }
}

TEST_F(SparseMatrices, ResizeKeepsTheEntryAtTheNewLengthOfALine) {
  for (int round = 0; round < 40; ++round) {
    Trio trio = makeTrio(10, 10);
    for (SparseMatrix& m : trio.all) {
      Model byRows = trio.model, byCols = trio.model;
      for (int step = 0; step < 6; ++step) {
        const Size oldRows = m.rows, oldCols = m.cols;
        const Size rows = step == 3 ? 700 : draw(14), cols = step == 4 ? 700 : draw(14);
        m.resize(rows, cols);
        std::erase_if(byRows, [&](const auto& e) {
          return e.first.first >= rows || (cols < oldCols && e.first.second > cols);
        });
        std::erase_if(byCols, [&](const auto& e) {
          return e.first.second >= cols || (rows < oldRows && e.first.first > rows);
        });
        if (m.hasRowData && m.hasColData) {
          const Model inside = withBlock({}, byCols, {0, 0, rows, cols, 0, 0});
          byRows.insert(inside.begin(), inside.end());
          const Model back = withBlock({}, byRows, {0, 0, rows, cols, 0, 0});
          byCols.insert(back.begin(), back.end());
        }
        EXPECT_EQ(m.hasRowData ? stored(m, true) : byRows, byRows);
        EXPECT_EQ(m.hasColData ? stored(m, false) : byCols, byCols);
        const int levels = m.hasRowData && rows > 0 ? m.rowData[0]->list.maxLevel : 99;
        EXPECT_GE(levels, List::levelsFor(cols));
      }
    }
  }
}

TEST_F(SparseMatrices, WithoutDataReadingThrowsItsMessage) {
  SparseMatrix none(3, 3, false, false, nullptr), m(3, 3, true, true, nullptr);
  korin::Vector v(3);
  korin::Matrix d(3, 3);
  const std::string scope = "void korin::SparseMatrix::", sizes = "ZtSize, ZtSize, ZtSize, ZtSize";
  const std::string noData = "ZtReal korin::SparseMatrix::getValue(ZtSize, ZtSize) const no data!";
  const std::string range = ") const index out of range", six = sizes + ", ZtSize, ZtSize";
  const std::pair<std::string, std::function<void()>> cases[] = {
      {noData, [&] { none.getValue(0, 0); }},
      {noData, [&] { m.isSelfAddVecMulMat(v, none); }},
      {noData, [&] { none.isSelfAddVecMulMat(v, m); }},
      {scope + "getDenseColVector(korin::Vector&, " + sizes + range,
       [&] { none.getDenseColVector(v, 0, 0, 3, 0); }},
      {scope + "getDenseRowVector(korin::Vector&, " + sizes + range,
       [&] { none.getDenseRowVector(v, 0, 0, 3, 0); }},
      {scope + "getDenseSubMatrix(korin::Matrix&, " + six + range,
       [&] { none.getDenseSubMatrix(d, 0, 0, 3, 3, 0, 0); }},
      {scope + "setSub_mat(const korin::SparseMatrix&, " + six + ") source has no data",
       [&] { m.setSub_mat(none, 0, 0, 3, 3, 0, 0); }}};
  for (const auto& [message, call] : cases) expectThrow(call, message);
}

}  // namespace
}  // namespace dense_testing
