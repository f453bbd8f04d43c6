#pragma once

#include <Acl/ListTrial.h>
#include <agent/core/Core.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// A condition that a packet did not meet, and the value that the packet has there.
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

/// The rules before the one that decided; when no rule did, all rules of the list.
struct EarlierRules {
  size_t count = 0;
  std::vector<NearMiss> near;  ///< those with the fewest failed conditions, in the order of trial
};

/// Tests a parsed packet on the rules before the one that decided, by the conditions of the reference
/// matcher. The packet must have the headers that the list's type needs.
EarlierRules earlierRules(const Core& core, const Acl::AskedList& asked, const Velo::PacketContext& ctx);

}  // namespace Agent
