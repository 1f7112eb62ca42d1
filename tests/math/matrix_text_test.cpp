#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "math/korin.h"

namespace {

using korin::Matrix;
using korin::Vector;

constexpr ZtReal kNan = std::numeric_limits<ZtReal>::quiet_NaN();
constexpr ZtReal kInfinity = std::numeric_limits<ZtReal>::infinity();

// Runs a member that writes into a caller's buffer.
template <typename Object, typename Member>
std::string written(const Object& object, Member member) {
  std::string buffer(1 << 16, '#');
  (object.*member)(buffer.data());
  return buffer.substr(0, buffer.find('\0'));
}

std::string textOf(const Matrix& m) {
  std::string text;
  const ZtSize length = m.writeToString(text);
  EXPECT_EQ(length, text.size());
  return text;
}

std::string textOf(const Vector& v) {
  std::string text(v.writeToString(nullptr) + 1, '#');
  EXPECT_EQ(v.writeToString(text.data()), text.size() - 1);
  EXPECT_EQ(text.back(), '\0');
  text.pop_back();
  return text;
}

Matrix matrixOf(ZtSize rows, ZtSize cols, std::vector<ZtReal> values) {
  values.resize(rows * cols);
  return Matrix(rows, cols, values.data());
}

template <typename Number>
Number at(const std::string& bytes, ZtSize offset) {
  Number number;
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

TEST(TextForm, IsWrittenAsDocumentedAndReadBack) {
  Matrix parent = matrixOf(2, 3, {1, 0, 7, -2.5, 1e300, 7});
  const Matrix view(2, 2, parent, 0, 0);
  EXPECT_EQ(textOf(view), "2,2: 1 0 -2.5 1e+300 ");
  EXPECT_EQ(view.writeToString(nullptr), textOf(view).size());
  std::string appended = "before ";
  view.writeToString(appended);
  EXPECT_EQ(appended, "before 2,2: 1 0 -2.5 1e+300 ");
  EXPECT_EQ(textOf(Matrix()), "0,0: ");
  EXPECT_EQ(textOf(parent.row(1)), "3: -2.5 1e+300 7 ");
  EXPECT_EQ(textOf(Vector()), "0: ");

  const Matrix special = matrixOf(2, 3, {-0.0, kInfinity, -kInfinity, 0.1, 5e-324, -1.7e308});
  Matrix m(special);
  const std::string text = textOf(special);
  m.setScaMulMat(0.0, m);
  EXPECT_EQ(m.readFromString(text), text.size() - 1);  // the last blank is not consumed
  EXPECT_EQ(m, special);
  EXPECT_TRUE(std::signbit(m(0, 0)));
  Vector v;
  const std::string row = textOf(special.row(1));
  EXPECT_EQ(v.readFromString(row.c_str()), row.size() - 1);
  EXPECT_EQ(v, special.row(1));
}

// What a scan with "%d,%d:%n" and then "%lf%n" an element accepts, and how far it gets.
TEST(TextForm, ReadingAcceptsWhatScanfAccepts) {
  const struct {
    const char* text;
    ZtSize consumed;
    ZtSize rows, cols;
    std::vector<ZtReal> values;  // as many as are read
  } cases[] = {
      {"0,0: ", 4, 0, 0, {}},
      {"  2, \n1:5\t6 7", 11, 2, 1, {5, 6}},
      {"1,3:1-2+3", 9, 1, 3, {1, -2, 3}},
      {"1,3: .5e1.25 0x1p4", 18, 1, 3, {5, 0.25, 16}},
      {"1,2:1e400 -inf", 14, 1, 2, {kInfinity, -kInfinity}},
      {"0,7:", 4, 0, 7, {}},
      {"2,2: 1 2 3", 0, 2, 2, {1, 2, 3}},
      {"1,2:1,2", 0, 1, 2, {1}},
      {"1,2:4 infinit", 0, 1, 2, {4}},
      {"1,2:4 0x", 0, 1, 2, {4}},
      {"1,1:", 0, 1, 1, {}},
      // The header is incomplete or impossible: nothing changes.
      {"2,2", 0, 9, 1, {}},
      {"2 ,2: 1 2 3 4", 0, 9, 1, {}},
      {"2,2 : 1 2 3 4", 0, 9, 1, {}},
      {"", 0, 9, 1, {}},
      {"x", 0, 9, 1, {}},
      {"-1,1: 5", 0, 9, 1, {}},
      {"4294967297,1: 5", 0, 9, 1, {}},
  };
  for (const auto& c : cases) {
    Matrix m = matrixOf(9, 1, {});
    EXPECT_EQ(m.readFromString(c.text), c.consumed) << c.text;
    ASSERT_EQ(m.rows, c.rows) << c.text;
    ASSERT_EQ(m.cols, c.cols) << c.text;
    for (ZtSize i = 0; i < c.values.size(); ++i) EXPECT_EQ(*m.flatRow(i), c.values[i]) << c.text;
  }
  Matrix nan;
  EXPECT_EQ(nan.readFromString(std::string("1,1: nan ")), 8u);
  EXPECT_TRUE(std::isnan(nan(0, 0)));
  Vector v(2);
  EXPECT_EQ(v.readFromString("3 1 2 3"), 0u);
  EXPECT_EQ(v.size, 2u);
  EXPECT_EQ(v.readFromString(std::string("3: 1 2")), 0u);
  EXPECT_EQ(v.size, 3u);
  EXPECT_EQ(v[1], 2.0);
}

TEST(BinaryForm, HasItsLayoutAndReadsBackAtAnyAlignment) {
  Matrix parent = matrixOf(3, 4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, kNan});
  const Matrix view(2, 3, parent, 1, 1);
  std::string bytes(view.serialize(nullptr), '#');
  ASSERT_EQ(bytes.size(), 8u + 48u);
  EXPECT_EQ(view.serialize(bytes.data()), bytes.size());
  EXPECT_EQ(at<std::uint32_t>(bytes, 0), 2u);
  EXPECT_EQ(at<std::uint32_t>(bytes, 4), 3u);
  EXPECT_EQ(at<ZtReal>(bytes, 8 + 8 * 3), 10.0);
  for (ZtSize shift = 0; shift < 8; ++shift) {
    const std::string shifted = std::string(shift, ' ') + bytes;
    Matrix m;
    EXPECT_EQ(m.deserialize(shifted.data() + shift), bytes.size());
    EXPECT_EQ(m.stride, 3u);
    EXPECT_TRUE(m(0, 0) == 6 && m(1, 1) == 11 && std::isnan(m(1, 2)));
  }
  const Vector v = parent.row(0);
  std::string packed(v.serialize(nullptr), '#');
  ASSERT_EQ(packed.size(), 4u + 32u);
  v.serialize(packed.data());
  EXPECT_EQ(at<std::uint32_t>(packed, 0), 4u);
  EXPECT_EQ(at<ZtReal>(packed, 4 + 8), 2.0);
  Vector w;
  EXPECT_EQ(w.deserialize(packed.data()), packed.size());
  EXPECT_EQ(w, v);
  EXPECT_EQ(Matrix().serialize(nullptr), 8u);
  EXPECT_EQ(Matrix(0, 0).serialize(packed.data()), 8u);
  EXPECT_EQ(w.deserialize(packed.data()), 4u);
  EXPECT_EQ(w.size, 0u);
}

TEST(DisplayForm, DrawsBoxesAndPadsRowNumbers) {
  EXPECT_EQ(written(matrixOf(1, 2, {1, 2}), &Matrix::display),
            "Matrix 1,2:\n0 [        1        2 ]\n");
  EXPECT_EQ(written(matrixOf(3, 1, {1.0 / 3.0, -1e-10, 12345678.0}), &Matrix::display),
            "Matrix 3,1:\n0 \xDA 0.3333333 \xBF\n1 \xB3   -1e-10 \xB3\n2 \xC0 1.234568e+07 \xD9\n");
  EXPECT_EQ(written(Matrix(), &Matrix::display), "Matrix 0,0:\n");
  EXPECT_EQ(written(Vector(matrixOf(1, 2, {0.5, -1234567.25}).row(0)), &Vector::display),
            "Vector 2: [ 0.5 -1234567 ]\n");
  const struct {
    ZtSize rows;
    const char *first, *last;
  } cases[] = {{10, "\n0 ", "\n9 "},
               {11, "\n00 ", "\n10 "},
               {100, "\n00 ", "\n99 "},
               {101, "\n000 ", "\n100 "}};
  for (const auto& c : cases) {
    const std::string text = written(matrixOf(c.rows, 1, {}), &Matrix::display);
    EXPECT_EQ(text.find(c.first), text.find('\n'));
    EXPECT_NE(text.find(c.last), std::string::npos);
  }
}

TEST(StreamForm, UsesTheStreamsFormatting) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(1) << matrixOf(2, 2, {1, 2, 3, 4.25}) << Matrix()
      << matrixOf(1, 2, {5, 6}).row(0) << Vector();
  EXPECT_EQ(out.str(), "[2,2]{\n( 1.0 2.0 )\n( 3.0 4.2 )}[0,0]{}[2]( 5.0 6.0 )[0]( )");
}

