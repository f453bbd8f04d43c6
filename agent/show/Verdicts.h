#pragma once

#include <agent/forward/Forwarder.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string_view>

namespace Agent {

// What became of a frame, in JSON: for the verdicts of a replay and for explanations.

/// A list that judged a frame, and the rule that decided.
struct Hit {
  Acl::AclDirection direction;
  Nimnet::IntfId intf;
  Acl::AclType type;
  Kelp::String list;
  uint32_t sequence;  ///< 0: the list's implicit drop
  Acl::Action action;
};

/// Members `direction`, `interface`, `type`, `list`, `rule` ("implicit" or a number) and `action`.
nlohmann::ordered_json hitWords(const Hit& hit);

/// Adds to a document `verdict` and, of a frame that was dropped, `direction` and `reason`.
void addVerdict(nlohmann::ordered_json& document, const Verdict& verdict, std::string_view reason);

/// The words of `verdict`: "pass" or "drop".
std::string_view verdictWord(bool passed);

/// The reason that is told of a frame when the step that dropped it has counted none.
std::string uncountedReason(const Velo::PipelineStep& droppedBy);

}  // namespace Agent
