#include <Kelp/Assert.h>
#include <Kiv/Clock.h>
#include <agent/change/Effective.h>
#include <agent/control/ListChoice.h>
#include <agent/control/PacketSearch.h>
#include <agent/core/Words.h>
#include <agent/proof/Boxes.h>
#include <agent/proof/Comparison.h>
#include <agent/proof/Condition.h>
#include <agent/proof/Example.h>
#include <agent/proof/OnePacket.h>
#include <agent/proof/TakenSets.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

using Acl::AclDirection;
using Acl::AclType;
using What = PacketQuestion::What;

constexpr std::array<AclType, 3> listTypes = {AclType::ip, AclType::ipv6, AclType::mac};

/// The lists that packets of one kind meet one after the other; null: a place without one.
using Way = std::vector<Proof::MetList>;

class Searching {
 public:
  Searching(const PacketQuestion& question, const Layers& layers) : asked_(question), effective_(layers) {}

  std::optional<Json> run(std::string* wrong) {
    const auto kinds = kindsAsked(wrong);
    if (kinds.empty()) return std::nullopt;
    bool found = false;
    Json all = Json::array();
    for (const AclType type : kinds) {
      if (auto one = searched(type)) {
        found = found || one->at("found") == true;
        all.push_back(std::move(*one));
      }
    }
    return Json{{"found", found},
                {"possible", possible_},
                {"whole", all.size() == kinds.size() && (asked_.what != What::deny || unchecked_.empty())},
                {"kinds", all},
                {"unchecked", unchecked_}};
  }

 private:
  /// Of all kinds together.
  Proof::Limits limitsLeft() const { return asked_.limits.leftSince(begin_, Kiv::steadyClock().now()); }

  /// The kinds of packets that the question is about; none when something is wrong.
  std::vector<AclType> kindsAsked(std::string* wrong) {
    std::vector<AclType> kinds;
    if (!asked_.list.empty()) {
      const auto key = chosenList(effective_, asked_.list, asked_.type, wrong);
      if (!key || !hasRule(key->first, wrong) || !isMet(key->first, wrong)) return {};
      kinds.push_back(key->first);
    } else {
      for (const AclType type : listTypes) {
        if (asked_.type ? type == *asked_.type : type != AclType::mac) kinds.push_back(type);
      }
    }
    std::string first;
    std::erase_if(kinds, [&](AclType type) {
      std::string why;
      if (asked_.where.empty() || Proof::readCondition(type, asked_.where, &why)) return false;
      if (first.empty()) first = "where: " + why;
      return true;
    });
    if (kinds.empty()) *wrong = first;
    return kinds;
  }
  bool hasRule(AclType type, std::string* wrong) const {
    if (asked_.what != What::match || listOf(type)->rules.contains(asked_.rule)) return true;
    *wrong = fmt::format("{} has no rule {}", listTitle(type, asked_.list), asked_.rule);
    return false;
  }

  bool isMet(AclType type, std::string* wrong) const {
    const Way way = wayOf(type);
    if (std::find(way.begin(), way.end(), listOf(type)) != way.end()) return true;
    *wrong = fmt::format("{} is not on the way", listTitle(type, asked_.list));
    return false;
  }

  Proof::MetList find(const Config::ListKey& key) const {
    const auto at = effective_.lists.find(key);
    return at == effective_.lists.end() ? nullptr : &at->second.model->lists.at(key);
  }
  Proof::MetList listOf(AclType type) const { return find({type, asked_.list}); }

  /// From one port to another, and not only before one list.
  bool isOnAWay() const { return !asked_.from.empty() || !asked_.to.empty(); }

  Way wayOf(AclType type) const {
    if (!isOnAWay()) return {listOf(type)};
    Way way;
    const auto add = [&](const std::string& interface, AclDirection direction) {
      const Config::BindingKey place{type, direction, interface};
      if (effective_.bindings.contains(place)) way.push_back(find({type, effective_.listAt(place)}));
    };
    for (const auto& [port, direction] :
         {std::pair(asked_.from, AclDirection::in), {asked_.to, AclDirection::out}}) {
      if (port.empty()) continue;
      // The lists of a port-channel are asked before those of its member.
      if (const auto channel = effective_.channelOf.find(port); channel != effective_.channelOf.end())
        add(channel->second, direction);
      add(port, direction);
    }
    return way;
  }

