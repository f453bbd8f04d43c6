#pragma once

#include <agent/change/Sources.h>
#include <agent/proof/PacketSets.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Agent {

/// Which packets are looked for.
struct PacketQuestion {
  enum class What : uint8_t { permit, deny, match };

  What what = What::permit;
  // Before a list, or on their way from one port to another: without one of them only the lists of the other
  // are met. Both of `match` only: before that list on that way.
  std::string list{};
  uint32_t rule = 0;  ///< of `match`: the rule that takes them
  std::string from{}, to{};
  std::optional<Acl::AclType> type{};  ///< the kind of list; nothing: any
  std::string where{};                 ///< a condition (agent/proof/Condition.h); empty: none
  bool all = false;                    ///< all of them as boxes, not one example
  size_t boxes = 100;                  ///< so many of each kind at most
  Proof::Limits limits{Kelp::Duration(60)};
};

/// Looks for such packets: `found`, `possible` (some packet is as the condition says), `whole` (that
/// none was found means that there is none), and for each kind of list `kinds` with `type`, `found`, and if
/// it is so an `example` or `boxes` with an example each, and `more`; `unchecked`: lists of another kind on
/// the way that let some packets pass and drop others, and what a limit left out. IP packets that such MAC
/// lists may drop are no answer to what is permitted. Nothing, and what is wrong, when the question cannot be
/// asked.
std::optional<nlohmann::ordered_json> packetSearch(const PacketQuestion& question, const Layers& layers,
                                                   std::string* wrong);

/// Such a document for people.
std::string packetSearchText(const nlohmann::ordered_json& document);

}  // namespace Agent
