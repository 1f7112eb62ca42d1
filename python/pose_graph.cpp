#include "python/pose_graph.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "python/conversion.h"
#include "zeph/pose_graph.h"

namespace zeph_python {
namespace {

namespace py = pybind11;
using std::size_t;
using Table = py::array_t<double, py::array::c_style>;  // row after row
using Flags = py::array_t<bool, py::array::c_style>;

py::ssize_t coordinates(size_t freedom) {
  return freedom == 3 ? 3 : 7;
}

/// An optimised graph that Python's threads share. One that was pickled has no factor until it is
/// asked for a covariance.
class PoseGraph {
 public:
  PoseGraph(const std::string& path, const zeph::Options& solver, int maxIterations,
            double tolerance)
      : solver_(solver) {
    zeph::PoseGraphOptions options;
    options.maxIterations = maxIterations;
    options.tolerance = tolerance;
    // Stages are told with their iteration; shared, as the factor keeps the options.
    const auto running = std::make_shared<std::string>();
    options.iterated = [this, running](int iteration, double cost, double) {
      costs_.push_back(cost);
      *running = "iteration " + std::to_string(iteration + 1) + ", ";
    };
    options.solver = solver;
    options.solver.progress = [told = solver.progress, running](const char* stage, double share) {
      return told((*running + stage).c_str(), share);
    };
    const py::gil_scoped_release release;
    result_ = zeph::optimise(zeph::readPoseGraph(path, solver.progress), options);
    running->clear();
    if (costs_.empty()) costs_.push_back(result_.cost);  // no pose was free
  }

  /// From what state() gave.
  PoseGraph(const py::tuple& state, const zeph::Options& solver) : solver_(solver) {
    zeph::PoseGraph& g = result_.graph;
    g.source = py::cast<std::string>(state[0]);
    const auto ids = py::cast<Longs>(state[1]), edges = py::cast<Longs>(state[2]);
    const auto fixed = py::cast<Flags>(state[3]);
    const auto poses = py::cast<Table>(state[4]), measured = py::cast<Table>(state[5]),
               information = py::cast<Table>(state[6]);
    costs_ = py::cast<std::vector<double>>(state[7]);
    result_.converged = py::cast<bool>(state[8]);
    g.freedom = static_cast<size_t>(information.shape(1));
    const auto width = coordinates(g.freedom), n = ids.size(), m = edges.size() / 2;
    const auto block = static_cast<py::ssize_t>(g.freedom * g.freedom);
    const bool whole = (g.freedom == 3 || g.freedom == 6) && fixed.size() == n && n > 0 &&
                       poses.size() == n * width && measured.size() == m * width &&
                       information.size() == m * block && !costs_.empty();
    if (!whole) throw py::value_error("the arrays of the pickled pose graph do not fit together");
    g.ids.assign(ids.data(), ids.data() + n);
    g.fixed.assign(fixed.data(), fixed.data() + n);
    g.poses.resize(static_cast<size_t>(n));
    for (py::ssize_t i = 0; i < n; ++i) {
      std::copy_n(poses.data() + i * width, width, g.poses[static_cast<size_t>(i)].begin());
    }
    g.edges.resize(static_cast<size_t>(m));
    for (py::ssize_t k = 0; k < m; ++k) {
      zeph::PoseEdge& e = g.edges[static_cast<size_t>(k)];
      e.from = static_cast<size_t>(edges.at(k, 0));
      e.to = static_cast<size_t>(edges.at(k, 1));
      std::copy_n(measured.data() + k * width, width, e.measurement.begin());
      std::copy_n(information.data() + k * block, block, e.information.begin());
    }
  }

  py::tuple state() const {
    return py::make_tuple(result_.graph.source, ids(), edges(), fixed(), poses(), measurements(),
                          information(), costs_, result_.converged);
  }

  Longs ids() const {
    return Longs(static_cast<py::ssize_t>(result_.graph.ids.size()), result_.graph.ids.data());
  }

  Flags fixed() const {
    Flags flags(static_cast<py::ssize_t>(result_.graph.fixed.size()));
    std::copy(result_.graph.fixed.begin(), result_.graph.fixed.end(), flags.mutable_data());
    return flags;
  }

