#pragma once

#include <agent/explain/FrameText.h>

#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// Reads what a user gives for a frame: a text (FrameText.h), the octets as hexadecimal digits with blanks or
/// colons between them, or FILE[:N], the Nth frame of a capture, from 1, the first one without N. Returns
/// nothing, with what is wrong.
std::optional<Frame> readFrameArgument(const std::string& argument, std::string* wrong);

/// The octets of hexadecimal digits; nothing for any other text, and for an odd number of digits.
std::optional<std::vector<uint8_t>> octetsOfHex(std::string_view text);
std::string hexOf(const std::vector<uint8_t>& octets);

}  // namespace Agent
