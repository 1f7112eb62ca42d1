// The text and binary forms of dense matrices: any text is read or refused within its bounds, and
// what was written reads as what it was.
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "math/korin.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  korin::Matrix m(1 + in.below(6), 1 + in.below(6));
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) m(r, c) = in.byte() % 4 == 0 ? in.bits() : in.value(40);
  }
  std::vector<char> binary(m.serialize(nullptr));
  PROMISE(m.serialize(binary.data()) == binary.size());
  korin::Matrix read;
  PROMISE(read.deserialize(binary.data()) == binary.size());
  PROMISE(read.rows == m.rows && read.cols == m.cols);
  for (ZtSize r = 0; r < m.rows; ++r) {
    for (ZtSize c = 0; c < m.cols; ++c) PROMISE(same(read(r, c), m(r, c)));
  }
  std::string text;
  PROMISE(m.writeToString(text) == text.size());
  if (m.isValid()) {
    PROMISE(read.readFromString(text) > 0);
    for (ZtSize r = 0; r < m.rows; ++r) {
      for (ZtSize c = 0; c < m.cols; ++c) {
        // Sixteen digits: the neighbouring number at most, and beyond the largest none at all.
        if (std::fabs(m(r, c)) > 1.797693134862315e308) continue;
        PROMISE(std::fabs(read(r, c) - m(r, c)) <=
                2e-15 * std::fabs(m(r, c)) + std::numeric_limits<double>::denorm_min());
      }
    }
  }
  const std::string any(reinterpret_cast<const char*>(data), size);
  double rows = 0, cols = 0;
  if (std::sscanf(any.c_str(), "%lf,%lf", &rows, &cols) == 2 && rows * cols > 1e6) return 0;
  korin::Matrix hostile;
  PROMISE(hostile.readFromString(any) <= any.size());
  return 0;
}
