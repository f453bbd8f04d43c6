// Asking the store for what an operator looks at: small things of all, and large ones only of whom it is
// about.
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetSight.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Agent {

namespace {

/// So many values are asked for at once: fewer than the operations that etcd takes in a transaction. A text
/// may have 1.5 MiB, so of texts that are fewer, as many as one answer can have.
constexpr size_t mostStates = 100, mostTexts = 32;
/// Of all places together.
constexpr size_t mostOctets = size_t{512} << 20;

/// Reads the values of keys, as they were at the revision of the sight.
std::string readValues(Etcd& etcd, FleetSight& sight, const std::vector<std::string>& keys) {
  std::vector<EtcdRange> ranges;
  for (const std::string& key : keys) ranges.push_back({.key = key, .at = sight.revision});
  auto answer = etcd.read(std::move(ranges));
  if (!answer) return std::move(answer.wrong);
  for (auto& read : answer.value->reads) {
    for (EtcdEntry& entry : read) sight.texts[entry.key] = std::move(entry);
  }
  return "";
}

/// Reads keys so many at a time, as long as there is room; why that was not possible.
std::string readPortions(Etcd& etcd, FleetSight& sight, const std::vector<std::string>& keys, size_t portion,
                         size_t room, size_t* octets) {
  for (size_t at = 0; at < keys.size() && *octets <= room; at += portion) {
    const std::vector<std::string> some(
        keys.begin() + static_cast<std::ptrdiff_t>(at),
        keys.begin() + static_cast<std::ptrdiff_t>(std::min(keys.size(), at + portion)));
    if (std::string wrong = readValues(etcd, sight, some); !wrong.empty()) return wrong;
    for (const std::string& key : some) *octets += sight.texts[key].value.size();
  }
  return "";
}

}  // namespace

std::vector<EtcdRange> fleetQuestion() {
  return {{.key = std::string(fleetRoot) + "config/", .isPrefix = true, .keysOnly = true},
          {.key = agentsPrefix(), .isPrefix = true},
          {.key = knownPrefix(), .isPrefix = true}};
}

Maybe<FleetSight> fleetSight(Etcd& etcd, std::vector<EtcdRange> further,
                             std::vector<std::vector<EtcdEntry>>* found) {
  std::vector<EtcdRange> ranges = fleetQuestion();
  std::move(further.begin(), further.end(), std::back_inserter(ranges));
  auto answer = etcd.read(std::move(ranges));
  if (!answer) return {{}, std::move(answer.wrong)};
  FleetSight sight = FleetSight::of(*answer.value);
  auto& reads = answer.value->reads;
  if (found) found->assign(std::make_move_iterator(reads.begin() + 3), std::make_move_iterator(reads.end()));
  std::vector<std::string> keys;
  for (const std::string& group : sight.rolloutGroups()) keys.push_back(rolloutKey(textsPrefix(group)));
  size_t octets = 0;
  if (auto wrong = readPortions(etcd, sight, keys, mostStates, mostOctets, &octets); !wrong.empty())
    return {{}, std::move(wrong)};
  return {std::move(sight)};
}

std::string readTexts(Etcd& etcd, FleetSight& sight, const std::set<std::string>& places, size_t room) {
  size_t all = 0;
  for (const std::string& place : places) {
    std::vector<std::string> keys;
    for (auto at = sight.texts.lower_bound(place); at != sight.texts.end() && at->first.starts_with(place);
         ++at) {
      if (isOfPlace(std::string_view(at->first).substr(place.size()))) keys.push_back(at->first);
    }
    size_t octets = 0;
    room = std::min(room, mostOctets - std::min(all, mostOctets));
    if (auto wrong = readPortions(etcd, sight, keys, mostTexts, room, &octets); !wrong.empty()) return wrong;
    if (octets > room) {
      sight.tooMuch.insert(place);
      for (const std::string& key : keys) {
        if (key != rolloutKey(place)) sight.texts[key].value.clear();
      }
      continue;
    }
    all += octets;
  }
  return "";
}

}  // namespace Agent
