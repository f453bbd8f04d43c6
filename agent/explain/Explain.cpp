#include <Acl/MatchFields.h>
#include <agent/core/Reserve.h>
#include <agent/explain/Explain.h>
#include <agent/explain/NearMisses.h>
#include <agent/show/PacketText.h>
#include <agent/show/Verdicts.h>

#include <algorithm>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json nearJson(const std::vector<NearMiss>& misses) {
  Json all = Json::array();
  for (const NearMiss& miss : misses) {
    Json failed = Json::array();
    for (const auto& field : miss.failed) failed.push_back({{"field", field.name}, {"packet", field.packet}});
    all.push_back({{"rule", miss.sequence}, {"text", miss.text}, {"failed", std::move(failed)}});
  }
  return all;
}

}  // namespace

Explainer::Explainer(Core& core, Forwarder& forwarder) : core_(core), forwarder_(forwarder) {}

Explainer::~Explainer() = default;

Json Explainer::explain(const std::string& port, const Frame& frame) {
  counted_ = MemSlab::make<Velo::VeloNamedCounters>();
  told_.clear();
  ctx_ = MemSlab::make<Velo::PacketContext>(counted_);
  ctx_->trialIs(this);
  ctx_->pkt()->assign(frame.octets, frame.wireLength, 0);
  const auto out = MemSlab::make<Velo::OutputPipelineContext>(ctx_);

  document_ = {{"port", port}, {"frame", ""}};
  document_["asked"] = Json::array();
  document_["mirrored"] = Json::array();
  document_["egress"] = Json::array();
  const Verdict verdict = forwarder_.tryPacket(Nimnet::IntfId::known(port), out);
  document_["frame"] = packetText(*ctx_);
  std::string reason;
  if (!verdict.passed()) {
    // Dropped at every port that it was to leave by: the reason of the first one is told.
    const Json& egress = document_["egress"];
    reason = egress.empty() ? dropReason(*verdict.droppedBy) : egress.front().at("reason").get<std::string>();
  }
  addVerdict(document_, verdict, reason);
  ctx_ = nullptr;
  counted_ = nullptr;
  return std::move(document_);
}

std::string Explainer::dropReason(const Velo::PipelineStep& droppedBy) {
  std::string reason = uncountedReason(droppedBy);
  for (auto at = counted_->counter().begin(); at; at.next()) {
    if (at.key().category != "Drop") continue;
    if (std::exchange(told_[at.key()], at.value()) < at.value()) reason = at.key().reason.str();
  }
  return reason;
}

void Explainer::handleAsked(const Acl::AskedList& asked) {
  using Outcome = Acl::AskedList::Outcome;
  const bool defined = asked.outcome != Outcome::undefined;
  Json one =
      hitWords({asked.direction, asked.intf, asked.type, asked.list, asked.rule ? asked.rule->sequence() : 0,
                asked.rule ? asked.rule->action() : (defined ? Acl::Action::deny : Acl::Action::permit)});
  if (!defined) {
    one["rule"] = nullptr;
    document_["asked"].push_back(std::move(one));
    return;
  }
  if (asked.rule) {
    one["text"] = asked.rule->text().view();
    if (!asked.rule->remark().empty()) one["remark"] = asked.rule->remark().view();
  }
  if (!asked.ruleId.empty()) one["id"] = asked.ruleId.str();
  const EarlierRules earlier = earlierRules(core_, asked, *ctx_);
  one["earlier"] = earlier.count;
  one["near"] = nearJson(earlier.near);
  document_["asked"].push_back(std::move(one));
}

void Explainer::handleMirrored(const Kelp::String& session) {
  Json& all = document_["mirrored"];
  if (std::find(all.begin(), all.end(), session.view()) == all.end()) all.push_back(session.view());
}

/// Called once for each port when a frame is flooded.
void Explainer::handleEgress(const Nimnet::IntfId& port, const Velo::PipelineStep* droppedBy) {
  Refusable::check();
  Json one = {{"port", port.name().view()}, {"verdict", verdictWord(!droppedBy)}};
  if (droppedBy) one["reason"] = dropReason(*droppedBy);
  document_["egress"].push_back(std::move(one));
}

}  // namespace Agent
