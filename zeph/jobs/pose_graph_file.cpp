#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zeph/checks/guarded.h"
#include "zeph/error.h"
#include "zeph/factor/watch.h"
#include "zeph/files/line_reader.h"
#include "zeph/files/number_text.h"
#include "zeph/jobs/pose_motion.h"
#include "zeph/pose_graph.h"

namespace zeph {
namespace {

using std::size_t;

// Information that is positive semidefinite but for rounding, relative to its trace.
constexpr double kRoundedInformation = 1e-12;
constexpr double kShortestQuaternion = 1e-6;
constexpr size_t kLinesPerPoll = 256;

/// A pose's place while ids are still being collected.
struct Vertex {
  Pose pose{};
  bool given = false;
  bool fixed = false;
};

struct EdgeRecord {
  std::int64_t from, to;
  PoseEdge edge;
};

/// Reads the records of one file.
class Reader {
 public:
  Reader(const std::string& path, const Options& options) : in_(path), watch_(options) {
    in_.requireText();
  }

  void read() {
    watch_.begin("reading", static_cast<double>(in_.fileBytes()));
    const std::function<void()> poll = watch_.poll();
    std::string_view line;
    while (in_.next(line)) {
      watch_.meter()->add(static_cast<double>(line.size() + 1));
      if (poll && in_.lineNumber() % kLinesPerPoll == 0) poll();
      const size_t first = line.find_first_not_of(" \t\r");
      if (first == line.npos || line[first] == '#') continue;
      line.remove_prefix(first);
      const size_t end = std::min(line.find_first_of(" \t\r"), line.size());
      NumberScanner scan(line.substr(end, line.find_last_not_of(" \t\r") + 1 - end));
      record(std::string(line.substr(0, end)), scan);
      if (!scan.atEnd()) throw in_.error("unexpected \"" + std::string(scan.word()) + "\"");
    }
    for (const auto& [own, at] : fixes_) {
      const auto v = vertices.find(own);
      if (v == vertices.end()) {
        throw errorAtLine(in_.path(), at, "pose " + std::to_string(own) + " does not occur");
      }
      v->second.fixed = true;
    }
    if (vertices.empty()) {
      throw Error(ErrorKind::Input, in_.path() +
                                        " holds no poses; it should have lines such as "
                                        "VERTEX_SE2 and EDGE_SE2");
    }
  }

  std::map<std::int64_t, Vertex> vertices;
  std::vector<EdgeRecord> edges;
  size_t freedom = 0;

 private:
  void record(const std::string& tag, NumberScanner& scan) {
    if (tag == "FIX") {
      do fixes_.emplace_back(id(scan), in_.lineNumber());
      while (!scan.atEnd());
    } else if (tag == "VERTEX_SE2" || tag == "VERTEX_SE3:QUAT") {
      setFreedom(tag == "VERTEX_SE2" ? 3 : 6);
      vertex(scan);
    } else if (tag == "EDGE_SE2" || tag == "EDGE_SE3:QUAT") {
      setFreedom(tag == "EDGE_SE2" ? 3 : 6);
      edge(scan);
    } else {
      throw in_.error("\"" + tag.substr(0, 40) +
                      "\" is no record of a pose graph; known are VERTEX_SE2, EDGE_SE2, "
                      "VERTEX_SE3:QUAT, EDGE_SE3:QUAT and FIX");
    }
  }

  void setFreedom(size_t f) {
    if (freedom != 0 && freedom != f) {
      throw in_.error("poses in the plane (SE2) and in space (SE3) are mixed in one file");
    }
    freedom = f;
  }

  void vertex(NumberScanner& scan) {
    const std::int64_t own = id(scan);
    Vertex& v = vertices[own];
    if (v.given) throw in_.error("pose " + std::to_string(own) + " is given a second time");
    v.given = true;
    v.pose = pose(scan);
  }

  void edge(NumberScanner& scan) {
    EdgeRecord e{id(scan), id(scan), {}};
    if (e.from == e.to) {
      throw in_.error("the edge leads from pose " + std::to_string(e.from) + " to itself");
    }
    e.edge.measurement = pose(scan);
    auto& information = e.edge.information;
    for (size_t r = 0; r < freedom; ++r) {
      for (size_t c = r; c < freedom; ++c) {
        information[r + c * freedom] = information[c + r * freedom] =
            number(scan, "the information matrix");
      }
    }
    if (!semidefinite(information)) {
      throw in_.error("the information matrix of edge " + std::to_string(e.from) + " -> " +
                      std::to_string(e.to) +
                      " is indefinite; it must be the inverse of a covariance matrix");
    }
    vertices[e.from];
    vertices[e.to];
    edges.push_back(e);
  }

  std::int64_t id(NumberScanner& scan) {
    std::uint64_t value = 0;
    const std::string word(scan.atEnd() ? "" : scan.word());
    const auto result = scan.index(value);
    if (result == NumberScanner::Result::Ok && value <= INT64_MAX) {
      return static_cast<std::int64_t>(value);
    }
    throw in_.error("expected the id of a pose (a whole number from 0), found \"" + word + "\"");
  }

