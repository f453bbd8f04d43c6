#include <agent/change/Openings.h>
#include <agent/change/WarningCollector.h>
#include <agent/change/Warnings.h>
#include <agent/config/Nearest.h>
#include <agent/config/Sentences.h>
#include <agent/config/Titles.h>
#include <agent/core/Words.h>

#include <algorithm>
#include <set>

namespace Agent {

namespace {

/// What the warnings are found in.
struct Facts {
  const Layers& layers;
  const Effective& effective;
  const PortNames* ports;
  const Filtering& filtering;
};

using Owner = Effective::Owner;

void whatTheReaderNoticed(const Facts& facts, WarningCollector& found) {
  for (const auto& [source, model] : facts.layers) {
    for (const Warning& warning : model->notices.warnings) found.add(warning);
    if (const size_t more = model->notices.moreWarnings; more > 0)
      found.add("more-warnings", {}, [more, &source = source] {
        return fmt::format("{} has {} more", sourceTitle(source), more);
      });
  }
}

void listsBoundNowhere(const Facts& facts, WarningCollector& found) {
  std::set<Config::ListKey> bound;
  for (const auto& [key, owner] : facts.effective.bindings)
    bound.emplace(key.type, facts.effective.listAt(key));
  for (const auto& [key, owner] : facts.effective.lists) {
    if (bound.contains(key)) continue;
    const auto& notices = owner.model->notices;
    found.add("list-unbound", notices.placeOf(notices.lists, key),
              [&, &key = key] { return listTitle(key.first, key.second) + " is bound nowhere"; });
  }
}

void listsThatFilterNothing(const Facts& facts, WarningCollector& found) {
  for (const Config::BindingKey& key : facts.filtering.passing) {
    const auto& notices = facts.effective.bindings.at(key).model->notices;
    found.add("list-filters-nothing", notices.placeOf(notices.bindings, key), [&] {
      return fmt::format("interface {}: {} is bound {} and permits everything: it filters nothing there",
                         key.interface, listTitle(key.type, facts.effective.listAt(key)),
                         Acl::stringValue(key.direction));
    });
  }
}

void remarksWithoutRule(const Facts& facts, WarningCollector& found) {
  for (const auto& [key, owner] : facts.effective.lists) {
    const Config::List& list = owner.model->lists.at(key);
    if (!list.rules.empty() || list.pendingRemarks.empty()) continue;
    const auto& notices = owner.model->notices;
    found.add("remark-without-rule", notices.placeOf(notices.lists, key), [&, &key = key] {
      return fmt::format("{} has a remark and no rule: it drops everything",
                         listTitle(key.first, key.second));
    });
  }
}

/// Calls visit(list's key, rule, place) for every rule in force.
template <class Visit>
void forEachRule(const Effective& effective, const Visit& visit) {
  for (const auto& [key, owner] : effective.lists) {
    const auto& notices = owner.model->notices;
    for (const auto& [sequence, rule] : owner.model->lists.at(key).rules)
      visit(key, rule, [&, &key = key, sequence = sequence] {
        return notices.placeOf(notices.rules, std::pair(key, sequence));
      });
  }
}

void undefinedSessions(const Facts& facts, WarningCollector& found) {
  forEachRule(facts.effective, [&](const Config::ListKey& key, const Config::Rule& rule, const auto& place) {
    const auto session = Config::common(rule).mirrorSession.view();
    if (session.empty() || facts.effective.mirrorSessions.contains(std::string(session))) return;
    found.add("session-undefined", place(), [&] {
      std::vector<std::string_view> names;
      for (const auto& [name, owner] : facts.effective.mirrorSessions) names.push_back(name);
      return Config::orNearest(
          fmt::format("{}: mirror session {} is not defined: nothing is copied",
                      Config::ruleOfList(key.first, key.second, Config::common(rule).sequence), session),
          session, names);
    });
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

void emptyGroups(const Facts& facts, WarningCollector& found) {
  forEachRule(facts.effective, [&](const Config::ListKey& key, const Config::Rule& rule, const auto& place) {
    if (!hasEmptyGroup(rule)) return;
    found.add("empty-group", place(), [&] {
      return fmt::format("{}: an object-group in it is empty: it matches nothing",
                         Config::ruleOfList(key.first, key.second, Config::common(rule).sequence));
    });
  });
}

void interfacesShutDown(const Facts& facts, WarningCollector& found) {
  for (const auto& [source, model] : facts.layers) {
    for (const auto& [name, notes] : model->interfaceNotes) {
      if (!notes.shutdown) continue;
      found.add("shutdown", model->notices.placeOf(model->notices.shutdowns, name), [&, &name = name] {
        return fmt::format("interface {}: {}", name, Config::shutdownHasNoEffect);
      });
    }
  }
}

void sessionsWithoutPort(const Facts& facts, WarningCollector& found) {
  if (!facts.ports) return;
  for (const auto& [name, owner] : facts.effective.mirrorSessions) {
    const auto& notices = owner.model->notices;
    for (const std::string& destination : owner.model->mirrorSessions.at(name)) {
      if (leadsToPort(facts.effective, facts.ports, destination)) continue;
      found.add("session-without-port", notices.placeOf(notices.mirrorSessions, name), [&, &name = name] {
        return fmt::format("mirror session {}: {} is no port{}: copies to it are lost", name, destination,
                           nearestPorts(*facts.ports, destination));
      });
    }
  }
}

void membersWithoutPort(const Facts& facts, WarningCollector& found) {
  if (!facts.ports) return;
  for (const auto& [member, channel] : facts.effective.channelOf) {
    if (facts.ports->contains(member)) continue;
    const auto& notices = facts.effective.portChannels.at(channel).model->notices;
    found.add("member-without-port", notices.placeOf(notices.portChannels, channel),
              [&, &member = member, &channel = channel] {
                return fmt::format("port-channel {}: its member {} is no port{}", channel, member,
                                   nearestPorts(*facts.ports, member));
              });
  }
}

/// Tells of each thing of a kind that a layer defines, and another one of higher precedence, too.
template <class Things, class Owners, class Title>
void overridden(const Facts& facts, Things Config::Model::*things, const Owners& owners,
                const std::map<typename Owners::key_type, Config::Spot> Config::Notices::*spots,
                const Title& title, WarningCollector& found) {
  for (const auto& [source, model] : facts.layers) {
    for (const auto& [key, thing] : model->*things) {
      const Owner& owner = owners.at(key);
      if (owner.model == model) continue;
      found.add("defined-twice", model->notices.placeOf(model->notices.*spots, key),
                [&, &key = key, &source = source, &model = model] {
                  return fmt::format("{} of {} is not in force: that of {} is", title(key, *model),
                                     sourceTitle(source), sourceTitle(owner.source));
                });
    }
  }
}

void definedTwice(const Facts& facts, WarningCollector& found) {
  using Config::Model;
  using Config::Notices;
  const auto named = [](const char* what) {
    return [what](const std::string& name, const Model&) { return fmt::format("{} {}", what, name); };
  };
  const Effective& all = facts.effective;
  overridden(
      facts, &Model::lists, all.lists, &Notices::lists,
      [](const auto& key, const Model&) { return listTitle(key.first, key.second); }, found);
  overridden(
      facts, &Model::bindings, all.bindings, &Notices::bindings,
      [](const auto& key, const Model& model) { return bindingTitle(key, model.bindings.at(key)); }, found);
  overridden(facts, &Model::portChannels, all.portChannels, &Notices::portChannels, named("port-channel"),
             found);
  overridden(facts, &Model::mirrorSessions, all.mirrorSessions, &Notices::mirrorSessions,
             named("mirror session"), found);
}

/// In the order in which their warnings are told.
constexpr void (*finders[])(const Facts& facts, WarningCollector& found) = {
    whatTheReaderNoticed, definedTwice,       listsBoundNowhere,   listsThatFilterNothing,
    remarksWithoutRule,   undefinedSessions,  sessionsWithoutPort, membersWithoutPort,
    emptyGroups,          interfacesShutDown,
};

Warnings surprises(const Facts& facts) {
  WarningCollector found;
  for (const auto find : finders) find(facts, found);
  return found.take();
}

ChangeWarnings withSurprises(const Effective& before, const Filtering& was, const Layers& after,
                             const PortNames* ports) {
  const Effective is(after);
  Filtering filtering(is, ports);
  const Warnings other = surprises({after, is, ports, filtering});
  ChangeWarnings all = openings(before, was, is, std::move(filtering), ports);
  all.lasting.insert(all.lasting.end(), other.begin(), other.end());
  all.told.insert(all.told.end(), other.begin(), other.end());
  all.uncovered = uncovered(before, is);
  return all;
}

}  // namespace

Warnings lastingWarnings(const Layers& layers, const PortNames* ports) {
  return changeWarnings(layers, layers, ports).lasting;
}

ChangeWarnings changeWarnings(const Layers& before, const Layers& after, const PortNames* ports) {
  const Effective was(before);
  return withSurprises(was, Filtering(was, ports), after, ports);
}

ChangeWarnings startWarnings(const SharedFilteredPorts& last, const Layers& layers, const PortNames* ports) {
  Filtering was;
  if (last) was.filtered = *last;
  return withSurprises(Effective({}), was, layers, ports);
}

std::optional<std::string> whyRefused(const ChangeWarnings& warnings, const Leave& leave) {
  const bool opens = !warnings.openings.empty() && !leave.openings;
  if (!opens && !(leave.strict && !warnings.told.empty())) return std::nullopt;
  const Warnings& all = opens ? warnings.openings : warnings.told;
  constexpr size_t most = 3;
  std::string text;
  for (size_t i = 0; i < std::min(all.size(), most); ++i) text += (i > 0 ? "; " : "") + all[i].text;
  if (all.size() > most) text += fmt::format("; and {} more", all.size() - most);
  return fmt::format("{} ({})", text, opens ? "--allow-open carries it out" : "refused because of --strict");
}

}  // namespace Agent
