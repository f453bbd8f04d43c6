#pragma once

#include <Acl/Status.h>
#include <agent/core/Document.h>
#include <agent/forward/Forwarder.h>
#include <agent/ports/PortState.h>
#include <agent/show/ListReport.h>
#include <agent/show/ZeroLine.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Agent {

/// Named counters by category, facility and reason.
using Drops = std::map<std::string, std::map<std::string, std::map<std::string, uint64_t>>>;

// Parts of documents, as docs/replay.md and docs/control.md describe them.
nlohmann::ordered_json dropsJson(const Drops& drops);
nlohmann::ordered_json portJson(const Port& port);
/// The published status with the names of the model's attributes as members: the capability flags, and below
/// `status` the lists and bindings by type. Times are seconds since the epoch.
nlohmann::ordered_json statusJson(const Acl::StatusDp& status);
/// Its flags alone.
nlohmann::ordered_json capabilitiesJson(const Acl::StatusDp& status);

/// What documents are made from. All of it outlives them.
struct World {
  Core& core;
  Forwarder& forwarder;
  const ZeroLine& zero;
  /// Seconds since the epoch at which the agent started.
  double started = 0;
  /// The sources of configuration and what is wrong with them; empty: none are known.
  std::function<nlohmann::ordered_json()> configuration{};
  ListReader::Remarks remarks{};
  /// The live ports; empty: there are none.
  std::function<std::vector<PortState>()> portStates{};
};

// Documents that can be large. `argument` is the name of a list, or empty for all.
std::unique_ptr<Document> listsDocument(const World& world, const std::string& argument);
std::unique_ptr<Document> statusDocument(const World& world, const std::string& argument);
std::unique_ptr<Document> countersDocument(const World& world, const std::string& argument);

}  // namespace Agent
