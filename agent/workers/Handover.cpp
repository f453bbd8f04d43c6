#include <agent/change/ListRules.h>
#include <agent/change/SourceEntities.h>
#include <agent/config/Reader.h>
#include <agent/config/Writer.h>
#include <agent/workers/Handover.h>
#include <agent/workers/Packed.h>

#include <utility>

namespace Agent {

namespace {

using HandoverJson = nlohmann::ordered_json;

Acl::AclType typeIn(const HandoverJson& json) { return static_cast<Acl::AclType>(json.get<int>()); }

HandoverJson idsJson(const Core::Source& source, const Config::Model& model) {
  HandoverJson lists = HandoverJson::array();
  for (const auto& [key, list] : model.lists) {
    const ListRules rules = rulesOf(*source.lists, key);
    HandoverJson ids = HandoverJson::array();
    for (const auto& [number, rule] : list.rules) ids.push_back(rules.idAt(number).value());
    lists.push_back({static_cast<int>(key.first), key.second, std::move(ids)});
  }
  return lists;
}

/// The rules that are new, by list: their numbers and ids.
HandoverJson freshJson(const SourceChange& change) {
  HandoverJson lists = HandoverJson::array();
  for (const ListChange& list : change.lists) {
    HandoverJson fresh = HandoverJson::array();
    for (const auto& written : list.written) {
      if (written.from == ListChange::Written::fresh)
        fresh.push_back({Config::common(*written.rule).sequence, written.id.value()});
    }
    lists.push_back({static_cast<int>(list.key.first), list.key.second, std::move(fresh)});
  }
  return lists;
}

/// Gives the rules that are new here the ids that they are to have. False when they are not the same rules.
bool idsAre(SourceChange& change, const HandoverJson& lists) {
  if (lists.size() != change.lists.size()) return false;
  auto given = lists.begin();
  for (ListChange& list : change.lists) {
    const HandoverJson& from = *given++;
    if (typeIn(from.at(0)) != list.key.first || from.at(1) != list.key.second) return false;
    auto fresh = from.at(2).begin();
    for (auto& written : list.written) {
      if (written.from != ListChange::Written::fresh) continue;
      if (fresh == from.at(2).end() || fresh->at(0) != Config::common(*written.rule).sequence) return false;
      written.id = Kiv::UniqueId((fresh++)->at(1).get<uint64_t>());
    }
    if (fresh != from.at(2).end()) return false;
  }
  return true;
}

std::optional<Config::Model> modelIn(const HandoverJson& text) {
  return Config::read({{"", text.get<std::string>()}}).model;
}

}  // namespace

std::string handoverText(Core& core, const Sources& sources) {
  HandoverJson all = HandoverJson::array();
  sources.forEach([&](const std::string& name, const Config::Model& model) {
    all.push_back(
        {{"name", name}, {"text", Config::textOf(model)}, {"lists", idsJson(core.sourceIs(name), model)}});
  });
  return packed(all);
}

std::optional<Handover> readHandover(const std::string& text) {
  Handover read;
  const HandoverJson all = unpacked(text);
  for (const HandoverJson& source : all) {
    const auto name = source.at("name").get<std::string>();
    auto model = modelIn(source.at("text"));
    if (!model) return std::nullopt;
    read.sources.exchange(name, std::move(*model));
    for (const HandoverJson& list : source.at("lists")) {
      auto& ids = read.ids[{Core::sourceName(name), {typeIn(list.at(0)), list.at(1).get<std::string>()}}];
      for (const HandoverJson& id : list.at(2)) ids.emplace_back(id.get<uint64_t>());
    }
  }
  return read;
}

std::vector<Kiv::UniqueId> Handover::idsOf(const std::string& source, const Config::List& list) const {
  const auto known = ids.find({source, {list.type, list.name}});
  return known == ids.end() ? std::vector<Kiv::UniqueId>() : known->second;
}

std::string changeOrderText(const SourceChange& change) {
  return packed({{"name", change.source},
                 {"text", change.goes ? HandoverJson() : HandoverJson(*change.text)},
                 {"lists", freshJson(change)}});
}

std::optional<ChangeOrder> readChangeOrder(const std::string& text, const Sources& inForce,
                                           std::string& wrong) {
  const HandoverJson order = unpacked(text);
  ChangeOrder read{{order.at("name").get<std::string>(), std::nullopt}, {}};
  if (!order.at("text").is_null()) read.content.model = modelIn(order.at("text"));
  const bool unread = !order.at("text").is_null() && !read.content.model;
  if (!unread) {
    auto& model = read.content.model;
    read.writes = sourceChange(inForce, read.content.source, model ? &*model : nullptr);
  }
  if (!unread && idsAre(read.writes, order.at("lists"))) return read;
  wrong = unread ? "the text cannot be read" : "it has not the same configuration in force";
  return std::nullopt;
}

}  // namespace Agent
