#include "ReferenceMatcher.h"

#include <algorithm>
#include <set>

namespace TestSupport {

namespace {

std::string bitsOf(uint64_t value, int count) {
  std::string bits(static_cast<size_t>(count), '\0');
  char* bit = bits.data();
  for (int i = count; i-- > 0;) *bit++ = (value >> i) & 1;
  return bits;
}

std::string bitsOf(const Nimnet::Ip6Addr& address) {
  return bitsOf(address.high, 64) + bitsOf(address.low, 64);
}

using Intervals = std::vector<std::pair<long, long>>;

/// The numbers up to `greatest` that a comparison allows.
Intervals allowed(Acl::Compare op, const std::vector<long>& operands, long greatest) {
  switch (op) {
    case Acl::Compare::any:
      return {{0, greatest}};
    case Acl::Compare::lt:
      return {{0, operands[0] - 1}};
    case Acl::Compare::gt:
      return {{operands[0] + 1, greatest}};
    case Acl::Compare::range:
      return {{operands[0], operands[1]}};
    case Acl::Compare::eq: {
      Intervals all;
      for (long operand : operands) all.push_back({operand, operand});
      return all;
    }
    case Acl::Compare::neq: {
      std::set<long> sorted(operands.begin(), operands.end());
      Intervals all;
      long next = 0;
      for (long operand : sorted) {
        all.push_back({next, operand - 1});
        next = operand + 1;
      }
      all.push_back({next, greatest});
      return all;
    }
  }
  return {};
}

}  // namespace

ReferenceMatcher::ReferenceMatcher(const Bytes& frame) : frame_(frame) {
  bits_["mac to"] = bitsAt(0, 6);
  bits_["mac from"] = bitsAt(6, 6);
  size_t at = 12;
  long vlan = 0;
  for (bool outer = true; at16(at) == 0x8100 || at16(at) == 0x88a8; outer = false, at += 4) {
    if (outer) vlan = at16(at + 2) % 4096;
  }
  bits_["vlan"] = bitsOf(static_cast<uint64_t>(vlan), 12);
  number_["type"] = at16(at);
  if (at16(at) == 0x0800) readIp4(at + 2);
  if (at16(at) == 0x86dd) readIp6(at + 2);
}

ReferenceMatcher::Bits ReferenceMatcher::bitsAt(size_t at, size_t octets) const {
  Bits bits;
  for (size_t i = at; i < at + octets; ++i) {
    bits += bitsOf(frame_.at(i), 8);
  }
  return bits;
}

void ReferenceMatcher::readIp4(size_t at) {
  bits_["from"] = bitsAt(at + 12, 4);
  bits_["to"] = bitsAt(at + 16, 4);
  bits_["class"] = bitsAt(at + 1, 1);
  number_["hops"] = frame_.at(at + 8);
  number_["protocol"] = frame_.at(at + 9);
  number_["later"] = at16(at + 6) % 8192 != 0;
  if (!number_["later"]) readL4(frame_.at(at + 9), at + frame_.at(at) % 16 * 4);
}

void ReferenceMatcher::readIp6(size_t at) {
  bits_["from"] = bitsAt(at + 8, 16);
  bits_["to"] = bitsAt(at + 24, 16);
  const Bits firstTwo = bitsAt(at, 2);
  bits_["class"] = Bits(firstTwo.begin() + 4, firstTwo.begin() + 12);
  number_["hops"] = frame_.at(at + 7);
  number_["later"] = 0;
  uint32_t next = frame_.at(at + 6);
  size_t header = at + 40;
  while (next == 0 || next == 43 || next == 60 || next == 44) {
    const uint32_t kind = next;
    next = frame_.at(header);
    if (kind == 44 && at16(header + 2) / 8 != 0) {
      number_["later"] = 1;
      number_["protocol"] = next;
      return;
    }
    header += kind == 44 ? 8 : (frame_.at(header + 1) + 1) * 8u;
  }
  number_["protocol"] = next;
  readL4(next, header);
}

void ReferenceMatcher::readL4(uint32_t protocol, size_t at) {
  if (protocol == 6 || protocol == 17 || protocol == 132) {
    number_["port from"] = at16(at);
    number_["port to"] = at16(at + 2);
  }
  if (protocol == 6) bits_["flags"] = bitsAt(at + 13, 1);
  const bool six = bits_["from"].size() == 128;
  if (protocol == (six ? 58 : 1)) {
    number_["message"] = frame_.at(at);
    number_["code"] = frame_.at(at + 1);
  }
}

bool ReferenceMatcher::bitsAgree(const std::string& name, const Bits& value, const Bits& mask) const {
  if (mask.find('\1') == std::string::npos) return true;
  const auto field = bits_.find(name);
  if (field == bits_.end() || field->second.size() != mask.size()) return false;
  const char *has = field->second.data(), *wanted = value.data();
  return std::all_of(mask.data(), mask.data() + mask.size(), [&](char asked) {
    const bool same = *has++ == *wanted++;
    return same || !asked;
  });
}

bool ReferenceMatcher::isOneOf(const std::string& name, const Intervals& intervals) const {
  const auto field = number_.find(name);
  if (field == number_.end()) return false;
  return std::any_of(intervals.begin(), intervals.end(), [&](const auto& interval) {
    return interval.first <= field->second && field->second <= interval.second;
  });
}

bool ReferenceMatcher::portAgrees(const std::string& name, const Acl::PortMatch& port) const {
  if (port.op == Acl::Compare::any) return true;
  return isOneOf(name, allowed(port.op, {port.ports.begin(), port.ports.begin() + port.count}, 65535));
}

bool ReferenceMatcher::baseAgrees(const Acl::IpFilterBase& f) const {
  if (f.vlan.named && !bitsAgree("vlan", bitsOf(f.vlan.id, 12), bitsOf(~f.vlan.wildcard & 0xfffu, 12)))
    return false;
  if (f.protocolNamed && !isOneOf("protocol", {{f.protocol, f.protocol}})) return false;
  if (!portAgrees("port from", f.sourcePort) || !portAgrees("port to", f.destinationPort)) return false;
  if (f.icmpTypeNamed && !isOneOf("message", {{f.icmpType, f.icmpType}})) return false;
  if (f.icmpCodeNamed && !isOneOf("code", {{f.icmpCode, f.icmpCode}})) return false;
  if (!bitsAgree("flags", bitsOf(f.tcpFlags, 8), bitsOf(f.tcpFlags, 8))) return false;
  if (f.established && (!bits_.contains("flags") || (!bits_.at("flags")[3] && !bits_.at("flags")[5])))
    return false;
  if (!bitsAgree("class", bitsOf(f.trafficClass, 8), bitsOf(f.trafficClassMask, 8))) return false;
  if (!isOneOf("hops", allowed(f.hops.op, {f.hops.value}, 255))) return false;
  return !f.fragments || isOneOf("later", {{1, 1}});
}

bool ReferenceMatcher::agrees(const Acl::IpFilter& f) const {
  if (f.alternatives.given()) return anyAgrees(f.alternatives.all());
  return bitsAgree("from", bitsOf(f.source.value, 32), bitsOf(f.sourceMask.value, 32)) &&
         bitsAgree("to", bitsOf(f.destination.value, 32), bitsOf(f.destinationMask.value, 32)) &&
         baseAgrees(f);
}

bool ReferenceMatcher::agrees(const Acl::Ip6Filter& f) const {
  if (f.alternatives.given()) return anyAgrees(f.alternatives.all());
  return bitsAgree("from", bitsOf(f.source), bitsOf(f.sourceMask)) &&
         bitsAgree("to", bitsOf(f.destination), bitsOf(f.destinationMask)) && baseAgrees(f);
}

bool ReferenceMatcher::agrees(const Acl::MacFilter& f) const {
  return bitsAgree("mac from", bitsOf(f.source.value(), 48), bitsOf(f.sourceMask.value(), 48)) &&
         bitsAgree("mac to", bitsOf(f.destination.value(), 48), bitsOf(f.destinationMask.value(), 48)) &&
         (!f.etherTypeNamed || isOneOf("type", {{f.etherType, f.etherType}})) &&
         (!f.vlan.named || bitsAgree("vlan", bitsOf(f.vlan.id, 12), bitsOf(~f.vlan.wildcard & 0xfffu, 12)));
}

template <class Rule>
std::optional<uint32_t> ReferenceMatcher::smallest(const std::vector<Rule>& rules) const {
  std::set<uint32_t> agreeing;
  for (const Rule& rule : rules) {
    if (agrees(rule.filter)) agreeing.insert(rule.sequence);
  }
  return agreeing.empty() ? std::nullopt : std::optional(*agreeing.begin());
}

std::optional<uint32_t> ReferenceMatcher::first(const std::vector<Acl::IpRule>& r) const {
  return smallest(r);
}
std::optional<uint32_t> ReferenceMatcher::first(const std::vector<Acl::Ip6Rule>& r) const {
  return smallest(r);
}
std::optional<uint32_t> ReferenceMatcher::first(const std::vector<Acl::MacRule>& r) const {
  return smallest(r);
}

}  // namespace TestSupport
