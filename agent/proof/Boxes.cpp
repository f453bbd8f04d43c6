#include <Kelp/Assert.h>
#include <agent/proof/Boxes.h>
#include <agent/proof/Condition.h>
#include <agent/proof/FieldChoices.h>
#include <fmt/format.h>

#include <array>
#include <utility>

namespace Proof {

namespace {

using Acl::AclType;
using Kind = Choice::Kind;

/// In which order the fields of a box grow. What comes first grows most, so each order gives another box.
/// Whatever later fragments do not have comes before `later`, and that before the protocol; the code before
/// the type.
constexpr Field orders[][fieldCount] = {
    {Field::vlan, Field::hops, Field::trafficClass, Field::sourcePort, Field::tcpFlags, Field::icmpCode,
     Field::icmpType, Field::destinationPort, Field::later, Field::protocol, Field::etherType, Field::source,
     Field::destination},
    {Field::source, Field::destination, Field::vlan, Field::hops, Field::trafficClass, Field::tcpFlags,
     Field::icmpCode, Field::icmpType, Field::sourcePort, Field::destinationPort, Field::later,
     Field::protocol, Field::etherType},
    {Field::destination, Field::destinationPort, Field::sourcePort, Field::tcpFlags, Field::icmpCode,
     Field::icmpType, Field::later, Field::protocol, Field::etherType, Field::source, Field::trafficClass,
     Field::hops, Field::vlan},
};

constexpr Field behindFragments[] = {Field::sourcePort, Field::destinationPort, Field::tcpFlags,
                                     Field::icmpType, Field::icmpCode};

/// A box that grows around one packet, and stays within a set.
class Growth {
 public:
  Growth(const RuleSets& sets, const LooseBits& loose, const PacketSet& set, Packet packet)
      : sets_(sets), choices_(sets, loose), set_(set), packet_(std::move(packet)) {
    for (const FieldBits& each : fieldBits) at(each.field) = first(each.field);
  }

  Box in(const Field (&order)[fieldCount]) {
    for (const Field field : order) {
      if (row(field).bits(sets_.type()) != 0 && mayGrow(field)) grow(field);
    }
    std::string text = words(), wrong;
    const auto condition = readCondition(sets_.type(), text, &wrong);
    if (!condition)
      Kelp::fatal(fmt::format("a box reads \"{}\": {}", text, wrong).c_str(), __FILE__, __LINE__);
    PacketSet packets = setOf(*condition, sets_);
    KELP_ASSERT((packets - set_).isEmpty(), "a box is larger than what it describes");
    return {std::move(text), std::move(packets)};
  }

 private:
  Choice& at(Field field) { return chosen_[static_cast<size_t>(field)]; }
  const Choice& at(Field field) const { return chosen_[static_cast<size_t>(field)]; }
  bool isLater() const { return packet_[Field::later].low != 0; }
  bool hasIcmp() const {
    return packet_[Field::protocol].low == (sets_.type() == AclType::ip ? 1 : 58) && !isLater();
  }
  bool hasPorts() const {
    const uint64_t protocol = packet_[Field::protocol].low;
    return (protocol == 6 || protocol == 17 || protocol == 132) && !isLater();
  }
  bool isThere(Field field) const {
    switch (field) {
      case Field::sourcePort:
      case Field::destinationPort:
        return hasPorts();
      case Field::tcpFlags:
        return packet_[Field::protocol].low == 6 && !isLater();
      case Field::icmpType:
      case Field::icmpCode:
        return hasIcmp();
      default:
        return true;
    }
  }

  Choice first(Field field) const {
    if (row(field).bits(sets_.type()) == 0 || !isThere(field)) return {Kind::any, sets_.sets().all()};
    // These two may stay as they are, and are written then.
    if (field == Field::protocol || field == Field::icmpType) return choices_.exactly(field, packet_);
    return {Kind::named, sets_.masked(field, packet_[field], {~uint64_t{0}, ~uint64_t{0}})};
  }

  bool mayGrow(Field field) const {
    if (field == Field::icmpType) return at(Field::icmpCode).kind == Kind::any;
    for (const Field each : behindFragments) {
      if (field == Field::later && at(each).kind == Kind::named) return false;
      if (field == Field::protocol && at(each).kind != Kind::any) return false;
    }
    return isThere(field);
  }

  void grow(Field field) {
    PacketSet others = sets_.packets();
    for (const FieldBits& each : fieldBits) {
      if (each.field != field) others = others & at(each.field).packets;
    }
    const PacketSet bad = sets_.sets().projected(others - set_, sets_.spanOf(field));
    if (field != Field::later)
      at(field) = choices_.choose(field, bad, packet_);
    else if (bad.isEmpty())
      at(field) = {Kind::any, sets_.sets().all()};
  }

