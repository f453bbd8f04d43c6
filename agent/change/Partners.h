#pragma once

#include <agent/change/SourceChange.h>

#include <functional>
#include <optional>
#include <string>

namespace Agent {

/// Others that carry out every change of the configuration, too, so that it is in force with all of them or
/// with nobody: processes that judge packets for this one. A change takes two steps, and there is one at a
/// time.
///
/// Each function calls back once, from within or later, also when all partners are gone.
class Partners {
 public:
  using Heard = std::function<void(const std::optional<std::string>& wrong)>;

  virtual ~Partners() = default;
  /// Has them get ready for a change, so far that nothing can fail any more. All its rules have their ids.
  /// `heard`: all are, or why one of them is not.
  virtual void getReady(const SourceChange& change, Heard heard) = 0;
  /// What they are ready for does not come after all.
  virtual void drop() = 0;
  /// Has them carry out what they are ready for. `done`: it is in force with all of them.
  virtual void carryOut(std::function<void()> done) = 0;
  /// The change is over: it is in force here, too, and nothing is under way any more.
  virtual void over() = 0;
};

}  // namespace Agent
