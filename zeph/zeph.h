// Everything of the public library: factors of sparse matrices, and what their inverses hold.
#ifndef ZEPH_ZEPH_H
#define ZEPH_ZEPH_H

#include "zeph/adjust.h"
#include "zeph/adjustment_report.h"
#include "zeph/dense_matrix.h"
#include "zeph/error.h"
#include "zeph/factor.h"
#include "zeph/matrix_file.h"
#include "zeph/options.h"
#include "zeph/pose_graph.h"
#include "zeph/report.h"
#include "zeph/sparse_matrix.h"

#endif
