#pragma once

#include <Velo/MalformedStep.h>
#include <agent/core/Exit.h>
#include <agent/core/Texts.h>

#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// What `velo replay` is asked to do.
struct ReplayOptions {
  std::vector<std::string> configs;
  std::string configDir;                                   ///< empty: none
  TextLimits limits;                                       ///< of the configuration
  std::vector<std::pair<std::string, std::string>> ports;  ///< name and capture, in the order of the options
  std::vector<std::pair<std::string, std::string>> patches;  ///< both ends
  std::vector<std::pair<std::string, std::string>> outs;     ///< name and capture
  std::string verdicts;                                      ///< empty: none
  std::string annotated;                                     ///< empty: none
  std::string plugin;
  std::vector<std::string> furtherPlugins;
  bool json = false;
  Velo::MalformedPolicy malformed = Velo::MalformedPolicy::drop;
};

/// Runs captures through the agent. Results go to standard output, complaints and progress to standard error.
Exit replay(const ReplayOptions& options);

}  // namespace Agent
