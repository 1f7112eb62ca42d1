// zeph._core: the public library on plain arrays. zeph/*.py turn what people have into these
// arrays, and document it.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "python/conversion.h"
#include "python/pose_graph.h"
#include "zeph/zeph.h"
#include "zeph/zeph_c.h"

namespace zeph_python {
namespace {

namespace py = pybind11;

// A zeph::Factor that can be shared by Python's threads: work runs without the interpreter's lock.
// A thread that finds the factor in the hands of another one's refactorize, or refactorizes what
// others use, gets an exception. Waiting could last for ever: a progress callback may be the cause.
class Factor {
  template <class Work>
  static auto withoutLock(const Work& work) {
    const py::gil_scoped_release release;
    return work();
  }

  template <class Work>
  auto ask(const Work& work) const {
    return withoutLock([&] {
      const std::shared_lock<std::shared_mutex> lock(mutex_, std::try_to_lock);
      requireHeld(lock.owns_lock());
      return work(*factor_);
    });
  }

  static void requireHeld(bool held) {
    if (held) return;
    throw zeph::Error(zeph::ErrorKind::Cancelled,
                      "the factor is in use elsewhere while it is refactorized; let one finish "
                      "before the other begins");
  }

 public:
  Factor(const zeph::SparseMatrix& A, const zeph::Options& options)
      : own_(withoutLock([&] { return std::make_shared<zeph::Factor>(A, options); })),
        factor_(own_) {}

  // One that belongs to others too: it can be asked, and is not to be refactorized.
  explicit Factor(std::shared_ptr<const zeph::Factor> shared) : factor_(std::move(shared)) {}

  std::size_t rows() const { return factor_->rows(); }
  const std::shared_ptr<const zeph::Factor>& shared() const { return factor_; }

  Doubles solve(const Doubles& b) const {
    Doubles x(std::vector<py::ssize_t>(b.shape(), b.shape() + b.ndim()));
    const std::size_t count = b.ndim() == 2 ? b.shape(1) : 1;
    ask([&, from = b.data(), to = x.mutable_data()](const zeph::Factor& f) {
      f.solve(from, to, count);
    });
    return x;
  }

  Doubles variances() const {
    Doubles diagonal(rows());
    ask([&, to = diagonal.mutable_data()](const zeph::Factor& f) { f.variances(to, f.rows()); });
    return diagonal;
  }

  py::tuple selectedInverse() const {
    Longs starts(rows() + 1);
    std::int64_t* start = starts.mutable_data();
    ask([&](const zeph::Factor& f) { f.selectedInverse(start, nullptr, nullptr); });
    const std::int64_t count = start[rows()];
    Longs rows(count);
    Doubles values(count);
    ask([&, row = rows.mutable_data(), value = values.mutable_data()](const zeph::Factor& f) {
      f.selectedInverse(start, row, value);
    });
    return py::make_tuple(values, rows, starts);
  }

  Doubles covariance(const Longs& rows, const Longs& cols) const {
    Doubles values(rows.size());
    ask([&, to = values.mutable_data()](const zeph::Factor& f) {
      f.covariance(rows.data(), cols.data(), rows.size(), to);
    });
    return values;
  }

  Doubles covarianceBlock(const Longs& wanted) const {
    const std::vector<std::int64_t> indices(wanted.data(), wanted.data() + wanted.size());
    return toArray(ask([&](const zeph::Factor& f) { return f.covarianceBlock(indices); }));
  }

  Doubles sample(std::size_t count, std::uint64_t seed) const {
    return toArray(ask([&](const zeph::Factor& f) { return f.sample(count, seed); }));
  }

  std::pair<int, double> logDeterminant() const {
    return ask([](const zeph::Factor& f) {
      return std::make_pair(f.determinantSign(), f.logDeterminant());
    });
  }

  double traceOfInverseTimes(const zeph::SparseMatrix& B) const {
    return ask([&](const zeph::Factor& f) { return f.traceOfInverseTimes(B); });
  }

  double estimateCondition() const {
    return ask([](const zeph::Factor& f) { return f.estimateCondition(); });
  }

  void refactorise(const Doubles& values) {
    withoutLock([&] {
      const std::unique_lock<std::shared_mutex> lock(mutex_, std::try_to_lock);
      requireHeld(lock.owns_lock());
      own_->refactorise(values.data(), values.size());
    });
  }

  std::vector<std::string> warnings() const {
    return ask([](const zeph::Factor& f) { return f.warnings(); });
  }

  py::dict report() const {
    return toDict(ask([](const zeph::Factor& f) { return f.report(); }));
  }

 private:
  // The array takes the values over; they are not copied.
  static Doubles toArray(zeph::DenseMatrix m) {
    const auto rows = static_cast<py::ssize_t>(m.rows), cols = static_cast<py::ssize_t>(m.cols);
    auto values = std::make_unique<std::vector<double>>(std::move(m.values));
    double* data = values->data();
    const py::capsule owner(values.release(),
                            [](void* p) { delete static_cast<std::vector<double>*>(p); });
    return Doubles({rows, cols}, data, owner);
  }

