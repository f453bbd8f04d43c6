#include <Kiv/Clock.h>
#include <agent/change/Effective.h>
#include <agent/config/Mistake.h>
#include <agent/config/Sentences.h>
#include <agent/core/Words.h>
#include <agent/proof/Condition.h>
#include <agent/study/ListChoice.h>
#include <agent/study/PacketSearch.h>
#include <agent/study/PacketWay.h>
#include <agent/study/SearchOfKind.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

using Acl::AclType;
using Proof::MetList;
using What = PacketQuestion::What;

constexpr std::array<AclType, 3> listTypes = {AclType::ip, AclType::ipv6, AclType::mac};

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
                {"whole", all.size() == kinds.size()},
                {"kinds", all},
                {"unchecked", unchecked_}};
  }

 private:
  /// The kinds of packets that the question is about; none when something is wrong.
  std::vector<AclType> kindsAsked(std::string* wrong) const {
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
    if (asked_.where.empty()) return kinds;
    Config::Cursor::Problem problem;
    kinds = Proof::kindsOfCondition(asked_.where, kinds, &problem);
    if (kinds.empty()) *wrong = "where: " + Config::mistakeText(problem.found, problem.expected);
    return kinds;
  }
  bool hasRule(AclType type, std::string* wrong) const {
    if (asked_.what != What::match || listOf(type)->rules.contains(asked_.rule)) return true;
    std::vector<uint32_t> numbers;
    for (const auto& [number, rule] : listOf(type)->rules) numbers.push_back(number);
    *wrong = Config::noSuchRule(listTitle(type, asked_.list), asked_.rule, numbers);
    return false;
  }
  bool isMet(AclType type, std::string* wrong) const {
    const auto lists = wayOf(type).lists(type);
    if (std::find(lists.begin(), lists.end(), listOf(type)) != lists.end()) return true;
    *wrong = fmt::format("{} is not on the way", listTitle(type, asked_.list));
    return false;
  }

  /// The list that the question names.
  MetList listOf(AclType type) const {
    const auto at = effective_.lists.find({type, asked_.list});
    return at == effective_.lists.end() ? nullptr : &at->second.model->lists.at(at->first);
  }
  PacketWay wayOf(AclType type) const {
    const bool ports = !asked_.from.empty() || !asked_.to.empty();
    return ports ? PacketWay(effective_, asked_.from, asked_.to) : PacketWay(listOf(type));
  }

  /// Nothing when it cannot be told; why is in unchecked_ then.
  std::optional<Json> searched(AclType type) {
    try {
      const auto limitsLeft = [this] { return asked_.limits.leftSince(begin_, Kiv::steadyClock().now()); };
      const MetList own = asked_.what == What::match ? listOf(type) : nullptr;
      const SearchOfKind search(asked_, type, wayOf(type), own, limitsLeft);
      possible_ = possible_ || search.isPossible();
      return search.answer(unchecked_);
    } catch (const Proof::LimitReached& limit) {
      unchecked_.push_back(fmt::format("{} packets: {}", Acl::stringValue(type), limit.what()));
      return std::nullopt;
    }
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
