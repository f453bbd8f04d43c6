#pragma once

#include <array>
#include <cstdint>

namespace Acl {

// What a filter asks of one field of a packet, for fields that are not just compared under a mask. A
// condition that asks nothing is met by every packet. Filter.h has the filters that consist of them.

/// How a field is compared with the operands of a rule.
enum class Compare : uint8_t { any, eq, neq, lt, gt, range };

/// A condition on an L4 port: eq and neq take one to ten ports, lt and gt one, range a low and a high one
/// (both included).
struct PortMatch {
  static constexpr int maxPorts = 10;

  Compare op = Compare::any;
  uint8_t count = 0;
  std::array<uint16_t, maxPorts> ports{};

  bool isAny() const { return op == Compare::any; }
  bool matches(uint16_t port) const;
  bool operator==(const PortMatch&) const = default;
};

/// A condition on the TTL or hop limit.
struct HopMatch {
  Compare op = Compare::any;
  uint8_t value = 0;

  bool isAny() const { return op == Compare::any; }
  bool matches(uint8_t hops) const;
  bool operator==(const HopMatch&) const = default;
};

/// A condition on the outer VLAN id, 0 for untagged and priority-tagged frames; set wildcard bits are
/// ignored.
struct VlanMatch {
  bool named = false;
  uint16_t id = 0;
  uint16_t wildcard = 0;

  bool isAny() const { return !named; }
  bool matches(uint16_t vlanId) const { return !named || ((vlanId ^ id) & ~wildcard & 0xfff) == 0; }
  bool operator==(const VlanMatch&) const = default;
};

/// MPLS labels asked for by a MAC filter (RFC 3032, 2.1): 20 bits each, 0 to 0xFFFFF.
class MplsFilter {
 public:
  /// What the filter consists of.
  struct Labels {
    bool labelNamed = false;
    bool innerLabelNamed = false;
    int32_t label = 0;
    int32_t innerLabel = 0;
    bool operator==(const Labels&) const = default;
  };

  MplsFilter() = default;

  /// Throw std::range_error, and set nothing, when the label is outside 20 bits.
  void labelIs(int32_t label);
  void innerLabelIs(int32_t label);

  /// Whether both labels, asked for or not, are inside 20 bits.
  bool isInRange() const { return isLabel(labels_.label) && isLabel(labels_.innerLabel); }
  /// Throws the same when they are not.
  void check() const {
    if (isInRange()) [[likely]]
      return;
    refuse();
  }

  bool labelNamed() const { return labels_.labelNamed; }
  bool innerLabelNamed() const { return labels_.innerLabelNamed; }
  int32_t label() const { return labels_.label; }
  int32_t innerLabel() const { return labels_.innerLabel; }
  bool isAny() const { return !labels_.labelNamed && !labels_.innerLabelNamed; }
  bool operator==(const MplsFilter&) const = default;

 private:
  friend struct UncheckedMpls;  // tests/support/UncheckedMpls.h: a label that cannot be
  static constexpr bool isLabel(int32_t label) { return label >= 0 && label <= 0xFFFFF; }
  [[noreturn]] void refuse() const;

  Labels labels_;
};

}  // namespace Acl
