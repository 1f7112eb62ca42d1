#include "types/zttypes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <new>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Numbers = std::vector<double>;

Numbers elementsOf(const ZtMatrix& m) {
  Numbers all;
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) all.push_back(m.data[ZtMatrix_offset(&m, r, c)]);
  }
  return all;
}

TEST(ZtMatrixRecord, ConstructorsKeepStrideAndLeaveEmptyShapesEmpty) {
  const Numbers source = {1, 2, -1, 3, 4, -1};
  const ZtMatrix strided(2, 2, 3, source.data());
  EXPECT_EQ(strided.stride, 3u);
  EXPECT_EQ(elementsOf(strided), (Numbers{1, 2, 3, 4}));
  EXPECT_EQ(ZtMatrix(2, 5, 0, nullptr).stride, 5u);
  for (const ZtMatrix& empty : {ZtMatrix(0, 5, 0, nullptr), ZtMatrix(5, 0, 0, nullptr)}) {
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.rows + empty.cols + empty.stride + empty.flags, 0u);
  }
}

TEST(ZtMatrixRecord, CopiesAreDeepViewsWriteThroughAndSwapMovesOwnership) {
  Numbers buffer = {1, 2, 9, 3, 4, 9};
  ZtMatrix view;
  view.data = buffer.data();
  view.rows = view.cols = 2;
  view.stride = 3;
  ZtMatrix copy(view);
  EXPECT_TRUE(copy.flags == kZtManaged && copy.stride == 2);
  ZtMatrix_setZero(&view);  // the gaps stay
  EXPECT_EQ(buffer, (Numbers{0, 0, 9, 0, 0, 9}));
  copy = copy;
  EXPECT_EQ(elementsOf(copy), (Numbers{1, 2, 3, 4}));
  ZtMatrix_swap(&view, &copy);
  EXPECT_TRUE(copy.data == buffer.data() && view.flags == kZtManaged && view.data[0] == 1);
  copy = view;  // a view that is assigned to lets go of what it viewed
  EXPECT_TRUE(buffer[0] == 0 && copy.flags == kZtManaged);
}

TEST(ZtRecords, MovesTakeTheBufferButCopyViews) {
  const Numbers numbers = {1, 2, -1, 3, 4, -1};
  ZtVector vector(6, numbers.data()), vectorView;
  vectorView.data = vector.data + 3;
  vectorView.size = 2;
  ZtMatrix whole(2, 3, 0, numbers.data()), gaps(2, 2, 3, numbers.data()), view;
  view.data = whole.data;
  view.rows = view.cols = 2;
  view.stride = 3;
  for (ZtMatrix* source : {&gaps, &view}) {
    const ZtMatrix copy(std::move(*source));
    EXPECT_TRUE(copy.stride == 2 && copy.flags == kZtManaged && source->rows == 2);
    EXPECT_EQ(elementsOf(copy), (Numbers{1, 2, 3, 4}));
  }
  const double* const buffer = whole.data;
  view = std::move(whole);
  EXPECT_TRUE(view.data == buffer && view.cols == 3 && view.flags == kZtManaged);
  EXPECT_TRUE(whole.data == nullptr && whole.rows == 0);
  ZtVector target(std::move(vectorView));
  EXPECT_TRUE(target.flags == kZtManaged && target.data[1] == 4 && vectorView.size == 2);
  const double* const reals = vector.data;
  target = std::move(vector);
  EXPECT_TRUE(target.data == reals && target.size == 6 && vector.data == nullptr);
}

TEST(ZtMatrixRecord, AssignTakesASourceInsideItsOwnBuffer) {
  Numbers numbers(12);
  std::iota(numbers.begin(), numbers.end(), 0.0);
  ZtMatrix m(3, 4, 0, numbers.data());
  ZtMatrix_assign(&m, 3, 2, 0, m.data + 1, 4);
  EXPECT_EQ(elementsOf(m), (Numbers{1, 2, 5, 6, 9, 10}));
  ZtMatrix_assign(&m, 3, 2, 0, m.data, 1);
  EXPECT_EQ(elementsOf(m), (Numbers{1, 2, 2, 5, 5, 6}));
}

TEST(ZtVectorRecord, ArithmeticAndCopies) {
  const Numbers numbers = {3, 0, 4};
  ZtVector v(3, numbers.data()), copy = v;
  EXPECT_TRUE(ZtVector_cartesianLength(&v) == 5.0 && ZtVector_dotProduct(&v, &v) == 25.0);
  ZtVector_normalize(&copy);
  EXPECT_DOUBLE_EQ(copy.data[2], 0.8);
  EXPECT_EQ(v.data[2], 4.0);
  ZtVector_assign(&copy, 2, v.data + 1);
  EXPECT_TRUE(copy.size == 2 && copy.data[1] == 4.0);
  ZtVector_setZero(&v);
  EXPECT_EQ(ZtVector_dotProduct(&v, &v), 0.0);
  const ZtVector none, empty(0);
  EXPECT_TRUE(empty.data == nullptr && ZtVector_empty(&none) && !ZtVector_empty(&v));
}

