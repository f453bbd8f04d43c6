#pragma once

#include <agent/state/Database.h>
#include <agent/state/State.h>

#include <memory>
#include <optional>
#include <string>

namespace Agent {

/// The file that a state is kept in: an SQLite database of this process alone while it is open. Every write
/// is a transaction, so that the file has the whole of some state at any moment, whatever ends the process.
///
/// One thread at a time.
class StateFile {
 public:
  /// Goes up with every change of what is in the tables.
  static constexpr int version = 1;

  /// Opens a file, or makes it, and reads what is in it. One that is damaged, of another version, or with ids
  /// that cannot be, is set aside (renamed, with ".aside" behind its name) and a new one made; `message` says
  /// so. Returns null, with the reason in `message`, when there can be none.
  static std::unique_ptr<StateFile> open(const std::string& path, std::string* message);

  /// What is in the file.
  const Saved::State& state() const { return state_; }

  /// Replaces it. Writes what differs. Returns what went wrong; then the file has what it had.
  std::optional<std::string> write(Saved::State state);

 private:
  explicit StateFile(const std::string& path);
  void create();
  void checkTables();
  void read();
  void sync(const Saved::State& state);
  void rollBack();

  Database database_;
  Saved::State state_;
};

}  // namespace Agent
