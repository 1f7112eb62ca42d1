// Files as CHOLMOD reads them and as the sparse library writes them.
#include <cholmod.h>

#include "tests/math/dense/dense_testing.h"
#include "tests/zeph/files/any_matrix.h"
#include "zeph/files/matrix_file.h"
#include "zeph/files/matrix_market.h"
#include "zeph/general/protosparse.h"
#include "zeph/matrix/record.h"
#include "zeph/matrix/to_dense.h"

namespace zeph {
namespace {

using korin::Matrix;

class FormatsTest : public AnyMatrixTest {
 protected:
  static Matrix record(const DenseMatrix& m) { return Matrix(toRecord(m)); }

  // Both readers take the file as CHOLMOD's does.
  static void expectAgreement(const std::string& path, bool array) {
    cholmod_common common;
    cholmod_start(&common);
    common.print = 0;
    FILE* file = std::fopen(path.c_str(), "r");
    cholmod_sparse* sparse = array ? nullptr : cholmod_read_sparse(file, &common);
    cholmod_dense* dense =
        array ? cholmod_read_dense(file, &common) : cholmod_sparse_to_dense(sparse, &common);
    std::fclose(file);
    ASSERT_NE(dense, nullptr) << read(path);
    const Matrix byColumns(dense->ncol, dense->nrow, static_cast<double*>(dense->x));
    const Matrix expected = dense_testing::transposed(byColumns);
    EXPECT_EQ(record(readMatrixMarketDense(path)), expected) << read(path);
    EXPECT_EQ(record(toDense(readMatrixMarket(path))), expected) << read(path);
    cholmod_free_dense(&dense, &common);
    cholmod_free_sparse(&sparse, &common);
    cholmod_finish(&common);
  }
};

const std::string kSymmetric = "%%MatrixMarket matrix coordinate real symmetric\n";
const std::string kSkew = "%%MatrixMarket matrix coordinate real skew-symmetric\n";

TEST_F(FormatsTest, agreesWithCholmodsReader) {
  expectAgreement(write("u.mtx", kSymmetric + "2 2 2\n1 1 3\n1 2 5\n"), false);
  const std::string skew = write("s.mtx", kSkew + "2 2 1\n1 2 5\n");
  writeSparse(path("w.mtx"), readMatrixMarket(skew));
  EXPECT_NE(read(path("w.mtx")).find("\n2 1 -5\n"), std::string::npos);
  for (int round = 0; round < 60; ++round) {
    const auto symmetry = static_cast<Symmetry>(round % 3);
    SparseMatrix m = randomMatrix(symmetry);
    for (auto& e : m.entries) e.value = std::scalbn(e.value, -std::ilogb(e.value));  // sums fit
    writeSparse(path("m.mtx"), m);
    std::string text = read(path("m.mtx"));
    if (round % 2 == 0) text.insert(text.find('\n') + 1, "% a comment\n\n");
    expectAgreement(write("m.mtx", text), false);
  }
  for (const char* symmetry : {"general", "symmetric", "skew-symmetric"}) {
    const std::string columns = std::string("1\n2\n3\n") + (symmetry[1] == 'k' ? "" : "4\n5\n6\n") +
                                (symmetry[0] == 'g' ? "7\n8\n9\n" : "");
    const std::string head = std::string("%%MatrixMarket matrix array real ") + symmetry;
    expectAgreement(write("a.mtx", head + "\n3 3\n" + columns), true);
  }
}

TEST_F(FormatsTest, csvIsWhatTheLibraryWrites) {
  for (int round = 0; round < 40; ++round) {
    SparseMatrix m;
    m.rows = 1 + below(6);
    m.cols = 1 + below(6);
    for (unsigned k = below(20); k > 0; --k) {
      const double value =
          std::ldexp(static_cast<double>(random_()), static_cast<int>(below(200)) - 100);
      m.entries.push_back({below(m.rows), below(m.cols), value});
    }
    assemble(m, Triangles::Both).writeToCsv(path("library.csv").c_str());
    writeSparse(path("ours.csv"), m);
    const std::string text = read(path("library.csv"));
    ASSERT_EQ(read(path("ours.csv")), text);
    if (text.empty() || m.rows == 1 || m.cols == 1) continue;
    const SparseMatrix back = readSparse(path("ours.csv"));
    writeSparse(path("again.csv"), back);
    if (back.rows == 1 || back.cols == 1) continue;
    EXPECT_EQ(read(path("again.csv")), text);
  }
}

}  // namespace
}  // namespace zeph
