#pragma once

#include <agent/explain/FrameText.h>

#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// Reads a frame that a user gives as an argument: as a text (FrameText.h), as hexadecimal digits with
/// optional blanks or colons, or as FILE[:N], the Nth frame of a capture counted from 1; without N the first;
/// FILE may be "-", standard input.
/// Returns nothing, and sets `wrong`, when it is none of these.
std::optional<Frame> readFrameArgument(const std::string& argument, std::string* wrong);

/// The octets that hexadecimal digits mean; nothing for any other text, or for an odd number of digits.
std::optional<std::vector<uint8_t>> octetsOfHex(std::string_view text);
std::string hexOf(const std::vector<uint8_t>& octets);

}  // namespace Agent