  double number(NumberScanner& scan, const char* what) {
    double value = 0.0;
    if (scan.atEnd()) throw in_.error(std::string("the line ends within ") + what);
    const std::string word(scan.word());
    if (scan.real(value) == NumberScanner::Result::Ok && std::isfinite(value)) return value;
    throw in_.error("\"" + word + "\" in " + what + " is not a finite number");
  }

  Pose pose(NumberScanner& scan) {
    Pose p{};
    const size_t count = freedom == 3 ? 3 : 7;
    for (size_t k = 0; k < count; ++k) p[k] = number(scan, "the pose");
    if (freedom == 3) return p;
    const double length = std::sqrt(p[3] * p[3] + p[4] * p[4] + p[5] * p[5] + p[6] * p[6]);
    if (!(length > kShortestQuaternion) || !std::isfinite(length)) {
      throw in_.error("the quaternion has length " + toText(length) + " instead of 1");
    }
    for (size_t k = 3; k < 7; ++k) p[k] /= length;
    return p;
  }

  // Whether a + ε trace(a) I has a Cholesky factor.
  bool semidefinite(std::array<double, 36> a) const {
    double trace = 0.0;
    const size_t n = freedom;
    for (size_t k = 0; k < n; ++k) {
      if (!(a[k + k * n] >= 0.0)) return false;
      trace += a[k + k * n];
    }
    if (trace == 0.0) return std::all_of(a.begin(), a.end(), [](double v) { return v == 0.0; });
    for (size_t k = 0; k < n; ++k) a[k + k * n] += kRoundedInformation * trace;
    for (size_t k = 0; k < n; ++k) {
      if (!(a[k + k * n] > 0.0)) return false;
      for (size_t j = k + 1; j < n; ++j) {
        const double f = a[j + k * n] / a[k + k * n];
        for (size_t i = j; i < n; ++i) a[i + j * n] -= f * a[i + k * n];
      }
    }
    return true;
  }

  LineReader in_;
  Watch watch_;
  std::vector<std::pair<std::int64_t, size_t>> fixes_;  // ids with their lines
};

/// Places the poses that were not given, from those that were.
void placeMissing(PoseGraph& g, std::vector<bool> known) {
  std::vector<std::vector<size_t>> edgesOf(g.poses.size());
  for (size_t k = 0; k < g.edges.size(); ++k) {
    edgesOf[g.edges[k].from].push_back(k);
    edgesOf[g.edges[k].to].push_back(k);
  }
  const auto follow = [&](size_t start, const PoseEdge& e) {
    const bool forwards = e.from == start;
    const size_t end = forwards ? e.to : e.from;
    if (known[end]) return false;
    g.poses[end] = composed(g.freedom, g.poses[start],
                            forwards ? e.measurement : inverted(g.freedom, e.measurement));
    known[end] = true;
    return true;
  };
  if (std::find(known.begin(), known.end(), true) == known.end()) known[0] = true;
  for (size_t i = 0; i + 1 < g.poses.size(); ++i) {
    for (const size_t k : edgesOf[i]) {
      const PoseEdge& e = g.edges[k];
      if (known[i] && std::max(e.from, e.to) == i + 1) follow(i, e);
    }
  }
  std::deque<size_t> reached;
  for (size_t i = 0; i < known.size(); ++i) {
    if (known[i]) reached.push_back(i);
  }
  for (; !reached.empty(); reached.pop_front()) {
    for (const size_t k : edgesOf[reached.front()]) {
      const PoseEdge& e = g.edges[k];
      if (follow(reached.front(), e)) reached.push_back(e.from == reached.front() ? e.to : e.from);
    }
  }
}

}  // namespace

PoseGraph readPoseGraph(const std::string& path, const ProgressCall& progress) {
  return guarded(path, [&] {
    Options options;
    options.progress = progress;
    Reader reader(path, options);
    reader.read();
    PoseGraph g;
    g.source = path;
    g.freedom = reader.freedom == 0 ? 3 : reader.freedom;
    std::vector<bool> known;
    for (const auto& [id, v] : reader.vertices) {
      g.ids.push_back(id);
      g.poses.push_back(v.given ? v.pose : identityPose(g.freedom));
      g.fixed.push_back(v.fixed);
      known.push_back(v.given);
    }
    if (std::find(g.fixed.begin(), g.fixed.end(), true) == g.fixed.end()) g.fixed[0] = true;
    const auto place = [&](std::int64_t id) {
      return static_cast<size_t>(std::lower_bound(g.ids.begin(), g.ids.end(), id) - g.ids.begin());
    };
    for (EdgeRecord& e : reader.edges) {
      e.edge.from = place(e.from);
      e.edge.to = place(e.to);
      g.edges.push_back(e.edge);
    }
    placeMissing(g, std::move(known));
    return g;
  });
}

}  // namespace zeph
