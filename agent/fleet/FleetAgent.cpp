#include <agent/core/Version.h>
#include <agent/fleet/FleetAgent.h>
#include <agent/fleet/FleetKeys.h>
#include <sys/epoll.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

/// Whether ports have changed is looked at so often.
constexpr Kelp::Duration betweenStates{5.0};
constexpr size_t mostSentences = 10, mostSentence = 300, mostPorts = 100;

/// The first of them, each shortened: a status is small whatever is wrong.
Json sentencesJson(const std::vector<std::string>& all) {
  Json json = Json::array();
  for (const std::string& each : all) {
    if (json.size() == mostSentences) break;
    json.push_back(each.size() > mostSentence ? each.substr(0, mostSentence) + "..." : each);
  }
  return json;
}

Json contentJson(const FleetContent& content) {
  return {{"revision", content.revision}, {"version", content.version}};
}

Json identityJson(const FleetIdentity& identity) {
  return {{"agent", identity.agent},
          {"instance", identity.instance},
          {"groups", identity.groups},
          {"program", version()}};
}

std::string valueOf(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace

FleetAgent::FleetAgent(World world, FleetIdentity identity)
    : world_(std::move(world)),
      identity_(std::move(identity)),
      task_(sweepPriority, "Fleet",
            [this] {
              tellState();
              tellDrops();
              task_->scheduleTaskDelay(betweenStates);
            }),
      counters_(
          world_.core, identity_.agent,
          [this](std::map<std::string, std::string> changed) { world_.link.valuesAre(std::move(changed)); }),
      answers_(world_.operations, world_.link, identity_.agent) {
  last_.content = world_.configuration.fleet().inForce();
  since_ = world_.started;
  world_.configuration.fleetToldIs([this](const FleetChanges::Outcome& outcome) {
    last_ = outcome;
    if (outcome.wrong.empty()) {
      since_ = world_.loop.turnWall().now().seconds();
      tellDrops();
      drops_.changed(world_.loop.turnClock().now().seconds(), outcome.content->version, world_.link.tried());
    }
    tellState();
  });
  world_.loop.fdIs(world_.link.bell(), EPOLLIN, [this](uint32_t) { handleContent(); });
  tellState();
  tellDrops();
  task_->scheduleTaskDelay(betweenStates);
}

FleetAgent::~FleetAgent() {
  world_.loop.fdDel(world_.link.bell());
  world_.configuration.fleetToldIs({});
}

void FleetAgent::handleContent() {
  if (auto content = world_.link.take()) world_.configuration.fleetIs(std::move(content));
  answers_.questionsAre(world_.link.questions());
}

void FleetAgent::tellState() {
  const auto& inForce = world_.configuration.fleet().inForce();
  Json state = identityJson(identity_);
  state["wanted"] = last_.content ? contentJson(*last_.content) : Json(nullptr);
  state["inForce"] = inForce ? contentJson(*inForce) : Json(nullptr);
  state["result"] = last_.wrong.empty() ? "in force" : "refused";
  state["mistakes"] = sentencesJson(last_.wrong);
  state["openings"] = sentencesJson(last_.openings);
  Json ports = Json::array();
  for (const PortState& port : world_.ports ? world_.ports() : std::vector<PortState>()) {
    if (ports.size() == mostPorts) break;
    ports.push_back(
        {{"name", port.name}, {"device", port.device}, {"present", port.present}, {"up", port.up}});
  }
  state["ports"] = std::move(ports);
  state["since"] = since_;
  state["started"] = world_.started;
  std::string value = valueOf(state);
  if (value == told_) return;
  told_ = value;
  world_.link.stateIs(std::move(value));
}

void FleetAgent::tellDrops() {
  if (!world_.dropped) return;
  const double now = world_.loop.turnClock().now().seconds();
  drops_.add(now, world_.dropped());
  if (std::string value = drops_.value(now, world_.link.tried()); !value.empty())
    world_.link.valuesAre({{dropsKey(identity_.agent), std::move(value)}});
}

Json FleetAgent::report() const {
  const FleetLink::Connection connection = world_.link.connection();
  const auto& inForce = world_.configuration.fleet().inForce();
  return {{"agent", identity_.agent},
          {"groups", identity_.groups},
          {"connected", connection.connected},
          {"endpoint", connection.endpoint.empty() ? Json(nullptr) : Json(connection.endpoint)},
          {"since", connection.since > 0 ? Json(connection.since) : Json(nullptr)},
          {"wrong", connection.wrong.empty() ? Json(nullptr) : Json(connection.wrong)},
          {"wanted", last_.content ? contentJson(*last_.content) : Json(nullptr)},
          {"inForce", inForce ? contentJson(*inForce) : Json(nullptr)}};
}

std::string FleetAgent::waitingState(const FleetIdentity& identity, const FleetContent& content,
                                     const std::vector<std::string>& wrong) {
  Json state = identityJson(identity);
  state["wanted"] = contentJson(content);
  state["inForce"] = nullptr;
  state["result"] = "waiting";
  state["mistakes"] = sentencesJson(wrong);
  state["openings"] = Json::array();
  state["ports"] = Json::array();
  state["since"] = state["started"] = nullptr;
  return valueOf(state);
}

}  // namespace Agent