// Walks the parts of the file one after the other, for names of every remainder.
TEST(MatFile, HasEveryPartInItsPlace) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("zeph_matrix_text_" + std::to_string(::getpid()) + ".mat");
  const std::string names = "abcdefghijklmnop";
  Matrix parent = matrixOf(3, 4, {1, 2, 3, 4, 5, 6, 7, 8});
  const Matrix view(2, 3, parent, 0, 1);
  const Vector vector = view.row(1);
  for (ZtSize length = 0; length <= names.size(); ++length) {
    const bool asVector = length % 3 == 1;
    const std::string name = names.substr(0, length);
    const char* given = length == 0 ? nullptr : name.c_str();
    asVector ? vector.saveAsMatlab(path.c_str(), given) : view.saveAsMatlab(path.c_str(), given);
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    const std::uint32_t rows = asVector ? 1 : 2;
    const auto nameSize = static_cast<std::uint32_t>(length);
    const std::uint32_t remainder = nameSize % 8;
    const std::uint32_t padding = remainder == 0 ? 0 : 8 - remainder;
    ASSERT_EQ(bytes.size(), 128 + 8 + 48 + length + padding + 8 * rows * 3);
    EXPECT_EQ(bytes.substr(0, 128), "ztMath/Korin" + std::string(104, ' ') + std::string(8, '\0') +
                                        std::string("\0\1IM", 4));
    const std::uint32_t fixed[] = {
        14, 8 * rows * 3 + nameSize + 48 + remainder, 6, 8, 6, 0, 5, 8, rows, 3, 1, nameSize};
    for (ZtSize i = 0; i < std::size(fixed); ++i) {
      EXPECT_EQ(at<std::uint32_t>(bytes, 128 + 4 * i), fixed[i]) << "word " << i;
    }
    EXPECT_EQ(bytes.substr(176, length + padding), name + std::string(padding, '\0'));
    const ZtSize data = 176 + length + padding;
    EXPECT_EQ(at<std::uint32_t>(bytes, data), 9u);
    EXPECT_EQ(at<std::uint32_t>(bytes, data + 4), 8 * rows * 3);
    for (ZtSize i = 0; i < rows * 3; ++i) {
      EXPECT_EQ(at<ZtReal>(bytes, data + 8 + 8 * i), asVector ? vector[i] : *view.flatCol(i));
    }
  }
  std::filesystem::remove(path);
  EXPECT_NO_THROW(view.saveAsMatlab("/no such folder/m.mat", "m"));
}

}  // namespace
