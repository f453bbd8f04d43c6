#pragma once

#include <agent/config/Model.h>
#include <nlohmann/json.hpp>

#include <deque>
#include <string>

namespace Agent {

/// What changes when one configuration takes the place of another, as a line of JSON in pieces: members
/// `lists`, `bindings`, `portChannels` and `mirrorSessions`, each with `added`, `removed` and `changed`; of a
/// changed list the rules in the same way. A rule whose number stays but that is another rule is changed and
/// gets a new id; one of which only remark or spelling differ is `respelled` and keeps it. Reads only, so
/// that any thread may call it while nobody writes.
std::deque<std::string> difference(const Config::Model& before, const Config::Model& after);

/// True when it says that nothing changes.
bool isNoDifference(const nlohmann::ordered_json& difference);

/// The difference for people, a line each with + - or ~ in front.
std::string differenceText(const nlohmann::ordered_json& difference, bool colour);

}  // namespace Agent
