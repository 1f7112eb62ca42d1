// Uses what the library exports, through its two shared libraries alone.
#include <cmath>
#include <cstdio>

#include "solver/zeph_solver.h"

namespace {

int failures = 0;

void expect(bool holds, const char* what) {
  if (holds) return;
  std::printf("FAILED: %s\n", what);
  ++failures;
}

bool near(double a, double b) {
  return std::fabs(a - b) < 1e-14;
}

}  // namespace

int main() {
  zeph_solver::ProtoSparse A(2, 2);
  A.addElement(0, 0, 4.0);
  A.addElement(0, 1, 2.0);
  A.addElement(1, 0, 2.0);
  A.addElement(1, 1, 3.0);
  const double right[] = {2.0, 1.0};
  const ZtVector b(2, right);
  ZtVector x(2), variances(2);
  zeph_solver::Solver solver(3);
  solver.solveGeneric(A, x, b, true, nullptr, true);
  expect(near(x.data[0], 0.5) && near(x.data[1], 0.0), "solve");
  for (bool cholesky : {true, false}) {
    zeph_solver::partialInverse(A, cholesky, variances);
    expect(near(variances.data[0], 0.375) && near(variances.data[1], 0.5), "variances");
  }
  zeph_solver::partialInverseLUSelected(A, variances);
  expect(near(variances.data[0], 0.375), "selected inverse");

  zeph_solver::ProtoSparse L, set, copy(A);
  unsigned int perm[2];
  zeph_solver::choleskyFactor(A, L, perm);
  expect(L.nz() == 3, "factor");
  zeph_solver::partialInverseLDLMinimalSet(A, set);
  expect(set.nz() == 3, "symbolic set");
  ZtMatrix dense;
  copy.add(A, 0, 0, true);
  copy.toDenseMatrix(dense, false);
  expect(near(dense.data[0], 8.0), "sum");
  zeph_solver::ProtoSparse row(1, 3);
  row.addElement(0, 2, 5.0);
  expect((*row.denseBlock)(0, 2) == 5.0, "dense block");
  korin::Matrix block(*row.denseBlock);
  korin::Vector times;
  ZtStringArray labels;
  solver.lastSolveTimes(times, labels);
  expect(times.size == 6 && times[5] == 0.0 && labels.size == 6, "stage times");
  const double factor[] = {2.0, 1.0, 0.0, 3.0};
  zeph_solver::partialInverseSqrt(ZtMatrix(2, 2, 2, factor), variances);
  expect(near(variances.data[1], 4.0 / 36.0), "square root");
  zeph_solver::ProtoSparse back;
  zeph_solver::SparseXMLMatrix(A).toProtoSparse(back);
  expect(back.nz() == 4, "exchange record");
  zeph_solver::Factorisation lu(&solver);
  solver.factorise(A, &lu);
  try {
    solver.solveGeneric(A, x, b, true, &lu, false);
    expect(false, "exception");
  } catch (const ZtException& e) {
    expect(e.value == 256, "exception value");
  }
  doZephSolverGlobalInit();
  zeph_solver::terminate();
  expect(zeph_solver::getDllVersion().build == 6101, "version");
  if (failures == 0) std::puts("host: all fine");
  return failures;
}
