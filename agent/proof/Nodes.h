#pragma once

#include <bdd.h>

namespace Proof {

// The nodes at which decision diagrams end; each other node of a set leads to both.
inline constexpr int emptySet = 0, fullSet = 1;

inline unsigned variableOf(int node) { return static_cast<unsigned>(bdd_var(node)); }

}  // namespace Proof
