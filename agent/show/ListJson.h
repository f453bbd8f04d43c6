#pragma once

#include <agent/show/ListReport.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace Agent {

// Lists as parts of documents, as docs/replay.md describes them.

nlohmann::ordered_json ruleJson(const RuleReport& rule);
/// Without the rules.
nlohmann::ordered_json headJson(const ListReport& list);
nlohmann::ordered_json listJson(const ListReport& list);
nlohmann::ordered_json undefinedJson(const ListReport& list);
nlohmann::ordered_json matchesJson(const MatchCount& count);
/// Octets on the wire of the packets that matched.
nlohmann::ordered_json bytesJson(const MatchCount& count);
nlohmann::ordered_json lastMatchJson(const MatchCount& count);

/// Adds `source`, the first of them or null, and `overridden`, an array of the others.
void addSources(nlohmann::ordered_json& document, const std::vector<std::string>& sources);

}  // namespace Agent
