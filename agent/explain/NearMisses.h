#pragma once

#include <Acl/ListTrial.h>
#include <agent/core/Core.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// A condition that a packet did not meet, and what the packet has there.
struct FailedField {
  std::string_view name;
  std::string packet;
};

/// A rule that was tried and did not match.
struct NearMiss {
  uint32_t sequence = 0;
  std::string text;
  std::vector<FailedField> failed;
};

/// What stands in front of the rule that decided; of a list in which none did, all of it.
struct EarlierRules {
  size_t count = 0;
  std::vector<NearMiss> near;  ///< those with the fewest conditions that failed, in the order of trial
};

/// Holds a parsed packet against the rules in front of the one that decided, with the conditions of the
/// reference matcher. The packet has the headers that the list's kind needs.
EarlierRules earlierRules(const Core& core, const Acl::AskedList& asked, const Velo::PacketContext& ctx);

}  // namespace Agent
