#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// How much configuration text is taken, in octets: of one file, and of all of them together.
struct TextLimits {
  size_t file = size_t{64} << 20;
  size_t all = size_t{256} << 20;
};

/// What the file system says of a file. While it stays the same, so does what is in the file, but for a write
/// within one tick of the clock that leaves the size: see isSettled().
struct FileIdentity {
  uint64_t device = 0, inode = 0, size = 0;
  int64_t modified = 0, changed = 0;  ///< nanoseconds since the epoch

  auto operator<=>(const FileIdentity&) const = default;
};

/// The system's clock as file systems have it, in nanoseconds since the epoch.
int64_t fileTime();
/// A file of this identity was changed so long before `time` that a change since then would have another one.
/// Whoever read it at that time, or later, needs not read it again while it has that identity.
bool isSettled(const FileIdentity& file, int64_t time);
/// Of the file that a path leads to, links followed; nothing when there is none or it cannot be asked.
std::optional<FileIdentity> identityOf(const std::string& path);

/// A text with where it comes from.
struct TextFile {
  std::string text;
  FileIdentity identity;
  uint64_t hash = 0;  ///< of the text; for this process alone
};

/// Adds up what the change that some texts make takes of memory. There is much of it only later, when all
/// have been asked for: what one may have is no longer there for the next.
class MemoryEstimate {
 public:
  /// Why a further text cannot be worked on beside those that were asked for before, if so; then it is none
  /// of them.
  std::optional<std::string> whyNot(const std::string& name, const std::string& text);

 private:
  uint64_t octets_ = 0;
};

/// The one way by which configuration texts are read: bounded, and never waiting for a file that was only
/// found somewhere. One object reads all the texts of one configuration.
class TextReader {
 public:
  /// Who says that a path is a configuration text.
  enum class Named {
    byUser,  ///< pipes and devices are read to their end, which may mean to wait for who writes them
    byPlace  ///< found in a directory: nothing but a file is read
  };

  explicit TextReader(TextLimits limits) : limits_(limits) {}

  /// The text of a file; nothing, with what is wrong added to `wrong`, when it cannot be read whole, or there
  /// is no memory for what is to be made of it. One that changes meanwhile cannot be read.
  std::optional<TextFile> read(const std::string& path, Named named, std::vector<std::string>& wrong);
  /// The same of a text of which nothing may have to be made: its memory is not asked for.
  std::optional<TextFile> readOnly(const std::string& path, Named named, std::vector<std::string>& wrong);
  MemoryEstimate& memory() { return memory_; }
  /// Counts a text among those of the configuration that need not be read again.
  void add(size_t octets) { taken_ += octets; }

 private:
  std::optional<std::string> readAll(int file, const std::string& path, bool isFile, TextFile& text) const;
  std::optional<std::string> tooLarge(const std::string& path, uint64_t octets) const;

  const TextLimits limits_;
  size_t taken_ = 0;
  MemoryEstimate memory_;
};

}  // namespace Agent