  /// Nothing when it cannot be told; why is in unchecked_ then.
  std::optional<Json> searched(AclType type) {
    try {
      const Others others = othersOf(type);
      const Proof::RuleSets sets(type, limitsLeft());
      const Proof::PacketSet among = concerned(type, sets);
      possible_ = possible_ || !among.isEmpty();
      return together(type, others, among, sets);
    } catch (const Proof::LimitReached& limit) {
      unchecked_.push_back(fmt::format("{} packets: {}", typeWord(type), limit.what()));
      return std::nullopt;
    }
  }

  /// What the lists of another kind on the way do to packets that lists of this kind are asked about. IP
  /// lists and MAC lists look at different fields, so that the sets of the one are none of the other.
  enum class Others : uint8_t { none, drop, some };

  Others othersOf(AclType type) const {
    if (type == AclType::mac || !isOnAWay()) return Others::none;  // of MAC lists see shared()
    const Way way = wayOf(AclType::mac);
    if (way.empty()) return Others::none;
    const Proof::RuleSets sets(AclType::mac, limitsLeft());
    const Proof::PacketSet all = ofType(type, sets);
    Proof::PacketSet passing = all;
    for (const Proof::MetList list : way) passing = Proof::permitted(list, passing, sets);
    return passing.isEmpty() ? Others::drop : (all - passing).isEmpty() ? Others::none : Others::some;
  }
  /// The packets of MAC lists that lists of this kind see, too.
  static Proof::PacketSet ofType(AclType type, const Proof::RuleSets& sets) {
    std::string wrong;
    const auto condition =
        Proof::readCondition(AclType::mac, type == AclType::ip ? "any any 0x0800" : "any any 0x86dd", &wrong);
    KELP_ASSERT(condition, wrong);
    return setOf(*condition, sets);
  }
  /// Those that lists of another kind on the way decide about, too.
  Proof::PacketSet shared(AclType type, Others others, const Proof::PacketSet& among,
                          const Proof::RuleSets& sets) const {
    if (others != Others::none) return among;
    Proof::PacketSet all = among - among;
    if (type != AclType::mac || !isOnAWay()) return all;
    for (const AclType other : {AclType::ip, AclType::ipv6}) {
      if (!wayOf(other).empty()) all = all | ofType(other, sets);
    }
    return all & among;
  }

  /// What passes has to pass the lists of each kind; what those of one drop is dropped.
  std::optional<Json> together(AclType type, Others others, const Proof::PacketSet& among,
                               const Proof::RuleSets& sets) {
    if (others == Others::drop && asked_.what != What::match)
      return answer(type, sets, asked_.what == What::deny ? among : among - among);
    const Proof::PacketSet open = shared(type, others, among, sets);
    // What comes to a rule behind other lists is known only when all is known that passes those.
    const bool behindOthers = asked_.what == What::match && wayOf(type).size() > 1;
    if (!asked_.all && !behindOthers && open.isEmpty()) return answer(type, onePacket(type, among, sets));
    const Proof::PacketSet packets = wanted(type, among, sets);
    if (asked_.what != What::deny) {
      const Proof::PacketSet sure = packets - open;
      if (sure != packets) noteOthers(type);
      if (sure.isEmpty() && !packets.isEmpty()) return std::nullopt;
      return answer(type, sets, sure);
    }
    if (!open.isEmpty()) {
      noteOthers(type);
      if (packets.isEmpty()) return std::nullopt;
    }
    return answer(type, sets, packets);
  }
  void noteOthers(AclType type) {
    const Json note =
        fmt::format("what the {} lists on the way do to these packets", type == AclType::mac ? "IP" : "MAC");
    if (std::find(unchecked_.begin(), unchecked_.end(), note) == unchecked_.end()) unchecked_.push_back(note);
  }

  static std::string typeWord(AclType type) { return listWords(type, "").at("type").get<std::string>(); }

  /// It was read when the kinds were chosen.
  std::optional<Proof::Condition> conditionOf(AclType type) const {
    std::string wrong;
    return Proof::readCondition(type, asked_.where, &wrong);
  }
  Proof::PacketSet concerned(AclType type, const Proof::RuleSets& sets) const {
    return asked_.where.empty() ? sets.packets() : setOf(*conditionOf(type), sets);
  }

