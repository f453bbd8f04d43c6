#pragma once

#include <agent/change/Sources.h>
#include <agent/proof/PacketSets.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>

namespace Agent {

/// How much may be spent on a comparison of configurations, and in how many boxes each change is told.
struct CompareLimits {
  Proof::Limits proof{Kelp::Duration(60)};
  size_t boxes = 20;
};

/// Says for which packets two configurations decide otherwise: `same` (no verdict differs), `sameTraffic`
/// (none differs where a list is bound), `lists` that both have, `bindings` that differ, `notes` on what
/// changes where lists and copies lead, and `unchecked`: what was not looked at because of a limit. Then
/// neither is `same`.
nlohmann::ordered_json packetComparison(const Layers& before, const Layers& after,
                                        const CompareLimits& limits);

/// Such a document for people.
std::string packetComparisonText(const nlohmann::ordered_json& document);

}  // namespace Agent
