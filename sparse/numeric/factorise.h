#ifndef ZEPH_SPARSE_NUMERIC_FACTORISE_H
#define ZEPH_SPARSE_NUMERIC_FACTORISE_H

#include <functional>

#include "kernels/team.h"
#include "sparse/numeric/factor_panels.h"
#include "sparse/numeric/meter.h"
#include "sparse/symbolic/schedule.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// Cholesky factor of a symmetric positive definite matrix on the panels of its structure, front by
/// front (the multifrontal method: Duff and Reid, 1983; Liu, 1992).
///
/// @param symbolic  the structure, with its parent places
/// @param entries   the matrix, placed for that structure
/// @param panels    symbolic.storage() doubles, written; what was there does not count
/// @param team      the threads to use; the bits of the result do not depend on them
/// @param meter     gets the work done, altogether the sum of frontWork; may be null
///
/// Of kept columns the lower triangle of the panel becomes the Schur complement of the others in
/// `entries`: those of the kept ones less what eliminating the others takes.
///
/// Returns -1, or the row of the matrix, in its own numbers, whose pivot is the first one that is
/// not a positive finite number; the panels are then undefined. Throws std::bad_alloc and what the
/// team's poll throws. Cost: symbolic.operations multiplications and additions; memory beyond the
/// panels: `frontMemory`, or up to `frontMemoryInAnyOrder` where threads work on subtrees of their
/// own.
Index factorise(const Symbolic& symbolic, const PlacedEntries& entries, double* panels,
                kernels::Team& team, Meter* meter, Thrift thrift = {});

/// Takes the complete panel of a group. Called on any thread of the team, for different groups at
/// once.
using PanelStore = std::function<void(Index group, const double* panel)>;

/// The same for panels that do not stay in memory: `store` puts each where it is then found in
/// `stored`, laid out like the panels above. Leaves are read again, up to the panel of their
/// parent. Throws what `store` and `stored` throw as well.
Index factorise(const Symbolic& symbolic, const PlacedEntries& entries, const PanelStore& store,
                const FactorPanels& stored, kernels::Team& team, Meter* meter);

/// Where a computation keeps what it needs beside the panels.
struct Keeping {
  /// Panels are stored elsewhere: those at work need room.
  bool stored = false;
  /// Update matrices of so many doubles and more wait in the file of the panels.
  std::size_t from = kKeepNothing;
};

/// Bytes of memory that `factorise` needs at most beyond the panels when threads work off subtrees
/// in the order of the tree: the fronts' update matrices that wait for their parents, and what is
/// at work.
double frontMemory(const Symbolic& symbolic, int threads, Keeping keeping = {});

/// The same in whatever order subtrees are worked off: with panels in memory those go first that
/// most waits for.
double frontMemoryInAnyOrder(const Symbolic& symbolic, int threads);

}  // namespace korin::sparse

#endif
