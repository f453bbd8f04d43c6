#pragma once

#include <agent/change/Sources.h>
#include <agent/change/Warnings.h>
#include <agent/core/Exit.h>
#include <agent/core/Texts.h>
#include <agent/explain/FrameText.h>
#include <agent/proof/Sayings.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// Configuration texts that are to be checked.
struct Checked {
  std::vector<std::string> files;
  std::string dir{};  ///< empty: none
  TextLimits limits{};
  std::optional<PortNames> ports{};  ///< that the agent will have; nothing: not known
  Leave leave{};
  std::optional<Proof::Limits> prove{};  ///< what lists do to all packets is looked at, within these
  Proof::Say say = Proof::Say::oddities;
};
/// Says what is in them: `mistakes`; and when there are none, how many `lists`, `rules` and `bindings`,
/// `warnings` (see Warnings.h), `unchecked`: what could not be looked at, `proven` (only of what is to be
/// proven): no limit left anything out, and `refused`: why an agent would not start with them, or null.
nlohmann::ordered_json checkDocument(const Checked& asked);
/// Such a document for people, if it has no mistakes.
std::string checkText(const nlohmann::ordered_json& document);

/// What is asked for an explanation by configuration texts, without a running agent.
struct OffLineExplanation {
  std::vector<std::string> files;
  std::string dir;     ///< empty: none
  std::string plugin;  ///< the library
  std::string port;    ///< where the frame comes in
  std::string out;     ///< the port or port-channel that it would leave by; empty: none
  TextLimits limits{};
};

/// Why an interface may be a slip: no source names it, and it is none of the agent's `ports`. Nothing if it
/// is, and of an empty name.
std::optional<std::string> whyNotNamed(const std::string& name, const Sources& sources,
                                       const std::set<std::string>& ports = {});
/// What is taken for granted of such an interface: it may be one of the agent, or a slip.
std::optional<std::string> assumedOf(const std::string& name, const Sources& sources,
                                     const std::set<std::string>& ports = {});

/// What would become of a frame that comes in by a port, and would leave by `out` (empty: nowhere), with
/// these sources in force: the document of an explanation. Nothing, and what is wrong, when that cannot be
/// told.
std::optional<nlohmann::ordered_json> explainWith(const Sources& sources, const std::string& plugin,
                                                  const std::string& port, const std::string& out,
                                                  const Frame& frame, std::string* wrong);

/// Explains a frame. When something is wrong it returns nothing, after a complaint on standard error, and
/// sets `exit`.
std::optional<nlohmann::ordered_json> explainOffLine(const OffLineExplanation& asked, const Frame& frame,
                                                     Exit* exit);

}  // namespace Agent
