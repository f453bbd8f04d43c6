#pragma once

#include <agent/core/Exit.h>
#include <agent/core/Texts.h>
#include <agent/explain/FrameText.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Reads configuration texts and says what is in them: `mistakes`, and without mistakes `lists`, `rules`,
/// `bindings` and `warnings` (lists bound but not defined or defined but not bound, mirror sessions that do
/// not exist). `dir` empty: none.
nlohmann::ordered_json checkDocument(const std::vector<std::string>& files, const std::string& dir,
                                     TextLimits limits = {});
/// Such a document without mistakes, for people.
std::string checkText(const nlohmann::ordered_json& document);

/// An explanation by texts, without a running agent.
struct OffLineExplanation {
  std::vector<std::string> files;
  std::string dir;     ///< empty: none
  std::string plugin;  ///< the library
  std::string port;    ///< where the frame comes in
  std::string out;     ///< the port or port-channel that it would leave by; empty: none
  TextLimits limits{};
};

/// Explains a frame. Mistakes and what else is wrong go to standard error and `exit`; then there is nothing.
std::optional<nlohmann::ordered_json> explainOffLine(const OffLineExplanation& asked, const Frame& frame,
                                                     Exit* exit);

}  // namespace Agent