  std::string words() const {
    std::vector<std::string> all, without;
    const auto add = [&](Field field, const char* any = nullptr) {
      const Choice& choice = at(field);
      if (!choice.words.empty())
        all.push_back(choice.words);
      else if (any)
        all.emplace_back(any);
      without.insert(without.end(), choice.without.begin(), choice.without.end());
    };
    add(Field::vlan);
    const bool mac = sets_.type() == AclType::mac;
    if (!mac) add(Field::protocol, sets_.type() == AclType::ip ? "ip" : "ipv6");
    add(Field::source, "any");
    add(Field::sourcePort);
    add(Field::destination, "any");
    add(Field::destinationPort);
    if (mac) {
      add(Field::etherType);
    } else {
      // The code is written with the type.
      if (at(Field::icmpCode).kind == Kind::named)
        add(Field::icmpCode);
      else
        add(Field::icmpType), add(Field::icmpCode);
      add(Field::tcpFlags);
      add(Field::trafficClass);
      add(Field::hops);
      addFragments(all, without);
    }
    for (const std::string& each : without) all.push_back("not " + each);
    return fmt::format("{}", fmt::join(all, " "));
  }

  void addFragments(std::vector<std::string>& all, std::vector<std::string>& without) const {
    if (at(Field::later).kind == Kind::any) return;
    if (isLater()) return all.emplace_back("fragments"), void();
    for (const Field each : behindFragments) {
      if (at(each).kind == Kind::named) return;
    }
    without.emplace_back("fragments");
  }

  const RuleSets& sets_;
  const FieldChoices choices_;
  const PacketSet& set_;
  const Packet packet_;
  std::array<Choice, fieldCount> chosen_;
};

/// Leaves boxes out that the others have all packets of.
void leaveOutNeedless(std::vector<Box>& boxes) {
  for (size_t i = boxes.size(); i-- > 0;) {
    std::vector<PacketSet> others;
    for (size_t j = 0; j < boxes.size(); ++j) {
      if (j != i) others.push_back(boxes[j].packets);
    }
    if ((boxes[i].packets - joined(std::move(others))).isEmpty())
      boxes.erase(boxes.begin() + static_cast<long>(i));
  }
}

Value looseOf(const Value& mask, unsigned bits) {
  Value loose;
  bool asked = false;
  for (unsigned i = 0; i < bits; ++i) {
    if (asked && !mask.bit(i)) loose.setBit(i);
    asked = asked || mask.bit(i);
  }
  return loose;
}

}  // namespace

void LooseBits::add(const Config::List& list) {
  for (const auto& [sequence, rule] : list.rules) add(list.type, rule);
}

void LooseBits::add(Acl::AclType type, const Config::Rule& rule) {
  const unsigned bits = row(Field::source).bits(type);
  const auto addTo = [bits](Value& all, const Value& mask) {
    const Value loose = looseOf(mask, bits);
    all = {all.high | loose.high, all.low | loose.low};
  };
  std::visit(
      [&](const auto& one) {
        Acl::visitFilters(one.filter, [&](const auto& filter) {
          addTo(source, valueOf(filter.sourceMask));
          addTo(destination, valueOf(filter.destinationMask));
          return true;
        });
      },
      rule);
}

Boxes boxesOf(const PacketSet& set, const RuleSets& sets, const LooseBits& loose, size_t most) {
  Boxes boxes;
  for (PacketSet left = set; !left.isEmpty();) {
    if (boxes.all.size() == most) {
      boxes.more = true;
      break;
    }
    const Packet packet = sets.exampleOf(left);
    Box best;
    double size = -1;
    for (const auto& order : orders) {
      Box box = Growth(sets, loose, set, packet).in(order);
      const double taken = sets.sets().sizeOf(box.packets & left);
      if (taken <= size) continue;
      size = taken;
      best = std::move(box);
    }
    left = left - best.packets;
    boxes.all.push_back(std::move(best));
  }
  if (!boxes.more) leaveOutNeedless(boxes.all);
  return boxes;
}

std::optional<Box> wholeBoxOf(const PacketSet& set, const RuleSets& sets, const LooseBits& loose) {
  // In whichever order its fields grow, it comes out.
  Box box = Growth(sets, loose, set, sets.exampleOf(set)).in(orders[0]);
  return box.packets == set ? std::optional(std::move(box)) : std::nullopt;
}

}  // namespace Proof
