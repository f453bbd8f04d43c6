#pragma once

#include <agent/change/Warnings.h>
#include <agent/log/LogEvent.h>

#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// What the log is told of an operation on the configuration, or of a trial that came to nothing.
struct ChangeEvent {
  std::string who;      ///< who asked: a peer, a signal, or a file
  std::string source;   ///< the source that it is about
  std::string summary;  ///< what it comes to; empty when that is not known
  /// Why it was not carried out; empty: it was.
  std::string refused{};
  Warnings warnings{};                ///< that did not hold before
  std::string_view done = "changed";  ///< what happened to the source, or did not
};

void tellChange(const TellLog& tell, const ChangeEvent& event);
void tellWarnings(const TellLog& tell, const Warnings& warnings);
/// A file of the directory that is not in force, or the directory itself; and one that was so, and can be
/// read again without a change.
void tellBadFile(const TellLog& tell, const std::string& file, const std::vector<std::string>& wrong);
void tellGoodFile(const TellLog& tell, const std::string& file);

/// The warnings that are not among others.
Warnings newWarnings(const Warnings& warnings, const Warnings& known);

}  // namespace Agent
