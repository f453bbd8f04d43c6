#pragma once

#include <agent/change/ContentChange.h>

#include <optional>
#include <string>

namespace Agent {

/// New content of a source that nobody has typed: of a file of the directory, or of the fleet. It is compared
/// on a thread and carried out on the loop's; who makes it decides what becomes of one that is refused. While
/// a change of the command line waits to be confirmed, it may not be an opening in what would come back,
/// either.
struct InputChange : ContentChange {
  /// Who changes what, for the history.
  struct Asked {
    std::string what, who;
    Leave leave{};
  };

  SharedText before{};  ///< what the command line's source will say again if nobody confirms; null: nothing
  SharedFilteredPorts filteredBefore{};  ///< by what comes back if nobody confirms
  std::string summary{};
  bool same = false;  ///< nothing differs from the content in force

  /// Finds out what it comes to. For a thread; nobody writes the configuration meanwhile.
  void prepare(const CurrentConfig& current, const Asked& asked);
  /// It has no effect on traffic: what was noticed of the content is exchanged. The rest is to be dropped.
  void isSame(CurrentConfig& current);
  /// It has been carried out: warnings, history and log follow. `who` is for the log.
  void isInForce(CurrentConfig& current, const std::string& who);

 private:
  /// Why it is refused when it can be in force with what is, but not with what would come back, or would be
  /// an opening in that.
  std::optional<std::string> whyNotBefore(const CurrentConfig& current, const Leave& leave,
                                          const Config::Model* now);
};

}  // namespace Agent
