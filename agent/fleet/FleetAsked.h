#pragma once

#include <agent/fleet/Etcd.h>

#include <map>
#include <string>
#include <vector>

namespace Agent {

/// What agents have answered, by their names.
using FleetAnswerTexts = std::map<std::string, std::string>;

/// Asks agents by the store (see FleetAnswers), and waits some seconds for all of them; who does not answer
/// until then is left out. Nothing of it stays in the store.
Maybe<FleetAnswerTexts> askAgents(Etcd& etcd, const std::vector<std::string>& agents,
                                  const std::string& request);

}  // namespace Agent
