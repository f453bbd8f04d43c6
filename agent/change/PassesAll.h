#pragma once

#include <agent/config/Model.h>

namespace Agent {

/// Whether every packet that is asked passes a list, found without a look at all packets: before any rule
/// that denies, a rule permits everything, or rules that ask for a source only, or for a destination only,
/// permit all prefixes of it together. Only true when that is sure; `velo check` finds the other such
/// lists.
bool surelyPassesAll(const Config::List& list);

}  // namespace Agent
