// Shows of ports, and of what joins them.
#include <Velo/Mirroring.h>
#include <agent/core/Document.h>
#include <agent/core/Reserve.h>
#include <agent/forward/Bridge.h>
#include <agent/show/Shows.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json liveJson(const PortState& state) {
  return {
      {"kind", state.kind},
      {"how", state.how},
      {"device", state.device},
      {"present", state.present},
      {"up", state.up},
      {"mtu", state.mtu},
      {"wrong", state.wrong.empty() ? Json(nullptr) : Json(state.wrong)},
      {"received", {{"frames", state.rxFrames}, {"bytes", state.rxBytes}, {"segments", state.rxSegments}}},
      {"sent", {{"frames", state.txFrames}, {"bytes", state.txBytes}, {"segments", state.txSegments}}},
      {"lost",
       {{"kernelDrops", state.kernelDrops},
        {"rxTooLarge", state.rxTooLarge},
        {"rxErrors", state.rxErrors},
        {"tooLarge", state.tooLarge},
        {"sendFailed", state.sendFailed},
        {"nowhere", state.nowhere}}}};
}

Json portsOf(const World& world) {
  Json ports = Json::object();
  for (const auto& [id, port] : world.forwarder.ports()) {
    Refusable::check();
    const Port counted = world.zero.above(*port);
    Json one = portJson(counted);
    one["nowhere"] = counted.nowhere;
    ports[id.name().str()] = std::move(one);
  }
  if (world.portStates) {
    for (const PortState& state : world.portStates()) ports[state.name]["live"] = liveJson(state);
  }
  for (const auto& [session, destinations] : Velo::MirroringStepHelper::singleton()->sessions()) {
    for (const Nimnet::IntfId& destination : destinations) {
      const auto port = ports.find(destination.name().str());
      if (port != ports.end()) (*port)["mirrorSessions"].push_back(session.view());
    }
  }
  return {{"cleared", clearedJson(world.zero)}, {"ports", std::move(ports)}};
}

std::string lostText(const Json& lost) {
  std::string text;
  for (const auto& [what, count] : lost.items()) {
    if (count != 0) text += fmt::format("{}{} {}", text.empty() ? "" : ", ", what, valueText(count));
  }
  return text.empty() ? "nothing" : text;
}

/// Of a port with super-frames how many segments they are; no line for any other.
std::string segmentsText(const std::string& name, const Json& live) {
  std::string text;
  for (const auto& [member, way] : {std::pair("received", "in"), {"sent", "out"}}) {
    const Json& counted = live.at(member);
    if (counted.value("segments", counted.at("frames")) == counted.at("frames")) continue;
    text += fmt::format("{}{} frames {} are {} segments", text.empty() ? name + ": " : ", ",
                        valueText(counted.at("frames")), way, valueText(counted.at("segments")));
  }
  return text.empty() ? "" : text + "; a frame that is still to be cut is one packet to the lists\n";
}

/// Of a port without a device, or whose device is missing; no line for one whose device is there, or that no
/// copies are to leave by.
std::string withoutDevice(const std::string& name, const Json& port) {
  const bool isLive = port.contains("live");
  if (isLive && (port.at("live").at("present").get<bool>() || !port.contains("mirrorSessions"))) return "";
  const std::string device =
      isLive ? fmt::format(": its device {} is missing", valueText(port.at("live").at("device")))
             : " has no device";
  std::string sessions;
  for (const Json& session : port.value("mirrorSessions", Json::array()))
    sessions += fmt::format("{}mirror session {}", sessions.empty() ? "" : ", ", valueText(session));
  if (sessions.empty()) return fmt::format("{}{}: what leaves there is lost\n", name, device);
  return fmt::format("{}{}: copies to it are lost ({})\n", name, device, sessions);
}

std::string kindText(const Json& live) {
  const std::string how = live.value("how", "");
  return live.value("kind", "") + (how.empty() ? "" : fmt::format(" ({})", how));
}