  Proof::PacketSet wanted(AclType type, const Proof::PacketSet& among, const Proof::RuleSets& sets) const {
    const Proof::MetList own = asked_.what == What::match ? listOf(type) : nullptr;
    Proof::PacketSet passing = among, taken = among - among;
    const Way way = wayOf(type);
    for (const Proof::MetList list : way) {
      if (own && list == own) taken = taken | takenBy(*list, asked_.rule, passing, sets);
      // What comes to the only list there is needs no more.
      if (!own || way.size() > 1) passing = Proof::permitted(list, passing, sets);
    }
    if (own) return taken;
    return asked_.what == What::permit ? passing : among - passing;
  }

  /// One that is wanted on the way: without all of the others, which take much longer.
  std::optional<Proof::Packet> onePacket(AclType type, const Proof::PacketSet& among,
                                         const Proof::RuleSets& sets) const {
    Way way = wayOf(type);
    if (asked_.what == What::match) return oneTaken(*listOf(type), asked_.rule, among, sets);
    if (asked_.what == What::deny) {
      for (const Proof::MetList list : way) {
        if (auto packet = oneJudged(list, false, among, sets)) return packet;
      }
      return std::nullopt;
    }
    // Of all lists but one it has to be known what passes them, so the longest one is left for the end.
    const auto size = [](Proof::MetList list) { return list ? list->rules.size() : 0; };
    std::sort(way.begin(), way.end(),
              [&size](Proof::MetList a, Proof::MetList b) { return size(a) < size(b); });
    Proof::PacketSet passing = among;
    for (size_t i = 0; i + 1 < way.size(); ++i) passing = Proof::permitted(way[i], passing, sets);
    return oneJudged(way.empty() ? nullptr : way.back(), true, passing, sets);
  }

  static Json answer(AclType type, const std::optional<Proof::Packet>& packet) {
    Json one = {{"type", typeWord(type)}, {"found", packet.has_value()}};
    if (packet) one["example"] = exampleText(type, *packet);
    return one;
  }
  Json answer(AclType type, const Proof::RuleSets& sets, const Proof::PacketSet& packets) {
    Json one = answer(type, packets.isEmpty() ? std::nullopt : std::optional(sets.exampleOf(packets)));
    if (packets.isEmpty() || !asked_.all) return one;
    Proof::LooseBits loose;
    for (const Proof::MetList list : wayOf(type)) {
      if (list) loose.add(*list);
    }
    if (!asked_.where.empty()) {
      const auto condition = conditionOf(type);
      loose.add(type, condition->fields);
      for (const Config::Rule& rule : condition->without) loose.add(type, rule);
    }
    try {
      const Proof::Boxes boxes = boxesOf(packets, sets, loose, asked_.boxes);
      Json all = Json::array();
      for (const Proof::Box& box : boxes.all)
        all.push_back({{"packets", box.words}, {"example", exampleText(type, sets.exampleOf(box.packets))}});
      one["boxes"] = std::move(all);
      one["more"] = boxes.more;
    } catch (const Proof::LimitReached& limit) {
      // That there is such a packet is known.
      unchecked_.push_back(fmt::format("all of the {} packets: {}", typeWord(type), limit.what()));
    }
    return one;
  }

  const PacketQuestion& asked_;
  const Effective effective_;
  const Kelp::Duration begin_ = Kiv::steadyClock().now();
  bool possible_ = false;
  Json unchecked_ = Json::array();
};

}  // namespace

std::optional<Json> packetSearch(const PacketQuestion& question, const Layers& layers, std::string* wrong) {
  return Searching(question, layers).run(wrong);
}

std::string packetSearchText(const Json& document) {
  std::string text;
  for (const Json& kind : document.at("kinds")) {
    if (kind.at("found") == false) continue;
    if (!kind.contains("boxes")) {
      text += kind.at("example").get<std::string>() + "\n";
      continue;
    }
    for (const Json& box : kind.at("boxes"))
      text += fmt::format("{}\n  for example: {}\n", box.at("packets").get<std::string>(),
                          box.at("example").get<std::string>());
    if (kind.at("more") == true) text += "and more (--boxes tells more of them)\n";
  }
  if (document.at("found") == false && document.at("whole") == true) text += "no such packet\n";
  for (const Json& what : document.at("unchecked"))
    text += fmt::format("not checked: {}\n", what.get<std::string>());
  return text;
}

}  // namespace Agent
