#pragma once

#include <Acl/ListTrial.h>
#include <agent/explain/FrameText.h>
#include <agent/forward/Forwarder.h>
#include <agent/show/Verdicts.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <string>

namespace Agent {

/// Explains what would become of a frame. The frame goes the way of packets, through the same code, as a
/// trial: nothing is counted, copied or sent. Every list that is asked is written into a document. The core
/// and the forwarder outlive the explainer.
///
/// To find the rules that nearly matched, each list that was asked is walked once more, up to the rule that
/// decided. For a list of 10,000 rules that takes well under a millisecond.
class Explainer final : private Acl::ListTrial {
 public:
  Explainer(Core& core, Forwarder& forwarder);
  ~Explainer() override;

  /// The document for one frame, as docs/control.md describes it. The forwarder need not have the port: only
  /// its name is used, to find the lists that are bound there.
  nlohmann::ordered_json explain(const std::string& port, const Frame& frame);

 private:
  void handleAsked(const Acl::AskedList& asked) override;
  void handleMirrored(const Kelp::String& session) override;
  void handleEgress(const Nimnet::IntfId& port, const Velo::PipelineStep* droppedBy) override;

  /// Tells where the bridge of a port has learned the frame's destination, if the port is of a bridge.
  void addBridge(const std::string& port);
  /// The reason that was counted for a drop since the last call.
  std::string dropReason(const Velo::PipelineStep& droppedBy);

  Core& core_;
  Forwarder& forwarder_;
  nlohmann::ordered_json document_;

  // For the frame that is being explained.
  Fate fate_;
  Kelp::Ptr<Velo::PacketContext> ctx_;
  Kelp::Ptr<Velo::VeloNamedCounters> counted_;
  std::map<Velo::CounterName, uint64_t> told_;  // the counts that dropReason() has seen in counted_
};

/// The document for people.
std::string explainText(const nlohmann::ordered_json& document, bool colour);

}  // namespace Agent