std::string portsShownText(const Json& document, const TextStyle& style) {
  Json counted = Json::object();
  std::vector<std::vector<std::string>> live = {
      {"port", "kind", "device", "link", "mtu", "frames in", "frames out", "lost"}};
  std::string wrong, without, segments;
  for (const auto& [name, port] : document.at("ports").items()) {
    if (port.contains("received")) counted[name] = port;
    without += withoutDevice(name, port);
    if (!port.contains("live")) continue;
    const Json& state = port.at("live");
    const char* link = state.at("up").get<bool>() ? "up" : state.at("present").get<bool>() ? "down" : "gone";
    live.push_back({name, kindText(state), valueText(state.at("device")), link,
                    state.at("present").get<bool>() ? valueText(state.at("mtu")) : "-",
                    valueText(state.at("received").at("frames")), valueText(state.at("sent").at("frames")),
                    lostText(state.at("lost"))});
    segments += segmentsText(name, state);
    if (!state.at("wrong").is_null()) wrong += fmt::format("{}: {}\n", name, valueText(state.at("wrong")));
  }
  std::string text = clearedLine(document, style) + portsText(counted, style);
  if (live.size() > 1) {
    text += "\nsince the start, between port and device:\n";
    text += tableText(live, {false, false, false, false, true, true, true, false}, style.colour) + segments +
            wrong + without;
  }
  return text;
}

/// The stations that bridges have heard of, bridge by bridge, in the order of the table.
class BridgeDocument final : public Document {
 public:
  explicit BridgeDocument(const Forwarder& forwarder) : bridges_(forwarder.bridges()) {}

  bool next(std::string& text) override {
    if (!begun_) text += "{\"bridges\":[";
    begun_ = true;
    if (bridge_ == bridges_.size()) {
      text += "]}";
      return false;
    }
    const Bridge& bridge = *bridges_[bridge_];
    if (!inBridge_) begin(text, bridge);
    addStations(text, bridge);
    return true;
  }

 private:
  /// A piece looks at so many places of the table, which are mostly empty.
  static constexpr size_t placesAtOnce = 4096;

  void begin(std::string& text, const Bridge& bridge) {
    Json ends = Json::array();
    for (const End* end : bridge.ends()) ends.push_back(end->id.name().view());
    all_.add(text, openObject({{"interfaces", std::move(ends)}, {"ageing", Bridge::ageingTime.seconds()}}));
    text += "\"stations\":[";
    stations_ = {};
    place_ = 0;
    inBridge_ = true;
  }

  void addStations(std::string& text, const Bridge& bridge) {
    const size_t start = text.size();
    for (const size_t end = place_ + placesAtOnce; place_ < end && hasRoom(text, start);) {
      const auto station = bridge.next(place_, end - place_);
      if (!station) break;
      stations_.add(text, Json{{"address", station->address.str()},
                               {"vlan", station->vlan},
                               {"port", station->end->id.name().view()},
                               {"age", station->age.seconds()}});
    }
    if (place_ < Bridge::stations) return;
    text += "]}";
    inBridge_ = false;
    ++bridge_;
  }

  const std::vector<Bridge*>& bridges_;
  bool begun_ = false;
  size_t bridge_ = 0;
  bool inBridge_ = false;
  size_t place_ = 0;
  Elements all_, stations_;
};

std::unique_ptr<Document> bridgeDocument(const World& world, const ShowOptions&) {
  return std::make_unique<BridgeDocument>(world.forwarder);
}

std::string bridgeText(const Json& document, const TextStyle& style) {
  std::string text;
  for (const Json& bridge : document.at("bridges")) {
    std::string names;
    for (const Json& name : bridge.at("interfaces")) names += (names.empty() ? "" : ", ") + valueText(name);
    text += fmt::format("{}bridge of {}\n", text.empty() ? "" : "\n", names);
    std::vector<Json> stations(bridge.at("stations").begin(), bridge.at("stations").end());
    const auto place = [](const Json& station) {
      return std::tuple(valueText(station.at("port")), station.at("vlan").get<int>(),
                        valueText(station.at("address")));
    };
    std::sort(stations.begin(), stations.end(),
              [&](const Json& a, const Json& b) { return place(a) < place(b); });
    std::vector<std::vector<std::string>> lines = {{"address", "vlan", "port", "heard of"}};
    for (const Json& station : stations) {
      const int vlan = station.at("vlan").get<int>();
      lines.push_back({valueText(station.at("address")), vlan ? std::to_string(vlan) : "-",
                       valueText(station.at("port")), timeText(0, station.at("age").get<double>())});
    }
    text += lines.size() > 1 ? tableText(lines, {false, true, false, false}, style.colour)
                             : "no address was learned\n";
  }
  return text.empty() ? "no ports are bridged\n" : text;
}

constexpr Show portRows[] = {
    {"ports", "", "what went through each port, and its device", whole<portsOf>, portsShownText},
    {"bridge", "", "the addresses that bridges have learned: where, and how long ago", bridgeDocument,
     bridgeText},
};

}  // namespace

std::span<const Show> portShows() { return portRows; }

}  // namespace Agent
