#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/History.h>
#include <agent/change/Warnings.h>
#include <agent/core/Background.h>
#include <agent/core/Texts.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Knows what a restart would make of the configuration's files, as they are by now.
///
/// Part of the configuration. The loop outlives it.
class Restart {
 public:
  /// What the agent was started with.
  struct Start {
    std::vector<std::string> files{};  ///< of the command line's source
    std::string dir{};                 ///< empty: none
    TextLimits limits{};
    Leave leave{};
    std::optional<PortNames> ports{};  ///< nothing: every interface may be one
  };

  Restart(EventLoop& loop, Start start);

  /// What the next start finds beside the files.
  struct Past {
    std::optional<Unconfirmed> unconfirmed{};
    SharedFilteredPorts filtered{};
    bool isKept = false;         ///< it does find it; otherwise a start does not know what was filtered
    SharedFleetContent fleet{};  ///< in force; a start that does not find it waits until it has it again
  };
  /// Nobody waits longer for a look: a file system may hang.
  static constexpr Kelp::Duration patience{3};
  /// Reads the files, unless they are those that were read last, and then calls `then`, from within or later.
  /// It is called without that, too, when it takes too long: see lookingFor().
  void look(Past past, std::function<void()> then);
  /// For how many seconds a look has been going on that somebody did not wait for; nothing when none is.
  std::optional<double> lookingFor() const;

  const std::vector<std::string>& files() const { return start_.files; }
  /// Why a restart would make another configuration than this text of the command line's source; empty if it
  /// would not. This and the following are as the last look has found the files.
  std::vector<std::string> whyOther(const std::string& text) const;
  /// Why an agent would not start with them; nothing if it would.
  std::optional<std::string> whyRefused() const;
  /// What it would open if it starts: among this what is open anyhow.
  Warnings openings() const { return found_ ? found_->openings : Warnings(); }
  /// Whether the command line's source is in one file, so that it can be saved there.
  bool hasPlace() const;

 private:
  using Identities = std::map<std::string, std::optional<FileIdentity>>;
  /// The files as they were read.
  struct Found {
    std::vector<std::string> wrong{};  ///< with those of the command line
    std::optional<std::string> refused{};
    Warnings openings{};
    std::string text{};              ///< written from the model that those of the command line make
    SharedText unconfirmed{};        ///< what it may not say: nobody has confirmed it
    SharedFilteredPorts filtered{};  ///< what it was compared with
    SharedFleetContent fleet{};
    Identities identities{};
    bool settled = false;
  };

  static Identities identitiesOf(const Start& start);
  static Found read(const Start& start, const Past& past);
  void readAgain();
  void waitOn();
  void handleLate();

  const Start start_;
  std::optional<Found> found_;
  Past past_;
  const Kiv::Clock& clock_;
  std::vector<std::function<void()>> waiting_;  // for the next time that the files are read
  std::vector<std::function<void()>> reading_;  // for the one that is going on
  double since_ = 0;                            // it began, by the clock
  bool isLate_ = false;                         // somebody has not waited for it
  Kiv::OwnedTask patience_;
  Background background_;
};

/// At a start: what nobody has confirmed does not come into force, even if the files say it. What was before
/// takes its place then, and the sentence that is returned says so. Otherwise there is nothing unconfirmed in
/// the past any more.
std::optional<std::string> takeBackUnconfirmed(ConfigFiles& files, Past& past);

}  // namespace Agent
