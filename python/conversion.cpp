#include "python/conversion.h"

#include <map>
#include <memory>
#include <utility>

namespace zeph_python {
namespace py = pybind11;
namespace {

template <class I>
zeph::SparseMatrix fromColumns(std::size_t rows, std::size_t cols, const py::array& starts,
                               const py::array& indices, const Doubles& values) {
  using Array = py::array_t<I, py::array::c_style>;
  if (!Array::check_(starts) || !Array::check_(indices)) {
    throw py::type_error("index arrays must be contiguous and of one type, int32 or int64");
  }
  const auto* first = static_cast<const I*>(starts.data());
  const bool whole = static_cast<std::size_t>(starts.size()) == cols + 1 &&
                     indices.size() == values.size() && first[cols] <= indices.size();
  if (!whole) throw py::value_error("the arrays of the sparse matrix do not fit its shape");
  const auto* index = static_cast<const I*>(indices.data());
  const double* value = values.data();
  const py::gil_scoped_release release;
  return zeph::SparseMatrix::fromCompressedColumns(rows, cols, first, index, value);
}

const char* nameOf(zeph::Route route) {
  return route == zeph::Route::Cholesky ? "cholesky" : "lu";
}

const std::map<std::string, zeph::Ordering> kOrderings = {
    {"auto", zeph::Ordering::Automatic},
    {"amd", zeph::Ordering::MinimumDegree},
    {"nested_dissection", zeph::Ordering::NestedDissection},
    {"natural", zeph::Ordering::Natural},
    {"given", zeph::Ordering::Given},
};

std::string nameOf(zeph::Ordering ordering) {
  for (const auto& [name, value] : kOrderings) {
    if (value == ordering) return name;
  }
  return {};
}

// Sentences of the library name options of the command where there is something to choose.
std::string inPython(std::string sentence) {
  static const std::pair<const char*, const char*> kTranslations[] = {
      {"; give --symmetric if one triangle stands for both, or --general if the other one is zero",
       "; fill the other triangle too (A + A.T - diag(A)), or take "
       "scipy.sparse.linalg.spsolve_triangular for a triangular system"},
      {"use LU (--lu)", "use method=\"lu\""},
  };
  for (const auto& [theirs, ours] : kTranslations) {
    const std::size_t at = sentence.find(theirs);
    if (at != std::string::npos) sentence.replace(at, std::string(theirs).size(), ours);
  }
  return sentence;
}

void raiseOwn(const char* name, const zeph::Error& e) {
  const py::object type = py::module_::import("zeph._errors").attr(name);
  const py::object error = type(inPython(e.what()));
  if (e.row() >= 0) error.attr("row") = e.row();
  PyErr_SetObject(type.ptr(), error.ptr());
}

}  // namespace

zeph::SparseMatrix toMatrix(std::size_t rows, std::size_t cols, const py::array& starts,
                            const py::array& indices, const Doubles& values, bool byRows) {
  const std::size_t outer = byRows ? rows : cols, inner = byRows ? cols : rows;
  zeph::SparseMatrix m = starts.itemsize() == sizeof(std::int32_t)
                             ? fromColumns<std::int32_t>(inner, outer, starts, indices, values)
                             : fromColumns<std::int64_t>(inner, outer, starts, indices, values);
  if (byRows) {
    std::swap(m.rows, m.cols);
    for (zeph::Entry& e : m.entries) std::swap(e.row, e.col);
  }
  return m;
}

py::tuple toTriplets(const zeph::SparseMatrix& m) {
  const bool mirrored = m.symmetry != zeph::Symmetry::General;
  std::size_t count = m.entries.size();
  for (const zeph::Entry& e : m.entries) count += mirrored && e.row != e.col;
  py::array_t<std::int32_t> rows(count), cols(count);
  Doubles values(count);
  const double sign = m.symmetry == zeph::Symmetry::SkewSymmetric ? -1.0 : 1.0;
  std::size_t k = 0;
  const auto put = [&, row = rows.mutable_data(), col = cols.mutable_data(),
                    value = values.mutable_data()](std::uint32_t r, std::uint32_t c, double v) {
    row[k] = static_cast<std::int32_t>(r);
    col[k] = static_cast<std::int32_t>(c);
    value[k++] = v;
  };
  for (const zeph::Entry& e : m.entries) {
    put(e.row, e.col, e.value);
    if (mirrored && e.row != e.col) put(e.col, e.row, sign * e.value);
  }
  return py::make_tuple(m.rows, m.cols, rows, cols, values);
}

py::dict toDict(const zeph::Report& r) {
  py::dict d;
  d["method"] = nameOf(r.route);
  d["reason"] = inPython(r.reason);
  d["ordering"] = nameOf(r.ordering);
  d["unknowns"] = r.unknowns;
  d["groups"] = r.groups;
  d["entries_of_a"] = r.entriesOfA;
  d["entries_of_l"] = r.entriesOfL;
  d["operations"] = r.operations;
  d["bytes"] = r.bytes;
  d["scratch_bytes"] = r.scratchBytes;
  d["seconds_ordering"] = r.secondsOrdering;
  d["seconds_analysis"] = r.secondsAnalysis;
  d["seconds_factorisation"] = r.secondsFactorisation;
  d["seconds_inverse"] = r.secondsInverse;
  d["threads"] = r.threads;
  d["condition_estimate"] = r.conditionEstimate;
  d["identity_residual"] = r.identityResidual;
  d["relative_error_estimate"] = r.relativeErrorEstimate;
  d["backward_error"] = r.backwardError;
  d["uncertain_variances"] = r.uncertainVariances;
  d["first_uncertain"] = r.firstUncertain;
  d["last_error_estimate"] = r.lastErrorEstimate;
  d["worst_unknown"] = r.worstUnknown;
  return d;
}

zeph::Options toOptions(const std::string& method, const std::string& ordering,
                        const Longs& permutation, int threads, const py::object& progress,
                        double memoryLimit, const std::string& scratchFolder) {
  zeph::Options options;
  options.route = method == "cholesky" ? zeph::Route::Cholesky
                  : method == "lu"     ? zeph::Route::Lu
                                       : zeph::Route::Automatic;
  options.ordering = kOrderings.at(ordering);
  options.permutation.assign(permutation.data(), permutation.data() + permutation.size());
  options.threads = threads;
  options.memoryLimit = memoryLimit;
  options.scratchFolder = scratchFolder;
  // Shared: options are copied and dropped without the interpreter's lock, under which alone Python
  // counts its references. The caller's copy lives longest, and ends under the lock.
  const auto callback = std::make_shared<const py::object>(progress);
  options.progress = [callback](const char* stage, double share) {
    const py::gil_scoped_acquire acquire;
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    return callback->is_none() || !(*callback)(stage, share).is(py::bool_(false));
  };
  return options;
}

void raise(const zeph::Error& e) {
  switch (e.kind()) {
    case zeph::ErrorKind::Usage:
    case zeph::ErrorKind::Unfit:
      return PyErr_SetString(PyExc_ValueError, inPython(e.what()).c_str());
    case zeph::ErrorKind::Memory:
      return PyErr_SetString(PyExc_MemoryError, inPython(e.what()).c_str());
    case zeph::ErrorKind::NotPositiveDefinite:
      return raiseOwn("NotPositiveDefiniteError", e);
    case zeph::ErrorKind::Singular:
      return raiseOwn("SingularMatrixError", e);
    case zeph::ErrorKind::Input:
    case zeph::ErrorKind::Output:
    case zeph::ErrorKind::Cancelled:
      return raiseOwn("Error", e);
  }
}

}  // namespace zeph_python
