#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>

#include "tests/math/dense/dense_testing.h"

namespace dense_testing {
namespace {

constexpr ZtReal kInfinity = std::numeric_limits<ZtReal>::infinity();

template <typename Object>
std::string textOf(const Object& object) {
  std::string text(object.writeToString(nullptr) + 1, '#');
  EXPECT_EQ(object.writeToString(text.data()), text.size() - 1);
  return text.c_str();
}

// The bytes as numbers, at whatever alignment they had.
template <typename Number>
std::vector<Number> numbersOf(const std::string& bytes) {
  std::vector<Number> numbers(bytes.size() / sizeof(Number));
  std::memcpy(numbers.data(), bytes.data(), bytes.size());
  return numbers;
}

using Words = std::vector<std::uint32_t>;
using Reals = std::vector<ZtReal>;
constexpr auto wordsOf = numbersOf<std::uint32_t>;
constexpr auto realsOf = numbersOf<ZtReal>;

TEST(TextForm, IsWrittenAsDocumentedAndReadBack) {
  Matrix parent = matrixOf(2, 3, {1, 0, 7, -2.5, 1e300, 7});
  const Matrix view(2, 2, parent, 0, 0);
  EXPECT_EQ(textOf(view), "2,2: 1 0 -2.5 1e+300 ");
  std::string appended = "before ";
  EXPECT_EQ(view.writeToString(appended), 21u);
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
    ZtSize consumed, rows, cols;
    std::vector<ZtReal> values;  // those read
  } cases[] = {
      {"0,7: ", 4, 0, 7, {}},
      {"  2, \n1:5\t6 7", 11, 2, 1, {5, 6}},
      {"1,3:1-2+3", 9, 1, 3, {1, -2, 3}},
      {"1,3: .5e1.25 0x1p4", 18, 1, 3, {5, 0.25, 16}},
      {"1,2:1e400 -inf", 14, 1, 2, {kInfinity, -kInfinity}},
      {"2,2: 1 2 3", 0, 2, 2, {1, 2, 3}},
      {"1,2:1,2", 0, 1, 2, {1}},
      {"1,2:4 infinit", 0, 1, 2, {4}},
      {"1,2:4 0x", 0, 1, 2, {4}},
      // The header is incomplete or impossible: nothing changes.
      {"2,2", 0, 9, 1, {}},
      {"2 ,2: 1 2 3 4", 0, 9, 1, {}},
      {"", 0, 9, 1, {}},
      {"-1,1: 5", 0, 9, 1, {}},
      {"4294967297,1: 5", 0, 9, 1, {}},
  };
  for (const auto& c : cases) {
    Matrix m = matrixOf(9, 1, {});
    EXPECT_EQ(m.readFromString(c.text), c.consumed) << c.text;
    ASSERT_TRUE(m.rows == c.rows && m.cols == c.cols) << c.text;
    for (ZtSize i = 0; i < c.values.size(); ++i) EXPECT_EQ(*m.flatRow(i), c.values[i]) << c.text;
  }
  Vector v(2);
  EXPECT_TRUE(v.readFromString("3 1 2 3") == 0 && v.size == 2);
  EXPECT_TRUE(v.readFromString(std::string("3: 1 nan")) == 0 && v.size == 3 && std::isnan(v[1]));
}

TEST(TextForm, DoesNotFollowTheLocale) {
  const std::string folder = testing::TempDir() + "zeph_locale_" + std::to_string(::getpid());
  const std::string make =
      "mkdir " + folder + " && localedef -i de_DE -f UTF-8 " + folder + "/comma";
  const bool made = std::system((make + " > /dev/null 2>&1").c_str()) == 0;
  setenv("LOCPATH", folder.c_str(), 1);
  const bool set = made && std::setlocale(LC_ALL, "comma") != nullptr;
  char display[100], comma[8];
  std::snprintf(comma, sizeof comma, "%.1f", 0.5);
  const Matrix m = matrixOf(1, 2, {-2.5, 0.5});
  const std::string text = textOf(m), row = textOf(m.row(0));
  Matrix read;
  const ZtSize consumed = read.readFromString("1,2: 2.5 0.5");
  m.display(display);
  std::setlocale(LC_ALL, "C");
  unsetenv("LOCPATH");
  std::filesystem::remove_all(folder);
  if (!set) GTEST_SKIP() << "no sources of locales are installed";
  EXPECT_STREQ(comma, "0,5");
  EXPECT_EQ(text + row, "1,2: -2.5 0.5 2: -2.5 0.5 ");
  EXPECT_STREQ(display, "Matrix 1,2:\n0 [     -2.5      0.5 ]\n");
  EXPECT_TRUE(consumed == 12 && read == matrixOf(1, 2, {2.5, 0.5}));
}

TEST(BinaryForm, HasItsLayoutAndReadsBackAtAnyAlignment) {
  Matrix parent = matrixOf(2, 3, {1, 2, 3, 4, 5, 6});
  const Matrix view(2, 2, parent, 0, 1);
  const Vector vector = parent.row(1);
  std::string bytes(view.serialize(nullptr), '#'), packed(vector.serialize(nullptr), '#');
  EXPECT_EQ(view.serialize(bytes.data()), 8u + 32u);
  EXPECT_EQ(vector.serialize(packed.data()), 4u + 24u);
  EXPECT_EQ(wordsOf(bytes.substr(0, 8)), (Words{2, 2}));
  EXPECT_EQ(wordsOf(packed.substr(0, 4)), (Words{3}));
  EXPECT_EQ(realsOf(bytes.substr(8)), (Reals{2, 3, 5, 6}));
  EXPECT_EQ(realsOf(packed.substr(4)), (Reals{4, 5, 6}));
  for (ZtSize shift = 0; shift < 8; ++shift) {
    Matrix m;
    Vector v;
    EXPECT_EQ(m.deserialize((std::string(shift, ' ') + bytes).data() + shift), 40u);
    EXPECT_EQ(v.deserialize((std::string(shift, ' ') + packed).data() + shift), 28u);
    EXPECT_TRUE(m == view && v == vector);
  }
  EXPECT_EQ(Matrix().serialize(bytes.data()), 8u);
  EXPECT_EQ(wordsOf(bytes.substr(0, 8)), (Words{0, 0}));
  Matrix m(view);  // counts that no memory holds
  EXPECT_TRUE(m.deserialize(std::string(8, '\xFF').data()) == 0 && m == view);
}

TEST(DisplayForm, DrawsBoxesAndPadsRowNumbers) {
  char out[8192];
  matrixOf(1, 2, {1, 2}).display(out);
  EXPECT_STREQ(out, "Matrix 1,2:\n0 [        1        2 ]\n");
  matrixOf(3, 1, {1.0 / 3.0, -1e-10, 12345678.0}).display(out);
  EXPECT_STREQ(out,
               "Matrix 3,1:\n0 \xDA 0.3333333 \xBF\n1 \xB3   -1e-10 \xB3\n"
               "2 \xC0 1.234568e+07 \xD9\n");
  Matrix().display(out);
  EXPECT_STREQ(out, "Matrix 0,0:\n");
  matrixOf(1, 2, {0.5, -1234567.25}).row(0).display(out);
  EXPECT_STREQ(out, "Vector 2: [ 0.5 -1234567 ]\n");
  const std::tuple<ZtSize, const char*, const char*> cases[] = {{10, "\n0 ", "\n9 "},
                                                                {11, "\n00 ", "\n10 "},
                                                                {100, "\n00 ", "\n99 "},
                                                                {101, "\n000 ", "\n100 "}};
  for (const auto& [rows, first, last] : cases) {
    matrixOf(rows, 1, {}).display(out);
    EXPECT_TRUE(std::strstr(out, first) == std::strchr(out, '\n') && std::strstr(out, last))
        << rows;
  }
}

TEST(StreamForm, UsesTheStreamsFormatting) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(1) << matrixOf(2, 2, {1, 2, 3, 4.25}) << ZtMatrix()
      << matrixOf(1, 2, {5, 6}).row(0) << ZtVector();
  EXPECT_EQ(out.str(), "[2,2]{\n( 1.0 2.0 )\n( 3.0 4.2 )}[0,0]{}[2]( 5.0 6.0 )[0]( )");
}

