#ifndef ZEPH_BENCH_PEERS_MATRICES_H
#define ZEPH_BENCH_PEERS_MATRICES_H

#include <string>

#include "solver/assembly/protosparse.h"

namespace compare {

/// A matrix to measure: both triangles, in the order in which it was assembled.
struct TestMatrix {
  std::string name;  ///< for the tables; never a folder
  zeph_solver::ProtoSparse A;
  bool symmetric;
};

/// The matrix that a text stands for:
///   grid2d:SIDE      five-point Laplacian of a square grid, fixed border
///   grid3d:SIDE      seven-point Laplacian of a cube
///   network:POINTS   normal matrix of a random levelling network
///   bundle:POINTS    normal matrix of a bundle adjustment with a camera for every 250 points
///   flow:SIDE        convection-diffusion on a square grid, unsymmetric
///   random:ROWS      random pattern of about three entries a row, diagonally dominant, unsymmetric
///   anything else    a Matrix Market file
/// Throws zeph::Error for files.
TestMatrix makeMatrix(const std::string& text);

/// What the condition of A allows the variances of two methods to differ by, relatively. The
/// condition is estimated by the trace of the inverse scaled to a unit diagonal of A.
double allowedDifference(const zeph_solver::ProtoSparse& A, const double* variances);

}  // namespace compare

#endif
