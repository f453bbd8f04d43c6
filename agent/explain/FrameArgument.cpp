#include <agent/config/Cursor.h>
#include <agent/core/Texts.h>
#include <agent/explain/FrameArgument.h>
#include <agent/ports/Captures.h>
#include <fmt/format.h>

#include <filesystem>

namespace Agent {

namespace {

std::optional<uint8_t> digitOf(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<uint8_t>(c - 'A' + 10);
  return std::nullopt;
}

std::optional<Frame> frameOfCapture(const std::string& path, uint64_t number, std::string* wrong) {
  CaptureReader capture(path);
  while (capture.next()) {
    if (capture.number() != number) continue;
    return Frame{
        {capture.frame().begin(), capture.frame().end()}, capture.wireLength(), capture.typeBefore()};
  }
  *wrong = capture.wrong().empty()
               ? fmt::format("{} has {} frames, no frame {}", path, capture.number(), number)
               : capture.wrong();
  return std::nullopt;
}

}  // namespace

std::optional<std::vector<uint8_t>> octetsOfHex(std::string_view text) {
  std::vector<uint8_t> octets;
  std::optional<uint8_t> high;
  for (const char c : text) {
    if (c == ' ' || c == ':') continue;
    const auto digit = digitOf(c);
    if (!digit) return std::nullopt;
    if (high) octets.push_back(static_cast<uint8_t>(*high << 4 | *digit));
    high = high ? std::nullopt : digit;
  }
  if (high) return std::nullopt;
  return octets;
}

std::string hexOf(const std::vector<uint8_t>& octets) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(octets.size() * 2);
  for (const uint8_t octet : octets) {
    text += digits[octet >> 4];
    text += digits[octet & 0x0f];
  }
  return text;
}

std::optional<Frame> readFrameArgument(const std::string& argument, std::string* wrong) {
  std::error_code unknown;
  if (argument == standardInput || std::filesystem::exists(argument, unknown))
    return frameOfCapture(argument, 1, wrong);
  if (const size_t colon = argument.rfind(':'); colon != std::string::npos) {
    const std::string path = argument.substr(0, colon);
    const auto number = Config::decimal(argument.substr(colon + 1));
    if (number && (path == standardInput || std::filesystem::is_regular_file(path, unknown)))
      return frameOfCapture(path, *number, wrong);
  }
  if (isFrameText(argument)) return readFrameText(argument, wrong);
  if (auto octets = octetsOfHex(argument); octets && !octets->empty()) {
    const auto size = static_cast<uint32_t>(octets->size());
    return Frame{std::move(*octets), size};
  }
  // None of the three. An argument with blanks was probably meant as a text, so tell the mistake in the text.
  if (argument.find(' ') != std::string::npos) return readFrameText(argument, wrong);
  *wrong = fmt::format(
      "\"{}\" is no capture that exists, no hexadecimal digits, and no text such as \"tcp 192.0.2.1:1234 > 198.51.100.7:443 syn\"",
      argument);
  return std::nullopt;
}

}  // namespace Agent
