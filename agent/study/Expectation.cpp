#include <agent/config/Cursor.h>
#include <agent/config/Mistake.h>
#include <agent/core/Words.h>
#include <agent/explain/FrameArgument.h>
#include <agent/proof/Condition.h>
#include <agent/study/Expectation.h>
#include <agent/study/OffLine.h>
#include <agent/study/PacketSearch.h>

#include <algorithm>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

using Config::Cursor;

/// Ports without lists, for packets that only lists on the other side are asked about: no text can name them.
constexpr const char *wayIn = "( in )", *wayOut = "( out )";

bool readVerdict(Cursor& at, bool* passes) {
  *passes = at.peek() == "permit" || at.peek() == "pass";
  if (!*passes && at.peek() != "deny" && at.peek() != "drop") return at.fail("permit, pass, deny or drop");
  at.take();
  return true;
}

/// Takes the name of a port. The last word of a place ends in a colon.
bool readPort(Cursor& at, bool isLast, std::string* port, size_t* column) {
  *column = at.column();
  if (!at.name("the name of a port", port)) return false;
  if (!isLast) return true;
  if (port->size() < 2 || port->back() != ':')
    return at.failAt(at.position() - 1, "the name of a port and a colon");
  port->pop_back();
  return true;
}

bool readPlace(Cursor& at, Expectation* expected) {
  if (at.takeIf("from"))
    return readPort(at, false, &expected->from, &expected->fromAt) && at.keyword("to") &&
           readPort(at, true, &expected->to, &expected->toAt);
  std::string port;
  if (at.peek() != "on") return at.fail("on PORT in:, on PORT out: or from PORT to PORT:");
  at.take();
  if (!readPort(at, false, &port, &expected->fromAt)) return false;
  expected->toAt = expected->fromAt;
  if (at.peek() != "in:" && at.peek() != "out:") return at.fail("in: or out:");
  (at.take() == "in:" ? expected->from : expected->to) = port;
  return true;
}

/// Takes ` by rule N` or ` by no rule` from the end of a text.
bool takeRule(std::string& text, std::optional<uint32_t>* rule) {
  constexpr std::string_view none = " by no rule", some = " by rule ";
  if (text.ends_with(none)) {
    text.resize(text.size() - none.size());
    *rule = 0;
    return true;
  }
  const size_t at = text.rfind(some);
  if (at == std::string::npos) return true;
  const auto number = Config::decimal(std::string_view(text).substr(at + some.size()));
  if (!number || *number == 0) return false;
  *rule = *number;
  text.resize(at);
  return true;
}

/// Reads a condition. One that no IP list could ask is about frames.
bool readCondition(Cursor& at, Expectation* expected) {
  expected->condition = at.rest();
  Cursor::Problem wrong;
  const auto kinds = Proof::kindsOfCondition(
      expected->condition, {Acl::AclType::ip, Acl::AclType::ipv6, Acl::AclType::mac}, &wrong);
  if (kinds.empty()) {
    wrong.column += at.column() - 1;
    return at.failAs(std::move(wrong));
  }
  expected->ofFrames = kinds.front() == Acl::AclType::mac;
  return true;
}

bool readOf(Cursor& at, const std::string& all, Expectation* expected) {
  expected->whatAt = at.column();
  if (at.atEnd()) return at.fail(all.empty() ? "a packet" : "a condition");
  if (!all.empty()) {
    if (all == "none") expected->passes = !expected->passes;
    return readCondition(at, expected);
  }
  std::string rest(at.rest());
  if (!takeRule(rest, &expected->rule))
    return at.fail("by rule and a number, or by no rule, behind the packet");
  std::string wrong;
  const auto octets = octetsOfHex(rest);
  expected->frame =
      octets ? Frame{*octets, static_cast<uint32_t>(octets->size())} : readFrameText(rest, &wrong);
  return expected->frame || at.fail("a packet as velo explain takes it: " + wrong);
}

bool readLine(Cursor& at, Expectation* expected) {
  if (!at.keyword("expect")) return false;
  std::string all;
  if (at.peek() == "all" || at.peek() == "none") all = at.take();
  return readVerdict(at, &expected->passes) && readPlace(at, expected) && readOf(at, all, expected);
}

}  // namespace

