#pragma once

#include <agent/models/Writer.h>
#include <nlohmann/json.hpp>

namespace Agent {

/// Whether a model has a place for what was counted.
bool hasState(Models::Format format);

/// A configuration as the document of a model (Models::write) with what its lists have counted, which is
/// `shown` (`show access-lists`): the packets and octets that each entry matched, in both directions
/// together; and where a list is bound, those of that direction. They are counted by list and direction: of
/// one that is bound in several places the model's counters by place are left out.
nlohmann::ordered_json withState(nlohmann::ordered_json document, Models::Format format,
                                 const nlohmann::ordered_json& shown);

}  // namespace Agent
