#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace Agent {

/// The text of a message. Names and texts may have any octets, as texts of JSON may not.
inline std::string packed(const nlohmann::ordered_json& json) {
  std::string text;
  nlohmann::ordered_json::to_cbor(json, text);
  return text;
}
inline nlohmann::ordered_json unpacked(const std::string& text) {
  return nlohmann::ordered_json::from_cbor(text);
}

}  // namespace Agent
