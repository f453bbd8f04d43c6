#pragma once

#include <Acl/Filter.h>
#include <fmt/format.h>

#include <bit>
#include <string>
#include <string_view>

namespace Agent {

/// What a state file has of a rule: its text as it was typed; of one that names groups, behind it a digest of
/// what they stand for, as `permit ip object-group A any #0123456789abcdef`. No rule is typed so, and a text
/// that is equal says the same.
template <class Filter>
std::string savedText(std::string_view text, const Filter& filter) {
  if constexpr (requires { filter.alternatives; }) {
    if (filter.alternatives.given()) {
      uint64_t digest = 0xcbf29ce484222325;  // FNV-1a, by words of 64 bits
      const auto add = [&digest](uint64_t word) { digest = (std::rotl(digest, 29) ^ word) * 0x100000001b3; };
      const auto address = [&add](const auto& a) {
        if constexpr (requires { a.high; }) {
          add(a.high), add(a.low);
        } else {
          add(a.value);
        }
      };
      for (const Filter& one : filter.alternatives.all()) {
        address(one.source), address(one.sourceMask);
        address(one.destination), address(one.destinationMask);
        add(uint64_t{one.protocolNamed} << 8 | one.protocol);
        add(uint64_t{one.icmpTypeNamed} << 32 | uint64_t{one.icmpType} << 16 |
            uint64_t{one.icmpCodeNamed} << 8 | one.icmpCode);
        add(static_cast<uint64_t>(one.destinationPort.op) << 8 | one.destinationPort.count);
        for (const uint16_t port : one.destinationPort.ports) add(port);
      }
      return fmt::format("{} #{:016x}", text, digest);
    }
  }
  return std::string(text);
}

}  // namespace Agent
