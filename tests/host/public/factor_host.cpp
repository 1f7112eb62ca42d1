// Uses the public library from C++17, through the installed library alone.
#include <cmath>
#include <cstdio>

#include "zeph/zeph.h"

int main() {
  zeph::SparseMatrix A;
  A.rows = A.cols = 2;
  A.symmetry = zeph::Symmetry::Symmetric;
  A.entries = {{0, 0, 4.0}, {1, 0, 2.0}, {1, 1, 5.0}};
  zeph::Factor f(A);
  bool fine = std::fabs(f.variances()[1] - 0.25) < 1e-15;
  fine = fine && std::fabs(f.solve({4.0, 2.0})[0] - 1.0) < 1e-15;
  fine = fine && zeph::plan(A).entriesOfL == 3 && f.covarianceBlock({0, 1}).rows == 2;
  try {
    f.refactorise({1.0, 2.0, 1.0});
    fine = false;
  } catch (const zeph::Error& e) {  // thrown in the library, caught here
    fine = fine && e.kind() == zeph::ErrorKind::NotPositiveDefinite && e.row() == 1;
  }
  try {
    zeph::readSparse("there is no such file");
    fine = false;
  } catch (const std::exception&) {
  }
  std::puts(fine ? "factor_host: all fine" : "FAILED");
  return fine ? 0 : 1;
}
