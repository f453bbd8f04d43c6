#pragma once

#include <agent/Forwarder.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Matches by direction, and the time of the last one in seconds since the epoch.
struct MatchCount {
  uint64_t in = 0;
  uint64_t out = 0;
  std::optional<double> last;
};

struct RuleReport {
  uint32_t sequence = 0;
  std::string text;
  std::string remark;
  std::string id;
  MatchCount matches;
  std::optional<uint64_t> mirrored{};  ///< packets given to the rule's mirror session, if it names one
};

struct BindingReport {
  std::string interface;
  Acl::AclDirection direction = Acl::AclDirection::in;
  std::vector<std::string> sources{};  ///< the one in force first
};

/// A list with its rules in the order of trial. A list that is only bound has no rules and no source.
struct ListReport {
  Acl::AclType type = Acl::AclType::ip;
  std::string name;
  std::vector<std::string> sources;  ///< the one in force first; empty: bound, but not defined
  std::vector<BindingReport> bindings;
  std::vector<RuleReport> rules;
  std::optional<MatchCount> implicitDrop;  ///< nothing as long as the dataplane has no id for it
};

/// What a replay came to.
struct Report {
  uint64_t frames = 0;
  uint64_t bytes = 0;  ///< on the wire
  uint64_t passed = 0;
  uint64_t dropped = 0;
  std::vector<ListReport> lists;      ///< by type and name
  std::vector<ListReport> undefined;  ///< bound, but not defined: these let everything pass
  std::map<std::string, std::map<std::string, std::map<std::string, uint64_t>>> drops;
  std::map<std::string, Port> ports;
};

/// Reads what the dataplane enforces out of its published status, the rules out of the configuration and the
/// matches out of the counters, as they are now. The totals of frames are the caller's.
Report makeReport(const Core& core, const Forwarder& forwarder);

/// For people: the lists in the shape in which they are typed, with their counts. Colour only when asked for.
std::string reportText(const Report& report, bool colour);

/// One JSON document, as docs/replay.md describes it; `status` is what the dataplane publishes and may be
/// null.
std::string reportJson(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status);

}  // namespace Agent
