#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

/// What configuration text is taken.
struct TextLimits {
  size_t file = size_t{64} << 20;  ///< octets of one file
  size_t all = size_t{256} << 20;  ///< and of all of them together
  /// Folders with YANG modules by which documents are validated; none: they are not.
  std::vector<std::string> yangDirs{};
};

/// What the file system says of a file. As long as this stays the same the content does, too; the exception
/// is a write that keeps the size and comes within one tick of the file system's clock; see
/// isSettled().
struct FileIdentity {
  uint64_t device = 0, inode = 0, size = 0;
  int64_t modified = 0, changed = 0;  ///< nanoseconds since the epoch

  auto operator<=>(const FileIdentity&) const = default;
};

/// The time of the system's clock as file systems have it, in nanoseconds since the epoch.
int64_t fileTime();
/// Whether the last change of a file was so long before `time` that a later change gives it another identity.
/// Then a file that was read at that time or later need not be read again while it has this identity.
bool isSettled(const FileIdentity& file, int64_t time);
/// The identity of the file that a path leads to, through links; nothing when it cannot be found out.
std::optional<FileIdentity> identityOf(const std::string& path);

/// A text, and the file that it comes from.
struct TextFile {
  std::string text;
  FileIdentity identity;
  uint64_t hash = 0;  ///< of the text; has a meaning in this process only
};

/// Adds up how much memory a change will take, text by text. That memory is taken only later, when all texts
/// have been read, so each text is asked for together with those before it.
class MemoryEstimate {
 public:
  /// Why there is no memory for a further text beside those before it; nothing if there is. Then the text
  /// counts for the next ones; otherwise it does not.
  std::optional<std::string> whyNot(const std::string& name, const std::string& text);

 private:
  uint64_t octets_ = 0;
};

/// Where a user may name a file, this is what the process has on its standard input.
inline constexpr std::string_view standardInput = "-";

/// Reads configuration texts; all of them come in by this class. It takes a bounded amount of text, and does
/// not wait for a pipe or device unless a user has named it. One object reads all texts of one configuration.
class TextReader {
 public:
  /// How it is known that a path is a configuration text.
  enum class Named {
    byUser,  ///< a user said so: pipes and devices are read to their end, which may mean to wait
    byPlace  ///< it lies in the directory, or is read again: only regular files are, never standard input
  };

  explicit TextReader(TextLimits limits) : limits_(std::move(limits)) {}

  /// The text of a file. Nothing, with a line added to `wrong`, when it cannot be read to its end, when it
  /// changes while it is read, or when there is no memory for the configuration in it.
  std::optional<TextFile> read(const std::string& path, Named named, std::vector<std::string>& wrong);
  /// The same without asking for that memory: for a text that may turn out to be known already.
  std::optional<TextFile> readOnly(const std::string& path, Named named, std::vector<std::string>& wrong);
  /// Why a text that is there already is not taken: it is too large, alone or with those before it, or there
  /// is no memory for the configuration in it. Nothing if it is; then it counts.
  std::optional<std::string> whyNot(const std::string& name, const std::string& text);
  const TextLimits& limits() const { return limits_; }
  MemoryEstimate& memory() { return memory_; }
  /// Counts a text of the configuration that need not be read again.
  void add(size_t octets) { taken_ += octets; }

 private:
  std::optional<std::string> readAll(int file, const std::string& path, bool isFile, TextFile& text) const;
  std::optional<std::string> tooLarge(const std::string& path, uint64_t octets) const;

  const TextLimits limits_;
  size_t taken_ = 0;
  MemoryEstimate memory_;
};

}  // namespace Agent
