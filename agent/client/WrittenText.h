#pragma once

#include <agent/config/Model.h>
#include <agent/core/Exit.h>
#include <nlohmann/json.hpp>

#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Agent {

/// Adds an option for a format by its name, and `--lossy`.
CLI::Option* addFormat(CLI::App& app, const char* option, const char* purpose, std::string* format,
                       bool* lossy);

/// Prints a configuration in a format; on standard error what the format cannot say. With `json` one document
/// with the members `document`: the text, or null; `refused` and `leftOut`. `shown`: the lists as an agent
/// shows them, whose counts become part of the document (StateTree.h); null: it has no counts.
Exit printAs(const Config::Model& model, const std::string& format, bool lossy, bool json,
             const nlohmann::ordered_json* shown = nullptr);

}  // namespace Agent
