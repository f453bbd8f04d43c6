#pragma once

#include <agent/change/CurrentConfig.h>
#include <agent/change/PreparedChange.h>
#include <agent/change/Sources.h>

#include <functional>
#include <optional>
#include <string>

namespace Agent {

/// The change of one source's content, whoever makes it: what was found out about it, and the one way in
/// which it is carried out, dropped, and remembered. Who makes it says when it may begin, and what becomes of
/// one that is refused.
struct ContentChange {
  NewContent content{};
  PreparedChange prepared{};

  /// How it ends.
  struct End {
    double longestTurn = 0;                ///< for how many seconds packets waited at most
    std::optional<std::string> refused{};  ///< why nobody has it in force
    bool mayGoLater = false;               ///< it was refused for want of memory, or by a partner
  };
  /// Carries it out; nothing of it is left here but what isInForce() needs. `ended` is called once, from
  /// within or later.
  void carryOut(CurrentConfig& current, std::function<void(const End& end)> ended);
  /// Frees the content and what has to be written for it, beside the loop.
  void drop(CurrentConfig& current);
  /// It has been carried out: what is warned of and filtered follows, and the history if it differs from what
  /// was. `remembered` is what is filtered if the agent starts anew; null: what was remembered stays.
  void isInForce(CurrentConfig& current, const SharedFilteredPorts& remembered, bool differs);
  /// What the log is told of it; `who` asked. To be made before it is in force.
  ChangeEvent event(const std::string& who, std::string summary);
};

}  // namespace Agent
