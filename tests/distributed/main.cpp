// Runs the tests on all processes at once. The first one reports; of the others only failures show.
#include <gtest/gtest.h>
#include <mpi.h>

#include <cstdio>

namespace {

class FailuresOfRank : public testing::EmptyTestEventListener {
 public:
  explicit FailuresOfRank(int rank) : rank_(rank) {}
  void OnTestPartResult(const testing::TestPartResult& part) override {
    if (!part.failed()) return;
    std::printf("rank %d, %s:%d: %s\n", rank_, part.file_name(), part.line_number(),
                part.message());
  }

 private:
  int rank_;
};

}  // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  testing::InitGoogleTest(&argc, argv);
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  if (rank > 0) {
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new FailuresOfRank(rank));
  }
  int failed = RUN_ALL_TESTS();
  MPI_Allreduce(MPI_IN_PLACE, &failed, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
  MPI_Finalize();
  return failed;
}
