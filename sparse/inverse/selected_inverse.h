// Entries of A^-1 on the pattern of its Cholesky factor, group by group.
#ifndef ZEPH_SPARSE_INVERSE_SELECTED_INVERSE_H
#define ZEPH_SPARSE_INVERSE_SELECTED_INVERSE_H

#include <functional>
#include <vector>

#include "kernels/team.h"
#include "sparse/numeric/factor_panels.h"
#include "sparse/numeric/meter.h"
#include "sparse/symbolic/symbolic.h"

namespace korin::sparse {

/// Gets the panel of Z = L^-T L^-1 of one group when it is complete: laid out like the factor's,
/// its top square full. Called on any thread of the team, for different groups at once.
using PanelReader = std::function<void(Index group, const double* z)>;

/// Computes Z on the pattern of L and hands it out panel by panel, keeping only what is still
/// needed: the panels on the paths from the groups at work to their roots. The factor stays as it
/// is.
///
/// @param wanted  for each group whether its panel is wanted, or null for all; a group needs those
/// on
///                its path to the root, which are computed and handed out as well
/// @param read    gets each panel; may throw
/// @param meter   gets the work done, as from `inverseWork`; may be null
///
/// Where columns are kept, their panel holds their square of Z itself, both triangles, instead of a
/// factor: the rest follows from it.
///
/// The bits of a panel depend on nothing but the factor. Throws std::bad_alloc and what `read` and
/// the team's poll throw. Cost: about twice the operations of the factorisation; memory
/// `inverseMemory`.
void selectedInverse(const Symbolic& symbolic, const FactorPanels& panels,
                     const std::vector<bool>* wanted, const PanelReader& read, kernels::Team& team,
                     Meter* meter);

/// The same with all panels left in z, symbolic.storage() doubles.
void selectedInverse(const Symbolic& symbolic, const FactorPanels& panels, double* z,
                     kernels::Team& team, Meter* meter);

/// diagonal[i] = A^-1(i, i) for all i. Returns the largest |sum over k of a(i, k) A^-1(k, i) - 1|:
/// the sums need only entries that lie on the pattern, and miss 1 by about the relative error of
/// the variances. NaN when one is. `norm`, where given and none is, becomes the root of the sum of
/// their squares.
double variances(const Symbolic& symbolic, const PlacedEntries& entries, const FactorPanels& panels,
                 double* diagonal, kernels::Team& team, Meter* meter, double* norm = nullptr);

/// The same with the sums themselves, sums[i] = sum over k of a(i, k) A^-1(k, i): where columns are
/// kept, those of their rows lack the terms of entries that are not in this matrix.
void variances(const Symbolic& symbolic, const PlacedEntries& entries, const FactorPanels& panels,
               double* diagonal, double* sums, kernels::Team& team, Meter* meter);

/// What the meter shows when all panels, or those wanted, are done.
double inverseWork(const Symbolic& symbolic, const std::vector<bool>* wanted);

/// Bytes of memory that `selectedInverse` needs at most when it returns no panel; those of
/// `keptFrom` doubles and more wait in the file of the factor's.
double inverseMemory(const Symbolic& symbolic, int threads, std::size_t keptFrom = kKeepNothing);

/// What `variances` needs beside it for its sums.
double identityMemory(const Symbolic& symbolic, const PlacedEntries& entries);

}  // namespace korin::sparse

#endif
