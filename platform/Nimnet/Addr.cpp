#include <Nimnet/Addr.h>

#include <algorithm>

namespace Nimnet {

namespace {

/// The value of a hexadecimal digit of either case, -1 for any other character.
int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

using Groups = std::array<uint16_t, 8>;

/// Reads "group:group:..." up to the end of the text, the last two groups possibly as a dotted quad. Writes
/// at most `room` groups and returns how many, or nothing when the text is none of this. An empty text is no
/// group.
std::optional<size_t> readGroups(std::string_view text, uint16_t* groups, size_t room) {
  size_t count = 0;
  while (!text.empty()) {
    const size_t colon = std::min(text.find(':'), text.size());
    const std::string_view word = text.substr(0, colon);
    const bool lastWord = colon == text.size();
    if (lastWord && word.find('.') != std::string_view::npos) {
      const auto quad = IpAddr::parse(word);
      if (!quad || count + 2 > room) return std::nullopt;
      groups[count++] = static_cast<uint16_t>(quad->value >> 16);
      groups[count++] = static_cast<uint16_t>(quad->value);
      return count;
    }
    if (word.empty() || word.size() > 4 || count == room) return std::nullopt;
    unsigned value = 0;
    for (char c : word) {
      const int digit = hexDigit(c);
      if (digit < 0) return std::nullopt;
      value = value << 4 | static_cast<unsigned>(digit);
    }
    groups[count++] = static_cast<uint16_t>(value);
    if (lastWord) return count;
    text.remove_prefix(colon + 1);
    if (text.empty()) return std::nullopt;
  }
  return count;
}

/// The first of the longest runs of two or more zero groups (RFC 5952, 4.2); of length 0 when there is none.
std::pair<size_t, size_t> longestZeroRun(const Groups& groups) {
  size_t bestAt = 0, bestSize = 0;
  for (size_t i = 0; i < groups.size();) {
    size_t end = i;
    while (end < groups.size() && groups[end] == 0) ++end;
    if (end - i >= 2 && end - i > bestSize) {
      bestAt = i;
      bestSize = end - i;
    }
    i = end + 1;
  }
  return {bestAt, bestSize};
}

}  // namespace

std::optional<EthAddr> EthAddr::parse(std::string_view text) {
  const bool colons = text.size() == 17;
  if (!colons && text.size() != 14) return std::nullopt;
  const size_t digitsPerWord = colons ? 2 : 4;
  const char separator = colons ? ':' : '.';
  uint64_t value = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (i % (digitsPerWord + 1) == digitsPerWord) {
      if (text[i] != separator) return std::nullopt;
      continue;
    }
    const int digit = hexDigit(text[i]);
    if (digit < 0) return std::nullopt;
    value = value << 4 | static_cast<unsigned>(digit);
  }
  return fromValue(value);
}

std::string EthAddr::str() const { return fmt::format("{:02x}", fmt::join(bytes, ":")); }

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) {
    if (i > 0) {
      if (text.empty() || text.front() != '.') return std::nullopt;
      text.remove_prefix(1);
    }
    unsigned number = 0;
    size_t digits = 0;
    for (; digits < text.size() && text[digits] >= '0' && text[digits] <= '9'; ++digits) {
      if (digits == 3) return std::nullopt;
      number = number * 10 + static_cast<unsigned>(text[digits] - '0');
    }
    if (digits == 0 || number > 255 || (digits > 1 && text.front() == '0')) return std::nullopt;
    text.remove_prefix(digits);
    value = value << 8 | number;
  }
  if (!text.empty()) return std::nullopt;
  return IpAddr{value};
}

std::string IpAddr::str() const {
  return fmt::format("{}.{}.{}.{}", value >> 24, value >> 16 & 0xff, value >> 8 & 0xff, value & 0xff);
}

std::optional<Ip6Addr> Ip6Addr::parse(std::string_view text) {
  Groups groups{};
  const size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    const auto count = readGroups(text, groups.data(), groups.size());
    if (!count || *count != groups.size()) return std::nullopt;
  } else {
    const std::string_view before = text.substr(0, gap);
    // A dotted quad may only end the address.
    if (before.find('.') != std::string_view::npos) return std::nullopt;
    // "::" stands for at least one group (RFC 4291, 2.2), so seven are left for the words around it.
    const auto head = readGroups(before, groups.data(), groups.size() - 1);
    if (!head) return std::nullopt;
    Groups tail{};
    const auto tailCount = readGroups(text.substr(gap + 2), tail.data(), groups.size() - 1 - *head);
    if (!tailCount) return std::nullopt;
    std::copy_n(tail.begin(), *tailCount, groups.end() - static_cast<std::ptrdiff_t>(*tailCount));
  }
  Ip6Addr address;
  for (size_t i = 0; i < 4; ++i) {
    address.high = address.high << 16 | groups[i];
    address.low = address.low << 16 | groups[i + 4];
  }
  return address;
}

std::string Ip6Addr::str() const {
  // An IPv4-mapped address (RFC 4291, 2.5.5.2) shows its IPv4 address (RFC 5952, 5).
  if (high == 0 && low >> 32 == 0xffff) return "::ffff:" + IpAddr{static_cast<uint32_t>(low)}.str();
  Groups groups;
  for (size_t i = 0; i < 4; ++i) {
    groups[i] = static_cast<uint16_t>(high >> (48 - 16 * i));
    groups[i + 4] = static_cast<uint16_t>(low >> (48 - 16 * i));
  }
  const auto [runAt, runSize] = longestZeroRun(groups);
  const auto begin = groups.begin();
  if (runSize == 0) return fmt::format("{:x}", fmt::join(groups, ":"));
  return fmt::format("{:x}::{:x}", fmt::join(begin, begin + runAt, ":"),
                     fmt::join(begin + runAt + runSize, groups.end(), ":"));
}

}  // namespace Nimnet
