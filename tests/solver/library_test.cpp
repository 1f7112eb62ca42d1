#include "solver/library.h"

#include "solver/assembly/sparsexmlmatrix.h"
#include "tests/solver/assembly/entry_model.h"

namespace zeph_solver {
namespace {

TEST(Library, IsInitialisedByLoadingAndWorksOnAfterTermination) {
  EXPECT_EQ(gHaveDoneGlobalZephSolverInit, 1);
  EXPECT_EQ(terminated, 0);
  doZephSolverGlobalInit();
  terminate();
  EXPECT_TRUE(gHaveDoneGlobalZephSolverInit == 1 && terminated == 1);
  EXPECT_STREQ(getDllVersion().extra.c_str(), "built on 2021-07-13");
}

TEST(SparseXMLMatrix, CarriesTheListAsItStandsAndNoBlock) {
  Dice dice;
  for (int round = 0; round < 200; ++round) {
    ProtoSparse p = dice.sparse(2 + dice.upTo(3), 2 + dice.upTo(3));
    if (round % 4 == 0) p.setSize(1, 5);  // dense, with a stale list
    ProtoSparse back = dice.sparse(1 + dice.upTo(3), 3);
    const bool wasDense = back.isDense();
    SparseXMLMatrix(p).toProtoSparse(back);
    ASSERT_TRUE(back.rowCount == p.rowCount && back.colCount == p.colCount);
    ASSERT_EQ(back.isDense(), wasDense || p.isDense());
    ASSERT_EQ(entriesOf(back), entriesOf(p));
    ASSERT_TRUE(back.isDense() || back.nz() == p.nz());
  }
}

}  // namespace
}  // namespace zeph_solver
