#pragma once

#include <agent/change/Warnings.h>
#include <agent/log/LogEvent.h>

#include <string>
#include <vector>

namespace Agent {

/// What the log is told of a change of the configuration, or of a trial that came to nothing.
struct ChangeEvent {
  std::string who;      ///< who asked: a peer, a signal, or a file
  std::string source;   ///< the source that it is about
  std::string summary;  ///< what it comes to; empty when that is not known
  /// Why it was not carried out; empty: it was.
  std::string refused{};
  Warnings warnings{};  ///< that did not hold before
};

void tellChange(const TellLog& tell, const ChangeEvent& event);
/// A file of the directory that is not in force, or the directory itself.
void tellBadFile(const TellLog& tell, const std::string& file, const std::vector<std::string>& wrong);

/// The warnings that are not among others.
Warnings newWarnings(const Warnings& warnings, const Warnings& known);

}  // namespace Agent
