#include <agent/config/Mistake.h>
#include <agent/config/Nearest.h>
#include <agent/config/Statements.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace Config {

namespace {

using Acl::AclType;

bool matches(std::string_view pattern, std::string_view word) {
  return pattern == aNumber ? isDigits(word) : pattern == word;
}

}  // namespace

/// A statement.
struct Statements::Row {
  std::array<std::string_view, 2> words;  ///< that it begins with
  Mode mode;         ///< that it belongs to; `top`: it may stand anywhere, and ends the mode
  Handler say;       ///< carries it out
  Handler takeBack;  ///< carries it out behind `no`; null: there is no such `no`
  AclType type = AclType::ip;
  bool whole = false;  ///< the handlers read the statement's words, too

  size_t length() const { return words[1].empty() ? 1 : 2; }
  size_t matched(const Cursor& at) const {
    size_t count = 0;
    while (count < length() && matches(words[count], at.peek(count))) ++count;
    return count;
  }
};

using S = Statements;

constexpr Statements::Row Statements::rows[] = {
    {{"permit"}, Mode::list, &S::rule, &S::noRule, AclType::ip, true},
    {{"deny"}, Mode::list, &S::rule, &S::noRule, AclType::ip, true},
    {{aNumber, "remark"}, Mode::list, &S::placedRemark, &S::noPlacedRemark, AclType::ip, true},
    {{aNumber}, Mode::list, &S::rule, &S::noRule, AclType::ip, true},
    {{"remark"}, Mode::list, &S::remark, &S::noRemark},
    {{"ip", "access-group"}, Mode::interface, &S::accessGroup, &S::noAccessGroup, AclType::ip},
    {{"ipv4", "access-group"}, Mode::interface, &S::accessGroup, &S::noAccessGroup, AclType::ip},
    {{"ipv6", "access-group"}, Mode::interface, &S::accessGroup, &S::noAccessGroup, AclType::ipv6},
    {{"mac", "access-group"}, Mode::interface, &S::accessGroup, &S::noAccessGroup, AclType::mac},
    {{"description"}, Mode::interface, &S::description, &S::noDescription},
    {{"shutdown"}, Mode::interface, &S::shutdown, &S::noShutdown},
    {{"ip", "access-list"}, Mode::top, &S::accessList, &S::noAccessList, AclType::ip},
    {{"ipv4", "access-list"}, Mode::top, &S::accessList, &S::noAccessList, AclType::ip},
    {{"ipv6", "access-list"}, Mode::top, &S::accessList, &S::noAccessList, AclType::ipv6},
    {{"mac", "access-list"}, Mode::top, &S::accessList, &S::noAccessList, AclType::mac},
    {{"access-list"}, Mode::top, &S::numberedList, &S::noNumberedList},
    {{"interface"}, Mode::top, &S::interface, &S::noInterface},
    {{"port-channel"}, Mode::top, &S::portChannel, &S::noPortChannel},
    {{"object-group", "network"}, Mode::top, &S::networkGroup, &S::noNetworkGroup},
    {{"object-group", "service"}, Mode::top, &S::serviceGroup, &S::noServiceGroup},
    {{"mirror", "session"}, Mode::top, &S::mirrorSession, &S::noMirrorSession},
    {{"exit"}, Mode::anywhere, &S::nothing, nullptr},
    {{"end"}, Mode::anywhere, &S::nothing, nullptr},
};

Statements::Statements(Model start, const std::vector<std::string>& texts)
    : model_(std::move(start)), firstText_(model_.notices.texts.size()) {
  auto& names = model_.notices.texts;
  names.insert(names.end(), texts.begin(), texts.end());
  for (const auto& [key, list] : model_.lists) {
    for (const auto& [sequence, rule] : list.rules) startRules_[key].push_back(sequence);
  }
  for (const auto& [name, members] : model_.portChannels) {
    for (const auto& member : members) channelOf_[member] = name;
  }
  for (auto& [key, list] : model_.lists) forgetAlternatives(key, list);
}

bool Statements::startsStatement(const Cursor& at) const {
  // Below a group these would be members.
  if (at.wordsLeft() == 1 && (at.peek() == "ip" || at.peek() == "ipv4" || at.peek() == "ipv6")) return false;
  return at.atEnd() || std::any_of(std::begin(rows), std::end(rows), [&at](const Row& row) {
           return (row.mode == Mode::top || row.mode == Mode::anywhere) && row.words[0] == at.peek();
         });
}

bool Statements::take(Cursor& at, LinePlace place) {
  place_ = place;
  const bool undo = at.takeIf("no");
  if (mode_ == Mode::group && !startsStatement(at)) return member(at, undo);
  for (const auto& row : rows) {
    if (row.matched(at) < row.length()) continue;
    const Handler handler = undo ? row.takeBack : row.say;
    if (!handler) continue;
    if (row.mode == Mode::list && mode_ != Mode::list) {
      return at.fail("it below ip, ipv6 or mac access-list NAME", "outside a list");
    }
    if (row.mode == Mode::interface && mode_ != Mode::interface) {
      return at.fail("it below interface NAME",
                     fmt::format("{}{}outside an interface", row.words[1], row.words[1].empty() ? "" : " "));
    }
    if (row.mode == Mode::top) mode_ = Mode::top;
    if (!row.whole) at.skip(row.length());
    return (this->*handler)(at, row.type);
  }
  return failUnknown(at, undo);
}

bool Statements::failUnknown(Cursor& at, bool undo) const {
  const auto allowed = [&](const Row& row) {
    return row.mode == Mode::top || row.mode == mode_ || (row.mode == Mode::anywhere && !undo);
  };
  const Mode listed = mode_ == Mode::group ? Mode::top : mode_;
  size_t known = 0;
  for (const auto& row : rows) {
    if (allowed(row)) known = std::max(known, row.matched(at));
  }
  std::vector<std::string_view> words, names;
  for (const auto& row : rows) {
    if (allowed(row) && row.matched(at) == known && known < row.length()) names.push_back(row.words[known]);
    // When not even the first word is known, a statement of the current mode is the most likely one.
    if (known == 0 ? row.mode != listed : !allowed(row) || row.matched(at) < known) continue;
    if (std::find(words.begin(), words.end(), row.words[known]) == words.end())
      words.push_back(row.words[known]);
  }
  if (known == 0 && !undo) words.push_back("no");
  at.skip(known);
  return at.fail(orNearest(anyOf(words), at.peek(), names));
}

}  // namespace Config
