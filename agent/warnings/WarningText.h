#pragma once

#include <agent/warnings/Warning.h>

#include <nlohmann/json.hpp>
#include <string>

namespace Agent {

// How people and programs are told of warnings, whoever tells.

/// One of these, by whether the warning has a place and an example:
///   "FILE:LINE:COLUMN: opening: TEXT"
///   "opening: TEXT (for example PACKET)"
std::string warningText(const Warning& warning);

/// A line for each on standard error.
void tellWarnings(const Warnings& warnings);

/// Members `code`, `consequence`, `file`, `line` and `column` (null without a place), `text`; and `example`
/// and `by` if there are any.
nlohmann::ordered_json warningJson(const Warning& warning);
nlohmann::ordered_json warningsJson(const Warnings& warnings);
/// A line for each warning of such a document.
std::string warningsText(const nlohmann::ordered_json& warnings);

}  // namespace Agent
