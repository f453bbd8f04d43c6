#pragma once

#include <Acl/ListTrial.h>
#include <agent/explain/FrameText.h>
#include <agent/forward/Forwarder.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <string>

namespace Agent {

/// Explains what becomes of frames: takes them the way that packets take, by the same code, as packets that
/// are only tried, and writes down every list that was asked. Nothing is counted, copied or sent. The core
/// and the forwarder outlive it.
///
/// One call walks each list that was asked once more, up to the rule that decided, to find the rules that
/// came close: with lists of 10,000 rules well under a millisecond for each.
class Explainer final : private Acl::ListTrial {
 public:
  Explainer(Core& core, Forwarder& forwarder);
  ~Explainer() override;

  /// The document of one frame as docs/control.md describes it. The port need not be one of the forwarder's:
  /// its name decides which lists are bound.
  nlohmann::ordered_json explain(const std::string& port, const Frame& frame);

 private:
  void handleAsked(const Acl::AskedList& asked) override;
  void handleMirrored(const Kelp::String& session) override;
  void handleEgress(const Nimnet::IntfId& port, const Velo::PipelineStep* droppedBy) override;

  /// The reason under which the packet was dropped since this was asked last.
  std::string dropReason(const Velo::PipelineStep& droppedBy);

  Core& core_;
  Forwarder& forwarder_;
  nlohmann::ordered_json document_;

  // Of the frame that is being explained.
  Kelp::Ptr<Velo::PacketContext> ctx_;
  Kelp::Ptr<Velo::VeloNamedCounters> counted_;
  std::map<Velo::CounterName, uint64_t> told_;  // of counted_, what dropReason() has seen
};

/// The document for people.
std::string explainText(const nlohmann::ordered_json& document, bool colour);

}  // namespace Agent
