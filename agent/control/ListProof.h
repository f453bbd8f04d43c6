#pragma once

#include <agent/change/Sources.h>
#include <agent/proof/PacketSets.h>
#include <agent/warnings/Warning.h>

#include <string>
#include <vector>

namespace Agent {

/// What is probably not meant about the lists in force, as all packets show it.
struct ListProof {
  Warnings warnings;  ///< each with an example, and with its place where the notices have those of all rules
  std::vector<std::string> unchecked;  ///< what was not looked at because of a limit
};
/// The limits are for all lists together; the smallest are looked at first.
ListProof proveLists(const Layers& layers, const Proof::Limits& limits);

}  // namespace Agent
