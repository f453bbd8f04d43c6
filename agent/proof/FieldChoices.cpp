#include <Kelp/Assert.h>
#include <Nimnet/L4Hdr.h>
#include <agent/config/Names.h>
#include <agent/proof/FieldChoices.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <utility>

namespace Proof {

namespace {

using Acl::AclType;
using Kind = Choice::Kind;

constexpr uint64_t mostInList = 10;   // ports behind eq or neq
constexpr uint64_t mostExcepted = 4;  // of a field that can also be cut down to some values

template <class Text>
std::vector<std::string> textsOf(const Runs& runs, const Text& text) {
  std::vector<std::string> all;
  for (const uint64_t value : valuesOf(runs)) all.push_back(text(value));
  return all;
}

struct Flag {
  uint8_t bit;
  const char* word;
};
constexpr Flag tcpFlagWords[] = {{Nimnet::TcpHdr::syn, "syn"}, {Nimnet::TcpHdr::ack, "ack"},
                                 {Nimnet::TcpHdr::fin, "fin"}, {Nimnet::TcpHdr::rst, "rst"},
                                 {Nimnet::TcpHdr::psh, "psh"}, {Nimnet::TcpHdr::urg, "urg"}};

bool isEstablished(uint64_t flags) { return (flags & (Nimnet::TcpHdr::ack | Nimnet::TcpHdr::rst)) != 0; }

std::string protocolWord(uint64_t protocol) {
  for (const auto& row : Config::protocolNames()) {
    if (row.number == protocol) return std::string(row.name);
  }
  return fmt::format("{}", protocol);
}

}  // namespace

Choice FieldChoices::among(Field field, const Runs& good, std::string words,
                           std::vector<std::string> without) const {
  return {Kind::named, sets_.within(field, good), std::move(words), std::move(without)};
}

Choice FieldChoices::except(const PacketSet& bad, std::vector<std::string> without) const {
  return {Kind::excepted, sets_.sets().all() - bad, {}, std::move(without)};
}

Choice FieldChoices::choose(Field field, const PacketSet& bad, const Packet& packet) const {
  if (bad.isEmpty()) return any();
  const auto runs = [&] { return sets_.sets().runsOf(bad, sets_.spanOf(field)); };
  switch (field) {
    case Field::source:
    case Field::destination:
      return address(field, bad, packet);
    case Field::sourcePort:
    case Field::destinationPort:
      return ports(field, runs(), packet[field].low);
    case Field::hops:
      return hops(runs(), packet[field].low);
    case Field::tcpFlags:
      return flags(runs(), packet[field].low);
    case Field::trafficClass:
    case Field::vlan:
      return bits(field, bad, packet);
    default:
      return single(field, bad, packet);
  }
}

Choice FieldChoices::exactly(Field field, const Packet& packet) const {
  return choose(field, sets_.sets().all() - sets_.masked(field, packet[field], {~uint64_t{0}, ~uint64_t{0}}),
                packet);
}

namespace {

/// What lies in one run together with what lies behind small gaps, which are left out.
struct RunWithGaps {
  Run run;
  Runs gaps{};
};
RunWithGaps widened(const Runs& runs, uint64_t value) {
  constexpr uint64_t worthOneMissing = 8;
  const auto own = static_cast<size_t>(&runAround(runs, value) - runs.data());
  RunWithGaps wide{runs[own]};
  uint64_t left = mostExcepted;
  const auto takes = [&](const Run& gap, const Run& next) {
    if (gap.count() > left || next.count() < worthOneMissing * gap.count()) return false;
    left -= gap.count();
    wide.gaps.push_back(gap);
    return true;
  };
  for (size_t i = own; i > 0 && takes({runs[i - 1].high + 1, runs[i].low - 1}, runs[i - 1]); --i)
    wide.run.low = runs[i - 1].low;
  for (size_t i = own + 1; i < runs.size() && takes({runs[i - 1].high + 1, runs[i].low - 1}, runs[i]); ++i)
    wide.run.high = runs[i].high;
  std::sort(wide.gaps.begin(), wide.gaps.end(), [](const Run& a, const Run& b) { return a.low < b.low; });
  return wide;
}

}  // namespace

Choice FieldChoices::ports(Field field, const Runs& bad, uint64_t value) const {
  constexpr uint64_t last = 0xffff;
  const Runs good = gapsOf(bad, last);
  const auto listed = [](const char* word, const Runs& runs) {
    return fmt::format("{} {}", word, fmt::join(valuesOf(runs), " "));
  };
  if (countOf(bad) <= mostInList) return among(field, good, listed("neq", bad));
  const bool oneRun = good.size() == 1 && good.front().count() > 2;
  if (countOf(good) <= mostInList && !oneRun) return among(field, good, listed("eq", good));
  const auto [run, gaps] = widened(good, value);
  Choice choice{Kind::named, sets_.within(field, {run}) - sets_.within(field, gaps)};
  choice.words = run.count() == 1   ? fmt::format("eq {}", run.low)
                 : run.low == 0     ? fmt::format("lt {}", run.high + 1)
                 : run.high == last ? fmt::format("gt {}", run.low - 1)
                                    : fmt::format("range {} {}", run.low, run.high);
  if (gaps.empty()) return choice;
  const std::string left = listed("eq", gaps);
  choice.without.push_back(field == Field::sourcePort ? "any " + left + " any" : "any any " + left);
  return choice;
}

Choice FieldChoices::hops(const Runs& bad, uint64_t value) const {
  constexpr uint64_t last = 0xff;
  constexpr Field field = Field::hops;
  const char* word = sets_.type() == AclType::ip ? "ttl" : "hop-limit";
  const Runs good = gapsOf(bad, last);
  if (countOf(bad) == 1) return among(field, good, fmt::format("{} neq {}", word, bad.front().low));
  const Run& run = runAround(good, value);
  if (run.count() == 1) return among(field, {run}, fmt::format("{} eq {}", word, run.low));
  if (run.low == 0) return among(field, {run}, fmt::format("{} lt {}", word, run.high + 1));
  std::string words = fmt::format("{} gt {}", word, run.low - 1);
  if (run.high == last) return among(field, {run}, std::move(words));
  return among(field, {run}, std::move(words), {fmt::format("{} gt {}", word, run.high)});
}

Choice FieldChoices::flags(const Runs& bad, uint64_t value) const {
  std::bitset<256> isBad;
  for (const uint64_t each : valuesOf(bad)) isBad.set(each);
  const auto goodIf = [&](const auto& is) {
    Runs runs;
    for (uint64_t each = 0; each < 256; ++each) {
      if (!is(each)) continue;
      if (isBad[each]) return Runs();
      runs.push_back({each, each});
    }
    return runs;
  };
  constexpr Field field = Field::tcpFlags;
  const bool answer = isEstablished(value);
  if (Runs runs = goodIf([&](uint64_t each) { return isEstablished(each) == answer; }); !runs.empty())
    return answer ? among(field, runs, "established")
                  : Choice{Kind::excepted, sets_.within(field, runs), {}, {"established"}};
  uint64_t told = 0;
  for (const Flag& flag : tcpFlagWords) told |= flag.bit;
  const auto likeIt = [&](uint64_t mask) {
    return [=](uint64_t each) { return ((each ^ value) & mask) == 0; };
  };
  Runs runs = goodIf(likeIt(told));
  KELP_ASSERT(!runs.empty(), "flags that no rule can tell apart");
  for (const bool set : {false, true}) {
    for (const Flag& flag : tcpFlagWords) {
      if (((value & flag.bit) != 0) != set) continue;
      if (Runs wider = goodIf(likeIt(told & ~uint64_t{flag.bit})); !wider.empty()) {
        told &= ~uint64_t{flag.bit};
        runs = std::move(wider);
      }
    }
  }
  Choice choice{Kind::excepted, sets_.within(field, runs)};
  for (const Flag& flag : tcpFlagWords) {
    if ((told & flag.bit) == 0) continue;
    if ((value & flag.bit) == 0) {
      choice.without.emplace_back(flag.word);
      continue;
    }
    choice.kind = Kind::named;
    choice.words += (choice.words.empty() ? "" : " ") + std::string(flag.word);
  }
  return choice;
}

std::string FieldChoices::wordsOf(Field field, uint64_t value, const Packet& packet) const {
  switch (field) {
    case Field::protocol:
      return protocolWord(value);
    case Field::icmpType:
      return fmt::format("{}", value);
    case Field::icmpCode:
      return fmt::format("{} {}", packet[Field::icmpType].low, value);
    case Field::etherType:
      return fmt::format("0x{:04x}", value);
    default:
      Kelp::fatal("a field of which rules name no single value", __FILE__, __LINE__);
  }
}

Choice FieldChoices::single(Field field, const PacketSet& bad, const Packet& packet) const {
  const BitSpan span = sets_.spanOf(field);
  const Runs runs = sets_.sets().runsOf(bad, span);
  const auto words = [&](uint64_t value) { return wordsOf(field, value, packet); };
  if (countOf(runs) < countOf(gapsOf(runs, (uint64_t{1} << span.count) - 1)))
    return except(bad, textsOf(runs, words));
  const uint64_t value = packet[field].low;
  return among(field, {{value, value}}, words(value));
}

std::string FieldChoices::bitsText(Field field, uint64_t value, uint64_t mask) const {
  const uint64_t known = value & mask;
  if (field == Field::vlan)
    return mask == 0xfff ? fmt::format("vlan {}", known)
                         : fmt::format("vlan {} 0x{:x}", known, ~mask & 0xfff);
  if (sets_.type() == AclType::ip)
    return mask == 0xfc ? fmt::format("dscp {}", known >> 2)
                        : fmt::format("dscp {} 0x{:x}", known >> 2, mask >> 2);
  return mask == 0xff ? fmt::format("traffic-class {}", known)
                      : fmt::format("traffic-class {} 0x{:x}", known, mask);
}

Choice FieldChoices::bits(Field field, const PacketSet& bad, const Packet& packet) const {
  BitSpan span = sets_.spanOf(field);
  uint64_t mask = (uint64_t{1} << span.count) - 1;
  const uint64_t value = packet[field].low;
  const bool dscp = field == Field::trafficClass && sets_.type() == AclType::ip;
  if (dscp) {
    // Of IPv4 packets rules name the DSCP alone, without the two bits below it.
    span.count = 6;
    mask = 0xfc;
  }
  const Runs runs = sets_.sets().runsOf(bad, span);
  if (countOf(runs) <= mostExcepted) {
    const uint64_t all = mask;
    return except(bad,
                  textsOf(runs, [&](uint64_t one) { return bitsText(field, dscp ? one << 2 : one, all); }));
  }
  for (unsigned i = 0; i < sets_.spanOf(field).count; ++i) {
    const uint64_t wider = mask & ~(uint64_t{1} << i);
    if ((sets_.masked(field, packet[field], {0, wider}) & bad).isEmpty()) mask = wider;
  }
  return {Kind::named, sets_.masked(field, packet[field], {0, mask}), bitsText(field, value, mask)};
}

}  // namespace Proof
