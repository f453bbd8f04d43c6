#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/Confirmation.h>
#include <agent/change/CurrentConfig.h>
#include <agent/change/FleetContent.h>
#include <agent/change/InputChange.h>
#include <agent/core/Background.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The changes that a fleet makes: what it has for this agent is one source of configuration. Content is
/// carried out whole or not at all, one after the other; when another one comes before it is begun, only the
/// last counts. The last good content stays in force. What conflicts with other sources, or would be an
/// opening, is tried again when those have changed.
///
/// Part of Configuration, which says when a change may begin. What it is made with outlives it.
class FleetChanges {
 public:
  /// What became of content.
  struct Outcome {
    SharedFleetContent content;
    std::vector<std::string> wrong{};     ///< empty: it is in force
    std::vector<std::string> openings{};  ///< what it opened, or would open
    std::string summary{};                ///< what it changed, or would change
  };
  using Told = std::function<void(const Outcome& outcome)>;
  struct Options {
    TextLimits limits{};
    Leave leave{};
  };

  /// `next` is called when the next change may begin; it must not begin from within. `taken` is called when
  /// content has come into force that changes something.
  FleetChanges(EventLoop& loop, CurrentConfig& current, const Confirmation& confirmation, Options options,
               std::function<void()> next, std::function<void()> taken);

  void contentIs(SharedFleetContent content);
  void toldIs(Told told) { told_ = std::move(told); }

  /// Whether there is a change to be carried out, or one is being prepared.
  bool busy() const { return background_.busy() || isDue(); }
  /// Whether one is being prepared.
  bool preparing() const { return background_.busy(); }
  /// Begins the next change. False when there is none.
  bool begin();
  /// What was refused for another reason than the sources in force may be possible now.
  void conflictIsDue() { refusedBy_.reset(); }

  /// The content in force; null: there has been none.
  const SharedFleetContent& inForce() const { return current_.history.fleet(); }
  /// The last content, if it is not in force.
  const std::optional<Outcome>& refused() const { return refused_; }

 private:
  struct Next;
  /// When something that was refused is tried again.
  enum class Again { no, later, withOtherSources };

  bool isDue() const;
  void handlePrepared(const std::shared_ptr<Next>& next, const std::optional<std::string>& failed);
  void take(const std::shared_ptr<Next>& next);
  void handleTaken(Next& next);
  void refuse(const Next& next, std::vector<std::string> wrong, Again again);
  void handleInForce(const Next& next);

  CurrentConfig& current_;
  const Confirmation& confirmation_;
  const Options options_;
  const std::function<void()> next_, taken_;
  Told told_;
  SharedFleetContent pending_;
  std::optional<Outcome> refused_;
  bool isConflict_ = false;            // what was refused may be possible with other sources
  std::optional<uint64_t> refusedBy_;  // Sources::version when it was refused; nothing: it is tried again
  Kiv::OwnedTask again_;               // tries what there was no memory for
  Background background_;
};

}  // namespace Agent
