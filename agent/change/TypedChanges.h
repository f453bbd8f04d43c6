#pragma once

#include <agent/change/ConfigFiles.h>
#include <agent/change/Confirmation.h>
#include <agent/change/CurrentConfig.h>
#include <agent/core/Background.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// The changes that somebody asks for: of the command line's source, by new texts or by what is made of the
/// sources in force. Such a change may have to be confirmed (see Confirmation).
///
/// Part of Configuration, which says when a change may begin. What it is made with outlives it.
class TypedChanges {
 public:
  /// A change of the command line's source that somebody asks for: new texts, or what `make` makes.
  struct Request {
    std::vector<Config::Source> texts{};
    std::vector<std::string> files{};  ///< read first, as further texts in front of the others
    bool dryRun = false;               ///< only find out what would change
    std::string who{};                 ///< for log and history: who asked
    Leave leave{};
    std::string what = "apply";                               ///< for the history, see Change
    std::function<MadeModel(const Sources& inForce)> make{};  ///< called once, on the thread
    std::optional<double> confirm{};  ///< seconds after which it is taken back if nobody confirms it
    bool takesBack = false;           ///< carried out even while another one waits to be confirmed
  };
  /// What became of it.
  struct Outcome {
    /// The first hundred, each with FILE:LINE:COLUMN, or why the texts as a whole cannot be in force.
    std::vector<std::string> mistakes;
    /// Of the configuration after the change.
    Warnings warnings;
    /// Why warnings keep it from being carried out.
    std::optional<std::string> refused;
    std::string summary;  ///< what it comes to, in a few words
    /// The document of difference(), as pieces of one line; empty when there are mistakes.
    std::deque<std::string> difference;
    bool applied = false;
    double prepareSeconds = 0;
    double commitSeconds = 0;  ///< how long packets waited at most
  };
  using Done = std::function<void(Outcome outcome)>;

  /// `text`: what the source says. `ended` is called when a change has ended, with whether it was carried
  /// out; the next one may begin from within.
  TypedChanges(EventLoop& loop, CurrentConfig& current, Confirmation& confirmation, TextLimits limits,
               SharedText text, std::function<void(bool applied)> ended);

  /// What the command line's source says.
  const std::string& text() const { return *text_; }
  /// Whether there are changes to be carried out, or one is being prepared.
  bool busy() const { return background_.busy() || !waiting_.empty(); }
  /// Whether one is being prepared.
  bool preparing() const { return background_.busy(); }
  /// Begins a change. `done` is called from the loop later, unless this object is destroyed first.
  void begin(Request request, Done done);
  /// The same behind those that wait already, by begin() without a request.
  void add(Request request, Done done) { waiting_.emplace_back(std::move(request), std::move(done)); }
  /// Begins the next one that waits. False when there is none.
  bool begin();
  /// Begins the change that restores what was in force before one that nobody has confirmed: no warning keeps
  /// it from that.
  void takeBack(const SharedText& before);

 private:
  struct Texts;

  void handlePrepared(const std::shared_ptr<Texts>& texts);
  std::optional<std::string> whyNot(const Texts& texts);
  void fail(Texts& texts, const std::string& why);
  void take(const std::shared_ptr<Texts>& texts);
  void handleRefused(Texts& texts, const std::string& why);
  void handleApplied(Texts& texts);
  void answer(Texts& texts);

  CurrentConfig& current_;
  Confirmation& confirmation_;
  const TextLimits limits_;
  const std::function<void(bool applied)> ended_;
  SharedText text_;
  std::deque<std::pair<Request, Done>> waiting_;
  Background background_;
};

}  // namespace Agent
