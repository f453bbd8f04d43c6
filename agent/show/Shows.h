#pragma once

#include <agent/show/Documents.h>
#include <agent/show/Text.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Agent {

/// One thing that `velo show` shows: how its document is made, in the agent, and how it reads, in the program
/// that asked. A further one is a row of the table in Shows.cpp with its two functions.
struct Show {
  std::string_view name;
  std::string_view argument;  ///< for the help, as "[NAME]"; empty: takes none
  std::string_view help;
  std::unique_ptr<Document> (*document)(const World& world, const std::string& argument);
  std::string (*text)(const nlohmann::ordered_json& document, const TextStyle& style);
};

std::span<const Show> shows();
/// Null for a name that is none.
const Show* showOf(std::string_view name);

// How the documents read (ShowText.cpp).
namespace ShowText {
std::string accessLists(const nlohmann::ordered_json& document, const TextStyle& style);
std::string interfaces(const nlohmann::ordered_json& document, const TextStyle& style);
std::string status(const nlohmann::ordered_json& document, const TextStyle& style);
std::string counters(const nlohmann::ordered_json& document, const TextStyle& style);
std::string drops(const nlohmann::ordered_json& document, const TextStyle& style);
std::string capabilities(const nlohmann::ordered_json& document, const TextStyle& style);
std::string ports(const nlohmann::ordered_json& document, const TextStyle& style);
std::string tasks(const nlohmann::ordered_json& document, const TextStyle& style);
std::string logMessages(const nlohmann::ordered_json& document, const TextStyle& style);
std::string trace(const nlohmann::ordered_json& document, const TextStyle& style);
}  // namespace ShowText

}  // namespace Agent
