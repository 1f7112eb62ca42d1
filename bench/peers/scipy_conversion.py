"""Seconds of SciPy's conversion from triplets to compressed columns, and a digest of the result.

usage: scipy_conversion.py FILE ORDER REPETITIONS     FILE: records of row, column, value
"""

import json
import sys
import time

import numpy
import scipy.sparse

path, order, repetitions = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
triplets = numpy.fromfile(path, dtype=[("row", "<u4"), ("col", "<u4"), ("value", "<f8")])
rows = triplets["row"].astype(numpy.int32)
cols = triplets["col"].astype(numpy.int32)
values = numpy.ascontiguousarray(triplets["value"])
del triplets

best = float("inf")
for _ in range(repetitions):
    start = time.perf_counter()
    matrix = scipy.sparse.coo_matrix((values, (rows, cols)), shape=(order, order)).tocsc()
    matrix.sort_indices()
    best = min(best, time.perf_counter() - start)

# The same digest as compare_assembly.cpp makes.
widths = numpy.diff(matrix.indptr)
columns = numpy.repeat(numpy.arange(order), widths)
weights = 1 + matrix.indices % 7 + 10 * (columns % 11)
digest = float(numpy.sum(matrix.data * weights))
print(json.dumps({"scipy": best, "entries": int(matrix.nnz), "digest": digest}))