std::vector<Expectation> readExpectations(const std::string& name, std::string_view text,
                                          std::vector<std::string>& wrong) {
  std::vector<Expectation> all;
  int number = 0;
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find('\n', start), text.size());
    std::string_view line = text.substr(start, end - start);
    if (line.ends_with('\r')) line.remove_suffix(1);
    start = end + 1;
    ++number;
    Cursor at;
    Expectation expected{.line = number, .text = {}};
    const bool good = at.lineIs(line);
    if (good && (at.atEnd() || at.peek().starts_with('!') || at.peek().starts_with('#'))) continue;
    if (good) expected.text = at.textFrom(0);
    if (good && readLine(at, &expected)) {
      all.push_back(std::move(expected));
    } else {
      const auto& problem = *at.problem();
      wrong.push_back(
          Config::Mistake{name, number, static_cast<int>(problem.column), problem.found, problem.expected}
              .str());
    }
  }
  return all;
}

std::optional<Fulfilment> Expecting::fulfilled(const Expectation& expected, NotLookedAt* wrong) const {
  if (auto none = whyNoPort(expected)) {
    *wrong = std::move(*none);
    return std::nullopt;
  }
  wrong->column = expected.whatAt;
  return expected.frame ? ofPacket(expected, &wrong->why) : ofAll(expected, &wrong->why);
}

/// An expectation of a port that no configuration knows would hold of nothing.
std::optional<NotLookedAt> Expecting::whyNoPort(const Expectation& expected) const {
  for (const auto& [port, column] :
       {std::pair(expected.from, expected.fromAt), {expected.to, expected.toAt}}) {
    if (auto none = whyNotNamed(port, sources_, ports_)) return NotLookedAt{column, std::move(*none)};
  }
  return std::nullopt;
}

std::optional<Fulfilment> Expecting::ofPacket(const Expectation& expected, std::string* wrong) const {
  const auto orElse = [](const std::string& port, const char* other) { return port.empty() ? other : port; };
  const auto document = explainWith(sources_, plugin_, orElse(expected.from, wayIn),
                                    orElse(expected.to, wayOut), *expected.frame, wrong);
  if (!document) return std::nullopt;
  const bool passes = document->at("verdict") == "pass";
  // The last list that was asked has dropped it, or all have let it pass.
  std::optional<uint32_t> by;
  if (const Json& asked = document->at("asked"); !asked.empty()) {
    const Json& rule = asked.back().at("rule");
    by = rule.is_number() ? rule.get<uint32_t>() : 0;
  }
  std::string what = document->at("sentence").get<std::string>();
  if (expected.to.empty()) what = what.substr(0, what.find(", and leaves by"));
  if (passes != expected.passes || (expected.rule && expected.rule != by)) return Fulfilment{false, what, {}};
  return Fulfilment{true};
}

std::optional<Fulfilment> Expecting::ofAll(const Expectation& expected, std::string* wrong) const {
  using What = PacketQuestion::What;
  PacketQuestion question{.what = expected.passes ? What::deny : What::permit,
                          .from = expected.from,
                          .to = expected.to,
                          .where = expected.condition,
                          .limits = limits_.leftSince(begin_, Kiv::steadyClock().now())};
  if (expected.ofFrames) question.type = Acl::AclType::mac;
  const auto found = packetSearch(question, sources_.layers(), wrong);
  if (!found) return std::nullopt;
  for (const Json& kind : found->at("kinds")) {
    if (kind.at("found") == true)
      return Fulfilment{false, expected.passes ? "this packet is dropped" : "this packet passes",
                        kind.at("example").get<std::string>()};
  }
  if (found->at("whole") == true && found->at("possible") == false) {
    *wrong = "no packet is like that";
    return std::nullopt;
  }
  if (found->at("whole") == false) {
    *wrong = "not proven: " + found->at("unchecked").front().get<std::string>();
    return std::nullopt;
  }
  return Fulfilment{true};
}

}  // namespace Agent
