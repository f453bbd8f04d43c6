#include <agent/config/Mistake.h>
#include <agent/config/Nearest.h>
#include <agent/config/Statements.h>
#include <fmt/format.h>

#include <algorithm>

namespace Config {

namespace {

using Acl::AclDirection;
using Acl::AclType;

bool readDirection(Cursor& at, AclDirection* direction) {
  if (at.takeIf("in")) {
    *direction = AclDirection::in;
  } else if (at.takeIf("out")) {
    *direction = AclDirection::out;
  } else {
    return failNear(at, "in or out", {"in", "out"});
  }
  return true;
}

/// Reads one or more interfaces, none of them twice, to the end of the line.
bool readInterfaces(Cursor& at, std::vector<std::string>* interfaces) {
  std::map<std::string_view, size_t> seen;
  do {
    const auto word = at.peek();
    std::string name;
    if (!seen.emplace(word, at.position()).second) return at.fail("each interface once", "a second time");
    if (!at.name("the name of an interface", &name)) return false;
    interfaces->push_back(std::move(name));
  } while (!at.atEnd());
  return true;
}

/// Reads what stands behind `no`: a name alone, which takes back whatever is defined by it, or the whole
/// statement, which takes that back only if it is still the same.
bool readTakenBack(Cursor& at, std::string_view what, std::string_view keyword, std::string* name,
                   std::vector<std::string>* interfaces) {
  if (!at.name(what, name)) return false;
  return at.atEnd() || (at.keyword(keyword) && readInterfaces(at, interfaces));
}

bool sameInterfaces(std::vector<std::string> a, std::vector<std::string> b) {
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  return a == b;
}

}  // namespace

bool Statements::interface(Cursor& at, AclType) {
  mode_ = Mode::interface;
  interface_.clear();
  if (!at.name("the name of an interface", &interface_) || !at.end()) return false;
  model_.notices.interfaces.insert(interface_);
  return true;
}

bool Statements::noInterface(Cursor& at, AclType) {
  std::string name;
  if (!at.name("the name of an interface", &name) || !at.end()) return false;
  for (const auto type : Acl::aclTypes) {
    for (const auto direction : {AclDirection::in, AclDirection::out})
      model_.bindings.erase({type, direction, name});
  }
  model_.interfaceNotes.erase(name);
  model_.notices.interfaces.erase(name);
  return true;
}

bool Statements::accessGroup(Cursor& at, AclType type) {
  std::string list;
  BindingKey key{type, AclDirection::in, interface_};
  const size_t position = at.position();
  if (!readListName(at, &list) || !readDirection(at, &key.direction) || !at.end()) return false;
  auto& spot = model_.notices.bindings[key];
  const auto before = model_.bindings.find(key);
  const Spot now = spotOf(at, position);
  if (before != model_.bindings.end() && before->second != list && spot.text >= firstText_) {
    const std::string where = spot.text == now.text
                                  ? fmt::format("line {}", spot.line)
                                  : fmt::format("{}:{}", model_.notices.texts.at(spot.text), spot.line);
    at.warn(position, "binding-twice",
            fmt::format("interface {} has one {} list {}: the first, {} of {}, is lost", interface_,
                        stringValue(type), stringValue(key.direction), before->second, where));
  }
  spot = now;
  model_.bindings[key] = list;
  return true;
}

bool Statements::noAccessGroup(Cursor& at, AclType type) {
  std::string list;
  BindingKey key{type, AclDirection::in, interface_};
  if (at.wordsLeft() > 1 && !readListName(at, &list)) return false;
  if (!readDirection(at, &key.direction) || !at.end()) return false;
  const auto binding = model_.bindings.find(key);
  if (binding != model_.bindings.end() && (list.empty() || binding->second == list))
    model_.bindings.erase(binding);
  return true;
}

bool Statements::checkMembers(Cursor& at, size_t first, const std::string& name,
                              const std::vector<std::string>& members) {
  for (size_t i = 0; i < members.size(); ++i) {
    const auto& member = members[i];
    if (member == name) return at.failAt(first + i, "interfaces other than the port-channel itself");
    if (model_.portChannels.count(member))
      return at.failAt(first + i, "an interface", "that is a port-channel");
    const auto channel = channelOf_.find(member);
    if (channel != channelOf_.end() && channel->second != name) {
      return at.failAt(first + i, "an interface that is in no other port-channel",
                       fmt::format("that is a member of {}", quote(channel->second)));
    }
  }
  return true;
}

void Statements::forgetMembers(const std::string& name) {
  const auto channel = model_.portChannels.find(name);
  if (channel == model_.portChannels.end()) return;
  for (const auto& member : channel->second) channelOf_.erase(member);
}

bool Statements::portChannel(Cursor& at, AclType) {
  const size_t place = at.position();
  std::string name;
  std::vector<std::string> members;
  if (!at.name("the name of a port-channel", &name) || !at.keyword("members")) return false;
  if (const auto channel = channelOf_.find(name); channel != channelOf_.end()) {
    return at.failAt(place, "the name of a port-channel",
                     fmt::format("that is a member of {}", quote(channel->second)));
  }
  if (!readInterfaces(at, &members) || !checkMembers(at, place + 2, name, members)) return false;
  forgetMembers(name);
  for (const auto& member : members) channelOf_[member] = name;
  model_.notices.portChannels[name] = spotOf(at, place);
  model_.portChannels[name] = std::move(members);
  return true;
}

bool Statements::noPortChannel(Cursor& at, AclType) {
  std::string name;
  std::vector<std::string> members;
  if (!readTakenBack(at, "the name of a port-channel", "members", &name, &members)) return false;
  const auto channel = model_.portChannels.find(name);
  if (channel == model_.portChannels.end()) return true;
  if (!members.empty() && !sameInterfaces(members, channel->second)) return true;
  forgetMembers(name);
  model_.portChannels.erase(channel);
  return true;
}

bool Statements::mirrorSession(Cursor& at, AclType) {
  const size_t place = at.position();
  std::string name;
  std::vector<std::string> destinations;
  if (!at.name("the name of a mirror session", &name) || !at.keyword("destination") ||
      !readInterfaces(at, &destinations)) {
    return false;
  }
  model_.notices.mirrorSessions[name] = spotOf(at, place);
  model_.mirrorSessions[name] = std::move(destinations);
  return true;
}

bool Statements::noMirrorSession(Cursor& at, AclType) {
  std::string name;
  std::vector<std::string> destinations;
  if (!readTakenBack(at, "the name of a mirror session", "destination", &name, &destinations)) return false;
  const auto session = model_.mirrorSessions.find(name);
  if (session == model_.mirrorSessions.end()) return true;
  if (destinations.empty() || sameInterfaces(destinations, session->second))
    model_.mirrorSessions.erase(session);
  return true;
}

}  // namespace Config
