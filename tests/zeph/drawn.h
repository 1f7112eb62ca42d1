#ifndef ZEPH_TESTS_ZEPH_DRAWN_H
#define ZEPH_TESTS_ZEPH_DRAWN_H

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

/// The numbers at every place that looks like the pattern, a regular expression with # for them.
inline std::vector<std::vector<double>> drawn(const std::string& svg, const std::string& pattern) {
  std::vector<std::vector<double>> all;
  const std::regex like(std::regex_replace(pattern, std::regex("#"), "(-?[0-9.]+)"));
  for (std::sregex_iterator at(svg.begin(), svg.end(), like), end; at != end; ++at) {
    all.emplace_back();
    for (std::size_t g = 1; g < at->size(); ++g) all.back().push_back(std::stod((*at)[g]));
  }
  return all;
}

/// Expects every point, text, bar and circle to lie within the picture.
inline void expectInside(const std::string& svg) {
  const auto box = drawn(svg, "viewBox=\"0 0 # #");
  ASSERT_EQ(box.size(), 1u);
  const auto points = drawn(svg, "(?:[ML]| c?x=\")#(?: |\" c?y=\")#");
  EXPECT_GT(points.size(), 9u);
  for (const auto& p : points) {
    EXPECT_TRUE(p[0] >= 0 && p[0] <= box[0][0] && p[1] >= 0 && p[1] <= box[0][1])
        << p[0] << ", " << p[1];
  }
}

#endif
