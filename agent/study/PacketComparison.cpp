#include <Kiv/Clock.h>
#include <agent/change/Effective.h>
#include <agent/core/Words.h>
#include <agent/proof/Comparison.h>
#include <agent/proof/Example.h>
#include <agent/study/PacketComparison.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

using Config::BindingKey;
using Config::ListKey;
using Proof::MetList;

/// A change that is told in boxes: its member in documents, and whether it is one of verdicts.
struct ChangeOfPackets {
  const char* member;
  Proof::Changed Proof::ListComparison::*changed;
};
constexpr ChangeOfPackets changesOfPackets[] = {{"opened", &Proof::ListComparison::opened},
                                                {"closed", &Proof::ListComparison::closed},
                                                {"mirrored", &Proof::ListComparison::mirrored},
                                                {"logged", &Proof::ListComparison::logged},
                                                {"counted", &Proof::ListComparison::counted}};

/// A configuration as packets meet it.
struct Side {
  explicit Side(const Layers& layers) : effective(layers) {}

  MetList find(const ListKey& key) const {
    const auto at = effective.lists.find(key);
    return at == effective.lists.end() ? nullptr : &at->second.model->lists.at(key);
  }
  std::optional<std::string> boundAt(const BindingKey& place) const {
    if (!effective.bindings.contains(place)) return std::nullopt;
    return effective.listAt(place);
  }
  MetList metAt(const BindingKey& place) const {
    const auto name = boundAt(place);
    return name ? find({place.type, *name}) : nullptr;
  }

  Effective effective;
};

std::set<BindingKey> placesOf(const Side& before, const Side& after) {
  std::set<BindingKey> places;
  for (const Side* side : {&before, &after}) {
    for (const auto& [place, owner] : side->effective.bindings) places.insert(place);
  }
  return places;
}

Json rulesJson(const Proof::Deciding& rules, MetList list) {
  Json all = Json::array();
  for (const uint32_t each : rules) {
    if (each != 0)
      all.push_back(ruleWords(each, Config::common(list->rules.at(each)).text.str()));
    else
      all.push_back(list ? "no rule" : "no list");
  }
  return all;
}

class Comparing {
 public:
  Comparing(const Layers& before, const Layers& after, const CompareLimits& limits)
      : before_(before), after_(after), limits_(limits), begin_(Kiv::steadyClock().now()) {}

  Json run() {
    Json lists = Json::array(), bindings = Json::array();
    for (const auto& [key, owner] : before_.effective.lists) {
      if (!after_.find(key)) continue;
      Json places = placesWith(key);
      if (auto words = compared(key.first, before_.find(key), after_.find(key),
                                listTitle(key.first, key.second), !places.empty()))
        lists.push_back(with({listWords(key.first, key.second), {{"bound", std::move(places)}}}, *words));
    }
    for (const BindingKey& place : placesOf(before_, after_)) {
      const auto was = before_.boundAt(place), is = after_.boundAt(place);
      const MetList wasMet = before_.metAt(place), isMet = after_.metAt(place);
      if (was == is && (wasMet != nullptr) == (isMet != nullptr)) continue;
      const std::string what =
          fmt::format("{}: {} access-group", boundAt(place.interface, Acl::stringValue(place.direction)),
                      Acl::stringValue(place.type));
      if (auto words = compared(place.type, wasMet, isMet, what, true))
        bindings.push_back(
            with({bindingWords(place), {{"listBefore", named(was, wasMet)}, {"listAfter", named(is, isMet)}}},
                 *words));
    }
    Json notes = notesOnNames();
    addNotesOnWays(notes);
    const bool whole = unchecked_.empty();
    return {{"same", same_ && whole}, {"sameTraffic", sameTraffic_ && whole},
            {"different", !same_},    {"lists", lists},
            {"bindings", bindings},   {"notes", notes},
            {"unchecked", unchecked_}};
  }

 private:
  static Json with(std::initializer_list<Json> parts, const Json& words) {
    Json all = Json::object();
    for (const Json& each : parts) all.update(each);
    all.update(words);
    return all;
  }
  static Json named(const std::optional<std::string>& name, MetList met) {
    if (!name) return nullptr;
    return met ? *name : *name + ", which is not defined";
  }

  /// Where a list is bound in both configurations.
  Json placesWith(const ListKey& key) const {
    Json places = Json::array();
    for (const auto& [place, owner] : before_.effective.bindings) {
      if (place.type == key.first && before_.effective.listAt(place) == key.second &&
          after_.boundAt(place) == key.second)
        places.push_back(boundAtWords(place.interface, place.direction));
    }
    return places;
  }

