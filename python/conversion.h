#ifndef ZEPH_PYTHON_CONVERSION_H
#define ZEPH_PYTHON_CONVERSION_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>

#include "zeph/zeph.h"

namespace zeph_python {

/// Contiguous arrays, taken as they are: the Python side has seen to types and layout, and what
/// does not fit is a TypeError.
using Doubles = pybind11::array_t<double, pybind11::array::f_style>;
using Longs = pybind11::array_t<std::int64_t, pybind11::array::c_style>;

/// A sparse matrix in compressed columns, or rows if byRows. starts and indices are both 32 or both
/// 64 bits wide. Throws zeph::Error for arrays that are too short and for indices out of range.
zeph::SparseMatrix toMatrix(std::size_t rows, std::size_t cols, const pybind11::array& starts,
                            const pybind11::array& indices, const Doubles& values, bool byRows);

/// (rows, cols, row indices, column indices, values) with both triangles of symmetric forms.
pybind11::tuple toTriplets(const zeph::SparseMatrix& m);

/// The fields of a report by their Python names.
pybind11::dict toDict(const zeph::Report& report);

/// Options whose progress looks for signals, Ctrl-C above all, and then asks `progress` (None or a
/// callable of stage and share; False stops).
zeph::Options toOptions(const std::string& method, const std::string& ordering,
                        const Longs& permutation, int threads, const pybind11::object& progress,
                        double memoryLimit, const std::string& scratchFolder);

/// Sets the Python exception for e.
void raise(const zeph::Error& e);

}  // namespace zeph_python

#endif
