// Matrices that are hard to invert, with the diagonals of their inverses known exactly, and what
// zeph makes of them.
#ifndef ZEPH_TESTS_ZEPH_FACTOR_HARD_MATRICES_H
#define ZEPH_TESTS_ZEPH_FACTOR_HARD_MATRICES_H

#include <string>
#include <vector>

#include "zeph/options.h"
#include "zeph/sparse_matrix.h"

enum class Expected {
  Answer,   ///< well determined: to refuse it is a fault
  Either,   ///< badly determined: an answer within its estimate, or none
  Refusal,  ///< singular, or its inverse overflows
};

struct HardMatrix {
  std::string name;
  zeph::SparseMatrix A;
  Expected expected = Expected::Answer;
  bool scalable = true;  ///< rows and columns times powers of ten stay in range
  long cancelling = 0;   ///< diagonal entries of the inverse that may be told as uncertain
};

std::vector<HardMatrix> hardMatrices();

/// D A D for powers of ten D up to 10^±decades, other ones for every seed.
zeph::SparseMatrix inOtherUnits(const zeph::SparseMatrix& A, int decades, unsigned seed);

/// What became of a matrix.
struct HardOutcome {
  std::string refusal;  ///< the sentence, or empty
  zeph::Route route = zeph::Route::Automatic;
  double estimate = 0.0;
  double error = 0.0;  ///< the largest relative one, but for the entries told as uncertain
  long uncertain = 0;
  std::string fault;  ///< what was promised and not kept, or empty
};

/// A is m's matrix, or that in other units.
HardOutcome judge(const HardMatrix& m, const zeph::SparseMatrix& A,
                  const zeph::Options& options = {});

#endif
