#include <agent/proof/Example.h>
#include <agent/proof/OnePacket.h>
#include <agent/proof/TakenSets.h>
#include <agent/study/SearchOfKind.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

using Acl::AclType;
using Proof::MetList;
using Proof::PacketSet;
using What = PacketQuestion::What;

}  // namespace

SearchOfKind::SearchOfKind(const PacketQuestion& asked, AclType type, const PacketWay& way, MetList own,
                           const std::function<Proof::Limits()>& limitsLeft)
    : asked_(asked),
      own_(own),
      lists_(way.lists(type)),
      besides_(besidesOfPlaces(way, type, limitsLeft)),
      sets_(type, limitsLeft()),
      condition_(conditionOf(type)),
      among_(condition_ ? setOf(*condition_, sets_) : sets_.packets()) {}

Json SearchOfKind::answer(Json& unchecked) const {
  if (asked_.all) return answerOf(all(), unchecked);
  const auto packet = one();
  Json answer = {{"type", Acl::stringValue(sets_.type())}, {"found", packet.has_value()}};
  if (packet) answer["example"] = *packet;
  return answer;
}

/// The others are asked before the own list, wherever that stands, or on the whole way.
std::map<size_t, Besides> SearchOfKind::besidesOfPlaces(
    const PacketWay& way, AclType type, const std::function<Proof::Limits()>& limitsLeft) const {
  std::map<size_t, Besides> all;
  for (size_t place = 0; place < PacketWay::places; ++place) {
    if (isOwn(place)) all.emplace(place, besidesOf(way, type, place, limitsLeft()));
  }
  if (!own_) all.emplace(PacketWay::places, besidesOf(way, type, PacketWay::places, limitsLeft()));
  return all;
}

/// It was read when the kinds were chosen.
std::optional<Proof::Condition> SearchOfKind::conditionOf(AclType type) const {
  std::string wrong;
  return asked_.where.empty() ? std::nullopt : Proof::readCondition(type, asked_.where, &wrong);
}

std::vector<SearchOfKind::Wanted> SearchOfKind::all() const {
  std::vector<Wanted> wanted;
  PacketSet passing = among_;
  for (size_t place = 0; place < PacketWay::places; ++place) {
    if (isOwn(place)) {
      const Besides& besides = besides_.at(place);
      const PacketSet coming = passingAmong(besides, passing, sets_);
      wanted.push_back({takenBy(*own_, asked_.rule, coming, sets_), besides, true});
    }
    passing = Proof::permitted(lists_[place], passing, sets_);
  }
  if (own_) return wanted;
  const Besides& besides = besides_.begin()->second;
  if (asked_.what == What::permit) return {{passingAmong(besides, passing, sets_), besides, true}};
  static const Besides none;
  return {{among_ - passing, none, true}, {droppedAmong(besides, among_, sets_), besides, false}};
}

/// One packet, without all of the others where those take much longer.
std::optional<std::string> SearchOfKind::one() const {
  if (asked_.what == What::match) return oneTakenOnWay();
  const Besides& besides = besides_.begin()->second;
  if (asked_.what == What::permit) {
    const auto packet = onePermitted(passingAmong(besides, among_, sets_));
    return packet ? std::optional(exampleIn(besides, true, sets_.type(), *packet)) : std::nullopt;
  }
  for (const MetList list : lists_) {
    if (!list) continue;
    if (const auto packet = oneJudged(list, false, among_, sets_)) return exampleText(sets_.type(), *packet);
  }
  return exampleOf({{droppedAmong(besides, among_, sets_), besides, false}});
}

std::optional<Proof::Packet> SearchOfKind::onePermitted(PacketSet among) const {
  // Of all lists but one it has to be known what passes them, so the longest one is left for the end.
  auto lists = lists_;
  const auto size = [](MetList list) { return list ? list->rules.size() : 0; };
  std::sort(lists.begin(), lists.end(), [&size](MetList a, MetList b) { return size(a) < size(b); });
  for (size_t i = 0; i + 1 < lists.size(); ++i) among = Proof::permitted(lists[i], among, sets_);
  return oneJudged(lists.back(), true, among, sets_);
}

std::optional<std::string> SearchOfKind::oneTakenOnWay() const {
  const size_t place = besides_.begin()->first;
  const bool isFirst = std::all_of(lists_.begin(), lists_.begin() + static_cast<long>(place),
                                   [](MetList list) { return !list; });
  // What comes to a rule behind other lists is known only when all is known that passes those.
  if (!isFirst || besides_.size() > 1) return exampleOf(all());
  const Besides& besides = besides_.begin()->second;
  const auto packet = oneTaken(*own_, asked_.rule, passingAmong(besides, among_, sets_), sets_);
  return packet ? std::optional(exampleIn(besides, true, sets_.type(), *packet)) : std::nullopt;
}

std::optional<std::string> SearchOfKind::exampleOf(const std::vector<Wanted>& wanted) const {
  for (const Wanted& each : wanted) {
    if (!each.packets.isEmpty())
      return exampleIn(each.besides, each.passes, sets_.type(), sets_.exampleOf(each.packets));
  }
  return std::nullopt;
}

Json SearchOfKind::answerOf(const std::vector<Wanted>& wanted, Json& unchecked) const {
  std::vector<PacketSet> parts;
  for (const Wanted& each : wanted) parts.push_back(each.packets);
  const PacketSet packets = joined(parts);
  const auto type = Acl::stringValue(sets_.type());
  Json answer = {{"type", type}, {"found", !packets.isEmpty()}};
  if (packets.isEmpty()) return answer;
  answer["example"] = *exampleOf(wanted);
  try {
    const Proof::Boxes boxes = boxesOf(packets, sets_, loose(), asked_.boxes);
    Json all = Json::array();
    for (const Proof::Box& box : boxes.all) {
      std::vector<Wanted> inBox = wanted;
      for (Wanted& each : inBox) each.packets = each.packets & box.packets;
      all.push_back({{"packets", box.words}, {"example", *exampleOf(inBox)}});
    }
    answer["boxes"] = std::move(all);
    answer["more"] = boxes.more;
  } catch (const Proof::LimitReached& limit) {
    // That there is such a packet is known.
    unchecked.push_back(fmt::format("all of the {} packets: {}", type, limit.what()));
  }
  return answer;
}

Proof::LooseBits SearchOfKind::loose() const {
  Proof::LooseBits loose;
  for (const MetList list : lists_) {
    if (list) loose.add(*list);
  }
  if (condition_) {
    loose.add(sets_.type(), condition_->fields);
    for (const Config::Rule& rule : condition_->without) loose.add(sets_.type(), rule);
  }
  return loose;
}

}  // namespace Agent
