#ifndef ZEPH_SPARSE_INVERSE_SUPERNODAL_INVERSE_H
#define ZEPH_SPARSE_INVERSE_SUPERNODAL_INVERSE_H

#include "sparse/pattern/supernodes.h"

namespace korin::sparse {

/// Entries of (L L^T)^-1 on the pattern of L's panels, written over L.
///
/// With a group's panel [L11; L21] and the inverse Z22 on its rows below, taken from the panels
/// right of it: Y = L21 L11^-1, Z21 = -Z22 Y, Z11 = L11^-T L11^-1 - Y^T Z21 (Takahashi, Fagan and
/// Chin, 1973; on dense panels as in Lin, Yang, Meza, Lu, Ying and E, 2011), last group first.
/// Afterwards each panel's top square is Z11 in full, both triangles.
///
/// The pattern must be an elimination pattern (`isEliminationPattern`); not checked. Zero pivots
/// give infinities and NaN. Throws std::bad_alloc, leaving panels half done.
/// Cost: twice the operations of the factorisation, almost all of them in dense products. Memory
/// beyond the panels: about one panel of the largest group, with a strip of Z22.
void supernodalInverse(const SupernodalFactor& factor);

}  // namespace korin::sparse

#endif
