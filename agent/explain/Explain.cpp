#include <Acl/MatchFields.h>
#include <Kelp/Ptr.h>
#include <MemSlab/Slab.h>
#include <Velo/PacketContext.h>
#include <agent/config/Cursor.h>
#include <agent/core/Reserve.h>
#include <agent/explain/Explain.h>
#include <agent/explain/NearMisses.h>
#include <agent/forward/Bridge.h>
#include <agent/show/PacketText.h>
#include <agent/show/Verdicts.h>

#include <algorithm>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// What a packet has in a field, a protocol by its name.
std::string shownField(const FailedField& field) {
  const auto protocol = field.name == "protocol" ? Config::decimal(field.packet) : std::nullopt;
  return protocol && *protocol <= 255 ? protocolText(static_cast<uint8_t>(*protocol)) : field.packet;
}

Json nearJson(const std::vector<NearMiss>& misses) {
  Json all = Json::array();
  for (const NearMiss& miss : misses) {
    Json failed = Json::array();
    for (const auto& field : miss.failed)
      failed.push_back({{"field", field.name}, {"packet", shownField(field)}});
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
  frame.assignTo(*ctx_->pkt());
  const auto out = MemSlab::make<Velo::OutputPipelineContext>(ctx_);

  document_ = {{"port", port}, {"frame", ""}};
  document_["asked"] = Json::array();
  document_["mirrored"] = Json::array();
  document_["egress"] = Json::array();
  fate_ = {};
  fate_.port = port;
  const Verdict verdict = forwarder_.tryPacket(Nimnet::IntfId::known(port), out);
  document_["frame"] = packetText(*ctx_);
  document_["mirrored"] = mirroredWords(fate_);
  const bool droppedIn = !verdict.passed() && fate_.egress.empty();
  fate_.verdictIs(verdict, droppedIn ? dropReason(*verdict.droppedBy) : std::string());
  addVerdict(document_, fate_);
  addBridge(port);
  document_["sentence"] = sentenceOf(fate_);
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

void Explainer::addBridge(const std::string& port) {
  const auto known = forwarder_.ports().find(Nimnet::IntfId::known(port));
  const End* entry = known == forwarder_.ports().end() ? nullptr : known->second->entry;
  const auto& bridges = forwarder_.bridges();
  const auto bridge = std::find_if(bridges.begin(), bridges.end(),
                                   [entry](const Bridge* each) { return entry && entry->junction == each; });
  const Nimnet::EthHdr* eth = ctx_->parsedPacket().ethPacket()->ethHdr();
  if (bridge == bridges.end() || !eth || Bridge::isGroup(eth->destination())) return;
  const uint16_t vlan = ctx_->pkt()->vlanId();
  const auto station = (*bridge)->heardOf(eth->destination(), vlan);
  document_["bridge"] = {{"address", eth->destination().str()},
                         {"vlan", vlan},
                         {"port", station ? Json(station->end->id.name().view()) : Json(nullptr)},
                         {"age", station ? Json(station->age.seconds()) : Json(nullptr)}};
}

void Explainer::handleAsked(const Acl::AskedList& asked) {
  using Outcome = Acl::AskedList::Outcome;
  const bool defined = asked.outcome != Outcome::undefined;
  fate_.hits.push_back(
      {asked.direction, asked.intf, asked.type, asked.list, asked.rule ? asked.rule->sequence() : 0,
       asked.rule ? asked.rule->action() : (defined ? Acl::Action::deny : Acl::Action::permit), defined});
  Json one = hitWords(fate_.hits.back());
  if (!defined) {
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

void Explainer::handleMirrored(const Kelp::String& session) { fate_.mirroredAdd(session); }

/// Called once for each port when a frame is flooded.
void Explainer::handleEgress(const Nimnet::IntfId& port, const Velo::PipelineStep* droppedBy) {
  Refusable::check();
  fate_.egressAdd(port, !droppedBy, droppedBy ? dropReason(*droppedBy) : std::string());
  document_["egress"].push_back(egressWords(fate_.egress.back()));
}

}  // namespace Agent
