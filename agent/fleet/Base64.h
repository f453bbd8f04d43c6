#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// Base64 with padding (RFC 4648, 4), in which the store's answers have keys and values.
std::string base64Of(std::string_view octets);
/// Nothing if it is none.
std::optional<std::string> fromBase64(std::string_view text);

}  // namespace Agent
