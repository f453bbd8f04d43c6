#pragma once

#include <agent/change/FilteredPorts.h>
#include <agent/change/FleetContent.h>
#include <agent/change/Sources.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

/// A text that does not change, and that several hold.
using SharedText = std::shared_ptr<const std::string>;

/// A change of the configuration, as it is remembered.
struct Change {
  uint64_t number = 0;  ///< from 1; never given twice as long as the state file lives
  double time = 0;      ///< seconds since the epoch
  std::string what;     ///< start, apply, edit, rollback, return (nobody confirmed), file, gone, fleet
  std::string who;      ///< who asked for it
  std::string source;   ///< sourceTitle() of the source that changed
  std::string summary;  ///< see Difference
  SharedText text;      ///< the source's content after the change; null: it is gone, or the text too long ago
  SharedText difference;  ///< one line of JSON, see difference(); null like the text
};

/// A change that waits for somebody to confirm it, or that nobody has confirmed in time.
struct Unconfirmed {
  SharedText refused;  ///< what the command line's source would say by it
  SharedText before;   ///< what it said before, and says without a confirmation
};

/// What such a text is called in places of warnings: it is in no file.
inline constexpr const char* textThatComesBack = "the text before the change that nobody confirmed";

/// What the files of the directory said: by name, a digest of their content.
using FileDigests = std::map<std::string, uint64_t>;
uint64_t digestOf(std::string_view text);

/// Everything that is remembered of changes, oldest first.
struct Past {
  std::vector<std::shared_ptr<const Change>> changes;
  std::optional<Unconfirmed> unconfirmed;
  std::optional<FileDigests> files{};  ///< by those changes; nothing: not known
  SharedFilteredPorts filtered{};      ///< what a start without openings filters; null: not known
  SharedFleetContent fleet{};          ///< what the fleet's source was made of last; null: there was none
};

/// Where the past is kept beyond the end of the process.
class ChangeJournal {
 public:
  enum class State { writing, kept, failed };

  virtual ~ChangeJournal() = default;
  /// Replaces what is kept. Returns at once; the last one counts.
  virtual void keep(Past past) = 0;
  /// What became of the last keep().
  virtual State state() const = 0;
};

/// That there is no change of a number.
inline std::string noSuchChange(const std::string& number) { return "there is no change " + number; }

/// The last changes of the configuration. Part of the configuration; for the loop's thread.
class History {
 public:
  static constexpr size_t mostChanges = 50;
  /// Texts and differences of older changes are forgotten when all of them have more octets. The last two
  /// texts of the command line's source stay.
  static constexpr size_t mostOctets = size_t{32} << 20;

  /// `journal` outlives this object; null: nothing is kept beyond the end of the process.
  History(Past past, ChangeJournal* journal) : past_(std::move(past)), journal_(journal) {}

  const std::vector<std::shared_ptr<const Change>>& changes() const { return past_.changes; }
  /// Null when there is none of this number.
  const Change* find(uint64_t number) const;
  /// The last change of the command line's source, and the one before it; null when there is none.
  const Change* last(size_t before = 0) const { return last(commandLineName, before); }
  /// The same of any source.
  const Change* last(const std::string& source, size_t before = 0) const;
  const std::optional<Unconfirmed>& unconfirmed() const { return past_.unconfirmed; }

  /// Adds a change, which gets its number and its time here.
  void add(Change change);
  const std::optional<FileDigests>& files() const { return past_.files; }
  void filesAre(FileDigests files) { past_.files = std::move(files); }
  const SharedFilteredPorts& filtered() const { return past_.filtered; }
  /// Is kept with whatever is kept next.
  void filteredIs(SharedFilteredPorts filtered) { past_.filtered = std::move(filtered); }
  const SharedFleetContent& fleet() const { return past_.fleet; }
  /// Is kept with whatever is kept next.
  void fleetIs(SharedFleetContent fleet) { past_.fleet = std::move(fleet); }
  void unconfirmedIs(std::optional<Unconfirmed> unconfirmed);

  /// Has the journal keep all of this.
  void keep() {
    if (journal_) journal_->keep(past_);
  }
  bool hasJournal() const { return journal_ != nullptr; }
  /// Whether all of this is kept beyond the end of the process. Without a journal nothing is to be kept.
  ChangeJournal::State kept() const { return journal_ ? journal_->state() : ChangeJournal::State::kept; }

 private:
  void forgetOldTexts();

  Past past_;
  ChangeJournal* const journal_;
};

}  // namespace Agent
