#include "types/zttypes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<double> elementsOf(const ZtMatrix& m) {
  std::vector<double> all;
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) all.push_back(m.data[ZtMatrix_offset(&m, r, c)]);
  }
  return all;
}

TEST(ZtMatrixRecord, ConstructorsKeepStrideAndLeaveEmptyShapesEmpty) {
  const std::vector<double> source = {1, 2, -1, 3, 4, -1};
  const ZtMatrix strided(2, 2, 3, source.data());
  EXPECT_EQ(strided.stride, 3u);
  EXPECT_EQ(elementsOf(strided), (std::vector<double>{1, 2, 3, 4}));
  EXPECT_EQ(ZtMatrix(2, 5, 0, nullptr).stride, 5u);
  for (const ZtMatrix& empty : {ZtMatrix(0, 5, 0, nullptr), ZtMatrix(5, 0, 0, nullptr)}) {
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.rows + empty.cols + empty.stride + empty.flags, 0u);
  }
}

TEST(ZtMatrixRecord, CopiesAreDeepManagedAndCompact) {
  std::vector<double> buffer = {1, 2, 9, 3, 4, 9};
  ZtMatrix view;
  view.data = buffer.data();
  view.rows = view.cols = 2;
  view.stride = 3;
  ZtMatrix copy(view);
  EXPECT_EQ(copy.flags, kZtManaged);
  EXPECT_EQ(copy.stride, 2u);
  buffer[0] = 7;
  EXPECT_EQ(elementsOf(copy), (std::vector<double>{1, 2, 3, 4}));
  copy = copy;
  EXPECT_EQ(elementsOf(copy), (std::vector<double>{1, 2, 3, 4}));
  view = copy;  // a view that is assigned to lets go of what it viewed
  EXPECT_EQ(buffer[0], 7);
  EXPECT_EQ(view.flags, kZtManaged);
}

TEST(ZtMatrixRecord, AssignTakesASourceInsideItsOwnBuffer) {
  std::vector<double> numbers(12);
  std::iota(numbers.begin(), numbers.end(), 0.0);
  ZtMatrix m(3, 4, 0, numbers.data());
  ZtMatrix_assign(&m, 2, 2, 0, m.data + 5, 4);
  EXPECT_EQ(elementsOf(m), (std::vector<double>{5, 6, 9, 10}));
  ZtMatrix_assign(&m, 2, 2, 0, m.data + 1, 1);
  EXPECT_EQ(elementsOf(m), (std::vector<double>{6, 9, 9, 10}));
}

TEST(ZtMatrixRecord, SetZeroSparesTheGapsAndSwapMovesOwnership) {
  std::vector<double> buffer(6, 5.0);
  ZtMatrix view;
  view.data = buffer.data();
  view.rows = view.cols = 2;
  view.stride = 3;
  ZtMatrix_setZero(&view);
  EXPECT_EQ(buffer, (std::vector<double>{0, 0, 5, 0, 0, 5}));
  ZtMatrix owner(1, 1, 0, buffer.data() + 2);
  ZtMatrix_swap(&view, &owner);
  EXPECT_EQ(owner.data, buffer.data());
  EXPECT_EQ(view.flags, kZtManaged);
  EXPECT_EQ(view.data[0], 5.0);
}

TEST(ZtVectorRecord, ArithmeticAndCopies) {
  const std::vector<double> numbers = {3, 0, 4};
  ZtVector v(3, numbers.data());
  EXPECT_EQ(ZtVector_cartesianLength(&v), 5.0);
  EXPECT_EQ(ZtVector_dotProduct(&v, &v), 25.0);
  ZtVector copy = v;
  ZtVector_normalize(&copy);
  EXPECT_DOUBLE_EQ(copy.data[2], 0.8);
  EXPECT_EQ(v.data[2], 4.0);
  ZtVector_assign(&copy, 2, v.data + 1);
  EXPECT_EQ(copy.size, 2u);
  EXPECT_EQ(copy.data[1], 4.0);
  ZtVector_setZero(&v);
  EXPECT_EQ(ZtVector_dotProduct(&v, &v), 0.0);
  EXPECT_TRUE(ZtVector(0).data == nullptr);
  const ZtVector none;
  EXPECT_TRUE(ZtVector_empty(&none));
  EXPECT_FALSE(ZtVector_empty(&v));
}

TEST(ZtQuaternionRecord, InverseAndNormalisation) {
  const ZtQuaternion q{1, -2, 2, 4};
  ZtQuaternion unit, inverse;
  ZtQuaternion_normalized(&q, &unit);
  EXPECT_DOUBLE_EQ(unit.z, 0.8);
  ZtQuaternion_inverse(&q, &inverse);
  EXPECT_DOUBLE_EQ(q.w * inverse.w - q.x * inverse.x - q.y * inverse.y - q.z * inverse.z, 1.0);
}

// Random edits of a ZtString against std::string, with appends of itself and of its own characters.
TEST(ZtStringRecord, BehavesLikeAStandardString) {
  std::mt19937 random(1);
  for (int round = 0; round < 50; ++round) {
    ZtString ours;
    std::string model;
    for (int step = 0; step < 40 && model.size() < 5000; ++step) {
      const std::string piece(random() % 7, static_cast<char>('a' + random() % 26));
      switch (random() % 4) {
        case 0:
          ours << piece.c_str();
          break;
        case 1: {
          const ZtString other(piece.c_str());
          ZtString_append(&ours, &other);
          break;
        }
        case 2:
          ZtString_append(&ours, &ours);
          model += model;
          continue;
        default:
          ZtString_assignCharArray(&ours, piece.c_str());
          model.clear();
      }
      model += piece;
      ASSERT_EQ(ours.c_str(), model);
      ASSERT_EQ(ZtString_empty(&ours), model.empty());
      if (!model.empty()) {
        ASSERT_EQ(ours.size, model.size() + 1);
      }
    }
    const ZtString copy = ours;
    ours << "tail";
    EXPECT_EQ(copy.c_str(), model);
  }
}

TEST(ZtStringRecord, DestroyingTwiceIsHarmless) {
  ZtString text("abc");
  ZtArray_destruct(&text);
  ZtArray_destruct(&text);
  EXPECT_EQ(text.data, nullptr);
  EXPECT_EQ(text.size, 0u);
}

TEST(ZtStringArrayRecord, InsertsDeepCopiesAnywhere) {
  ZtStringArray array;
  std::vector<std::string> model;
  std::mt19937 random(2);
  for (int i = 0; i < 60; ++i) {
    const std::string text = "s" + std::to_string(i);
    const ZtString item(text.c_str());
    if (i % 3 == 0) {
      array.append(item);
      model.push_back(text);
    } else {
      const ZtSize at = random() % (model.size() + 1);
      ZtArray_insert(&array, at, 1, &item);
      model.insert(model.begin() + static_cast<long>(at), text);
    }
  }
  array.append(array[7]);
  model.push_back(model[7]);
  ZtStringArray copy = array;
  copy = array;
  array[0] << "changed";
  ASSERT_EQ(copy.size, model.size());
  for (ZtSize i = 0; i < copy.size; ++i) EXPECT_EQ(copy[i].c_str(), model[i]);
}

TEST(ZtExceptionRecord, CarriesItsMessageAcrossACopy) {
  try {
    throw ZtException(256, ZtString("text"));
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "text");
  }
  const ZtException silent(1, ZtString(""));
  EXPECT_STREQ(silent.what(), "");
}

}  // namespace
