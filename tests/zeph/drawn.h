#ifndef ZEPH_TESTS_ZEPH_DRAWN_H
#define ZEPH_TESTS_ZEPH_DRAWN_H

#include <string>
#include <vector>

/// The numbers at every place that looks like the pattern, a regular expression with # for them.
std::vector<std::vector<double>> drawn(const std::string& svg, const std::string& pattern);

/// Expects every point, text, bar and circle to lie within the picture.
void expectInside(const std::string& svg);

#endif
