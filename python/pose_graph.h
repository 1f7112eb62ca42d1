#ifndef ZEPH_PYTHON_POSE_GRAPH_H
#define ZEPH_PYTHON_POSE_GRAPH_H

#include <pybind11/pybind11.h>

namespace zeph_python {

/// Puts the class PoseGraph, an optimised graph on plain arrays, into zeph._core. Needs Options
/// there.
void addPoseGraph(pybind11::module_& m);

}  // namespace zeph_python

#endif
