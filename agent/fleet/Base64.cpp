#include <agent/fleet/Base64.h>

#include <array>
#include <cstdint>

namespace Agent {

namespace {

constexpr std::string_view base64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t noDigit = 64;

constexpr std::array<uint8_t, 256> base64Values() {
  std::array<uint8_t, 256> values{};
  values.fill(noDigit);
  for (size_t i = 0; i < base64Digits.size(); ++i)
    values[static_cast<unsigned char>(base64Digits[i])] = static_cast<uint8_t>(i);
  return values;
}

}  // namespace

std::string base64Of(std::string_view octets) {
  std::string text;
  text.reserve((octets.size() + 2) / 3 * 4);
  for (size_t at = 0; at < octets.size(); at += 3) {
    uint32_t group = 0;
    const size_t there = std::min<size_t>(3, octets.size() - at);
    for (size_t i = 0; i < 3; ++i)
      group = group << 8 | (i < there ? static_cast<unsigned char>(octets[at + i]) : 0);
    for (size_t i = 0; i < 4; ++i) text += i <= there ? base64Digits[group >> (18 - 6 * i) & 63] : '=';
  }
  return text;
}

std::optional<std::string> fromBase64(std::string_view text) {
  static constexpr auto values = base64Values();
  if (text.size() % 4 != 0) return std::nullopt;
  size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  std::string octets;
  octets.reserve(text.size() / 4 * 3);
  for (size_t at = 0; at < text.size(); at += 4) {
    uint32_t group = 0;
    for (size_t i = at; i < at + 4; ++i) {
      const bool pads = i >= text.size() - padding;
      const uint8_t value = pads ? 0 : values[static_cast<unsigned char>(text[i])];
      if (value == noDigit) return std::nullopt;
      group = group << 6 | value;
    }
    for (const int shift : {16, 8, 0}) octets += static_cast<char>(group >> shift & 0xff);
  }
  octets.resize(octets.size() - padding);
  return octets;
}

}  // namespace Agent