  /// What changes from one list to another; nothing if nothing does.
  std::optional<Json> compared(Acl::AclType type, MetList before, MetList after, const std::string& what,
                               bool traffic) {
    if (before == after || (before && after && before->rules == after->rules)) return std::nullopt;
    try {
      const Proof::RuleSets sets(type, limits_.proof.leftSince(begin_, Kiv::steadyClock().now()));
      const auto found = Proof::compare(before, after, sets, limits_.boxes);
      if (found.isSame()) return std::nullopt;
      if (!found.sameVerdicts()) {
        same_ = false;
        sameTraffic_ = sameTraffic_ && !traffic;
      }
      return wordsOf(found, type, before, after);
    } catch (const Proof::LimitReached& limit) {
      unchecked_.push_back(fmt::format("{}: {}", what, limit.what()));
      return std::nullopt;
    }
  }

  static Json wordsOf(const Proof::ListComparison& found, Acl::AclType type, MetList before, MetList after) {
    Json words = {{"sameVerdicts", found.sameVerdicts()}};
    for (const ChangeOfPackets& each : changesOfPackets) {
      const Proof::Changed& changed = found.*each.changed;
      Json boxes = Json::array();
      for (const Proof::ChangedBox& box : changed.boxes)
        boxes.push_back({{"packets", box.words},
                         {"before", rulesJson(box.before, before)},
                         {"after", rulesJson(box.after, after)},
                         {"example", exampleText(type, box.example)}});
      words[each.member] = {{"boxes", std::move(boxes)}, {"more", changed.more}};
    }
    return words;
  }

  /// The lists that are there only before or after. Of one that has the same rules under another name that is
  /// told.
  Json notesOnNames() const {
    std::vector<ListKey> come;
    for (const auto& [key, owner] : after_.effective.lists) {
      if (!before_.find(key)) come.push_back(key);
    }
    Json notes = Json::array();
    for (const auto& each : before_.effective.lists) {
      const ListKey& key = each.first;
      if (after_.find(key)) continue;
      const std::string title = listTitle(key.first, key.second);
      const auto same = std::find_if(come.begin(), come.end(), [&](const ListKey& other) {
        return other.first == key.first && after_.find(other)->rules == before_.find(key)->rules;
      });
      if (same == come.end()) {
        notes.push_back(title + " is no longer there");
        continue;
      }
      notes.push_back(fmt::format("{} is called {} and has the same rules", title, same->second));
      come.erase(same);
    }
    for (const ListKey& key : come) notes.push_back(listTitle(key.first, key.second) + " is new");
    return notes;
  }

  /// What decides which lists packets meet, and where copies of them go.
  void addNotesOnWays(Json& notes) {
    const auto membersOf = [](const Side& side, const std::string& name) {
      const auto at = side.effective.portChannels.find(name);
      return at == side.effective.portChannels.end() ? std::set<std::string>()
                                                     : setOf(at->second.model->portChannels.at(name));
    };
    for (const std::string& name : namesOf(&Effective::portChannels)) {
      if (membersOf(before_, name) == membersOf(after_, name)) continue;
      notes.push_back(fmt::format("port-channel {} has other members: its lists filter other ports", name));
      if (isFiltered(name)) same_ = sameTraffic_ = false;
    }
    const auto destinationsOf = [](const Side& side, const std::string& name) {
      const auto at = side.effective.mirrorSessions.find(name);
      return at == side.effective.mirrorSessions.end() ? std::set<std::string>()
                                                       : setOf(at->second.model->mirrorSessions.at(name));
    };
    for (const std::string& name : namesOf(&Effective::mirrorSessions)) {
      if (destinationsOf(before_, name) != destinationsOf(after_, name))
        notes.push_back(fmt::format("mirror session {} has other destinations", name));
    }
  }
  static std::set<std::string> setOf(const std::vector<std::string>& names) {
    return {names.begin(), names.end()};
  }
  std::set<std::string> namesOf(std::map<std::string, Effective::Owner> Effective::*part) const {
    std::set<std::string> names;
    for (const Side* side : {&before_, &after_}) {
      for (const auto& [name, owner] : side->effective.*part) names.insert(name);
    }
    return names;
  }
  bool isFiltered(const std::string& interface) const {
    const auto places = placesOf(before_, after_);
    return std::any_of(places.begin(), places.end(),
                       [&](const BindingKey& place) { return place.interface == interface; });
  }

  const Side before_, after_;
  const CompareLimits& limits_;
  const Kelp::Duration begin_;
  bool same_ = true, sameTraffic_ = true;
  Json unchecked_ = Json::array();
};

}  // namespace

Json packetComparison(const Layers& before, const Layers& after, const CompareLimits& limits) {
  return Comparing(before, after, limits).run();
}

}  // namespace Agent