// Names of every remainder; the file is compared with its parts put together.
TEST(MatFile, HasEveryPartInItsPlace) {
  const std::string path = testing::TempDir() + "zeph_dense_" + std::to_string(::getpid()) + ".mat";
  const Matrix m = matrixOf(2, 3, {1, 2, 3, 4, 5, 6});
  const std::string header =
      "ztMath/Korin" + std::string(104, ' ') + std::string(8, '\0') + std::string("\0\1IM", 4);
  for (unsigned length = 0; length <= 16; ++length) {
    const bool asVector = length % 3 == 1;
    const std::string name(length, 'x');
    const char* given = length == 0 ? nullptr : name.c_str();
    asVector ? m.row(1).saveAsMatlab(path.c_str(), given) : m.saveAsMatlab(path.c_str(), given);
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    const unsigned rows = asVector ? 1 : 2, dataSize = 24 * rows, data = (176 + length + 7) / 8 * 8;
    ASSERT_EQ(bytes.size(), data + 8 + dataSize);
    EXPECT_EQ(bytes.substr(0, 128), header);
    EXPECT_EQ(wordsOf(bytes.substr(128, 48)), (Words{14, dataSize + length + 48 + length % 8, 6, 8,
                                                     6, 0, 5, 8, rows, 3, 1, length}));
    EXPECT_EQ(bytes.substr(176, data - 176), name + std::string(data - 176 - length, '\0'));
    EXPECT_EQ(wordsOf(bytes.substr(data, 8)), (Words{9, dataSize}));
    EXPECT_EQ(realsOf(bytes.substr(data + 8)),
              asVector ? (Reals{4, 5, 6}) : (Reals{1, 4, 2, 5, 3, 6}));
  }
  Matrix flat;
  flat.changeSize(0, 3);
  flat.saveAsMatlab(path.c_str(), "flat");
  EXPECT_EQ(std::ifstream(path, std::ios::ate).tellg(), 192);
  std::remove(path.c_str());
  EXPECT_NO_THROW(m.saveAsMatlab("/no such folder/m.mat", "m"));
}

}  // namespace
}  // namespace dense_testing
