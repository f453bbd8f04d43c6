#pragma once

#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace Agent {

/// What the ports of an agent have in common.
struct PortSetup {
  /// So many processes have the ports together, each a share of what comes by them; 0: this one has them
  /// alone.
  uint32_t workers = 0;
  /// Which of them this is, from 1 on; 0: it has no share, and keeps for the others what is to outlive them.
  uint32_t worker = 0;
  /// What the process that keeps devices has handed on to this one: descriptors, by device.
  std::map<std::string, int, std::less<>> handed{};
  std::string dpdkArguments;  ///< of the environment of DPDK, as a command line
};

/// A whole number without sign; nothing if the text is none, or too large.
inline std::optional<uint64_t> wholeNumber(std::string_view text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// What stands behind "KIND:" without the options: a name or a path, and the options by name. An option
/// without "=" has an empty value.
struct PortWhat {
  std::string device;
  std::map<std::string, std::string, std::less<>> options;
};

}  // namespace Agent
