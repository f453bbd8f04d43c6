#include "Judge.h"

#include <Acl/RuleConfig.h>
#include <fmt/format.h>

#include <stdexcept>

namespace Fuzz {

namespace {

constexpr size_t mostTags = 2;
/// The headers that the reference matcher goes over, and what it takes for L4.
bool isPlain(uint8_t next) { return next != 51 && next != 50 && next != 135 && next != 139 && next != 140; }

/// The type behind the tags; nothing when the frame has what the reference matcher does not know.
std::optional<uint16_t> plainType(const TestSupport::Bytes& frame) {
  size_t at = 12;
  const auto word = [&] { return static_cast<uint16_t>(frame.at(at) << 8 | frame.at(at + 1)); };
  for (size_t tags = 0; word() == 0x8100 || word() == 0x88a8; ++tags, at += 4) {
    if (tags == mostTags) return std::nullopt;
  }
  const uint16_t type = word();
  at += 2;
  if (type == 0x0800 && !isPlain(frame.at(at + 9))) return std::nullopt;
  if (type == 0x86dd) {
    uint8_t next = frame.at(at + 6);
    for (at += 40; next == 0 || next == 43 || next == 60 || next == 44;) {
      const bool fragment = next == 44;
      next = frame.at(at);
      at += fragment ? 8 : (frame.at(at + 1) + 1u) * 8;
    }
    if (!isPlain(next)) return std::nullopt;
  }
  // Lengths and what else can stand in place of a type.
  return type >= 0x0600 && type != 0x9100 && type != 0x9200 && type != 0x9300 ? std::optional(type)
                                                                              : std::nullopt;
}

template <class Rule>
std::vector<Rule> rulesOf(const Config::List& list) {
  std::vector<Rule> rules;
  for (const auto& [sequence, rule] : list.rules) rules.push_back(std::get<Rule>(rule));
  return rules;
}

}  // namespace

std::optional<Judge> Judge::read(const Config::Model& model, const TestSupport::Bytes& frame) try {
  const auto type = plainType(frame);
  if (!type) return std::nullopt;
  return Judge(model, TestSupport::ReferenceMatcher(frame), *type);
} catch (const std::out_of_range&) {
  return std::nullopt;
}

bool Judge::pass(Acl::AclDirection direction, const std::string& channel, const std::string& port) {
  for (const std::string& interface : {channel, port}) {
    if (interface.empty()) continue;
    if (!passList(direction, interface, Acl::AclType::mac)) return false;
    if (etherType_ == 0x0800 && !passList(direction, interface, Acl::AclType::ip)) return false;
    if (etherType_ == 0x86dd && !passList(direction, interface, Acl::AclType::ipv6)) return false;
  }
  return true;
}

bool Judge::passList(Acl::AclDirection direction, const std::string& interface, Acl::AclType type) {
  const auto bound = model_.bindings.find({type, direction, interface});
  if (bound == model_.bindings.end()) return true;
  const auto list = model_.lists.find({type, bound->second});
  if (list == model_.lists.end()) return true;
  const auto sequence = Acl::withRuleType(type, [&](auto kind) {
    return matcher_.first(rulesOf<typename decltype(kind)::type::Draft>(list->second));
  });
  hits_.push_back({direction, interface, type, bound->second, sequence.value_or(0)});
  if (!sequence) return false;
  const auto& rule = Config::common(list->second.rules.at(*sequence));
  const bool denies = rule.action == Acl::Action::deny;
  // What is dropped on its way out was never sent.
  if (direction == Acl::AclDirection::in || !denies) {
    const auto session = model_.mirrorSessions.find(rule.mirrorSession.str());
    if (session != model_.mirrorSessions.end()) copies_ += session->second.size();
  }
  return !denies;
}

std::string Judge::str() const {
  std::string text;
  for (const Hit& hit : hits_) {
    text += fmt::format("{} {} {} list {} rule {}\n", hit.interface, stringValue(hit.direction),
                        stringValue(hit.type), hit.list, hit.sequence);
  }
  return text + fmt::format("{} copies\n", copies_);
}

}  // namespace Fuzz
