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

/// Says for which packets two configurations decide otherwise: `lists` that both have, `bindings` that
/// differ, `notes` on lists that only one has and on what changes where lists and copies lead, and
/// `unchecked`: what was not looked at because of a limit. `same`: no verdict of any list differs, bound or
/// not. `sameTraffic`: none differs where the list is bound in both, or at a place that has another list;
/// what only lists do that are bound nowhere makes no difference to it. Both are false when something was not
/// looked at. `different`: some difference was found, whatever was not looked at.
nlohmann::ordered_json packetComparison(const Layers& before, const Layers& after,
                                        const CompareLimits& limits);

/// Such a document for people.
std::string packetComparisonText(const nlohmann::ordered_json& document);

}  // namespace Agent