TEST(ZtQuaternionRecord, InverseAndNormalisation) {
  const ZtQuaternion q{1, -2, 2, 4};
  ZtQuaternion unit, inverse;
  ZtQuaternion_normalized(&q, &unit);
  EXPECT_DOUBLE_EQ(unit.z, 0.8);
  ZtQuaternion_inverse(&q, &inverse);
  EXPECT_DOUBLE_EQ(q.w * inverse.w - q.x * inverse.x - q.y * inverse.y - q.z * inverse.z, 1.0);
}

// Random edits of a ZtString against std::string, with appends of itself.
TEST(ZtStringRecord, BehavesLikeAStandardString) {
  std::mt19937 random(1);
  for (int round = 0; round < 50; ++round) {
    ZtString ours;
    std::string model;
    for (int step = 0; step < 40 && model.size() < 5000; ++step) {
      const std::string piece(random() % 7, static_cast<char>('a' + random() % 26));
      const ZtString other(piece.c_str());
      const auto kind = random() % 4;
      if (kind == 0) ours << piece.c_str();
      if (kind == 1) ZtString_append(&ours, &other);
      if (kind == 2) ZtString_append(&ours, &ours);
      if (kind == 3) ZtString_assignCharArray(&ours, piece.c_str());
      model = (kind == 3 ? "" : model) + (kind == 2 ? model : piece);
      ASSERT_EQ(ours.c_str(), model);
      ASSERT_EQ(ZtString_empty(&ours), model.empty());
      ASSERT_TRUE(model.empty() || ours.size == model.size() + 1);
    }
    const ZtString copy = ours;
    ours << "tail";
    EXPECT_EQ(copy.c_str(), model);
    ZtArray_destruct(&ours);
    ZtArray_destruct(&ours);  // harmless
    EXPECT_TRUE(ours.data == nullptr && ours.size == 0);
  }
}

TEST(ZtStringArrayRecord, InsertsDeepCopiesAnywhere) {
  ZtStringArray array;
  std::vector<std::string> model;
  std::mt19937 random(2);
  for (int i = 0; i < 60; ++i) {
    const std::string text = "s" + std::to_string(i);
    const ZtString item(text.c_str());
    const ZtSize at = i % 3 == 0 ? model.size() : random() % (model.size() + 1);
    if (i % 3 == 0) array.append(item);
    if (i % 3 != 0) ZtArray_insert(&array, at, 1, &item);
    model.insert(model.begin() + static_cast<long>(at), text);
  }
  array.append(array[7]);
  model.push_back(model[7]);
  ZtStringArray copy = array;
  copy = array;
  array[0] << "changed";
  ASSERT_EQ(copy.size, model.size());
  for (ZtSize i = 0; i < copy.size; ++i) EXPECT_EQ(copy[i].c_str(), model[i]);
}

// Elements whose copies are counted, and run out.
int live = 0, copiesLeft = 0;
const ZtArrayDescriptor kCounted = {sizeof(int),
                                    [](void* target, const void* source) {
                                      if (copiesLeft-- == 0) throw std::bad_alloc();
                                      *static_cast<int*>(target) = *static_cast<const int*>(source);
                                      ++live;
                                    },
                                    [](void*) { --live; }};

TEST(ZtArrayRecord, ACopyThatFailsLeavesNothingBehind) {
  const int numbers[] = {1, 2, 3, 4, 5};
  for (const bool managed : {true, false}) {
    for (int allowed = 0; allowed < 9; ++allowed) {
      ZtArray array;
      copiesLeft = managed ? 5 + allowed : allowed;
      if (managed) ZtArray_construct(&array, &kCounted, 5, numbers);
      if (!managed) array = {const_cast<int*>(numbers), 5, 5, kZtView, &kCounted};
      const int before = live;
      const bool fits = allowed >= (managed ? 3 : 8);
      bool inserted = true;
      try {
        ZtArray_insert(&array, 2, 3, numbers);
      } catch (const std::bad_alloc&) {
        inserted = false;
      }
      EXPECT_EQ(inserted, fits);
      EXPECT_EQ(live, before + (fits ? (managed ? 3 : 8) : 0));
      EXPECT_TRUE(array.size == (fits ? 8 : 5) &&
                  static_cast<int*>(array.data)[4] == (fits ? 3 : 5));
      ZtArray_destruct(&array);
      EXPECT_EQ(live, 0);
      copiesLeft = 3;
      EXPECT_THROW(ZtArray_construct(&array, &kCounted, 5, numbers), std::bad_alloc);
      EXPECT_EQ(live, 0);
    }
  }
}

TEST(ZtExceptionRecord, CarriesItsMessageAcrossACopy) {
  for (const char* text : {"text", ""}) {
    try {
      const ZtException original(256, ZtString(text));
      throw ZtException(original);
    } catch (const std::exception& e) {
      EXPECT_STREQ(e.what(), text);
    }
  }
}

}  // namespace
