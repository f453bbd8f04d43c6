#pragma once

#include <Acl/Status.h>
#include <agent/core/Document.h>
#include <agent/show/World.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace Agent {

/// Named counters by category, facility and reason.
using Drops = std::map<std::string, std::map<std::string, std::map<std::string, uint64_t>>>;
/// Those that have counted something, above a zero line if there is one.
Drops dropsOf(const Core& core, const ZeroLine* zero = nullptr);

// Parts of documents, as docs/replay.md and docs/control.md describe them.

nlohmann::ordered_json dropsJson(const Drops& drops);
nlohmann::ordered_json portJson(const Port& port);
/// The time at which all counters were cleared last, or null.
nlohmann::ordered_json clearedJson(const ZeroLine& zero);
/// The published status. Its members have the names of the model's attributes: the capability flags, and
/// `status` with lists and bindings by type. Times are seconds since the epoch.
nlohmann::ordered_json statusJson(const Acl::StatusDp& status);
/// Its capability flags only.
nlohmann::ordered_json capabilitiesJson(const Acl::StatusDp& status);

/// How much of a thing is to be shown.
struct ShowOptions {
  enum class Rules : uint8_t { all, hit, unused };

  std::string list{};    ///< this list alone; empty: all
  std::string source{};  ///< what comes from this source of configuration alone; empty: from all
  // Of lists and their rules.
  std::string interface {};  ///< those alone that its frames meet; empty: all
  Rules rules = Rules::all;  ///< those alone that have counted a packet, or none; and lists that have such
  bool summary = false;      ///< of the status: without its rules one by one

  bool selects() const { return !interface.empty() || rules != Rules::all; }
};

// Documents that can be large: they are made piece by piece.
std::unique_ptr<Document> listsDocument(const World& world, const ShowOptions& options);
std::unique_ptr<Document> statusDocument(const World& world, const ShowOptions& options);
std::unique_ptr<Document> countersDocument(const World& world, const ShowOptions& options);

}  // namespace Agent
