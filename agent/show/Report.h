#pragma once

#include <agent/forward/FrameTotals.h>
#include <agent/show/Documents.h>

#include <map>
#include <string>
#include <vector>

namespace Agent {

/// What a replay or a run came to.
struct Report {
  FrameTotals totals;
  std::vector<ListReport> lists;      ///< by type and name
  std::vector<ListReport> undefined;  ///< lists that are bound but not defined
  Drops drops;
  std::map<std::string, Port> ports;
};

/// Reads lists, counters and ports as they are now. The totals come from whoever received the frames.
Report makeReport(const Core& core, const Forwarder& forwarder, const FrameTotals& totals = {});

/// The report for people: lists as they are typed, with their counts.
std::string reportText(const Report& report, bool colour);

/// The report as a JSON document, as docs/replay.md describes it. `status` is the published status; it may be
/// null.
nlohmann::ordered_json reportDocument(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status);
std::string reportJson(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status);

}  // namespace Agent
