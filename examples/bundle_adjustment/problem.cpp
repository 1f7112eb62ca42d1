#include "problem.h"

#include <zeph/error.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>

namespace bundle {
namespace {

using std::size_t;
using zeph::Error;
using zeph::ErrorKind;

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text;
  if (file) text.assign(std::istreambuf_iterator<char>(file), {});
  if (!file || file.bad()) throw Error(ErrorKind::Input, path + ": cannot be read");
  if (text.compare(0, 3, "BZh") == 0 || text.compare(0, 2, "\x1f\x8b") == 0) {
    throw Error(ErrorKind::Input, path + ": is compressed; unpack it first (bunzip2, gunzip)");
  }
  return text;
}

/// Numbers separated by blanks and line ends, with the line of each.
class Scanner {
 public:
  Scanner(const std::string& path, char comment)
      : path_(path), text_(contentOf(path)), rest_(text_), comment_(comment) {}

  size_t bytes() const { return text_.size(); }

  bool atEnd() {
    for (; !rest_.empty(); rest_.remove_prefix(1)) {
      if (rest_.front() == comment_) rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
      if (rest_.empty()) break;
      if (rest_.front() == '\n') {
        ++line_;
      } else if (rest_.front() != ' ' && rest_.front() != '\t' && rest_.front() != '\r') {
        return false;
      }
    }
    return true;
  }

  size_t count(const std::string& what) {
    const std::string_view word = next(what);
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error == std::errc() && end == word.data() + word.size()) return value;
    throw fail("expected " + what + ", a whole number from 0, found \"" + shown(word) + "\"");
  }

  double number(const std::string& what) {
    std::string_view word = next(what);
    if (word.size() > 1 && word[0] == '+') word.remove_prefix(1);
    double value = 0.0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error == std::errc() && end == word.data() + word.size() && std::isfinite(value)) {
      return value;
    }
    throw fail("expected " + what + ", a finite number, found \"" + shown(word) + "\"");
  }

  void requireEnd(const std::string& after) {
    if (!atEnd())
      throw fail("expected the end of the file after " + after + ", found \"" + shown(next("")) +
                 "\"");
  }

  Error fail(const std::string& sentence) const {
    return {ErrorKind::Input, path_ + ", line " + std::to_string(line_) + ": " + sentence};
  }

 private:
  std::string_view next(const std::string& what) {
    if (atEnd()) throw fail("the file ends where " + what + " is expected");
    const std::string_view word = rest_.substr(0, rest_.find_first_of(" \t\r\n"));
    rest_.remove_prefix(word.size());
    return word;
  }

  static std::string shown(std::string_view word) { return std::string(word.substr(0, 40)); }

  const std::string path_, text_;
  std::string_view rest_;
  char comment_;
  size_t line_ = 1;
};

std::uint32_t existing(Scanner& in, const char* what, size_t count) {
  const size_t index = in.count(std::string("the index of a ") + what);
  if (index < count) return static_cast<std::uint32_t>(index);
  throw in.fail(std::string("there is no ") + what + " " + std::to_string(index) + " among " +
                std::to_string(count) + ", which count from 0");
}

}  // namespace

Problem readProblem(const std::string& path) {
  Scanner in(path, '\0');
  Problem p;
  p.source = path;
  const size_t cameras = in.count("the number of cameras");
  const size_t points = in.count("the number of points");
  const size_t observations = in.count("the number of observations");
  // Two characters a number at least: sizes that cannot be are not asked memory for.
  if (2 * (9 * cameras + 3 * points + 4 * observations) > in.bytes()) {
    throw in.fail("the file is too short for " + std::to_string(cameras) + " cameras, " +
                  std::to_string(points) + " points and " + std::to_string(observations) +
                  " observations");
  }
  for (size_t k = 0; k < observations; ++k) {
    Observation o{};
    o.camera = existing(in, "camera", cameras);
    o.point = existing(in, "point", points);
    o.x = in.number("an image coordinate");
    o.y = in.number("an image coordinate");
    p.observations.push_back(o);
  }
  for (size_t c = 0; c < cameras; ++c) {
    std::array<double, kCameraUnknowns> values;
    const std::string name = "a parameter of camera " + std::to_string(c);
    for (double& v : values) v = in.number(name);
    p.cameras.push_back(fromParameters(values));
  }
  for (size_t i = 0; i < points; ++i) {
    const std::string name = "a coordinate of point " + std::to_string(i);
    Vector3 at;
    for (double& v : at) v = in.number(name);
    p.points.push_back(at);
  }
  in.requireEnd("the last point");
  return p;
}

void writeProblem(const std::string& path, const Problem& p) {
  std::string text = std::to_string(p.cameras.size()) + ' ' + std::to_string(p.points.size()) +
                     ' ' + std::to_string(p.observations.size()) + '\n';
  for (const Observation& o : p.observations) {
    text += std::to_string(o.camera) + ' ' + std::to_string(o.point) + ' ';
    append(text, o.x);
    text += ' ';
    append(text, o.y);
    text += '\n';
  }
  const auto lines = [&](const auto& values) {
    for (const double v : values) {
      append(text, v);
      text += '\n';
    }
  };
  for (const Camera& c : p.cameras) lines(parametersOf(c));
  for (const Vector3& point : p.points) lines(point);
  writeWhole(path, text);
}

std::vector<Control> readControl(const std::string& path, size_t points) {
  Scanner in(path, '#');
  std::vector<Control> control;
  while (!in.atEnd()) {
    Control c{};
    c.point = existing(in, "point", points);
    for (double& v : c.at) v = in.number("a coordinate");
    c.sigma = in.number("a standard deviation");
    if (!(c.sigma > 0.0)) throw in.fail("a standard deviation has to be positive");
    control.push_back(c);
  }
  if (control.empty()) throw in.fail("there is no control point in the file");
  return control;
}

void writeControl(const std::string& path, const std::vector<Control>& control) {
  std::string text = "# point x y z sigma\n";
  for (const Control& c : control) {
    text += std::to_string(c.point);
    for (const double v : {c.at[0], c.at[1], c.at[2], c.sigma}) {
      text += ' ';
      append(text, v);
    }
    text += '\n';
  }
  writeWhole(path, text);
}

void writeWhole(const std::string& path, const std::string& text) {
  const std::string part = path + ".part";
  {
    std::ofstream file(part, std::ios::binary);
    file << text;
    file.close();
    if (file && std::rename(part.c_str(), path.c_str()) == 0) return;
  }
  std::remove(part.c_str());
  throw Error(ErrorKind::Output, path + ": cannot be written");
}

void append(std::string& text, double value) {
  char digits[32];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

}  // namespace bundle
