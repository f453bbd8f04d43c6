#include <agent/config/Groups.h>
#include <agent/config/Titles.h>
#include <agent/config/Writer.h>
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <set>
#include <string_view>

namespace Config {

namespace {

using Acl::AclDirection;

constexpr std::string_view memberWord = "group-object";

/// A text with other names behind each `keyword`.
std::string withGroupNames(std::string_view text, std::string_view keyword, const Choice& choice) {
  std::string out;
  bool isName = false;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    const std::string word(text.substr(0, end));
    if (!out.empty()) out += ' ';
    out += isName ? choice.groupName(word) : word;
    isName = !isName && word == keyword;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return out;
}

void writeGroup(const std::string& name, const ObjectGroup& group, const Choice& choice, std::string& text) {
  text += fmt::format("object-group {} {}\n", group.service ? "service" : "network", choice.groupName(name));
  for (const auto& member : group.members)
    text += fmt::format("   {}\n", withGroupNames(member, memberWord, choice));
}

void writeRemarks(std::string_view lines, std::string& text) {
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    text += fmt::format("   remark {}\n", lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
}

void writeRule(const Rule& rule, const Choice& choice, std::string& text) {
  const Acl::RuleBase& base = common(rule);
  writeRemarks(base.remark.view(), text);
  text += fmt::format("   {} {}\n", base.sequence, withGroupNames(base.text.view(), groupWord, choice));
}

void writeNames(std::string_view words, std::string_view keyword, const auto& named, std::string& text) {
  text += fmt::format("{} {} {} {}\n", words, named.first, keyword, fmt::join(named.second, " "));
}

/// Those that have something, by name.
std::set<std::string> interfacesOf(const Model& model, const std::string& behind) {
  std::set<std::string> names;
  for (const auto& [name, notes] : model.interfaceNotes) {
    if (behind < name) names.insert(name);
  }
  for (const auto& [key, list] : model.bindings) {
    if (behind < key.interface) names.insert(key.interface);
  }
  return names;
}

void writeInterface(const Model& model, const std::string& name, const Choice& choice, std::string& text) {
  std::string statements;
  const auto notes = model.interfaceNotes.find(name);
  if (notes != model.interfaceNotes.end() && choice.hasNotes(name)) {
    if (!notes->second.description.empty())
      statements += fmt::format("   description {}\n", notes->second.description);
    if (notes->second.shutdown) statements += "   shutdown\n";
  }
  for (const auto type : Acl::aclTypes) {
    for (const auto direction : {AclDirection::in, AclDirection::out}) {
      const BindingKey key{type, direction, name};
      const auto binding = model.bindings.find(key);
      if (binding == model.bindings.end() || !choice.hasBinding(key)) continue;
      statements += fmt::format("   {} access-group {} {}\n", Acl::stringValue(type), binding->second,
                                Acl::stringValue(direction));
    }
  }
  if (!statements.empty()) text += fmt::format("interface {}\n{}", name, statements);
}

}  // namespace

/// Writes the next one of the open part; false when there is none.
template <class Map, class Write>
bool Writer::named(const Map& map, const Write& write) {
  const auto next = map.upper_bound(name_);
  if (next == map.end()) return false;
  name_ = next->first;
  write(*next);
  return true;
}

/// The same for lists, of which as many rules as have room before `end`.
bool Writer::list(const Model& model, const Choice& choice, std::string& text, size_t end) {
  if (!inList_) {
    auto next = list_.second.empty() ? model.lists.begin() : model.lists.upper_bound(list_);
    while (next != model.lists.end() && !choice.hasList(next->first)) ++next;
    if (next == model.lists.end()) return false;
    list_ = next->first;
    number_ = 0;
    inList_ = true;
    text += listStatement(next->second);
  }
  const auto known = model.lists.find(list_);
  inList_ = known != model.lists.end();
  if (!inList_) return true;
  const List& list = known->second;
  for (auto rule = list.rules.upper_bound(number_); text.size() < end; ++rule) {
    if (rule == list.rules.end()) {
      for (const auto& remark : list.pendingRemarks) writeRemarks(remark, text);
      inList_ = false;
      return true;
    }
    writeRule(rule->second, choice, text);
    number_ = rule->first;
  }
  return true;
}

bool Writer::interface(const Model& model, const Choice& choice, std::string& text) {
  const auto names = interfacesOf(model, name_);
  if (names.empty()) return false;
  name_ = *names.begin();
  writeInterface(model, name_, choice, text);
  return true;
}

bool Writer::next(const Model& model, const Choice& choice, std::string& text, size_t octets) {
  const size_t end = octets < std::numeric_limits<size_t>::max() - text.size()
                         ? text.size() + octets
                         : std::numeric_limits<size_t>::max();
  while (part_ != Part::end && text.size() < end) {
    bool more = false;
    switch (part_) {
      case Part::groups:
        more = named(model.objectGroups, [&](const auto& group) {
          if (choice.hasGroup(group.first)) writeGroup(group.first, group.second, choice, text);
        });
        break;
      case Part::lists:
        more = list(model, choice, text, end);
        break;
      case Part::portChannels:
        more = named(model.portChannels, [&](const auto& channel) {
          if (choice.hasPortChannel(channel.first)) writeNames("port-channel", "members", channel, text);
        });
        break;
      case Part::interfaces:
        more = interface(model, choice, text);
        break;
      case Part::mirrorSessions:
        more = named(model.mirrorSessions, [&](const auto& session) {
          if (choice.hasMirrorSession(session.first))
            writeNames("mirror session", "destination", session, text);
        });
        break;
      case Part::end:
        break;
    }
    if (more) continue;
    part_ = static_cast<Part>(static_cast<int>(part_) + 1);
    name_.clear();
  }
  return part_ != Part::end;
}

std::string textOf(const Model& model) {
  std::string text;
  Writer writer;
  while (writer.next(model, Choice(), text, std::numeric_limits<size_t>::max())) {
  }
  return text;
}

}  // namespace Config
