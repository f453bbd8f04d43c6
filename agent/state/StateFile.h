#pragma once

#include <agent/change/History.h>
#include <agent/state/Database.h>
#include <agent/state/State.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The file in which a state is saved: an SQLite database that only this process uses while it is open. Every
/// write is a transaction. So the file has a complete state at any moment, however the process ends.
///
/// Used by one thread at a time.
class StateFile {
 public:
  /// To be increased with every change of the tables.
  static constexpr int version = 5;

  /// Opens or makes a file, and reads the state in it. A file that is damaged, has another version, or has
  /// ids that are not possible, is renamed to a name with ".aside" at its end, and a new one is made;
  /// `message` says so. Returns null, with the reason in `message`, when no file can be opened.
  static std::unique_ptr<StateFile> open(const std::string& path, std::string* message);

  /// The past of the configuration that is in the file, and replaces it. Like the state, and apart from it.
  const Past& past() const { return past_; }
  std::optional<std::string> write(Past past);

  /// The state in the file.
  const Saved::State& state() const { return state_; }

  /// Replaces the state; only the differences are written. Returns what went wrong; then the file is as it
  /// was. It is so, too, when this throws bad_alloc.
  std::optional<std::string> write(Saved::State state);

 private:
  explicit StateFile(const std::string& path);
  void create();
  void writerIs();
  void addTables(const std::vector<std::string>& all, size_t there);
  void checkTables();
  void read();
  template <class Write>
  std::optional<std::string> attempt(const Write& write);
  void sync(const Saved::State& state);
  void rollBack() noexcept;

  Database database_;
  Saved::State state_;
  Past past_;
};

}  // namespace Agent
