// Files as people have them: forms, spellings, and what is none of ours.

#include "tests/zeph/files/any_matrix.h"
#include "tests/zeph/files/archives.h"
#include "zeph/files/matrix_file.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

const std::string kMtx = "%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 4\n2 1 -1\n";

const char* const kRb =
    "title\n 5 1 1 3\nrsa            2             2             3             0\n"
    "(3I2)           (3I1)           (1P3E9.2)\n 1 3 4\n122\n 4.00E+00-1.00E+00 3.00D+00\n";

class FormsTest : public AnyMatrixTest {
 protected:
  static std::vector<double> dense(const SparseMatrix& m) { return toDense(m).values; }
};

TEST_F(FormsTest, archivesOfScipyAndCompressedFilesReadBack) {
  const char* formats[] = {"csr", "csc", "coo", "bsr", "dia"};
  for (int round = 0; round < 30; ++round) {
    SparseMatrix m = randomMatrix(Symmetry::General);
    for (auto& e : m.entries) e.value = std::scalbn(e.value, -std::ilogb(e.value));  // sums fit
    const std::string file = sparseArchive(m, formats[round % 5]);
    const SparseMatrix back = readSparse(write("m.npz", file));
    EXPECT_TRUE(back.rows == m.rows && back.cols == m.cols);
    EXPECT_EQ(dense(back), dense(m)) << formats[round % 5];
    EXPECT_EQ(dense(readSparse(write("z", gzipped(file)))), dense(m));
    // Whatever is wrong with an archive, it is read or refused, and never overruns.
    for (int k = 0; k < 25; ++k) {
      std::string broken = file;
      if (k % 4 == 0) {
        broken.resize(below(broken.size()));
      } else {
        broken[below(broken.size())] = static_cast<char>(random_());
      }
      try {
        readSparse(write("b.npz", broken));
      } catch (const Error& e) {
        EXPECT_TRUE(e.kind() == ErrorKind::Input || e.kind() == ErrorKind::Memory) << e.what();
      }
    }
  }
  const std::string three = npy<double>("<f8", "(3,)", {1, 2, 3});
  const std::pair<std::string, const char*> faults[] = {
      {sparseArchive("coo", 2, 2, three, {{"row.npy", ints({0, 1})}, {"col.npy", ints({0, 1, 1})}}),
       "row, col and data differ in length"},
      {sparseArchive("coo", 2, 2, three, {{"row.npy", ints({0, 1, 1})}, {"col.npy", ints({0, 1})}}),
       "row, col and data differ in length"},
      {sparseArchive("csr", 2, 2, three, {{"indptr.npy", ints({1, 2, 3})}, {"indices.npy", three}}),
       "entry 0 of indptr of f.npz is 1; it must lie between 0 and 0"},
      {sparseArchive("csr", 1, 4, three,
                     {{"indptr.npy", ints({0, 4})}, {"indices.npy", ints({0, 1, 2, 3})}}),
       "entry 1 of indptr of f.npz is 4; it must lie between 0 and 3"},
      {sparseArchive("bsr", 1, 4, npy<double>("<f8", "(3, 1, 1)", {1, 2, 3}),
                     {{"indptr.npy", ints({0, 4})}, {"indices.npy", ints({0, 1, 2, 3})}}),
       "entry 1 of indptr of f.npz is 4; it must lie between 0 and 3"},
      {sparseArchive("dia", 2, 2, three, {{"offsets.npy", ints({0})}}), "its diagonals are not"},
      {sparseArchive("coo", 2, 2, npy<char>("|S3", "(1,)", {'1', '.', '5'}),
                     {{"row.npy", ints({0})}, {"col.npy", ints({0})}}),
       "data of f.npz holds text"},
  };
  for (const auto& [file, sentence] : faults) {
    const std::string name = write("f.npz", file);
    expectError([&] { readSparse(name); }, sentence, false);
  }
  std::string mtx = kMtx;  // with a line that no buffer holds
  mtx.insert(mtx.find('\n'), "\n%" + std::string(5'000'000, ' '));
  const std::string twice = gzipped(mtx.substr(0, 50)) + gzipped(mtx.substr(50)) + "\0\0";
  EXPECT_EQ(dense(readSparse(write("m.mtx.gz", twice))), (std::vector<double>{4, -1, 0, 0}));
  const std::string array = npy<float>("<f4", "(2, 3)", {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(readDense(write("b.npy", array)).values, (std::vector<double>{1, 4, 2, 5, 3, 6}));
}

TEST_F(FormsTest, tablesInEverySpelling) {
  const ReadOptions plain, one = {.oneBased = true}, list = {.format = FileFormat::List};
  const struct {
    const char *name, *text;
    const ReadOptions& options;
    std::vector<double> values;
    bool alsoSparse;
  } cases[] = {
      {"m.csv", "0,0,1\n1,1,2\n", plain, {1, 0, 0, 2}, true},
      {"m.csv",
       "\xEF\xBB\xBFrow;col;value\r\n# all\r\n0;0;1d0\r\n\r\n1; 1 ;2.0D+0 # last\r\n",
       plain,
       {1, 0, 0, 2},
       true},
      {"m.csv", "\"i\",\"j\",\"v\"\n\"1\",'1',\"1\"\n2.0,2,2", one, {1, 0, 0, 2}, true},
      {"m.tsv", "0\t0\t1\n1\t1\t2\n", plain, {1, 0, 0, 2}, true},
      {"m.csv", "0 0 1\n1 1 2\n", list, {0, 1, 0, 1, 1, 2}, false},
      {"b.txt", "1\n-2\n\n.5d1", plain, {1, -2, 5}, false},
      {"b", "1 2\n3 4\n", plain, {1, 3, 2, 4}, false},
      {"b.csv", "index,value\n1,7\n0,8\n", plain, {8, 7}, false},
      {"b.csv", "1;7\n2;8\n", one, {7, 8}, false},
      {"b.csv", "x\n7\n8\n", plain, {7, 8}, false},
      {"m.rb", kRb, plain, {4, -1, -1, 3}, true},
      {"unnamed", kRb, plain, {4, -1, -1, 3}, true},
  };
  for (const auto& c : cases) {
    const std::string file = write(c.name, c.text);
    EXPECT_EQ(readDense(file, c.options).values, c.values) << c.text;
    if (!c.alsoSparse) continue;
    EXPECT_EQ(dense(readSparse(file, c.options)), c.values) << c.text;
  }
  std::string told;
  const ReadOptions curious = {.note = [&](const std::string& sentence) { told += sentence; }};
  readSparse(write("m.csv", "1,1,4\n2,2,4\n"), curious);
  EXPECT_NE(told.find("--one-based"), told.npos);
}

TEST_F(FormsTest, whatIsNoMatrixIsNamed) {
  const std::string bomb = gzipped(
      "%%MatrixMarket matrix coordinate real general\n9999999 9999999 "
      "99999999\n" +
      [] {
        std::string lines;
        for (int k = 0; k < 200000; ++k) lines += "1 1 1\n";
        return lines;
      }());
  using namespace std::string_literals;
  const struct {
    std::string name, text, sentence;
  } cases[] = {
      {"m.mtx", "\xFF\xFE%\0%\0M\0"s, "m.mtx is text in UTF-16; save it as UTF-8"},
      {"m.csv", "0\0,\0"s + "0\0,\0"s + "1\0\n\0"s, "m.csv is text in UTF-16"},
      {"m.mat", "MATLAB 5.0 MAT-file, Platform", "m.mat is a MATLAB MAT-file"},
      {"m.mtx", "\n <!DOCTYPE HTML PUBLIC", "m.mtx is a web page"},
      {"m.xlsx", "PK\x03\x04 [Content_Types].xml", "m.xlsx is damaged or no .npz archive"},
      {"m.mtx", "\x01\x02 noise", "m.mtx holds binary data"},
      {"m.npy", npy<double>("<f8", "(1,)", {1.0}), "m.npy is a NumPy array"},
      {"m.npz", "1 2 3\n", "m.npz is text, not the archive"},
      {"m.npz", archive({{"a.npy", "x"}, {"b.npy", "y"}}), "m.npz is a zip archive"},
      {"m.gz", gzipped(kMtx).substr(0, 40), "m.gz is cut short"},
      {"m.gz", gzipped(gzipped(kMtx)), "m.gz is compressed twice"},
      {"m.bz2", "BZh91AY", "m.bz2 is compressed with bzip2"},
      {"m.csv", "row,col,value\n0,0,1,5\n",
       "m.csv, line 2: expected \"row,column,value\", found "
       "\"0,0,1,5\"; if commas stand"},
      {"m.csv", "0;0;1,5\n",
       "m.csv, line 1: the value \"1,5\" has a decimal comma; write decimal "
       "points, as in 1.5"},
      {"m.csv", "value,row,col\n1,0,0\n", "m.csv, line 1: the columns are headed"},
      {"m.csv", "0,0,1\n\n1,2\n", "m.csv, line 3: expected \"row,column,value\", found \"1,2\""},
      {"m.csv", "0,0,\n", "m.csv, line 1: the value is missing"},
      {"m.csv", "0,0,a\n", "m.csv, line 1: the value \"a\" is not a number"},
      {"m.csv", "0,0,nan\n", "m.csv, line 1: the value nan is not finite"},
      {"m.csv", "0,0,1e999\n", "m.csv, line 1: the value \"1e999\" is not finite"},
      {"m.csv", "-1,0,1\n",
       "m.csv, line 1: expected \"row,column,value\", found \"-1\" as the row"},
      {"m.csv", "1.5,0,1\n",
       "m.csv, line 1: expected \"row,column,value\", found \"1.5\" as the row"},
      {"m.csv", "0,\"0,1\n", "m.csv, line 1: a quote has no end"},
      {"m.rb", "t\n 3 1 1 1\nrua 2 2 3 0\n(3I2)           (3I1)           (3E9.2)\n 1 3 5\n",
       "m.rb, line 5: expected a whole number from 3 to 4, found \"5\""},
  };
  for (const auto& c : cases) {
    const std::string file = write(c.name, c.text);
    expectError([&] { readSparse(file); }, "3 " + c.sentence);
  }
  const std::string file = write("bomb.gz", bomb);
  EXPECT_LT(bomb.size(), 10000u);
  expectError([&] { readSparse(file, {.memoryLimit = 1e6}); },
              "8 reading bomb.gz would take 1.05 MB of memory, more than the limit of 1 MB");
  const std::string wide = write("wide.csv", "0,200000,1\n");
  expectError([&] { readDense(wide, {.memoryLimit = 1e6}); },
              "8 a dense matrix of 1 x 200001 from wide.csv would take 1.6 MB of memory");
  expectError([&] { readDense(write("b.csv", "0,1\n2,1\n")); },
              "3 the indices of b.csv are not 0 to 1, each of them once, as 2 shows");
  expectError([&] { readDense(write("b.txt", "1 2\n3\n")); }, "3 b.txt, line 2: found 1 numbers");
  expectError([] { requireMatrixEnding("A.xyz"); }, "2");
}

}  // namespace
}  // namespace zeph
