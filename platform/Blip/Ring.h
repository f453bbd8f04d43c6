#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Blip {

/// The latest trace lines in memory of a fixed size, which is taken once: a new line overwrites as many of
/// the oldest as it needs. Lines come out whole and in the order they went in. One thread.
class Ring {
 public:
  /// Keeps `bytes` of lines; each line costs its length and 4 bytes.
  explicit Ring(size_t bytes);

  /// Adds a line; one that is longer than the whole ring is cut at its end.
  void append(std::string_view line);
  void clear();

  /// Calls `visit` for every line, the oldest first. `visit` may not append.
  void forEach(const std::function<void(std::string_view)>& visit) const;
  std::vector<std::string> lines() const;

  /// Lines kept, and lines that were overwritten since the ring was made or cleared.
  size_t lineCount() const { return count_; }
  uint64_t lostCount() const { return lost_; }

 private:
  using Length = uint32_t;
  void copyIn(const void* from, size_t size);
  void copyOut(size_t at, void* to, size_t size) const;

  const size_t size_;
  const std::unique_ptr<char[]> bytes_;
  size_t first_ = 0;  // offset of the oldest line
  size_t used_ = 0;   // bytes from there, wrapping round at the end
  size_t count_ = 0;
  uint64_t lost_ = 0;
};

/// The process's ring, of 256 KiB.
Ring& ring();

}  // namespace Blip
