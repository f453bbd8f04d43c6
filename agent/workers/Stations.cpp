#include <agent/core/EventLoop.h>
#include <agent/workers/Packed.h>
#include <agent/workers/Stations.h>

#include <algorithm>

namespace Agent {

namespace {

/// How many places of a table are looked at before the clock is read.
constexpr size_t placesAtOnce = 512;
/// When a link goes, every process forgets what it has heard of there, each when it is told of the link.
constexpr Kelp::Duration untilAllForget{1.0};

uint64_t stationKey(Nimnet::EthAddr address, uint16_t vlan) {
  constexpr int behindAddress = 48;
  return uint64_t{vlan} << behindAddress | address.value();
}

nlohmann::ordered_json rowOf(size_t bridge, const Bridge& table, const Bridge::Heard& station) {
  const auto at = std::find(table.ends().begin(), table.ends().end(), station.end) - table.ends().begin();
  return {bridge, at, station.address.value(), station.vlan};
}

/// Whether others know what one was told, or has told them, at a time.
bool othersKnow(Kelp::Duration told, Kelp::Duration heard, Kelp::Duration forgotten) {
  if (told <= forgotten) return false;
  if (heard <= told) return true;
  return told > forgotten + untilAllForget && heard - told < Stations::tellAgain;
}

/// Calls visit(bridge, end, address, vlan) for each station that a text tells of.
template <class Visit>
void forStations(const Forwarder& forwarder, const std::string& text, const Visit& visit) {
  for (const nlohmann::ordered_json& row : unpacked(text)) {
    const size_t number = row.at(0).get<size_t>(), at = row.at(1).get<size_t>();
    if (number >= forwarder.bridges().size() || at >= forwarder.bridges()[number]->ends().size()) continue;
    End& end = *forwarder.bridges()[number]->ends()[at];
    visit(number, end, Nimnet::EthAddr::fromValue(row.at(2).get<uint64_t>()), row.at(3).get<uint16_t>());
  }
}

}  // namespace

Stations::Stations(const Forwarder& forwarder, const Kiv::Clock& clock, Send send, const char* task)
    : forwarder_(forwarder),
      clock_(clock),
      send_(std::move(send)),
      task_(sweepPriority, task, [this] { run(); }),
      known_(forwarder.bridges().size()) {
  if (!known_.empty()) task_->scheduleTaskDelay(tellEvery);
}

void Stations::learn(const std::string& text) {
  const Kelp::Duration now = clock_.now();
  forStations(forwarder_, text, [&](size_t number, End& end, Nimnet::EthAddr address, uint16_t vlan) {
    forwarder_.bridges()[number]->learn(end, address, vlan);
    known_[number][stationKey(address, vlan)] = {&end, now};
  });
}

void Stations::learn(const Forwarder& forwarder, const std::string& text) {
  forStations(forwarder, text, [&](size_t number, End& end, Nimnet::EthAddr address, uint16_t vlan) {
    forwarder.bridges()[number]->learn(end, address, vlan);
  });
}

std::string Stations::all(const Forwarder& forwarder) {
  nlohmann::ordered_json lines = nlohmann::ordered_json::array();
  for (size_t bridge = 0; bridge < forwarder.bridges().size(); ++bridge) {
    const Bridge& table = *forwarder.bridges()[bridge];
    for (size_t place = 0; place < Bridge::stations;) {
      if (const auto station = table.next(place, Bridge::stations - place))
        lines.push_back(rowOf(bridge, table, *station));
    }
  }
  return packed(lines);
}

void Stations::run() {
  for (; bridge_ < known_.size(); ++bridge_, place_ = 0) {
    if (!look(bridge_)) return task_->scheduleTask();
  }
  bridge_ = 0;
  task_->scheduleTaskDelay(tellEvery);
}

bool Stations::look(size_t bridge) {
  const Bridge& table = *forwarder_.bridges()[bridge];
  KnownOf& known = known_[bridge];
  nlohmann::ordered_json lines = nlohmann::ordered_json::array();
  const Kelp::Duration now = clock_.now();
  do {
    for (const size_t end = std::min(place_ + placesAtOnce, Bridge::stations); place_ < end;) {
      const auto station = table.next(place_, end - place_);
      if (!station) continue;
      Known& told = known[stationKey(station->address, station->vlan)];
      const Kelp::Duration heard = now - station->age;
      if (told.end == station->end && othersKnow(told.at, heard, table.forgotten(*station->end))) continue;
      told = {station->end, now};
      lines.push_back(rowOf(bridge, table, *station));
    }
  } while (place_ < Bridge::stations && !task_->taskShouldYield());
  const bool done = place_ >= Bridge::stations;
  if (!lines.empty()) send_(packed(lines));
  // What nobody has heard of for long is not remembered here, either.
  if (done) std::erase_if(known, [now](const auto& one) { return now - one.second.at > Bridge::ageingTime; });
  return done;
}

}  // namespace Agent
