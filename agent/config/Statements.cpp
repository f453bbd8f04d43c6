#include <agent/config/Mistake.h>
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
  Handler takeBack;  ///< carries it out behind `no`
  AclType type = AclType::ip;

  size_t length() const { return words[1].empty() ? 1 : 2; }
  size_t matched(const Cursor& at) const {
    size_t count = 0;
    while (count < length() && matches(words[count], at.peek(count))) ++count;
    return count;
  }
};

using S = Statements;

constexpr Statements::Row Statements::rows[] = {
    {{"permit"}, Mode::list, &S::rule, &S::noRule},
    {{"deny"}, Mode::list, &S::rule, &S::noRule},
    {{aNumber}, Mode::list, &S::rule, &S::noRule},
    {{"remark"}, Mode::list, &S::remark, &S::noRemark},
    {{"ip", "access-group"}, Mode::interface, &S::accessGroup, &S::noAccessGroup, AclType::ip},
    {{"ipv6", "access-group"}, Mode::interface, &S::accessGroup, &S::noAccessGroup, AclType::ipv6},
    {{"mac", "access-group"}, Mode::interface, &S::accessGroup, &S::noAccessGroup, AclType::mac},
    {{"ip", "access-list"}, Mode::top, &S::accessList, &S::noAccessList, AclType::ip},
    {{"ipv6", "access-list"}, Mode::top, &S::accessList, &S::noAccessList, AclType::ipv6},
    {{"mac", "access-list"}, Mode::top, &S::accessList, &S::noAccessList, AclType::mac},
    {{"interface"}, Mode::top, &S::interface, &S::noInterface},
    {{"port-channel"}, Mode::top, &S::portChannel, &S::noPortChannel},
    {{"mirror", "session"}, Mode::top, &S::mirrorSession, &S::noMirrorSession},
};

Statements::Statements(Model start) : model_(std::move(start)) {
  for (const auto& [name, members] : model_.portChannels) {
    for (const auto& member : members) channelOf_[member] = name;
  }
}

bool Statements::take(Cursor& at) {
  const bool undo = at.takeIf("no");
  for (const auto& row : rows) {
    if (row.matched(at) < row.length()) continue;
    if (row.mode == Mode::list && mode_ != Mode::list) {
      return at.fail("it below ip, ipv6 or mac access-list NAME", "outside a list");
    }
    if (row.mode == Mode::interface && mode_ != Mode::interface) {
      return at.fail("it below interface NAME", fmt::format("{} outside an interface", row.words[1]));
    }
    if (row.mode == Mode::top) mode_ = Mode::top;
    if (row.say != &S::rule) at.skip(row.length());
    return (this->*(undo ? row.takeBack : row.say))(at, row.type);
  }
  return failUnknown(at, undo);
}

bool Statements::failUnknown(Cursor& at, bool undo) const {
  const auto allowed = [&](const Row& row) { return row.mode == Mode::top || row.mode == mode_; };
  size_t known = 0;
  for (const auto& row : rows) {
    if (allowed(row)) known = std::max(known, row.matched(at));
  }
  std::vector<std::string_view> words;
  for (const auto& row : rows) {
    // When not even the first word is known, a statement of the current mode is the most likely one.
    if (known == 0 ? row.mode != mode_ : !allowed(row) || row.matched(at) < known) continue;
    if (std::find(words.begin(), words.end(), row.words[known]) == words.end())
      words.push_back(row.words[known]);
  }
  if (known == 0 && !undo) words.push_back("no");
  at.skip(known);
  return at.fail(anyOf(words));
}

}  // namespace Config