  std::shared_ptr<zeph::Factor> own_;  // null where others have it too
  std::shared_ptr<const zeph::Factor> factor_;
  mutable std::shared_mutex mutex_;
};

Doubles toArray(const std::vector<double>& values) {
  return Doubles(static_cast<py::ssize_t>(values.size()), values.data());
}

py::dict leastSquares(const zeph::SparseMatrix& J, const std::vector<double>& y,
                      const std::vector<double>& sigmas, const zeph::Options& options) {
  zeph::Adjustment a;
  {
    const py::gil_scoped_release release;
    a = zeph::adjust(J, y, sigmas, options);
  }
  py::dict d;
  d["x"] = toArray(a.x);
  d["sigma"] = toArray(a.sigma);
  d["residuals"] = toArray(a.residuals);
  d["residual_sigma"] = toArray(a.residualSigma);
  d["redundancy"] = toArray(a.redundancy);
  d["leverage"] = toArray(a.leverage);
  d["normalized_residuals"] = toArray(a.normalizedResiduals);
  d["variance_factor"] = a.varianceFactor;
  d["degrees_of_freedom"] = a.degreesOfFreedom;
  d["suspect"] = a.suspect < 0 ? py::object(py::none()) : py::int_(a.suspect);
  d["factor"] = std::make_unique<Factor>(std::move(a.factor));
  return d;
}

// Arguments as leastSquares() gave them; no factor where it was left behind by pickling.
void writeReport(const std::string& path, const py::dict& d, const Factor* factor,
                 const zeph::AdjustmentReportOptions& options) {
  const auto doubles = [&d](const char* name) { return d[name].cast<std::vector<double>>(); };
  zeph::Adjustment a;
  a.x = doubles("x");
  a.sigma = doubles("sigma");
  a.residuals = doubles("residuals");
  a.residualSigma = doubles("residual_sigma");
  a.redundancy = doubles("redundancy");
  a.leverage = doubles("leverage");
  a.normalizedResiduals = doubles("normalized_residuals");
  a.varianceFactor = d["variance_factor"].cast<double>();
  a.degreesOfFreedom = d["degrees_of_freedom"].cast<std::int64_t>();
  a.suspect = d["suspect"].is_none() ? -1 : d["suspect"].cast<std::int64_t>();
  if (factor != nullptr) a.factor = factor->shared();
  const py::gil_scoped_release release;
  zeph::writeAdjustmentReport(path, a, options);
}

PYBIND11_MODULE(_core, m) {
  m.attr("__version__") = zeph_version();
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const zeph::Error& e) {
      raise(e);
    }
  });

  // Made by functions: what fails within a constructor of Python's, after that of C++, ends the
  // process.
  py::class_<zeph::SparseMatrix>(m, "Matrix");
  m.def("make_matrix", &toMatrix, py::arg(), py::arg(), py::arg(), py::arg(), py::arg().noconvert(),
        py::arg());
  py::class_<zeph::Options>(m, "Options");
  m.def("make_options", &toOptions);
  m.def(
      "make_factor",
      [](const zeph::SparseMatrix& A, const zeph::Options& options) {
        return new Factor(A, options);
      },
      py::return_value_policy::take_ownership);
  py::class_<Factor>(m, "Factor")
      .def("solve", &Factor::solve, py::arg().noconvert())
      .def("variances", &Factor::variances)
      .def("selected_inverse", &Factor::selectedInverse)
      .def("covariance", &Factor::covariance)
      .def("covariance_block", &Factor::covarianceBlock)
      .def("sample", &Factor::sample)
      .def("slogdet", &Factor::logDeterminant)
      .def("trace_inverse_times", &Factor::traceOfInverseTimes)
      .def("condition", &Factor::estimateCondition)
      .def("refactorize", &Factor::refactorise, py::arg().noconvert())
      .def("report", &Factor::report)
      .def("warnings", &Factor::warnings);

  addPoseGraph(m);
  m.def("least_squares", &leastSquares);
  m.def("write_report", [](const std::string& path, const py::dict& found, const Factor* factor,
                           const std::string& title, bool sigmasGiven, std::size_t mostRows) {
    zeph::AdjustmentReportOptions options;
    options.title = title;
    options.sigmasGiven = sigmasGiven;
    options.mostRows = mostRows;
    writeReport(path, found, factor, options);
  });
  m.def("plan", [](const zeph::SparseMatrix& A, const zeph::Options& options) {
    zeph::Report report;
    {
      const py::gil_scoped_release release;
      report = zeph::plan(A, options);
    }
    return toDict(report);
  });
  m.def("read", [](const std::string& path) {
    zeph::SparseMatrix A;
    {
      const py::gil_scoped_release release;
      A = zeph::readSparse(path);
    }
    return toTriplets(A);
  });
  m.def("write", [](const std::string& path, const zeph::SparseMatrix& A) {
    const py::gil_scoped_release release;
    zeph::writeSparse(path, A);
  });
}

}  // namespace
}  // namespace zeph_python
