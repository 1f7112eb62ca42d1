// A bundle adjustment problem, and its usual text form.
#ifndef ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_PROBLEM_H
#define ZEPH_EXAMPLES_BUNDLE_ADJUSTMENT_PROBLEM_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "camera.h"

namespace bundle {

struct Observation {
  std::uint32_t camera;
  std::uint32_t point;
  double x, y;  ///< pixels from the principal point
};

/// A point whose coordinates are known from elsewhere.
struct Control {
  std::uint32_t point;
  Vector3 at;
  double sigma;  ///< standard deviation of each coordinate
};

struct Problem {
  std::string source = "the problem";  ///< file name, for messages
  std::vector<Camera> cameras;
  std::vector<Vector3> points;
  std::vector<Observation> observations;
};

/// Reads numbers separated by blanks and line ends:
///
///     cameras points observations
///     camera point x y                  one line an observation, indices from 0
///     nine numbers a camera: rotation vector, translation, focal length, k1, k2
///     three numbers a point
///
/// Throws zeph::Error(Input) with the file and the line for anything else.
Problem readProblem(const std::string& path);

/// Writes the same form; the numbers read back to the last bit but for the turn of a camera.
void writeProblem(const std::string& path, const Problem& problem);

/// Lines `point x y z sigma`; a `#` starts a comment. `points` is how many there are to name.
std::vector<Control> readControl(const std::string& path, std::size_t points);
void writeControl(const std::string& path, const std::vector<Control>& control);

/// Writes `text` whole or leaves what was there: zeph::Error(Output) where that fails.
void writeWhole(const std::string& path, const std::string& text);

/// Appends the shortest text that reads back as the same number.
void append(std::string& text, double value);

}  // namespace bundle

#endif
