#pragma once

#include <agent/forward/Forwarder.h>
#include <agent/show/Documents.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Agent {

/// What a replay came to.
struct Report {
  uint64_t frames = 0;
  uint64_t bytes = 0;  ///< on the wire
  uint64_t passed = 0;
  uint64_t dropped = 0;
  std::vector<ListReport> lists;      ///< by type and name
  std::vector<ListReport> undefined;  ///< bound, but not defined: these let everything pass
  Drops drops;
  std::map<std::string, Port> ports;
};

/// Reads lists, counters and ports as they are now. The totals of frames are the caller's.
Report makeReport(const Core& core, const Forwarder& forwarder);

/// For people: the lists in the shape in which they are typed, with their counts. Colour only when asked for.
std::string reportText(const Report& report, bool colour);

/// One JSON document, as docs/replay.md describes it; `status` is what the dataplane publishes and may be
/// null.
nlohmann::ordered_json reportDocument(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status);
std::string reportJson(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status);

}  // namespace Agent
