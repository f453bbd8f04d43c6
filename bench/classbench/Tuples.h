#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

struct PortRange {
  uint16_t low = 0;
  uint16_t high = 65535;

  bool isAny() const { return low == 0 && high == 65535; }
  bool operator==(const PortRange&) const = default;
};

/// An address and how many of its leading bits are compared; the others are zero.
struct Prefix {
  uint32_t address = 0;
  uint8_t length = 0;

  uint32_t mask() const { return length == 0 ? 0 : ~uint32_t{0} << (32 - length); }
  bool operator==(const Prefix&) const = default;
};

/// A rule over the five fields that ClassBench knows.
struct TupleRule {
  Prefix source, destination;
  PortRange sourcePort, destinationPort;
  bool protocolNamed = false;
  uint8_t protocol = 0;

  bool operator==(const TupleRule&) const = default;
};

/// What a packet has of these fields. Ports are drawn for every protocol; see hasPorts().
struct TupleHeader {
  uint32_t source = 0, destination = 0;
  uint16_t sourcePort = 0, destinationPort = 0;
  uint8_t protocol = 0;

  bool operator==(const TupleHeader&) const = default;
};

/// True for the protocols whose ports a list sees: TCP, UDP and SCTP.
constexpr bool hasPorts(uint8_t protocol) { return protocol == 6 || protocol == 17 || protocol == 132; }

constexpr int32_t noRule = -1;

struct Trace {
  std::string name;  ///< "trace", "uni.trace", ...
  std::vector<TupleHeader> headers;
  /// Of each header the first rule that matches it, or noRule.
  std::vector<int32_t> first;
};

/// Rules, the first one of which wins, with traces for them.
struct RuleSet {
  std::string name;
  std::vector<TupleRule> rules;
  std::vector<Trace> traces;
};

/// How a condition on ports treats a protocol without ports.
enum class Ports {
  ofEveryProtocol,    ///< as the files have it: five numbers, whatever they mean
  ofProtocolsThatDo,  ///< as a list has it: such a rule does not match
};

/// Of each header the first rule that matches it, by trying all of them: what every classifier is held
/// against.
std::vector<int32_t> firstRules(const std::vector<TupleRule>& rules, const std::vector<TupleHeader>& headers,
                                Ports ports);

}  // namespace Bench