  Longs edges() const {
    Longs ends(std::vector<py::ssize_t>{edgeCount(), 2});
    std::int64_t* to = ends.mutable_data();
    for (const zeph::PoseEdge& e : result_.graph.edges) {
      *to++ = static_cast<std::int64_t>(e.from);
      *to++ = static_cast<std::int64_t>(e.to);
    }
    return ends;
  }

  Table poses() const {
    const py::ssize_t width = coordinates(result_.graph.freedom);
    Table table({static_cast<py::ssize_t>(result_.graph.poses.size()), width});
    double* to = table.mutable_data();
    for (const zeph::Pose& p : result_.graph.poses) to = std::copy_n(p.begin(), width, to);
    return table;
  }

  Table measurements() const {
    const py::ssize_t width = coordinates(result_.graph.freedom);
    Table table({edgeCount(), width});
    double* to = table.mutable_data();
    for (const auto& e : result_.graph.edges) to = std::copy_n(e.measurement.begin(), width, to);
    return table;
  }

  Table information() const {
    const auto d = static_cast<py::ssize_t>(result_.graph.freedom);
    Table table({edgeCount(), d, d});
    double* to = table.mutable_data();
    for (const auto& e : result_.graph.edges) to = std::copy_n(e.information.begin(), d * d, to);
    return table;
  }

  Doubles covariance(size_t i, size_t j) {
    const auto d = static_cast<py::ssize_t>(result_.graph.freedom);
    Doubles block(std::vector<py::ssize_t>{d, d});
    ask([&, to = block.mutable_data()] {
      const zeph::DenseMatrix found = result_.covariance(i, j);
      std::copy(found.values.begin(), found.values.end(), to);
    });
    return block;
  }

  Table covariances() {
    const auto n = static_cast<py::ssize_t>(result_.graph.poses.size());
    const auto d = static_cast<py::ssize_t>(result_.graph.freedom);
    Table blocks({n, d, d});
    ask([&, to = blocks.mutable_data()]() mutable {  // symmetric: rows and columns are alike
      for (const auto& b : result_.covariances()) {
        to = std::copy(b.values.begin(), b.values.end(), to);
      }
    });
    return blocks;
  }

  std::vector<std::string> warnings() const { return result_.warnings(); }
  const std::vector<double>& costs() const { return costs_; }
  bool converged() const { return result_.converged; }

 private:
  py::ssize_t edgeCount() const { return static_cast<py::ssize_t>(result_.graph.edges.size()); }

  template <class Work>
  void ask(Work work) {
    const py::gil_scoped_release release;
    requireFactor();
    work();
  }

  /// A pickled graph gets the factor where its poses stand.
  void requireFactor() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto& fixed = result_.graph.fixed;
    if (result_.factor || std::find(fixed.begin(), fixed.end(), false) == fixed.end()) return;
    zeph::PoseGraphOptions standing;
    standing.maxIterations = 0;
    standing.solver = solver_;
    result_.factor = zeph::optimise(result_.graph, standing).factor;
  }

  zeph::PoseGraphResult result_;
  zeph::Options solver_;
  std::vector<double> costs_;  // at the beginning and after each iteration
  std::mutex mutex_;
};

}  // namespace

void addPoseGraph(py::module_& m) {
  m.def(
      "make_pose_graph",
      [](const std::string& path, const zeph::Options& solver, int maxIterations,
         double tolerance) { return new PoseGraph(path, solver, maxIterations, tolerance); },
      py::return_value_policy::take_ownership);
  m.def(
      "restore_pose_graph",
      [](const py::tuple& state, const zeph::Options& solver) {
        return new PoseGraph(state, solver);
      },
      py::return_value_policy::take_ownership);
  py::class_<PoseGraph>(m, "PoseGraph")
      .def("state", &PoseGraph::state)
      .def("ids", &PoseGraph::ids)
      .def("fixed", &PoseGraph::fixed)
      .def("edges", &PoseGraph::edges)
      .def("poses", &PoseGraph::poses)
      .def("covariance", &PoseGraph::covariance)
      .def("covariances", &PoseGraph::covariances)
      .def("warnings", &PoseGraph::warnings)
      .def("costs", &PoseGraph::costs)
      .def("converged", &PoseGraph::converged);
}

}  // namespace zeph_python
