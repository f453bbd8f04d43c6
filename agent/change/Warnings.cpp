#include <agent/change/Warnings.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

#include <functional>
#include <set>

namespace Agent {

namespace {

/// What all sources together define and use.
struct Facts {
  explicit Facts(const Sources& all) : sources(all) {
    all.forEach([this](const std::string&, const Config::Model& model) {
      for (const auto& [key, list] : model.lists) defined.insert(key);
      for (const auto& [key, list] : model.bindings) bound.emplace(key.type, list);
      for (const auto& [name, destinations] : model.mirrorSessions) sessions.insert(name);
    });
  }

  const Sources& sources;
  std::set<Config::Model::ListKey> defined, bound;
  std::set<std::string> sessions;
};

using Warn = std::function<void(std::string sentence)>;

void undefinedLists(const Facts& facts, const Warn& warn) {
  facts.sources.forEach([&](const std::string&, const Config::Model& model) {
    for (const auto& [key, list] : model.bindings) {
      if (facts.defined.contains({key.type, list})) continue;
      warn(fmt::format("interface {}: {} is bound {} but {}", key.interface, listTitle(key.type, list),
                       key.direction, notDefined));
    }
  });
}

void listsBoundNowhere(const Facts& facts, const Warn& warn) {
  for (const auto& key : facts.defined) {
    if (!facts.bound.contains(key)) warn(listTitle(key.first, key.second) + " is bound nowhere");
  }
}

void undefinedSessions(const Facts& facts, const Warn& warn) {
  facts.sources.forEach([&](const std::string&, const Config::Model& model) {
    for (const auto& [key, list] : model.lists) {
      for (const auto& [sequence, rule] : list.rules) {
        const std::string session = Config::common(rule).mirrorSession.str();
        if (session.empty() || facts.sessions.contains(session)) continue;
        warn(fmt::format("{} rule {}: mirror session {} is not defined", listTitle(key.first, key.second),
                         sequence, session));
      }
    }
  });
}

bool hasEmptyGroup(const Config::Rule& rule) {
  return std::visit(
      [](const auto& one) {
        if constexpr (requires { one.filter.alternatives; }) {
          return one.filter.alternatives.given() && one.filter.alternatives.all().empty();
        }
        return false;
      },
      rule);
}

void emptyGroups(const Facts& facts, const Warn& warn) {
  facts.sources.forEach([&](const std::string&, const Config::Model& model) {
    for (const auto& [key, list] : model.lists) {
      for (const auto& [sequence, rule] : list.rules) {
        if (!hasEmptyGroup(rule)) continue;
        warn(fmt::format("{} rule {}: an object-group in it is empty: it matches nothing",
                         listTitle(key.first, key.second), sequence));
      }
    }
  });
}

void interfacesShutDown(const Facts& facts, const Warn& warn) {
  facts.sources.forEach([&](const std::string&, const Config::Model& model) {
    for (const auto& [name, notes] : model.interfaceNotes) {
      if (notes.shutdown)
        warn(fmt::format("interface {}: shutdown is kept and has no effect: traffic goes on", name));
    }
  });
}

/// In the order in which their warnings are told.
constexpr void (*warnings[])(const Facts& facts, const Warn& warn) = {
    undefinedLists, listsBoundNowhere, undefinedSessions, emptyGroups, interfacesShutDown,
};

}  // namespace

std::vector<std::string> warningsOf(const Sources& sources) {
  const Facts facts(sources);
  std::vector<std::string> all;
  for (const auto find : warnings) {
    find(facts, [&all](std::string sentence) { all.push_back(std::move(sentence)); });
  }
  return all;
}

}  // namespace Agent
